// The table of protocols, and what each tells the library before a connect.
#include "protocol.h"

#include "ryn32.h"
#include "session.h"

constexpr char TunnelHost[] = "127.0.0.1";

static int32_t StartSmtp(const Target& target, const Login& login)
{
    if (target.TunnelPort == 0) {
        rynIntegerParam(Channel, RYN_SMTP_PORT, target.Port);
        return rynSmtpConnect(Channel, target.Host.c_str(), target.From, nullptr);
    }
    // A secure connect asks for an account; without a login it is never sent.
    const char* user = login.IsWanted ? login.User.c_str() : "none";
    const char* secret = login.IsWanted ? login.Secret.c_str() : "none";
    return rynSmtpConnectSSL(Channel, target.TunnelPort, target.Port, target.Host.c_str(), user,
                             secret, target.From, nullptr, TunnelHost);
}

static int32_t StartPop3(const Target& target, const Login& login)
{
    const char* user = login.User.c_str();
    const char* secret = login.Secret.c_str();
    if (target.TunnelPort == 0) {
        rynIntegerParam(Channel, RYN_POP3_PORT, target.Port);
        return rynPop3Connect(Channel, target.Host.c_str(), user, secret);
    }
    return rynPop3ConnectSSL(Channel, target.TunnelPort, target.Port, target.Host.c_str(), user,
                             secret, TunnelHost);
}

static int32_t StartImap(const Target& target, const Login& login)
{
    const char* user = login.User.c_str();
    const char* secret = login.Secret.c_str();
    if (target.TunnelPort == 0) {
        rynIntegerParam(Channel, RYN_IMAP_PORT, target.Port);
        return rynImapConnect(Channel, target.Host.c_str(), user, secret);
    }
    return rynImapConnectSSL(Channel, target.TunnelPort, target.Port, target.Host.c_str(), user,
                             secret, TunnelHost);
}

constexpr Protocol ProtocolTable[] = {
    { &Options::Server, 25, 465, 587, true, nullptr, "/SmtpLog(0).txt", StartSmtp },
    { &Options::Pop3, 110, 995, 110, false, "protocol = pop3", "/Pop3Log(0).txt", StartPop3 },
    { &Options::Imap, 143, 993, 143, false, "protocol = imap", "/ImapLog(0).txt", StartImap },
};

const Protocol& ProtocolOf(const Options& options)
{
    for (const Protocol& row : ProtocolTable)
        if (options.*row.Server)
            return row;
    return ProtocolTable[0];
}
