// The operations that open a conversation. Each notes the server and the account in the channel and
// lets the driver do the rest.
#include "codec/text.h"
#include "frame/channel.h"
#include "frame/driver.h"
#include "frame/log.h"
#include "send/address.h"
#include "transport/vsock.h"
#include "transport/vstream.h"

// What every connect does last: runs the driver, and closes the socket if that fails.
static int32_t StartConnecting(Channel& ch, State first)
{
    DetachFiles(ch);
    vsResetRing(ch.VSock);
    ch.NextState = first;
    LogText(&ch, "Connecting to server...\n");
    const int32_t result = RunDriver(ch);
    if (result < 0)
        CloseChannelSocket(ch);
    return result;
}

int32_t rynSmtpConnect(uint32_t channel, const char* server, const char* from, const char* replyTo)
{
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    ch.Protocol = 'S';
    ch.TestConnectOnly = 0;
    LogText(&ch, "*** rynSmtpConnect\r\n");
    if (server == nullptr)
        return RYN_ERR_NO_SERVER;
    CopyField(ch.ServerName, server);
    if (const int32_t status = SetSender(ch, from, replyTo); status < 0)
        return status;
    ch.ServerPort = ch.SmtpPort;
    return StartConnecting(ch, ST_SMTP_CONNECT);
}

int32_t rynTestConnect(uint32_t channel, const char* server, uint32_t port, char* buffer,
                       int32_t size)
{
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    LogText(&ch, "*** rynTestConnect\r\n");
    if (server == nullptr)
        return RYN_ERR_NO_SERVER;
    CopyField(ch.ServerName, server);
    ch.ServerPort = static_cast<uint16_t>(port);
    ch.TestConnectOnly = 1;
    StartConnecting(ch, ST_SMTP_CONNECT);
    if (ch.AutoCallDriver == 0) { // the greeting is still to come
        if (buffer != nullptr && size >= 0)
            buffer[0] = 0;
        return 0;
    }
    ch.TestConnectOnly = 0;
    const int32_t length = rynDebug(channel, RYN_DEBUG_LAST_REPLY, buffer, size);
    return ch.LastSockCode != 0 ? ch.LastSockCode : length;
}
