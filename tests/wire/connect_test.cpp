// Opening and leaving a conversation: how a connection comes about or fails, the greeting, the hello
// and its names, the test connect, the farewell.
#include "tests/wire/dialogue.h"

#include <algorithm>

struct ConnectTest : WireTest {};

TEST_F(ConnectTest, SaysHelloAndQuitInEveryWay)
{
    const std::string script =
        "S: 220-mail.test\nS: 220 ready\nC: HELO x.example\nS: 250 hello\n" + ByeScript();
    for (const char* way : { "whole", "byte by byte", "manual" }) {
        SCOPED_TRACE(way);
        const bool manual = *way == 'm';
        Renew();
        HostAttach();
        PeerScript(HostPort, script, { *way == 'b' });
        HostSet(0, RYN_AUTO_CALL_DRIVER, manual ? 0 : 1);
        EXPECT_EQ(Connect(manual), 0);
        EXPECT_EQ(HostDebug(0, RYN_DEBUG_LAST_REPLY), "250 hello\r\n");
        EXPECT_EQ(rynStatistics(0, RYN_STAT_REPLY_CODE), 250);
        EXPECT_EQ(HostDebug(0, RYN_DEBUG_SERVER_ADDRESS), "10.0.0.25");
        EXPECT_EQ(HostDebug(0, RYN_DEBUG_LOCAL_ADDRESS), "127.0.0.1");
        EXPECT_EQ(rynStatistics(0, RYN_STAT_VSOCK), 0);
        EXPECT_GT(rynStatistics(0, RYN_STAT_SOCKET_STATE), 0);
        EXPECT_EQ(rynIsConnected(0), 1);
        EXPECT_EQ(Close(manual), 0);
        EXPECT_EQ(PeerReceived(0), "HELO x.example\r\nQUIT\r\n");
        EXPECT_EQ(VirtualOpenSockets(), manual ? 1 : 0); // the host's own farewell leaves it open
        EXPECT_EQ(rynAbort(0), 1);
        EXPECT_EQ(rynIsConnected(0), RYN_ERR_NO_SUCH_VSOCK);
        EXPECT_EQ(rynStatistics(0, RYN_STAT_VSOCK), -1);
    }
}

TEST_F(ConnectTest, TellsItsStatesToAManualHost)
{
    HostAttach();
    HostSet(0, RYN_AUTO_CALL_DRIVER, 0);
    PeerScript(HostPort, OpenScript() + ByeScript());
    EXPECT_EQ(rynSmtpConnect(0, "server.test", Sender, nullptr), 0);
    EXPECT_EQ(VirtualOpenSockets(), 0);
    const std::vector<int32_t> results = HostDrive(0);
    EXPECT_EQ(HostPathOf(results), "101 102 104 105 106 201 202 203 0");
    // 525 ms from the connect to the first look, 375 ms behind the hello, 10 ms and 1 ms a call.
    EXPECT_GE(std::count(results.begin(), results.end(), DRIVER_NOT_YET), (525 + 375) / 11 - 1);
    const int32_t calls = rynStatistics(0, RYN_STAT_DRIVER_CALLS);
    EXPECT_GE(calls, 9);
    EXPECT_EQ(rynDriver(0), 0);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_DRIVER_CALLS), calls);
    EXPECT_EQ(rynClose(0), 0);
    EXPECT_EQ(HostPathOf(HostDrive(0)), "259 0");
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
        Renew();
        HostAttach();
        HostSet(0, RYN_USE_EHLO, static_cast<uint32_t>(row.Ehlo));
        if (row.LocalName != nullptr) {
            EXPECT_EQ(HostSetText(0, RYN_LOCAL_HOST_NAME, row.LocalName), 7);
        }
        PeerScript(HostPort, "S: 220 hi\nC: " + std::string(row.Hello) +
                                 "\nS: 250-one\nS: 250-SIZE 10\nS: 250 HELP\n" + ByeScript());
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
        { "name with @", "mail@host.example", 0, 0, 0, -46, -46, 0, 0 },
        { "empty name", "", 0, 0, 0, -46, -46, 0, 0 },
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
        EXPECT_EQ(rynStatistics(0, RYN_STAT_VSOCK), -1);
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
    } rows[] = { { 1, 1 }, { 20, 20 }, { 21, 20 }, { 0, 20 }, { 5, 5 } };
    for (const auto& row : rows) {
        const int before = VirtualNetworkCounts().Connects;
        HostSet(0, RYN_CONNECT_ATTEMPTS, row.Value);
        EXPECT_EQ(Connect(), RYN_ERR_CONNECT_FAILED);
        EXPECT_EQ(VirtualNetworkCounts().Connects - before, row.Attempts);
        EXPECT_EQ(HostErrorText(0, RYN_ERR_CONNECT_FAILED), "Error attempting to connect. ");
    }
}

TEST_F(ConnectTest, WaitsForAConnectionThatStandsLater)
{
    HostAttach();
    HostSet(0, RYN_BLOCKING_CONNECT, 0);
    VirtualSetConnect(HostPort, 0, 7000);
    PeerScript(HostPort, OpenScript() + ByeScript());
    EXPECT_EQ(Connect(), 0);
    EXPECT_GE(VirtualClockSpent(), 7000u);
    EXPECT_EQ(Close(), 0);
}

TEST_F(ConnectTest, BindsTheLocalAddress)
{
    HostAttach();
    EXPECT_EQ(HostSetText(0, RYN_LOCAL_ADDRESS, "127.0.0.9"), 0x7F000009);
    PeerScript(HostPort, "S: 220 hi\nC: HELO 127.0.0.9\nS: 250 ok\n" + ByeScript());
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
        { "S: 220 ready", 64, "220 ready\r\n", 9 },
        { "S: 220-a\nS: 220 b", 64, "220-a\r\n220 b\r\n", 12 },
        { "S: 220 ready", 5, "220 r", 5 },
        { "S: 554 go away", 64, "554 go away\r\n", 11 },
        { "S: 220 ready", 0, "", 0 },
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
    Renew();
    HostAttach();
    PeerScript(HostPort, "! silence");
    EXPECT_EQ(rynTestConnect(0, "server.test", HostPort, nullptr, 9), 0);
    EXPECT_EQ(VirtualOpenSockets(), 0);
    EXPECT_EQ(rynTestConnect(0, "server.test", 1, nullptr, 9), RYN_WSAECONNREFUSED);
    PeerScript(HostPort,
               OpenScript() + ByeScript()); // a real connect after a test goes all the way
    EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(Close(), 0);
}

TEST_F(ConnectTest, TimesOutOnSilenceAtEachStep)
{
    const struct {
        std::string Script;
        const char* Path;
        std::string Waits; // state
        uint64_t AtLeast;  // virtual ms of silence: 30 s and 2 s for the one channel
    } rows[] = {
        { "! silence", "101 102 104 105 106 201 -8", "201", 32000 },
        { "S: 220 hi\nC: HELO x.example\n! silence", "101 102 104 105 106 201 202 203 -8", "203",
          32000 },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Script);
        for (const bool manual : { false, true }) {
            Renew();
            HostAttach();
            HostSet(0, RYN_REPLY_TIMEOUT, 32000);
            PeerScript(HostPort, row.Script);
            HostSetText(0, RYN_LOG_FILE, Path("log"));
            HostSet(0, RYN_AUTO_CALL_DRIVER, manual ? 0 : 1);
            const int32_t result = rynSmtpConnect(0, "server.test", Sender, nullptr);
            if (manual)
                EXPECT_EQ(HostPathOf(HostDrive(0)), row.Path);
            else
                EXPECT_EQ(result, RYN_ERR_TIMED_OUT);
            EXPECT_GE(VirtualClockSpent(), row.AtLeast);
            EXPECT_LT(VirtualClockSpent(), row.AtLeast + 5000);
            EXPECT_EQ(rynDriver(0), 0);
            const std::string log = HostLog(Path("log"));
            const size_t first = log.find("<201:#>");
            EXPECT_NE(first, std::string::npos);
            EXPECT_EQ(log.find("<201:#>", first + 1), std::string::npos); // told once, on entry
            EXPECT_NE(log.find("ERROR(#): SockCode=0 RynCode=-8 PrevState=" + row.Waits +
                               " ThisState=-1 NextState=" + row.Waits +
                               "\r\nvSock timed out.\r\nvSock timed out."),
                      std::string::npos);
        }
    }
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
        Renew();
        HostAttach();
        PeerScript(HostPort, OpenScript() + row.Script);
        EXPECT_EQ(Connect(), 0);
        VirtualClockAdvance(10);
        VirtualClockAdvance(10);
        const int32_t result = Close();
        EXPECT_EQ(result, row.Status);
        EXPECT_EQ(VirtualOpenSockets(), 0);
        EXPECT_EQ(Close(), 0); // nothing is left to close
    }
}

TEST_F(ConnectTest, TellsWhetherTheServerHasGone)
{
    HostAttach();
    PeerScript(HostPort, OpenScript() + "! wait 5000\nS: 421 bye\n! close");
    EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(rynIsConnected(0), 1);
    VirtualClockAdvance(5000);
    EXPECT_EQ(rynIsConnected(0), 1); // what came before the close is still to be read
    EXPECT_EQ(rynAbort(0), 1);
    PeerScript(HostPort, OpenScript() + "! close");
    EXPECT_EQ(Connect(), 0);
    VirtualClockAdvance(10);
    EXPECT_EQ(rynIsConnected(0), 0);
    EXPECT_EQ(Send({}), RYN_ERR_NOT_CONNECTED);
    EXPECT_EQ(rynAbort(0), 1);
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

TEST_F(ConnectTest, AbortsManualWorkAndReturnsToAutomaticDriving)
{
    HostAttach();
    HostSet(0, RYN_AUTO_CALL_DRIVER, 0);
    PeerScript(HostPort, "S: 220 hi\n! silence", { false, -1, PEER_CUT_CLOSE, true });
    EXPECT_EQ(rynSmtpConnect(0, "server.test", Sender, nullptr), 0);
    for (int i = 0; i < 5; ++i)
        EXPECT_GT(rynDriver(0), 0);
    EXPECT_EQ(rynAbort(0), 1);
    EXPECT_EQ(rynDriver(0), 0);
    EXPECT_EQ(VirtualOpenSockets(), 0);
    PeerScript(HostPort, OpenScript() + ByeScript());
    EXPECT_EQ(Connect(), 0); // to its end, without the host's driving
    EXPECT_EQ(Close(), 0);
}
