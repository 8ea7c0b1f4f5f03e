// States 101 to 106. They close nothing on failure: the operation that began the connect does.
#include "frame/connect_states.h"

#include "frame/log.h"
#include "frame/settings.h"
#include "platform/platform.h"
#include "transport/channel_io.h"
#include "transport/vsock.h"

constexpr uint32_t AttemptPause = 500;   // ms behind a failed attempt
constexpr uint32_t ConnectedPause = 500; // ms in front of the first look at a new connection

int32_t CreateSocket(Channel& ch, uint32_t)
{
    const int32_t result = vsCreate(ch.LocalBindAddress);
    if (result < 0)
        return FailState(ch, ch.VSock, RYN_ERR_CANNOT_CREATE_SOCKET);
    ch.VSock = result;
    ch.OpenReply = REST_NONE;
    if (ch.LogHandle != 0) {
        vsSetOption(ch.VSock, VS_OPT_LOG_HANDLE, ch.LogHandle);
        LogFormat(ch, "vSock %i created (IP %u)\r\n", ch.VSock, ch.LocalBindAddress);
    }
    return Go(ch, ST_LOCAL_HOST);
}

int32_t LocalHost(Channel& ch, uint32_t)
{
    if (ch.LogHandle != 0) { // only the log shows the name
        vsGetHostName(ch.ReplyBuffer, ReplyReadCapacity);
        LogFormat(ch, "LocalHost = '%s'\r\n", ch.ReplyBuffer);
        ch.ReplyBuffer[0] = 0;
    }
    return Go(ch, ST_RESOLVE_SERVER);
}

int32_t ResolveServer(Channel& ch, uint32_t)
{
    LogFormat(ch, "Server = '%s'\r\n", ch.ServerName);
    const int32_t result = vsSetHost(ch.VSock, ch.ServerName);
    if (result < 1)
        return FailState(ch, result, RYN_ERR_SERVER_NOT_FOUND);
    char address[32] = "";
    vsRemoteAddress(ch.VSock, address, sizeof address);
    LogFormat(ch, "ServerIP = %s\r\n", address);
    return Go(ch, ST_CONNECT);
}

// The result of the last attempt that was made.
static int32_t TryToConnect(const Channel& ch)
{
    int32_t result = 0;
    for (uint32_t attempt = 1; attempt <= ConnectAttempts; attempt++) {
        LogFormat(ch, "vsConnect(%d,'%s',%d) attempt %u\r\n", ch.VSock, ch.ServerName,
                  ch.ServerPort, attempt);
        result = vsConnect(ch.VSock, ch.ServerName, ch.ServerPort);
        if (result >= 0)
            break;
        osSleep(AttemptPause);
    }
    return result;
}

int32_t Connect(Channel& ch, uint32_t)
{
    if (ch.NonBlockingConnect != 0)
        vsSetBlocking(ch.VSock, false);
    const int32_t result = TryToConnect(ch);
    ch.WaitWritable = 0;
    if (result < 0) {
        LogFormat(ch, "Connection not accepted by server on port %d\r\n", ch.ServerPort);
        return FailState(ch, result, RYN_ERR_CONNECT_FAILED);
    }
    LogFormat(ch, "Server has accepted connection on port %d\r\n", ch.ServerPort);
    Arm(ch, CommandGap + ConnectedPause, ConnectTimeout);
    return Go(ch, ST_WAIT_CONNECTED);
}

// The door into each protocol.
static int32_t EnterProtocol(Channel& ch)
{
    switch (ch.AfterConnectState) {
    case ST_SMTP_GREETING:
        return Go(ch, ST_SMTP_GREETING);
    case ST_POP3_GREETING:
        return Go(ch, ST_POP3_GREETING);
    case ST_IMAP_GREETING:
        return Go(ch, ST_IMAP_GREETING);
    default:
        return Finish(ch);
    }
}

int32_t WaitConnected(Channel& ch, uint32_t)
{
    const bool isReady = ch.NonBlockingConnect != 0 ? vsIsConnected(ch.VSock) == 1
                                                    : ChannelSelect(ch, VS_WAIT_WRITE) != 0;
    if (!isReady)
        return Wait(ch);
    if (ch.NonBlockingConnect != 0)
        vsSetBlocking(ch.VSock, true);
    ch.WaitWritable = 1;
    Arm(ch, CommandGap, ReplyTimeout);
    return EnterProtocol(ch);
}
