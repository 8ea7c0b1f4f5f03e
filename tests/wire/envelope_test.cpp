// From MAIL FROM to the verdict: the walk over the recipients, refusals at each step, the recipient
// trace, VRFY, and the log of a whole conversation.
#include "tests/wire/dialogue.h"

#include <filesystem>

struct EnvelopeTest : WireTest {};

static const char Text[] = "C...\nC: .\n"; // head and body, not looked at

TEST_F(EnvelopeTest, WalksAllThreeListsInOrder)
{
    const struct {
        const char *To, *Cc, *Bcc;
        char Delimiter;
        std::initializer_list<std::string> Rcpts;
    } rows[] = {
        { "J <j@a>;<k@b>",
          "<l@c>",
          "M <m@d>;<n@e>",
          ';',
          { "<j@a>", "<k@b>", "<l@c>", "<m@d>", "<n@e>" } },
        { nullptr, "<l@c>", "", ';', { "<l@c>" } },
        { "<a@b>;", "<l@c>;", "<m@d>;", ';', { "<a@b>", "<l@c>", "<m@d>" } },
        { "<a@b> x;<a'b@c>\"", nullptr, nullptr, ';', { "<a@b> x", "<a'b@c>\"" } },
        { "<a@b>,<c@d>", nullptr, nullptr, ',', { "<a@b>", "<c@d>" } },
        { "<234567890123456789012345@678901>",
          "",
          "",
          ';',
          { "<234567890123456789012345@678901>" } },
    };
    for (const auto& row : rows) {
        for (const bool bytewise : { false, true }) {
            Begin(OpenScript() + EnvelopeScript(row.Rcpts) + Text + "S: 250 ok\n" + ByeScript(),
                  bytewise ? "byte by byte" : "whole");
            HostSet(0, RYN_RECIPIENT_DELIMITER, static_cast<uint32_t>(row.Delimiter));
            EXPECT_EQ(Connect(), 0);
            EXPECT_EQ(Send({ row.To, row.Cc, row.Bcc }), 0);
            EXPECT_EQ(rynStatistics(0, RYN_STAT_ACCEPTED_RECIPIENTS),
                      static_cast<int32_t>(row.Rcpts.size()));
            EXPECT_EQ(HostDebug(0, RYN_DEBUG_LAST_RECIPIENT), row.Rcpts.end()[-1].substr(0, 32));
            EXPECT_EQ(Close(), 0);
        }
    }
}

TEST_F(EnvelopeTest, FailsAtEachRefusalWithTheServersWords)
{
    const std::string mail = "C: MAIL FROM:<a@x.example>\n";
    const std::string rcpt = mail + "S: 250 ok\nC: RCPT TO:<b@y.example>\n";
    const std::string data = rcpt + "S: 251 forwarded\nC: DATA\n";
    const struct {
        std::string Script;
        const char* Reply;
        int32_t Code;
    } rows[] = {
        { mail + "S: 550 no sender", "550 no sender\r\n", 550 },
        { rcpt + "S: 450 later", "450 later\r\n", 450 },
        { data + "S: 452 full", "452 full\r\n", 452 },
        { data + "S: 354 go\n" + Text + "S: 554 spam", "554 spam\r\n", 554 },
    };
    for (const auto& row : rows) {
        for (const char* way : { "whole", "byte by byte", "manual" }) {
            SCOPED_TRACE(row.Script + way);
            const bool manual = Begin(OpenScript() + row.Script + "\n" + ByeScript(), way);
            EXPECT_EQ(Connect(manual), 0);
            EXPECT_EQ(Send({}, manual), RYN_ERR_SMTP_REPLY);
            EXPECT_EQ(HostDebug(0, RYN_DEBUG_LAST_REPLY), row.Reply);
            EXPECT_EQ(rynStatistics(0, RYN_STAT_REPLY_CODE), row.Code);
            EXPECT_EQ(HostErrorText(0, RYN_ERR_SMTP_REPLY),
                      std::string("SMTP returned error. ") + row.Reply);
            EXPECT_EQ(rynIsConnected(0), 1);
            EXPECT_EQ(Close(manual), 0);
        }
    }
    for (const char* script : { "S: 421 busy", "S: 220 hi\nC: HELO x.example\nS: 501 who" }) {
        Begin(script);
        EXPECT_EQ(Connect(), RYN_ERR_SMTP_REPLY);
        EXPECT_EQ(VirtualOpenSockets(), 0); // a failed connect leaves nothing open
    }
}

TEST_F(EnvelopeTest, GoesOnWithoutRefusedRecipientsOnlyIfToldSo)
{
    const std::string first = "C: MAIL FROM:<a@x.example>\nS: 250 ok\nC: RCPT TO:<b@1>\n";
    const std::string second = first + "S: 250 ok\nC: RCPT TO:<b@2>\n";
    const std::string data = "C: DATA\nS: 354 go\n";
    const std::string message = data + Text + "S: 250 ok\n";
    const std::string toLine = "C...\nC: To: <b@1>,<b@2>\n"; // ends at the refused one
    const struct {
        int Ignore;
        std::string Script;
        int32_t Status, Accepted;
    } rows[] = {
        { 0, second + "S: 550 no\n", RYN_ERR_SMTP_REPLY, 1 },
        { 1, second + "S: 550 no\n" + data + toLine + Text + "S: 250 ok\n", 0, 1 },
        { 1, second + "S: 550-no\nS: 550-no\nS: 550 no\n" + message, 0, 1 },
        { 1, first + "S: 550 no\nC: RSET\nS: 250 ok\n", 0, 0 },
        { 1, first + "S: 550 no\nC: RSET\nS: 500 what\n", RYN_ERR_SMTP_REPLY, 0 },
        { 1, second + "S: 550 RELAYING denied\n", RYN_ERR_SMTP_REPLY, 1 },
        { 1, second + "S: 550 no Gateway\n", RYN_ERR_SMTP_REPLY, 1 },
        { 1, second + "S: 550 user not local\n", RYN_ERR_SMTP_REPLY, 1 },
        { 1, second + "S: 450 mx lookup failure\n", RYN_ERR_SMTP_REPLY, 1 },
        { 1, second + "S: 450 invalid mx record\n", RYN_ERR_SMTP_REPLY, 1 },
    };
    for (const auto& row : rows) {
        for (const bool bytewise : { false, true }) {
            SCOPED_TRACE(row.Script);
            Begin(OpenScript() + row.Script + ByeScript(), bytewise ? "byte by byte" : "whole");
            HostSet(0, RYN_IGNORE_RCPT_REFUSAL, static_cast<uint32_t>(row.Ignore));
            EXPECT_EQ(Connect(), 0);
            EXPECT_EQ(Send({ "<b@1>;<b@2>;<b@3>" }), row.Status);
            EXPECT_EQ(rynStatistics(0, RYN_STAT_ACCEPTED_RECIPIENTS), row.Accepted);
            EXPECT_EQ(Close(), 0);
        }
    }
}

TEST_F(EnvelopeTest, MeetsAnEntryWithoutBracketInTheMiddle)
{
    Begin(OpenScript() + "C: MAIL FROM:<a@x.example>\nS: 250 ok\nC: RCPT TO:<b@1>\nS: 250 ok\n" +
          ByeScript());
    EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(Send({ "<b@1>;b@2;<b@3>" }), RYN_ERR_NULL_POINTER);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_NULL_SITE), 199);
    EXPECT_EQ(Close(), 0);
}

TEST_F(EnvelopeTest, UsesTheSenderOfTheParameter)
{
    Begin(OpenScript() + "C: MAIL FROM:<n@z> tail\nS: 250 ok\nC: RCPT TO:<b@y.example>\n" +
          "S: 250 ok\nC: DATA\nS: 354 go\n" + Text + "S: 250 ok\n" + ByeScript());
    EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(HostSetText(0, RYN_FROM, "no bracket"), 10);
    EXPECT_EQ(Send({}), RYN_ERR_MISSING_LEFT_ANGLE);
    EXPECT_EQ(HostSetText(0, RYN_FROM, "New <n@z> tail"), 14);
    EXPECT_EQ(Send({}), 0);
    EXPECT_EQ(Close(), 0);
}

TEST_F(EnvelopeTest, TimesOutOnSilenceAtEachStep)
{
    const std::string script = "|S: 220 hi\nC: HELO x.example\n|S: 250 hello\n"
                               "C: MAIL FROM:<a@x.example>\n|S: 250 ok\n"
                               "C: RCPT TO:<b@y.example>\n|S: 250 ok\nC: DATA\n|S: 354 go\n" +
                               std::string(Text) + "|";
    for (size_t at = script.find('|'); at != std::string::npos; at = script.find('|', at + 1)) {
        std::string part = script.substr(0, at);
        std::erase(part, '|');
        SCOPED_TRACE(part);
        Begin(part + "! silence");
        HostSet(0, RYN_REPLY_TIMEOUT, 20000);
        const int32_t result = Connect();
        EXPECT_EQ(result == 0 ? Send({}) : result, RYN_ERR_TIMED_OUT);
        EXPECT_GE(VirtualClockSpent(), 20000u);
        EXPECT_LT(VirtualClockSpent(), 26000u);
        EXPECT_EQ(rynAbort(0), 1);
    }
}

TEST_F(EnvelopeTest, TracesEachRecipientWithItsAnswer)
{
    HostAttach(3);
    HostSet(2, RYN_IGNORE_RCPT_REFUSAL, 1);
    PeerScript(HostPort,
               OpenScript() + "C: MAIL FROM:<a@x.example>\nS: 250 ok\n" +
                   "C: RCPT TO:<b@1>\nS: 250 first\nC: RCPT TO:<c@2>\nS: 251-two\nS: 251 b\n"
                   "C: RCPT TO:<d@3>\nS: 550 third\nC: DATA\nS: 354 go\n" +
                   Text + "S: 250 ok\n" + ByeScript());
    EXPECT_EQ(Connect(false, 2), 0);
    EXPECT_GT(HostSetText(2, RYN_RCPT_TRACE_FILE, Path("trace")), 0);
    EXPECT_EQ(Send({ "B <b@1>;<c@2>", "<d@3>" }, false, 2), 0);
    EXPECT_EQ(Close(false, 2), 0);
    EXPECT_EQ(ReadWholeFile(Path("trace_2.log")),
              "<b@1>;250 first\r\n<c@2>;251-two\r\n251 b\r\n<d@3>;550 third\r\n");
}

TEST_F(EnvelopeTest, VerifiesUsersByTheLastAnswer)
{
    const struct {
        const char* Addresses;
        const char* Script;
        int32_t Result;
    } rows[] = {
        { "<b@y>", "C: VRFY <b@y>\nS: 250 b", 1 },
        { "b", "C: VRFY b\nS: 252 who knows", 0 },
        { "a;b", "C: VRFY a\nS: 550-no\nS: 550 such\nC: VRFY b\nS: 250-b\nS: 250 yes", 1 },
        { "a;b;", "C: VRFY a\nS: 250 a\nC: VRFY b\nS: 551 moved", 0 },
    };
    for (const auto& row : rows) {
        for (const char* way : { "whole", "byte by byte", "manual" }) {
            SCOPED_TRACE(std::string(row.Addresses) + way);
            const bool manual = Begin(OpenScript() + row.Script + "\n" + ByeScript(), way);
            EXPECT_EQ(Connect(manual), 0);
            const int32_t result = HostFinish(0, rynVerifyUser(0, row.Addresses), manual);
            EXPECT_EQ(result, manual ? 0 : row.Result);
            EXPECT_EQ(rynStatistics(0, RYN_STAT_VERIFY_RESULT), row.Result);
            EXPECT_EQ(Close(manual), 0);
        }
    }
}

// '#' stands for ticks and random numbers; a line ends in \n where CR LF is meant, in | for a bare LF.
static const char WholeLog[] = R"(*** RYN Log File ***
Date: Tue, 17 Nov 2026 22:52:06 +0100
 VS Win32 Version 8.4.1 Build 7
RYN Win32 Version 8.4.1 Build 7
CID 0
Current Dir: HERE
*** rynSmtpConnect
Connecting to server...|<200:#>
<101:#>
vs: LogHandle = 1
vSock 0 created (IP 0)
<102:#>
LocalHost = 'tester.test'
<104:#>
Server = 'server.test'
ServerIP = 10.0.0.25
<105:#>
vsConnect(0,'server.test',2525) attempt 1
Socket=500, RemoteIP=a000019, RemotePort=2525
connect(500) returns 0
Server has accepted connection on port 2525
<106:#>
<201:#>
recv(0)=11
R: 220 ready
<202:#>
S: HELO x.example
Delay 375 ms
<203:#>
recv(0)=11
R: 250 hello
*** rynSendEmail
*** Sending...
<204:#>
S: MAIL FROM:<a@x.example>
<205:#>
recv(0)=8
R: 250 ok
<206:#>
<207:#>
S: RCPT TO:<b@y.example>
<208:#>
recv(0)=8
R: 250 ok
<209:#>
S: DATA
<210:#>
recv(0)=8
R: 354 go
<221:#>
S: X-Mailer: Brindlecroft Rynmark Version 8.4.1#
<223:#>
S: Date: Tue, 17 Nov 2026 22:52:06 +0100
<224:#>
S: To: <b@y.example>
<225:#>
S: From: Ann <a@x.example>
<226:#>
<220:#>
S: Message-ID: <#.0.0@x.example>
<227:#>
S: Subject: Hello
<228:#>
<229:#>
<233:#>
S:#
<239:#>
<240:#>
<241:#>
S: one
<251:#>
S: .
<252:#>
recv(0)=8
R: 554 no
ERROR(#): SockCode=0 RynCode=-49 PrevState=251 ThisState=252 NextState=252
SMTP returned error. 554 no

SMTP returned error. 554 no
*** rynStringParam(0,52,'the host's own')
the host's own
*** rynClose(0)
[Closing attachment]
<258:#>
S: QUIT
<259:#>
recv(0)=9
R: 221 bye
vSocket: 0 closed
*** rynStringParam(0,20,'')
)";

static std::string Replaced(std::string text, const std::string& from, const std::string& to)
{
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

TEST_F(EnvelopeTest, LogsAWholeConversation)
{
    Begin(OpenScript() + EnvelopeScript({ "<b@y.example>" }) + HeadScript() +
          "C: one\nC: .\nS: 554 no\n" + ByeScript());
    EXPECT_GT(HostSetText(0, RYN_LOG_FILE, Path("log")), 0);
    EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(Send({ .Message = "one" }), RYN_ERR_SMTP_REPLY);
    EXPECT_GT(HostSetText(0, RYN_LOG_TEXT, "the host's own"), 0);
    EXPECT_EQ(Close(), 0);
    EXPECT_EQ(HostSetText(0, RYN_LOG_FILE, ""), 0);
    std::string log = HostLog(Path("log"));
    log = Replaced(log, std::filesystem::current_path().string() + "\r\n", "HERE\r\n");
    log = Replaced(log, " \r\n", "#\r\n");
    log = Replaced(Replaced(log, "...\n", "...|"), "\r\n", "\n");
    EXPECT_EQ(log, WholeLog);
}

TEST_F(EnvelopeTest, LogsFilesZonesAndBadAddresses)
{
    Begin(Conversation("C...\n"));
    WriteWholeFile(Path("text"), "<p>\r\n");
    WriteWholeFile(Path("alt"), "plain");
    HostSetText(0, RYN_LOG_FILE, Path("own"));
    HostSetText(0, RYN_ZONE_STRING, "");
    HostSet(0, RYN_ZONE_TRACE, 1);
    EXPECT_EQ(rynSmtpConnect(0, "x", "a@b", nullptr), RYN_ERR_MISSING_LEFT_ANGLE);
    EXPECT_EQ(Connect(), 0);
    const std::string text = "@" + Path("text"), alt = "@" + Path("alt");
    EXPECT_EQ(Send({ .Message = text.c_str(), .Alternative = alt.c_str(), .Html = true }), 0);
    EXPECT_EQ(Close(), 0);
    const std::string log = HostLog(Path("own"));
    for (const std::string& lines :
         { std::string("From:  'a@b'\nERROR(#): SockCode=0 RynCode=-41 PrevState=-2 ThisState=-1 "
                       "NextState=0\r\n"),
           std::string("<223:#>\r\nZoneCode=1, Bias=-60, Zone=100, ZoneMin=0,  "
                       "ZoneString='+0100'\r\nS: Date: "),
           "<502:#>\r\nOpening ALT file [" + Path("alt") + "]. ALT Handle = 2\r\n" +
               "<503:#>\r\nS: plain\r\nClosing ALT file 2\r\nS: \r\n<504:#>\r\n",
           "<244:#>\r\nOpening message file [" + Path("text") + "]\r\nOpening file '" +
               Path("text") + "'\r\nHandle = 2\r\n<245:#>\r\nGetMsgChar:Read 5 bytes\r\n" +
               "GetMsgChar:Read 0 bytes\r\nS: <p>\r\n[Closing file 2]\r\nS: --" })
        EXPECT_NE(log.find(lines), std::string::npos) << lines;
}

// The tick at which a state was entered, by the log.
static uint32_t EnteredAt(const std::string& log, int state)
{
    const std::string mark = "<" + std::to_string(state) + ":";
    const size_t at = log.find(mark);
    EXPECT_NE(at, std::string::npos) << state;
    return at == std::string::npos ? 0 : static_cast<uint32_t>(std::stoul(log.substr(at + 5)));
}

TEST_F(EnvelopeTest, PausesAsLongAsToldAndNotLonger)
{
    const struct {
        int From, To;
        uint32_t Told; // ms
    } rows[] = { { 102, 104, 0 },   { 105, 106, 525 }, { 106, 201, 25 },   { 201, 202, 200 },
                 { 202, 203, 375 }, { 204, 205, 25 },  { 206, 207, 0 },    { 207, 208, 0 },
                 { 208, 209, 25 },  { 209, 210, 25 },  { 210, 221, 50 },   { 224, 225, 25 },
                 { 225, 226, 0 },   { 240, 241, 0 },   { 251, 252, 1025 }, { 258, 259, 25 } };
    Begin(Conversation("C...\n"));
    HostSetText(0, RYN_LOG_FILE, Path("log"));
    Deliver({});
    const std::string log = ReadWholeFile(Path("log"));
    for (const auto& row : rows) {
        const uint32_t pause = EnteredAt(log, row.To) - EnteredAt(log, row.From);
        EXPECT_GE(pause, row.Told) << row.From << " to " << row.To;
        EXPECT_LE(pause, row.Told + 150) << row.From << " to " << row.To; // a poll of 100 ms
    }
    EXPECT_LE(VirtualClockSpent(), 4500u);
}
