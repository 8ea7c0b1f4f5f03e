// Opening and leaving a conversation: how a connection comes about or fails, the greeting, the hello
// and its names, the test connect, the farewell.
#include "tests/wire/dialogue.h"

struct ConnectTest : WireTest {};

TEST_F(ConnectTest, SaysHelloAndQuitInEveryWay)
{
    const std::string script =
        "S: 220-mail.test\nS: 220 ready\nC: HELO x.example\nS: 250 hello\n" + ByeScript();
    for (const char* way : { "whole", "byte by byte", "manual" }) {
        SCOPED_TRACE(way);
        const bool manual = Begin(script, way);
        EXPECT_EQ(Connect(manual), 0);
        EXPECT_EQ(HostDebug(0, RYN_DEBUG_LAST_REPLY), "250 hello\r\n");
        EXPECT_EQ(HostDebug(0, RYN_DEBUG_SERVER_ADDRESS), "10.0.0.25");
        EXPECT_EQ(rynIsConnected(0), 1);
        EXPECT_EQ(Close(manual), 0);
        EXPECT_EQ(PeerReceived(0), "HELO x.example\r\nQUIT\r\n");
        EXPECT_EQ(VirtualOpenSockets(), manual ? 1 : 0); // the host's own farewell leaves it open
        EXPECT_EQ(rynAbort(0), 1);
        EXPECT_EQ(rynIsConnected(0), RYN_ERR_NO_SUCH_VSOCK);
    }
}

TEST_F(ConnectTest, NamesItselfByTheFirstRuleThatApplies)
{
    const struct {
        const char* LocalName;
        const char* From;
        int Ehlo;
        const char* Hello;
    } rows[] = {
        { nullptr, "John <john@mail.example>", 0, "HELO mail.example" },
        { nullptr, "<a@b.c> x", 1, "EHLO b.c" },
        { nullptr, "<abc>", 1, "EHLO 127.0.0.1" },
        { nullptr, "\"a@b\" <x@y.z>", 0, "HELO b\" <x@y.z" },
        { "my.name", "<a@b.c>", 0, "HELO my.name" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Hello);
        Begin("S: 220 hi\nC: " + std::string(row.Hello) +
              "\nS: 250-one\nS: 250-SIZE 10\nS: 250 HELP\n" + ByeScript());
        HostSet(0, RYN_USE_EHLO, static_cast<uint32_t>(row.Ehlo));
        if (row.LocalName != nullptr)
            HostSetText(0, RYN_LOCAL_HOST_NAME, row.LocalName);
        EXPECT_EQ(rynSmtpConnect(0, "localhost", row.From, ""), 0);
        EXPECT_EQ(HostDebug(0, RYN_DEBUG_LAST_REPLY), "250-one\r\n250-SIZE 10\r\n250 HELP\r\n");
        EXPECT_EQ(rynClose(0), 0);
    }
}

TEST_F(ConnectTest, TellsWhyThereIsNoConnection)
{
    const struct {
        const char* What;
        const char* Server;
        int32_t Rule;
        uint32_t Delay;
        int NonBlocking;
        int32_t Status, SockCode;
        int Attempts;
        uint32_t AtLeast; // virtual ms
    } rows[] = {
        { "unknown name", "no.such.host", 0, 0, 0, -46, -46, 0, 0 },
        { "refused", "server.test", 0, 0, 0, -36, -10061, 3, 1500 },
        { "unreachable", "10.9.9.9", 0, 0, 0, -36, -10051, 3, 1500 },
        { "no route", "server.test", -10065, 20, 0, -36, -10065, 3, 1560 },
        { "never decided", "server.test", 0, VirtualNever, 0, -36, -10060, 3, 3 * 127000 },
        { "refused later", "server.test", -10061, 300, 1, -8, 0, 1, 30000 },
        { "never decided, not blocking", "server.test", 0, VirtualNever, 1, -8, 0, 1, 30000 },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.What);
        Renew();
        HostAttach();
        HostSet(0, RYN_BLOCKING_CONNECT, row.NonBlocking ? 0 : 1);
        VirtualSetConnect(HostPort, row.Rule, row.Delay);
        EXPECT_EQ(rynSmtpConnect(0, row.Server, Sender, nullptr), row.Status);
        EXPECT_EQ(rynStatistics(0, RYN_STAT_SOCK_CODE), row.SockCode);
        EXPECT_EQ(VirtualNetworkCounts().Connects, row.Attempts);
        EXPECT_GE(VirtualClockSpent(), row.AtLeast);
        EXPECT_EQ(VirtualOpenSockets(), 0);
        EXPECT_EQ(rynDriver(0), 0);
        PeerScript(HostPort, OpenScript() + ByeScript()); // the channel is as good as new
        VirtualSetConnect(HostPort, 0, 0);
        EXPECT_EQ(Connect(), 0);
        EXPECT_EQ(Close(), 0);
    }
}

TEST_F(ConnectTest, TriesAsOftenAsSetAndWithinBounds)
{
    HostAttach();
    const struct {
        uint32_t Value;
        int Attempts;
    } rows[] = { { 1, 1 }, { 20, 20 }, { 21, 20 }, { 0, 20 } };
    for (const auto& row : rows) {
        const int before = VirtualNetworkCounts().Connects;
        HostSet(0, RYN_CONNECT_ATTEMPTS, row.Value);
        EXPECT_EQ(Connect(), RYN_ERR_CONNECT_FAILED);
        EXPECT_EQ(VirtualNetworkCounts().Connects - before, row.Attempts);
    }
}

TEST_F(ConnectTest, WaitsForAConnectionThatStandsLater)
{
    Begin(OpenScript() + ByeScript());
    HostSet(0, RYN_BLOCKING_CONNECT, 0);
    VirtualSetConnect(HostPort, 0, 7000);
    EXPECT_EQ(Connect(), 0);
    EXPECT_GE(VirtualClockSpent(), 7000u);
    EXPECT_EQ(Close(), 0);
}

TEST_F(ConnectTest, BindsTheLocalAddress)
{
    Begin("S: 220 hi\nC: HELO 127.0.0.9\nS: 250 ok\n" + ByeScript());
    EXPECT_EQ(HostSetText(0, RYN_LOCAL_ADDRESS, "127.0.0.9"), 0x7F000009);
    EXPECT_EQ(rynSmtpConnect(0, "server.test", "<abc>", nullptr), 0);
    EXPECT_EQ(HostDebug(0, RYN_DEBUG_LOCAL_ADDRESS), "127.0.0.9");
    EXPECT_EQ(Close(), 0);
}

TEST_F(ConnectTest, TakesAGreetingAndSendsNothing)
{
    const struct {
        const char* Script;
        int32_t Size;
        const char* Text;
        int32_t Result;
    } rows[] = {
        { "S: 220-a\nS: 220 b", 64, "220-a\r\n220 b\r\n", 12 },
        { "S: 220 ready", 5, "220 r", 5 },
        { "S: 554 go away", 64, "554 go away\r\n", 11 },
        { "S: 220 ready", -1, "?", 0 },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Script);
        Renew();
        ASSERT_EQ(rynAttach(1), 999);
        PeerScript(HostPort, row.Script);
        char buffer[80] = "?";
        EXPECT_EQ(rynTestConnect(0, "server.test", 0x10000 + HostPort, buffer, row.Size),
                  row.Result);
        EXPECT_STREQ(buffer, row.Text);
        EXPECT_EQ(PeerReceived(0), "");
        EXPECT_EQ(rynAbort(0), 1);
    }
    Begin("! silence");
    EXPECT_EQ(rynTestConnect(0, "server.test", HostPort, nullptr, 9), 0);
    EXPECT_EQ(VirtualOpenSockets(), 0);
    EXPECT_EQ(rynTestConnect(0, "server.test", 1, nullptr, 9), RYN_WSAECONNREFUSED);
}

TEST_F(ConnectTest, TellsTheStateThatTimedOutOnce)
{
    Begin("S: 220 hi\nC: HELO x.example\n! silence", "manual");
    HostSetText(0, RYN_LOG_FILE, Path("log"));
    EXPECT_EQ(rynSmtpConnect(0, "server.test", Sender, nullptr), 0);
    EXPECT_EQ(HostPathOf(HostDrive(0)), "101 102 104 105 106 201 202 203 -8");
    const std::string log = HostLog(Path("log"));
    EXPECT_EQ(log.find("<203:#>"), log.rfind("<203:#>")); // on entry
    EXPECT_NE(log.find("<203:#>\r\nERROR(#): SockCode=0 RynCode=-8 PrevState=203 ThisState=-1 "
                       "NextState=203\r\nvSock timed out.\r\nvSock timed out."),
              std::string::npos);
}

TEST_F(ConnectTest, ClosesInSpiteOfABadFarewell)
{
    const struct {
        const char* Script;
        int32_t Status;
    } rows[] = { { "C: QUIT\nS: 221-a\nS: 221 b", 0 },
                 { "C: QUIT\nS: 421 no", RYN_ERR_SMTP_REPLY },
                 { "C: QUIT\n! close", 0 },
                 { "C: QUIT\n! reset", 0 },
                 { "C: QUIT\n! silence", RYN_ERR_TIMED_OUT },
                 { "! wait 10\n! reset", RYN_ERR_SOCK_WRITE },
                 { "! wait 10\n! close", RYN_ERR_SOCK_WRITE } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Script);
        Begin(OpenScript() + row.Script);
        EXPECT_EQ(Connect(), 0);
        VirtualClockAdvance(10);
        VirtualClockAdvance(10);
        EXPECT_EQ(Close(), row.Status);
        EXPECT_EQ(VirtualOpenSockets(), 0);
        EXPECT_EQ(Close(), 0); // nothing is left to close
    }
}

TEST_F(ConnectTest, LosesASecondConnectionUntilTheRelease)
{
    HostAttach(3);
    SinkListen(HostPort);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_VSOCK), 2);
    EXPECT_EQ(Connect(), RYN_ERR_CANNOT_CREATE_SOCKET);
    EXPECT_EQ(VirtualNetworkCounts().Creates, 3);
}
