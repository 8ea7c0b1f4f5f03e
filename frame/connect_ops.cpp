// The operations that open a conversation. Each notes the server and the account in the channel and
// lets the driver do the rest.
#include "codec/text.h"
#include "decode/boundaries.h"
#include "frame/channel.h"
#include "frame/driver.h"
#include "frame/log.h"
#include "frame/retrieval.h"
#include "frame/settings.h"
#include "retrieve/message_file.h"
#include "send/address.h"
#include "transport/tunnel_ops.h"
#include "transport/vsock.h"
#include "transport/vstream.h"

static constexpr char ConnectingNote[] = "Connecting to server...\n";

// What a secure connect is told; the ports are cut to 16 bits.
struct SecureServer {
    uint16_t LocalPort;  // where the tunnel listens
    uint16_t SecurePort; // of the real server; 0 = the tunnel runs already
    const char *Server, *User, *Password;
    const char* ProxyHost; // host of the tunnel; null or empty = this machine
};

// A text as a log line shows it.
static const char* Shown(const char* text)
{
    return text == nullptr ? "(null)" : text;
}

// What every connect that has a protocol does first: a transfer that broke off ends by the rules of the
// protocol that it was begun in.
static void BeginConnect(Channel& ch, char protocol)
{
    CloseFetchFiles(ch);
    CloseTransferFiles(ch);
    DetachFiles(ch);
    ch.Protocol = protocol;
}

// What every connect does last: runs the driver. note goes to the log.
static int32_t RunConnect(Channel& ch, State first, const char* note)
{
    vsResetRing(ch.VSock);
    vsForgetSends(ch.VSock); // of a connection that this one replaces
    ch.LineIsOpen = 0;
    StopDriver(ch);
    ch.NextState = first;
    LogText(&ch, note);
    return RunDriver(ch);
}

// The same, closing the socket if that fails.
static int32_t StartConnecting(Channel& ch, State first, const char* note)
{
    const int32_t result = RunConnect(ch, first, note);
    if (result < 0)
        CloseChannelSocket(ch);
    return result;
}

int32_t rynSmtpConnect(uint32_t channel, const char* server, const char* from, const char* replyTo)
{
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    BeginConnect(ch, 'S');
    ch.TestConnectOnly = 0;
    LogText(&ch, "*** rynSmtpConnect\r\n");
    if (server == nullptr)
        return RYN_ERR_NO_SERVER;
    CopyField(ch.ServerName, server);
    if (const int32_t status = SetSender(ch, from, replyTo); status < 0)
        return status;
    ch.ServerPort = ch.SmtpPort;
    return StartConnecting(ch, ST_SMTP_CONNECT, ConnectingNote);
}

// --- to a mailbox ---

void ResetRetrieval(Channel& ch)
{
    ch.HeaderDate[0] = 0;
    ch.HeaderContentType[0] = 0;
    ch.FromAddress[0] = 0;
    ch.ReplyToAddress[0] = 0;
    ch.SourceMode = 0;
    ch.WaitWritable = 0;
    ch.AfterConnectState = 0;
    ch.LastSockCode = 0;
    ch.EmailCount = 0;
    ch.AttachCount = 0;
    ch.LineIsOpen = 0;
    ch.NotBeforeTick = 0;
    ch.DeadlineTick = 0;
    ResetBoundaries(ch);
}

static int32_t CheckMailAccount(const char* user, const char* password)
{
    if (user == nullptr)
        return RYN_ERR_NO_USER;
    return password == nullptr ? RYN_ERR_NO_PASSWORD : 0;
}

static void SetMailAccount(Channel& ch, const char* user, const char* password)
{
    CopyField(ch.UserName, user);
    CopyField(ch.Password, password);
}

// Notes server and account, and forgets the session before: 0 or a status.
static int32_t PrepareMailConnect(Channel& ch, const char* server, const char* user,
                                  const char* password)
{
    if (server == nullptr)
        return RYN_ERR_NO_SERVER;
    if (const int32_t status = CheckMailAccount(user, password); status < 0)
        return status;
    if (ServerNameIsValid(server) == 0)
        return RYN_ERR_BAD_SERVER_NAME;
    CopyField(ch.ServerName, server);
    SetMailAccount(ch, user, password);
    ResetRetrieval(ch);
    return 0;
}

int32_t rynPop3Connect(uint32_t channel, const char* server, const char* user, const char* password)
{
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    BeginConnect(ch, 'P');
    LogText(&ch, "*** rynPop3Connect\r\n");
    if (const int32_t status = PrepareMailConnect(ch, server, user, password); status < 0)
        return status;
    ch.ServerPort = ch.Pop3Port;
    return StartConnecting(ch, ST_POP3_START, ConnectingNote);
}

int32_t rynImapConnect(uint32_t channel, const char* server, const char* user, const char* password)
{
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    BeginConnect(ch, 'I');
    LogText(&ch, "*** rynImapConnect\r\n");
    if (const int32_t status = PrepareMailConnect(ch, server, user, password); status < 0)
        return status;
    ch.ServerPort = ch.ImapPort;
    return StartConnecting(ch, ST_IMAP_START, "");
}

// --- through a tunnel ---

// The host on which the tunnel listens: as told, else this machine.
static void SetTunnelHost(Channel& ch, const char* proxyHost)
{
    if (proxyHost != nullptr && *proxyHost != 0)
        CopyField(ch.ServerName, proxyHost);
    else
        CopyField(ch.ServerName, ComputerName[0] != 0 ? ComputerName : "127.0.0.1");
}

static void LogSmtpConnectSSL(const Channel& ch, const SecureServer& to, const char* from,
                              const char* replyTo)
{
    LogFormat(ch, "*** rynSmtpConnectSSL(%d,%d,%d,'%s','%s','%s','%s','%s','%s')\r\n",
              ch.ChannelNumber, to.LocalPort, to.SecurePort, Shown(to.Server), Shown(to.User),
              ShowConnectSecrets != 0 ? Shown(to.Password) : "*", Shown(from), Shown(replyTo),
              to.ProxyHost == nullptr ? "0" : to.ProxyHost);
}

// Notes the account of an SMTP session: 1 or a status.
static int32_t SetSmtpAccount(uint32_t channel, const SecureServer& to)
{
    if (to.User == nullptr || to.Password == nullptr)
        return RYN_ERR_NO_SERVER;
    if (const int32_t status = rynStringParam(channel, RYN_AUTH_USER, to.User); status < 0)
        return status;
    if (const int32_t status = rynStringParam(channel, RYN_AUTH_PASSWORD, to.Password); status < 0)
        return status;
    return rynIntegerParam(channel, RYN_USE_EHLO, 1);
}

// Brings the tunnel up and lets the channel find it: 1 or a status.
static int32_t OpenTunnel(Channel& ch, TunnelProtocol protocol, const SecureServer& to)
{
    if (const int32_t status =
            WriteStunnelConfig(ch, protocol, to.Server, to.LocalPort, to.SecurePort);
        status < 0)
        return status;
    if (const int32_t status = StartStunnel(ch, protocol); status < 0)
        return status;
    SetTunnelHost(ch, to.ProxyHost);
    return 1;
}

// Everything up to the connect itself: 1 or a status.
static int32_t PrepareSmtpConnectSSL(uint32_t channel, const SecureServer& to, const char* from,
                                     const char* replyTo)
{
    Channel& ch = *ChannelTable[channel];
    BeginConnect(ch, 'S');
    ch.TestConnectOnly = 0;
    const bool hasTunnel = to.SecurePort == 0; // a second session through a tunnel that runs
    if (!hasTunnel && (to.Server == nullptr || to.User == nullptr || to.Password == nullptr))
        return RYN_ERR_NO_SERVER;
    if (!hasTunnel && *TunnelFolder() == 0)
        return RYN_ERR_PROXY_NOT_CONFIGURED;
    if (const int32_t status = SetSmtpAccount(channel, to); status < 0)
        return status;
    if (!hasTunnel)
        if (const int32_t status = OpenTunnel(ch, TUNNEL_SMTP, to); status < 0)
            return status;
    ch.SmtpPort = ch.ServerPort = to.LocalPort;
    return SetSender(ch, from, replyTo);
}

int32_t rynSmtpConnectSSL(uint32_t channel, uint32_t localPort, uint32_t securePort,
                          const char* server, const char* user, const char* password,
                          const char* from, const char* replyTo, const char* proxyHost)
{
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    const SecureServer to = { static_cast<uint16_t>(localPort),
                              static_cast<uint16_t>(securePort),
                              server,
                              user,
                              password,
                              proxyHost };
    LogSmtpConnectSSL(*ChannelTable[channel], to, from, replyTo);
    if (const int32_t status = PrepareSmtpConnectSSL(channel, to, from, replyTo); status < 0)
        return status;
    return StartConnecting(*ChannelTable[channel], ST_SMTP_CONNECT, ConnectingNote);
}

// The line of the log for a mailbox; ending closes the bracket, or does not.
static void LogMailConnectSSL(const Channel& ch, const char* operation, const SecureServer& to,
                              const char* ending)
{
    LogFormat(ch, "*** %s(%d,%d,%d,'%s','%s','%s','%s'%s\r\n", operation, ch.ChannelNumber,
              to.LocalPort, to.SecurePort, Shown(to.Server), Shown(to.User),
              ShowConnectSecrets != 0 ? Shown(to.Password) : "*",
              to.ProxyHost == nullptr ? "0" : to.ProxyHost, ending);
}

// The account, and the tunnel unless it runs already: 0 or a status.
static int32_t PrepareMailConnectSSL(Channel& ch, TunnelProtocol protocol, const SecureServer& to)
{
    const bool hasTunnel = to.SecurePort == 0;
    if (const int32_t status = CheckMailAccount(to.User, to.Password); status < 0)
        return status;
    if (!hasTunnel && *TunnelFolder() == 0)
        return RYN_ERR_PROXY_NOT_CONFIGURED;
    SetMailAccount(ch, to.User, to.Password);
    if (hasTunnel)
        return 0;
    if (to.Server == nullptr)
        return RYN_ERR_NULL_POINTER;
    const int32_t status = OpenTunnel(ch, protocol, to);
    return status < 0 ? status : 0;
}

// What the two mailbox protocols differ in.
struct MailTunnel {
    char Protocol;
    TunnelProtocol Tunnel;
    const char* Operation;
    const char* LogEnding;
};
static constexpr MailTunnel Pop3Tunnel = { 'P', TUNNEL_POP3, "rynPop3ConnectSSL", ")" };
static constexpr MailTunnel ImapTunnel = { 'I', TUNNEL_IMAP, "rynImapConnectSSL", "" };

// Everything up to the connect itself: 0 or a status.
static int32_t BeginMailConnectSSL(uint32_t channel, const MailTunnel& mailbox,
                                   const SecureServer& to)
{
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    LogMailConnectSSL(ch, mailbox.Operation, to, mailbox.LogEnding);
    BeginConnect(ch, mailbox.Protocol);
    if (const int32_t status = PrepareMailConnectSSL(ch, mailbox.Tunnel, to); status < 0)
        return status;
    ch.ServerPort = to.LocalPort;
    ResetRetrieval(ch);
    return 0;
}

int32_t rynPop3ConnectSSL(uint32_t channel, uint32_t localPort, uint32_t securePort,
                          const char* server, const char* user, const char* password,
                          const char* proxyHost)
{
    const SecureServer to = { static_cast<uint16_t>(localPort),
                              static_cast<uint16_t>(securePort),
                              server,
                              user,
                              password,
                              proxyHost };
    if (const int32_t status = BeginMailConnectSSL(channel, Pop3Tunnel, to); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    ch.Pop3Port = to.LocalPort;
    return StartConnecting(ch, ST_POP3_START, ConnectingNote);
}

// A socket that failed stays open here, until rynAbort or rynRelease.
int32_t rynImapConnectSSL(uint32_t channel, uint32_t localPort, uint32_t securePort,
                          const char* server, const char* user, const char* password,
                          const char* proxyHost)
{
    const SecureServer to = { static_cast<uint16_t>(localPort),
                              static_cast<uint16_t>(securePort),
                              server,
                              user,
                              password,
                              proxyHost };
    if (const int32_t status = BeginMailConnectSSL(channel, ImapTunnel, to); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    ch.ImapPort = to.LocalPort;
    return RunConnect(ch, ST_IMAP_START, to.SecurePort == 0 ? "" : "Connecting...\n");
}

// --- asking only ---

int32_t rynTestConnect(uint32_t channel, const char* server, uint32_t port, char* buffer,
                       int32_t size)
{
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    BeginConnect(ch, ch.Protocol); // which a greeting alone does not change
    LogText(&ch, "*** rynTestConnect\r\n");
    if (server == nullptr)
        return RYN_ERR_NO_SERVER;
    CopyField(ch.ServerName, server);
    ch.ServerPort = static_cast<uint16_t>(port);
    ch.TestConnectOnly = 1;
    ch.WaitWritable = 0;
    StartConnecting(ch, ST_SMTP_CONNECT, ConnectingNote);
    if (ch.AutoCallDriver == 0) { // the greeting is still to come
        if (buffer != nullptr && size >= 0)
            buffer[0] = 0;
        return 0;
    }
    ch.TestConnectOnly = 0;
    const int32_t length = rynDebug(channel, RYN_DEBUG_LAST_REPLY, buffer, size);
    return ch.LastSockCode != 0 ? ch.LastSockCode : length;
}
