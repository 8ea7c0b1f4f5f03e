// What goes wrong on the wire, on the disk and in memory: whatever it is, the host gets a told
// status, the channel connects again, and nothing is left behind.
#include "tests/wire/dialogue.h"

struct FaultsTest : WireTest {};

struct Outcome {
    int32_t Connect, Send, Close;
};

static void ExpectTold(int32_t status)
{
    if (status < 0) {
        EXPECT_NE(HostErrorText(0, status), "") << status;
    }
}

// As a host does it: a failed step is followed by the abort.
static Outcome Converse(const Mail& mail)
{
    Outcome result = { Connect(), 0, 0 };
    if (result.Connect == 0)
        result.Send = Send(mail);
    if (result.Connect == 0 && result.Send == 0)
        result.Close = Close();
    ExpectTold(result.Connect);
    ExpectTold(result.Send);
    ExpectTold(result.Close);
    EXPECT_EQ(rynAbort(0), 1);
    EXPECT_EQ(VirtualOpenSockets(), 0);
    return result;
}

// The channel is as good as new: an honest server gets a whole message.
static void ExpectUsable()
{
    const size_t before = SinkMessages().size();
    SinkListen(HostPort);
    Deliver({});
    EXPECT_EQ(SinkMessages().size(), before + 1);
}

TEST_F(FaultsTest, SurvivesACutAtEveryByteOfTheServer)
{
    const std::string script = "S: 220-long\n" + Conversation("C...\n");
    for (const PeerCut cut : { PEER_CUT_CLOSE, PEER_CUT_RESET, PEER_CUT_SILENCE }) {
        int64_t at = 0;
        for (bool wasCut = true; wasCut; ++at) {
            SCOPED_TRACE("cut " + std::to_string(cut) + " at " + std::to_string(at));
            Renew();
            HostAttach();
            PeerScript(HostPort, script, { false, at, cut });
            const Outcome outcome = Converse({});
            wasCut = PeerWasCut(0);
            if (!wasCut) {
                EXPECT_EQ(outcome.Connect | outcome.Send | outcome.Close, 0);
            }
            if (at < 13) {
                EXPECT_LT(outcome.Connect, 0); // a first line alone is no greeting
            }
            ExpectUsable();
        }
        EXPECT_EQ(at, 75); // each of the 73 bytes has been the last one
    }
}

TEST_F(FaultsTest, BoundsWhatAServerMaySay)
{
    const std::string hi = "S: 220 hi\nC: HELO x.example\n";
    const struct {
        const char* What;
        std::string Script;
        int32_t Status;
    } rows[] = {
        { "endless continuation", "! flood 220-x\\r\\n 0", RYN_ERR_RESPONSE_OVERFLOW },
        { "endless line", "! flood x 0", RYN_ERR_RESPONSE_OVERFLOW },
        { "endless empty lines", "! flood \\r\\n 0", RYN_ERR_RESPONSE_OVERFLOW },
        { "endless zero bytes", "! flood \\x00 0", RYN_ERR_RESPONSE_OVERFLOW },
        { "no number, then silence", "S: hello there\n! silence", RYN_ERR_TIMED_OUT },
        { "half a line, then silence", hi + "S- 25\n! silence", 0 },
        { "huge number", "S: 99999999999999999999 x\n", RYN_ERR_SMTP_REPLY },
        { "refusal without end", "! flood 554 0", RYN_ERR_SMTP_REPLY },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.What);
        Renew();
        HostAttach();
        PeerScript(HostPort, row.Script, { false, -1, PEER_CUT_CLOSE, true });
        const int32_t result = Connect();
        EXPECT_EQ(result, row.Status);
        ExpectTold(result);
        EXPECT_LE(HostDebug(0, RYN_DEBUG_LAST_REPLY).size(), 2048u);
        EXPECT_EQ(rynAbort(0), 1);
        ExpectUsable();
    }
}

TEST_F(FaultsTest, KeepsTheHeadOfAnOverlongReply)
{
    const std::string greeting = Repeat("S: 220-" + std::string(60, 'x') + "\n", 100);
    Begin(greeting + "S: 220 end\nC: HELO x.example\nS: 500 " + std::string(3000, 'y'));
    EXPECT_EQ(Connect(), RYN_ERR_SMTP_REPLY);
    EXPECT_EQ(HostDebug(0, RYN_DEBUG_LAST_REPLY), "500 " + std::string(2044, 'y'));
    PeerScript(HostPort, greeting + "S: 220 end\nC: HELO x.example\nS: 250 ok\n" + ByeScript());
    EXPECT_EQ(Connect(), 0); // 6610 bytes of greeting fit
    EXPECT_EQ(Close(), 0);
}

// What follows in a line that the buffer has cut is no reply, whatever it looks like.
TEST_F(FaultsTest, TakesNoRestOfAnOverlongLineForAReply)
{
    const std::string text(8187, 'x'), rest = "abc def\n", data = "C: DATA\nS: 354 go\n";
    const std::string first = "C: MAIL FROM:<a@x.example>\nS: 250 ok\nC: RCPT TO:<b@1>\nS: ";
    const std::string second = first + "250 ok\nC: RCPT TO:<b@2>\nS: ";
    const std::string taken = data + "C...\nC: .\nS: 250 taken\n";
    constexpr int32_t overflow = RYN_ERR_RESPONSE_OVERFLOW, refused = RYN_ERR_SMTP_REPLY;
    const struct {
        const char* What;
        std::string Script;
        int32_t Status;
        uint32_t Ignore = 0;
        const char* LastReply = nullptr; // behind the farewell
    } rows[] = {
        { "as long as fits", second + "250 " + text.substr(2) + "\n" + taken, 0 },
        { "a line end too long", second + "250 " + text.substr(1) + "\n", overflow },
        { "yes", second + "250 " + text + rest, overflow },
        { "yes behind a line", second + "250-a\nS: 250 " + text.substr(7) + rest, overflow },
        { "no", second + "550 " + text + rest, refused, 0, "221 bye\r\n" },
        { "no, ignored", second + "550 " + text + rest + taken, 0, 1, "221 bye\r\n" },
        { "nobody", first + "550 " + text + rest + "C: RSET\nS: 250 reset\n", 0, 1, "221 bye\r\n" },
        { "no, begun", second + "550-" + text + rest + "S: 550 no\n" + taken, 0, 1, "221 bye\r\n" },
        { "no, ends in it", second + "550-" + text + "550 x\nS: 550 no\n" + taken, 0, 1,
          "221 bye\r\n" },
    };
    for (const auto& row : rows) {
        for (const char* way : { "whole", "byte by byte", "manual" }) {
            SCOPED_TRACE(std::string(row.What) + " " + way);
            const bool manual = Begin(OpenScript() + row.Script + ByeScript(), way);
            HostSet(0, RYN_IGNORE_RCPT_REFUSAL, row.Ignore);
            HostSet(0, RYN_REPLY_TIMEOUT, 3600 * 1000); // a byte a turn takes its time
            EXPECT_EQ(Connect(manual), 0);
            EXPECT_EQ(Send({ "<b@1>;<b@2>" }, manual), row.Status);
            Close(manual);
            if (row.LastReply != nullptr) {
                EXPECT_EQ(HostDebug(0, RYN_DEBUG_LAST_REPLY), row.LastReply);
            }
        }
    }
}

TEST_F(FaultsTest, EndsWhenTheServerStopsReading)
{
    const std::string big = Repeat(std::string(70, 'x') + "\r\n", 2000);
    for (const bool resets : { false, true }) {
        Begin(OpenScript() + EnvelopeScript({ "<b@y.example>" }) +
              "C...\nC: " + std::string(70, 'x') + "\n! " + (resets ? "reset" : "silence"));
        VirtualSetWindows(20000, 20000);
        EXPECT_EQ(Connect(), 0);
        const int32_t result = Send({ .Message = big.c_str() });
        EXPECT_TRUE(result == RYN_ERR_SOCK_WRITE || (result == RYN_ERR_TIMED_OUT && !resets))
            << result;
        EXPECT_EQ(rynAbort(0), 1);
        VirtualSetWindows(65536, 65536);
        ExpectUsable();
    }
}

TEST_F(FaultsTest, SmallWindowsAndShortSendsChangeNoByte)
{
    const std::string script = Conversation(HeadScript() + "C: one\nC: two\n");
    const struct {
        size_t Window, SendLimit;
    } rows[] = { { 1, 0 }, { 65536, 1 }, { 600, 3 } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Window);
        PlayAllWays(script, {}, [&] {
            VirtualSetWindows(row.Window, row.Window);
            VirtualSetSendLimit(row.SendLimit);
        });
    }
}

TEST_F(FaultsTest, AFullDiskUnderTheLogChangesNoResult)
{
    Begin(Conversation(HeadScript() + "C: one\nC: two\n"));
    EXPECT_GT(HostSetText(0, RYN_LOG_FILE, Path("log")), 0);
    FaultArmFrom(FAULT_WRITE, 1);
    Deliver({});
    EXPECT_TRUE(FaultDisarm());
}

// An overlong yes fails the send; the next one on the same connection gets its own replies.
TEST_F(FaultsTest, ASendBehindAnOverlongReplyGetsItsOwnReplies)
{
    const std::string text(8187, 'x'), lines = Repeat("S: 250-" + std::string(60, 'x') + "\n", 200);
    for (const std::string& yes : { "S: 250 " + text + "abc def\n", lines + "S: 250 end\n" }) {
        for (const char* way : { "whole", "manual" }) {
            SCOPED_TRACE(yes.substr(0, 9) + way);
            const bool manual = Begin(OpenScript() + "C: MAIL FROM:<a@x.example>\n" + yes +
                                          EnvelopeScript({ "<b@y.example>" }) +
                                          "C...\nC: .\nS: 554 refused\n" + ByeScript(),
                                      way);
            EXPECT_EQ(Connect(manual), 0);
            EXPECT_EQ(Send({}, manual), RYN_ERR_RESPONSE_OVERFLOW);
            EXPECT_EQ(Send({}, manual), RYN_ERR_SMTP_REPLY);
            EXPECT_EQ(HostDebug(0, RYN_DEBUG_LAST_REPLY), "554 refused\r\n");
            EXPECT_EQ(Close(manual), 0);
        }
    }
}
