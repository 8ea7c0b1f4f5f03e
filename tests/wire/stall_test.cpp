// Peers that stop: reading, answering, in the middle of a reply or of a message. Every operation ends
// by a status, within its waits, and the channel works again.
#include "tests/wire/dialogue.h"

namespace {

struct StallTest : WireTest {
    // A message too long for what the server takes before it falls silent.
    std::string LongText()
    {
        return "@" + Path("long");
    }
    void SetUp() override
    {
        WireTest::SetUp();
        WriteWholeFile(Path("long"), Repeat(std::string(70, 'x') + "\r\n", 4000));
    }
};

} // namespace

TEST_F(StallTest, AServerThatStopsReadingHoldsNobodyForEver)
{
    for (const bool manual : { false, true }) {
        SCOPED_TRACE(manual);
        Renew();
        HostAttach();
        HostSet(0, RYN_AUTO_CALL_DRIVER, manual ? 0 : 1);
        VirtualSetWindows(8192, 8192);
        PeerScript(HostPort,
                   OpenScript() + EnvelopeScript({ "<b@y.example>" }) + "C...\nC~ x+\n! silence",
                   { .MayEndEarly = true });
        EXPECT_EQ(Connect(manual), 0);
        EXPECT_EQ(Send({ .Message = LongText().c_str() }, manual), RYN_ERR_TIMED_OUT);
        EXPECT_EQ(rynDriver(0), 0);
        EXPECT_EQ(rynDriver(0), 0);
        const uint64_t before = VirtualClockSpent();
        EXPECT_LT(HostFinish(0, rynClose(0), manual), 0);
        EXPECT_LT(VirtualClockSpent() - before, 2 * 32000u);
        EXPECT_EQ(rynAbort(0), 1);
    }
}

TEST_F(StallTest, AServerMayPauseInTheMiddleOfAMessage)
{
    for (const bool hasLog : { false, true }) {
        SCOPED_TRACE(hasLog);
        Renew();
        HostAttach();
        VirtualSetWindows(8192, 8192);
        if (hasLog)
            HostSetText(0, RYN_LOG_FILE, Path("log"));
        PeerScript(HostPort, OpenScript() + EnvelopeScript({ "<b@y.example>" }) +
                                 "C...\nC~ x+\n! wait 10000\nC...\nC: .\nS: 250 taken\n" +
                                 ByeScript());
        EXPECT_EQ(Connect(), 0);
        EXPECT_EQ(Send({ .Message = LongText().c_str() }), 0);
        EXPECT_EQ(Close(), 0);
    }
}

TEST_F(StallTest, AConnectForgetsTheBrokenConnectionThatItReplaces)
{
    HostAttach(2);
    PeerScript(HostPort,
               OpenScript() + EnvelopeScript({ "<b@y.example>" }) + "C...\nC~ x+\n! reset",
               { .MayEndEarly = true });
    PeerScript(HostPort, Conversation("C...\nC: two\n"));
    EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(Send({ .Message = LongText().c_str() }), RYN_ERR_SOCK_WRITE);
    EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(Send({}), 0);
    EXPECT_EQ(Close(), 0);
}

TEST_F(StallTest, ABrokenConnectionNeverPassesForASentMessage)
{
    static const char* const ends[] = { "! close", "! reset" };
    for (const char* end : ends) {
        for (const char* place : { "C...\nC~ To: .*\n", "C...\nC: two\n", "C...\nC: .\n" }) {
            SCOPED_TRACE(std::string(end) + " behind " + place);
            Renew();
            HostAttach();
            PeerScript(HostPort, OpenScript() + EnvelopeScript({ "<b@y.example>" }) + place + end,
                       { .MayEndEarly = true });
            PeerScript(HostPort, Conversation("C...\nC: two\n"));
            EXPECT_EQ(Connect(), 0);
            EXPECT_EQ(Send({}), RYN_ERR_SOCK_WRITE);
            EXPECT_EQ(rynAbort(0), 1);
            EXPECT_EQ(Connect(), 0);
            EXPECT_EQ(Send({}), 0);
            EXPECT_EQ(Close(), 0);
        }
    }
}

TEST_F(StallTest, HalfAVerdictIsNone)
{
    for (const char* verdict : { "", "2", "25", "5", "55" }) {
        for (const char* ending : { "! silence", "! close", "! reset" }) {
            for (const char* way : { "whole", "manual" }) {
                SCOPED_TRACE(std::string(verdict) + " " + ending + " " + way);
                const bool manual = Begin(OpenScript() + EnvelopeScript({ "<b@y.example>" }) +
                                              "C...\nC: .\nS- " + verdict + "\n" + ending,
                                          way);
                EXPECT_EQ(Connect(manual), 0);
                const bool isMute = *verdict == 0 && ending[2] == 's';
                EXPECT_EQ(Send({}, manual), isMute ? RYN_ERR_TIMED_OUT : RYN_ERR_SOCK_WRITE);
                EXPECT_EQ(rynAbort(0), 1);
            }
        }
    }
}

TEST_F(StallTest, ATestConnectBehindASessionWaitsForItsGreeting)
{
    HostAttach();
    PeerScript(HostPort, OpenScript() + ByeScript());
    PeerScript(HostPort, "! silence", { .MayEndEarly = true });
    EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(Close(), 0);
    const uint64_t before = VirtualClockSpent();
    char greeting[64];
    rynTestConnect(0, "server.test", HostPort, greeting, sizeof greeting - 1);
    EXPECT_GE(VirtualClockSpent() - before, 32000u);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_VSOCK), -1) << "the socket of a failed connect is open";
}

TEST_F(StallTest, AFailedConnectIsToldUntilTheNext)
{
    const struct {
        const char* What;
        uint32_t Blocks;
        int32_t Rule, Result, State;
    } rows[] = {
        { "refused later", 0, -10061, RYN_ERR_TIMED_OUT, RYN_ERR_CONNECT_FAILED },
        { "refused at once", 1, -10061, RYN_ERR_CONNECT_FAILED, RYN_ERR_CONNECT_FAILED },
        { "refused at first", 1, 0, 0, 1 },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.What);
        Renew();
        HostAttach();
        SinkListen(HostPort);
        HostSet(0, RYN_BLOCKING_CONNECT, row.Blocks);
        HostSet(0, RYN_AUTO_CALL_DRIVER, 0);
        VirtualSetConnect(HostPort, row.Rule, 50);
        if (row.Rule == 0)
            FaultArm(FAULT_CONNECT, 1);
        EXPECT_EQ(Connect(true), row.Result);
        FaultDisarm();
        for (int i = 0; i < 3; i++) // the system tells it once
            EXPECT_EQ(rynStatistics(0, RYN_STAT_SOCKET_STATE), row.State);
        EXPECT_EQ(rynAbort(0), 1);
    }
}

// A send waits for a reply. What takes its place, or ends it, has no time from it.
TEST_F(StallTest, NothingInheritsADeadline)
{
    for (const bool closes : { true, false }) {
        SCOPED_TRACE(closes);
        Begin(OpenScript() + "C: MAIL FROM:<a@x.example>\n" + ByeScript(), "manual");
        EXPECT_EQ(Connect(true), 0);
        EXPECT_EQ(rynSendEmail(0, "<b@y.example>", nullptr, nullptr, "s", "m", nullptr), 0);
        for (int i = 0; i < 200; i++)
            EXPECT_GT(rynDriver(0), 0);
        if (!closes) {
            EXPECT_EQ(rynSendEmail(0, nullptr, nullptr, nullptr, "s", "m", nullptr),
                      RYN_ERR_NO_RECIPIENT);
        }
        VirtualClockAdvance(60000);
        if (!closes) {
            EXPECT_EQ(rynDriver(0), 0);
        }
        EXPECT_EQ(Close(true), 0);
    }
}

TEST_F(StallTest, ATimeOutHasNoGreatestValue)
{
    for (const uint32_t timeout : { 0xFFFFFFFFu, 0x80000000u, 0x7FFFFFFFu }) {
        SCOPED_TRACE(timeout);
        for (const bool manual : { false, true }) {
            Begin("S: 220 ready\nC: HELO x.example\nS- 250 he\n! wait 600\nS: llo\n" + ByeScript(),
                  manual ? "manual" : "whole");
            HostSet(0, RYN_REPLY_TIMEOUT, timeout);
            EXPECT_EQ(Connect(manual), 0);
            EXPECT_EQ(HostDebug(0, RYN_DEBUG_LAST_REPLY), "250 hello\r\n");
            EXPECT_EQ(Close(manual), 0);
        }
        Renew();
        HostAttach();
        PeerScript(1143, "S- * OK re\n! wait 600\nS: ady\nC~ .* LOGIN u p\nS- {T} \n! wait 600\n"
                         "S: OK\nC: {T} SELECT InBox\nS: * 3 EXISTS\n! wait 600\nS: {T} OK\n");
        HostSet(0, RYN_IMAP_PORT, 1143);
        HostSet(0, RYN_REPLY_TIMEOUT, timeout);
        EXPECT_EQ(rynImapConnect(0, "server.test", "u", "p"), 0);
        EXPECT_EQ(rynGetEmailCount(0), 3);
        EXPECT_EQ(rynAbort(0), 1);
    }
}

TEST_F(StallTest, TheRestOfARefusalIsDroppedBeforeTheNextCommand)
{
    HostAttach();
    PeerScript(HostPort,
               OpenScript() +
                   "C: MAIL FROM:<a@x.example>\nS: 451-not now\nS: 451-really\nS: 451 not\n"
                   "C: MAIL FROM:<a@x.example>\nS: 250 ok\nC: RCPT TO:<b@y.example>\n"
                   "S: 550-no\nS: 550 never\n" +
                   ByeScript(),
               { .ByteByByte = true });
    EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(Send({}), RYN_ERR_SMTP_REPLY);
    EXPECT_EQ(Send({}), RYN_ERR_SMTP_REPLY);
    EXPECT_EQ(HostDebug(0, RYN_DEBUG_LAST_REPLY), "550-no\r\n");
    EXPECT_EQ(Close(), 0);
}

TEST_F(StallTest, ARefusalThatNeverEndsIsLeftAlone)
{
    HostAttach();
    PeerScript(HostPort, OpenScript() + "C: MAIL FROM:<a@x.example>\nS- 451-\n! flood x 0",
               { .ByteByByte = true, .MayEndEarly = true });
    EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(Send({}), RYN_ERR_SMTP_REPLY);
    const uint64_t before = VirtualClockSpent();
    Close();
    EXPECT_LT(VirtualClockSpent() - before, 4 * 32000u);
}

TEST_F(StallTest, TicksMayWrapInTheMiddle)
{
    for (const uint32_t ahead : { 0u, 1u, 20u, 200u, 900u, 1500u, 3000u }) {
        SCOPED_TRACE(ahead);
        Renew();
        VirtualClockReset(0u - ahead);
        PeersReset(); // their turns are the clock's
        HostAttach();
        PeerScript(HostPort, Conversation("C...\nC: two\n"));
        EXPECT_EQ(Connect(), 0);
        EXPECT_EQ(Send({}), 0);
        EXPECT_EQ(Close(), 0);
        EXPECT_LT(VirtualClockSpent(), 10000u);
    }
}

// Lines wait beneath the socket while the library drives by itself and nobody reads a log; a host
// that drives by hand, or keeps a log, has each line sent when it is told so.
TEST_F(StallTest, LinesAreGatheredOnlyWhereNobodyCanTell)
{
    const struct {
        bool Manual, HasLog;
        int MostSends, LeastSends;
    } rows[] = { { false, false, 20, 1 },
                 { true, false, 100000, 4000 },
                 { false, true, 100000, 4000 } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Manual);
        SCOPED_TRACE(row.HasLog);
        Renew();
        HostAttach();
        HostSet(0, RYN_AUTO_CALL_DRIVER, row.Manual ? 0 : 1);
        SinkListen(2526);
        HostSet(0, RYN_SMTP_PORT, 2526);
        if (row.HasLog)
            HostSetText(0, RYN_LOG_FILE, Path("log"));
        EXPECT_EQ(Connect(row.Manual), 0);
        const int before = VirtualNetworkCounts().Sends;
        EXPECT_EQ(Send({ .Message = LongText().c_str() }, row.Manual), 0);
        const int sends = VirtualNetworkCounts().Sends - before;
        EXPECT_LE(sends, row.MostSends);
        EXPECT_GE(sends, row.LeastSends);
        EXPECT_EQ(Close(row.Manual), 0);
        EXPECT_EQ(rynAbort(0), 1);
        ASSERT_FALSE(SinkMessages().empty());
        EXPECT_NE(SinkMessages().back().Data.find(Repeat(std::string(70, 'x') + "\r\n", 4000)),
                  std::string::npos);
    }
}
