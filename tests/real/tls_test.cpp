// Logins and TLS with a real server: Exim asks for credentials, stunnel speaks TLS to it, started by
// the launcher that the project installs. Each case has a server and an authority of its own.
#include "include/ryn32.h"
#include "tests/real/exim_server.h"
#include "tests/real/stunnel_certs.h"
#include "tests/real/stunnel_watch.h"
#include "tests/support/temp_folder.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr char Sender[] = "Ann <ann@client.test>";
constexpr char Alice[] = "<alice@example.test>";
constexpr char Elsewhere[] = "<x@elsewhere.test>"; // taken from those who have logged in alone
constexpr char Token[] = "user=alice\x01"
                         "auth=Bearer tok\x01\x01"; // as rynMakeXOAuth2 makes it
constexpr char WrongToken[] = "user=alice\x01"
                              "auth=Bearer tox\x01\x01";

void MakeProgram(const std::string& path, const std::string& commands)
{
    WriteWholeFile(path, "#!/bin/sh\n" + commands + "\n");
    chmod(path.c_str(), 0755);
}

std::string LastReply()
{
    char reply[2048 + 1];
    rynDebug(0, RYN_DEBUG_LAST_REPLY, reply, 2048);
    return reply;
}

// Keeps a port from everybody without listening on it.
int OccupyPort(uint32_t port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    const int handle = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(handle, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    return handle;
}

struct RealTls : testing::Test {
    EximServer Server;
    std::string Folder; // configurations, certificates, logs
    uint32_t TunnelPort = 0;

    void SetUp() override
    {
        Folder = TempFolderMake();
        ASSERT_EQ(MakeAuthority(Folder, "ca"), "");
        ASSERT_EQ(MakeCertificate(Folder, "ca", "server", "localhost", 0), "");
        StartServer("server");
        // A tunnel ends with the test, even if that crashes.
        MakeProgram(Folder + "/guarded-stunnel",
                    "exec setpriv --pdeathsig KILL stunnel4 \"$@\" 2>>'" + Folder + "/stderr'");
        setenv("RYN32_STUNNEL", (Folder + "/guarded-stunnel").c_str(), 1);
        TunnelPort = FreeTunnelPort();
    }

    void TearDown() override
    {
        rynRelease();
        EXPECT_EQ(Tunnels(), std::vector<int32_t>());
        EXPECT_FALSE(PortIsOpen(TunnelPort));
        StopExim(Server);
        TempFolderRemove(Folder);
    }

    void StartServer(const std::string& certificate)
    {
        ASSERT_EQ(StartExim(Server, Folder + "/" + certificate + ".pem"), "");
    }

    void Attach(uint32_t channels = 1)
    {
        ASSERT_EQ(rynAttach(channels), 999);
        for (uint32_t channel = 0; channel < channels; ++channel) {
            ASSERT_EQ(rynIntegerParam(channel, RYN_SMTP_PORT, Server.Port), 1);
            ASSERT_EQ(rynIntegerParam(channel, RYN_USE_EHLO, 1), 1);
        }
        ASSERT_EQ(rynIntegerParam(0, RYN_COMMAND_GAP, 0), 1);
        ASSERT_EQ(rynIntegerParam(0, RYN_CONNECT_ATTEMPTS, 20), 1); // for a machine under load
        ASSERT_GT(rynStringParam(0, RYN_LOG_FILE, (Folder + "/log").c_str()), 0);
    }

    void Configure(const char* program = RYN_TUNNEL_LAUNCHER)
    {
        ASSERT_EQ(rynSetProxySSL(0, 0, Folder.c_str(), "server.pem", program), 1);
    }

    void Trust(const std::string& authority)
    {
        const std::string file = Folder + "/" + authority + ".pem";
        ASSERT_EQ(rynSetCertAuth(nullptr, file.c_str()), static_cast<int32_t>(file.size()));
    }

    int32_t ConnectSecure(uint32_t securePort, const char* server = "localhost",
                          uint32_t channel = 0)
    {
        return rynSmtpConnectSSL(channel, TunnelPort, securePort, server, "alice", "secret1",
                                 Sender, nullptr, "127.0.0.1");
    }

    int32_t Send(const char* to, const std::string& message = "hello")
    {
        return rynSendEmail(0, to, nullptr, nullptr, "x", message.c_str(), nullptr);
    }

    // A message arrives, from somebody who has logged in, and the n-th of its kind.
    void ExpectDelivery(size_t n)
    {
        std::string bytes;
        EXPECT_EQ(Send(Elsewhere, "number " + std::to_string(n)), 0);
        EXPECT_TRUE(WaitForMail(Server, "remote", n, bytes));
        EXPECT_NE(bytes.find("\n\nnumber " + std::to_string(n) + "\n"), std::string::npos) << bytes;
    }

    // Alice logs in, and the server's log names the method for her message, the n-th to go out.
    void ExpectLogin(const char* password, const std::string& method, size_t n)
    {
        rynStringParam(0, RYN_AUTH_USER, "alice");
        rynStringParam(0, RYN_AUTH_PASSWORD, password);
        ASSERT_EQ(rynSmtpConnect(0, "127.0.0.1", Sender, nullptr), 0);
        EXPECT_EQ(rynStatistics(0, RYN_STAT_REPLY_CODE), 235);
        ExpectDelivery(n);
        EXPECT_EQ(rynClose(0), 0);
        EXPECT_NE(ServerLog().find(" A=" + method + " "), std::string::npos) << ServerLog();
    }

    // Children that are no mail server.
    std::vector<int32_t> Tunnels()
    {
        std::vector<int32_t> tunnels;
        for (const int32_t process : ChildProcesses())
            if (process != Server.Guardian)
                tunnels.push_back(process);
        return tunnels;
    }

    int32_t Tunnel()
    {
        const std::vector<int32_t> tunnels = Tunnels();
        EXPECT_EQ(tunnels.size(), 1U);
        return tunnels.empty() ? 0 : tunnels[0];
    }

    std::string TunnelLog()
    {
        return ReadWholeFile(Folder + "/SmtpLog(0).txt");
    }

    std::string ServerLog()
    {
        return ReadWholeFile(Server.Folder + "/spool/mainlog");
    }

    // The server's identity is refused: nobody logs in, nothing is sent.
    void ExpectRefusal(const char* reason)
    {
        const int32_t result = ConnectSecure(Server.Port);
        EXPECT_TRUE(result < 0 || rynIsConnected(0) == 0) << result;
        EXPECT_LT(Send(Alice), 0);
        EXPECT_NE(TunnelLog().find(reason), std::string::npos) << TunnelLog();
        EXPECT_EQ(CountMail(Server, "alice"), 0U);
        rynAbort(0);
    }
};

} // namespace

// --- logins ---

TEST_F(RealTls, LogsInByEachMethodWithTheRightSecretOnly)
{
    Attach();
    const struct {
        const char *Offer, *Right, *Wrong, *Name; // of the server's log
    } rows[] = {
        { "CRAM-MD5", "secret1", "secret2", "cram" },
        { "LOGIN", "secret1", "secret", "login" },
        { "PLAIN", "secret1", "secret11", "plain" },
        { "XOAUTH2", Token, WrongToken, "xoauth2" },
    };
    rynIntegerParam(0, RYN_AUTH_METHODS, 15);
    size_t count = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Offer);
        WriteWholeFile(Server.Folder + "/offer", row.Offer);
        rynStringParam(0, RYN_AUTH_PASSWORD, row.Wrong);
        EXPECT_EQ(rynSmtpConnect(0, "127.0.0.1", Sender, nullptr), RYN_ERR_SMTP_REPLY);
        EXPECT_EQ(LastReply(), "535 Incorrect authentication data\r\n");
        EXPECT_EQ(rynIsConnected(0), RYN_ERR_NO_SUCH_VSOCK);
        ExpectLogin(row.Right, row.Name, ++count);
    }
    rynRelease();
    const std::string log = ReadWholeFile(Folder + "/log");
    for (const char* secret : { "secret1", "c2VjcmV0", "Bearer" })
        EXPECT_EQ(log.find(secret), std::string::npos) << secret;
}

TEST_F(RealTls, LogsInByTheMethodThatTheHostAllows)
{
    Attach();
    const struct {
        uint32_t Methods;
        const char *Password, *Name;
    } rows[] = { { 1, "secret1", "cram" },
                 { 2, "secret1", "login" },
                 { 4, "secret1", "plain" },
                 { 8, Token, "xoauth2" } };
    size_t count = 0;
    for (const auto& row : rows) { // the server offers all four
        SCOPED_TRACE(row.Name);
        rynIntegerParam(0, RYN_AUTH_METHODS, row.Methods);
        ExpectLogin(row.Password, row.Name, ++count);
    }
}

TEST_F(RealTls, IsNobodyWithoutALogin)
{
    Attach();
    WriteWholeFile(Server.Folder + "/offer", "XOAUTH2");
    ASSERT_EQ(rynSmtpConnect(0, "127.0.0.1", Sender, nullptr), 0);
    EXPECT_EQ(Send(Elsewhere), RYN_ERR_SMTP_REPLY);
    EXPECT_EQ(LastReply(), "550 relay not permitted\r\n");
    EXPECT_EQ(rynClose(0), 0);
}

// A credential that takes more than one line of Base64 is refused by servers that keep to RFC 4954.
TEST_F(RealTls, LogsInWithCredentialsOfOneLine)
{
    Attach();
    const struct {
        const char* Method;
        size_t Length;
        int32_t Status;
    } rows[] = { { "PLAIN", 112 - 2 * 4, 0 },
                 { "PLAIN", 113 - 2 * 4, RYN_ERR_SMTP_REPLY },
                 { "LOGIN", 114, 0 },
                 { "LOGIN", 115, RYN_ERR_SMTP_REPLY },
                 { "CRAM-MD5", 1000, 0 } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Method + std::to_string(row.Length));
        const std::string password(row.Length, 'p');
        WriteWholeFile(Server.Folder + "/users.smtp", "dave: " + password + "\n");
        WriteWholeFile(Server.Folder + "/offer", row.Method);
        rynStringParam(0, RYN_AUTH_USER, "dave");
        rynStringParam(0, RYN_AUTH_PASSWORD, password.c_str());
        EXPECT_EQ(rynSmtpConnect(0, "127.0.0.1", Sender, nullptr), row.Status);
        rynAbort(0);
    }
}

// --- TLS ---

TEST_F(RealTls, SpeaksTlsFromTheFirstByteAndByStartTls)
{
    // Only port 465 means TLS from the first byte: the server's own port is put in its place.
    const std::string program = Folder + "/port465";
    MakeProgram(program, "sed 's/:465/:" + std::to_string(Server.TlsPort) +
                             "/' <\"$1\" >\"$1.465\"\nexec '" RYN_TUNNEL_LAUNCHER "' \"$1.465\"");
    size_t count = 0;
    for (const bool startsByTls : { true, false }) {
        Attach();
        Configure(startsByTls ? program.c_str() : RYN_TUNNEL_LAUNCHER);
        Trust("ca");
        ASSERT_EQ(ConnectSecure(startsByTls ? 465 : Server.Port), 0) << TunnelLog();
        EXPECT_EQ(rynStatistics(0, RYN_STAT_REPLY_CODE), 235);
        ExpectDelivery(++count);
        EXPECT_NE(ServerLog().rfind("X=TLS1."), std::string::npos);
        EXPECT_EQ(rynClose(0), 0);
        EXPECT_EQ(Tunnels().size(), 0U);
        EXPECT_FALSE(PortIsOpen(TunnelPort));
        rynRelease();
    }
    const std::string log = ServerLog();
    size_t sessions = 0;
    for (size_t at = log.find("X=TLS1."); at != std::string::npos; at = log.find("X=TLS1.", at + 1))
        ++sessions;
    EXPECT_EQ(sessions, 2U);
}

TEST_F(RealTls, FindsStunnelByItself)
{
    unsetenv("RYN32_STUNNEL");
    Attach();
    Configure();
    ASSERT_EQ(ConnectSecure(Server.Port), 0) << TunnelLog();
    ExpectDelivery(1);
    EXPECT_EQ(rynClose(0), 0);
}

TEST_F(RealTls, RefusesAnotherAuthority)
{
    ASSERT_EQ(MakeAuthority(Folder, "stranger"), "");
    Attach();
    Configure();
    Trust("stranger");
    ExpectRefusal("Rejected by CERT");
}

TEST_F(RealTls, RefusesAnotherName)
{
    StopExim(Server);
    ASSERT_EQ(MakeCertificate(Folder, "ca", "other", "other.test", 0), "");
    StartServer("other");
    Attach();
    Configure();
    Trust("ca");
    ExpectRefusal("Rejected by CERT");
    EXPECT_NE(TunnelLog().find("Subject checks failed"), std::string::npos) << TunnelLog();
}

TEST_F(RealTls, VerifiesNothingWithoutAnAuthority)
{
    StopExim(Server);
    ASSERT_EQ(MakeCertificate(Folder, "ca", "other", "other.test", 0), "");
    StartServer("other");
    Attach();
    Configure();
    ASSERT_EQ(ConnectSecure(Server.Port), 0) << TunnelLog();
    ExpectDelivery(1);
}

TEST_F(RealTls, AsksTheResponderThatACertificateNames)
{
    StopExim(Server);
    const uint32_t port = FreeTunnelPort();
    ASSERT_EQ(MakeCertificate(Folder, "ca", "asked", "localhost", port), "");
    StartServer("asked");
    const struct {
        const char* Way;
        bool IsUp, IsRevoked;
    } rows[] = { { "down", false, false }, { "revoked", true, true }, { "good", true, false } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Way);
        Attach();
        Configure();
        Trust("ca");
        const pid_t responder = row.IsUp ? StartResponder(Folder, "ca", port, row.IsRevoked) : 0;
        if (row.IsUp && !row.IsRevoked) {
            EXPECT_EQ(ConnectSecure(Server.Port), 0) << TunnelLog();
            ExpectDelivery(1);
        } else {
            ExpectRefusal("OCSP");
        }
        StopResponder(responder);
        rynRelease();
    }
}

// --- the tunnel's life ---

TEST_F(RealTls, FailsWhenTheTunnelCannotStart)
{
    Attach();
    rynIntegerParam(0, RYN_CONNECT_ATTEMPTS, 2);
    Configure();
    // A line that stunnel does not know: it ends, and nobody listens.
    ASSERT_GT(rynConfigSSL(1, "nonsense = 1"), 0);
    EXPECT_EQ(ConnectSecure(Server.Port), RYN_ERR_CONNECT_FAILED);
    AwaitEnd(Tunnel());
    EXPECT_NE(ReadWholeFile(Folder + "/stderr").find("nonsense"), std::string::npos);
    // Another process has the port.
    ASSERT_GT(rynConfigSSL(1, "debug = 5"), 0);
    const int taken = OccupyPort(TunnelPort);
    EXPECT_EQ(ConnectSecure(Server.Port), RYN_ERR_CONNECT_FAILED);
    AwaitEnd(Tunnel());
    close(taken);
    // The dead one is noticed, and the next serves.
    rynIntegerParam(0, RYN_CONNECT_ATTEMPTS, 20);
    ASSERT_EQ(ConnectSecure(Server.Port), 0) << TunnelLog();
    ExpectDelivery(1);
    EXPECT_EQ(rynClose(0), 0);
    // No program at all.
    WriteWholeFile(Folder + "/plain.txt", "no program\n");
    Configure("plain.txt");
    EXPECT_EQ(ConnectSecure(Server.Port), RYN_ERR_PROXY_START);
    EXPECT_EQ(Tunnels().size(), 0U);
}

TEST_F(RealTls, NoticesATunnelThatDiesInTheMiddleOfAMessage)
{
    Attach();
    Configure();
    ASSERT_EQ(ConnectSecure(Server.Port), 0) << TunnelLog();
    const int32_t first = Tunnel();
    std::string message;
    for (int i = 0; i < 20000; ++i)
        message += "one of many lines of a long message\r\n";
    ASSERT_EQ(rynIntegerParam(0, RYN_AUTO_CALL_DRIVER, 0), 1);
    ASSERT_EQ(Send(Alice, message), 0);
    int32_t result = 1;
    while (result > 0 && rynStatistics(0, RYN_STAT_MSG_BYTES_OUT) < 50000)
        result = rynDriver(0);
    ASSERT_GT(result, 0);
    EXPECT_EQ(kill(first, SIGKILL), 0);
    AwaitEnd(first);
    while (result > 0)
        result = rynDriver(0);
    EXPECT_EQ(result, RYN_ERR_SOCK_WRITE);
    EXPECT_EQ(rynIsConnected(0), 0);
    EXPECT_EQ(rynAbort(0), 1); // back to automatic driving
    // The next secure connect starts another tunnel.
    ASSERT_EQ(ConnectSecure(Server.Port), 0) << TunnelLog();
    EXPECT_NE(Tunnel(), first);
    EXPECT_EQ(Send(Alice), 0);
    std::string bytes;
    EXPECT_TRUE(WaitForMail(Server, "alice", 1, bytes));
    EXPECT_NE(bytes.find("\n\nhello\n"), std::string::npos);
    EXPECT_EQ(rynClose(0), 0);
    EXPECT_EQ(CountMail(Server, "alice"), 1U); // nothing of the broken one
}

TEST_F(RealTls, ServesASecondSessionThroughARunningTunnel)
{
    Attach(2);
    Configure();
    ASSERT_EQ(ConnectSecure(Server.Port), 0) << TunnelLog();
    const int32_t tunnel = Tunnel();
    ExpectDelivery(1);
    EXPECT_EQ(rynAbort(0), 1);
    EXPECT_TRUE(PortIsOpen(TunnelPort));
    ASSERT_EQ(
        rynSmtpConnectSSL(0, TunnelPort, 0, nullptr, "alice", "secret1", Sender, nullptr, nullptr),
        0);
    EXPECT_EQ(Tunnel(), tunnel);
    ExpectDelivery(2);
    // A second channel has a tunnel of its own, that outlives the first.
    const uint32_t firstPort = TunnelPort;
    TunnelPort = FreeTunnelPort();
    ASSERT_EQ(ConnectSecure(Server.Port, "localhost", 1), 0);
    EXPECT_EQ(Tunnels().size(), 2U);
    EXPECT_EQ(rynClose(0), 0);
    EXPECT_FALSE(ProcessExists(tunnel)); // no zombie either
    EXPECT_FALSE(PortIsOpen(firstPort));
    EXPECT_TRUE(PortIsOpen(TunnelPort));
    EXPECT_EQ(rynIsConnected(1), 1);
    EXPECT_EQ(rynRelease(), 1);
    EXPECT_EQ(Tunnels().size(), 0U);
    EXPECT_FALSE(PortIsOpen(TunnelPort));
}

// --- the launcher ---

TEST_F(RealTls, LaunchesFromFoldersWithOddNames)
{
    for (const char* name :
         { "with blank", "br(ack)et's $HOME `x` & ; # *", "\xC3\xA9t\xC3\xA9" }) {
        SCOPED_TRACE(name);
        const std::string odd = Folder + "/" + name;
        ASSERT_EQ(mkdir(odd.c_str(), 0755), 0);
        Attach();
        ASSERT_EQ(rynSetProxySSL(0, 0, odd.c_str(), (Folder + "\\server.pem").c_str(),
                                 RYN_TUNNEL_LAUNCHER),
                  1);
        Trust("ca");
        ASSERT_EQ(ConnectSecure(Server.Port), 0) << ReadWholeFile(Folder + "/stderr");
        EXPECT_EQ(rynStatistics(0, RYN_STAT_REPLY_CODE), 235);
        EXPECT_EQ(rynClose(0), 0);
        EXPECT_NE(ReadWholeFile(odd + "/SmtpLog(0).txt").find("Service [ssmtp]"),
                  std::string::npos);
        rynRelease();
    }
}

TEST_F(RealTls, LaunchesNothingWithoutAConfiguration)
{
    for (const std::string& argument : { std::string(), Folder + "/missing.txt", Folder }) {
        const std::string line =
            "'" RYN_TUNNEL_LAUNCHER "' '" + argument + "' 2>'" + Folder + "/said' </dev/null";
        const int status = system(line.c_str());
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
        EXPECT_NE(ReadWholeFile(Folder + "/said").find("cannot read"), std::string::npos);
    }
}
