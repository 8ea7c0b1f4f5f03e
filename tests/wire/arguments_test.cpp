// Bad arguments and wrong order for every operation: null, empty, overlong, binary, before the
// attach, on a channel that does not exist, after the release.
#include "tests/wire/dialogue.h"

struct ArgumentsTest : WireTest {};

static char Buffer[256];
static const std::string Mib(1 << 20, 'm');

struct Call {
    const char* Name;
    std::function<int32_t(uint32_t)> Make;
};

static const Call AllCalls[] = {
    { "rynClose", [](uint32_t c) { return rynClose(c); } },
    { "rynAbort", [](uint32_t c) { return rynAbort(c); } },
    { "rynIsConnected", [](uint32_t c) { return rynIsConnected(c); } },
    { "rynDriver", [](uint32_t c) { return rynDriver(c); } },
    { "rynErrorText", [](uint32_t c) { return rynErrorText(c, -8, Buffer, 99); } },
    { "rynIntegerParam", [](uint32_t c) { return rynIntegerParam(c, RYN_SMTP_PORT, 1); } },
    { "rynIntegerParam process", [](uint32_t c) { return rynIntegerParam(c, RYN_INERT_24, 1); } },
    { "rynIntegerParam no code", [](uint32_t c) { return rynIntegerParam(c, 4, 1); } },
    { "rynStringParam", [](uint32_t c) { return rynStringParam(c, RYN_FROM, "<a@b>"); } },
    { "rynStringParam null", [](uint32_t c) { return rynStringParam(c, RYN_FROM, nullptr); } },
    { "rynSetFileBuffer", [](uint32_t c) { return rynSetFileBuffer(c, 9, Buffer, 9); } },
    { "rynStatistics", [](uint32_t c) { return rynStatistics(c, RYN_STAT_VSOCK); } },
    { "rynStatistics no code", [](uint32_t c) { return rynStatistics(c, 9999); } },
    { "rynDebug", [](uint32_t c) { return rynDebug(c, RYN_DEBUG_LAST_REPLY, Buffer, 99); } },
    { "rynSmtpConnect", [](uint32_t c) { return rynSmtpConnect(c, "localhost", "<a@b>", ""); } },
    { "rynSmtpConnect null", [](uint32_t c) { return rynSmtpConnect(c, nullptr, nullptr, ""); } },
    { "rynTestConnect", [](uint32_t c) { return rynTestConnect(c, nullptr, 1, Buffer, 99); } },
    { "rynSendEmail", [](uint32_t c) { return Send({}, false, c); } },
    { "rynSendHTML", [](uint32_t c) { return Send({ .Html = true }, false, c); } },
    { "rynSmtpTarget", [](uint32_t c) { return rynSmtpTarget(c, nullptr, nullptr, nullptr); } },
    { "rynVerifyUser", [](uint32_t c) { return rynVerifyUser(c, nullptr); } },
};

TEST_F(ArgumentsTest, EveryOperationLooksAtItsGuardsFirst)
{
    const auto expectAll = [](uint32_t channel, int32_t status) {
        for (const Call& call : AllCalls)
            EXPECT_EQ(call.Make(channel), status) << call.Name << " on " << channel;
    };
    expectAll(0, RYN_ERR_NOT_ATTACHED);
    HostAttach(2);
    for (const uint32_t channel : { 2u, 65u, 0x7FFFFFFFu, 0xFFFFFFFFu })
        expectAll(channel, RYN_ERR_CHANNEL_RANGE);
    EXPECT_EQ(rynRelease(), 1);
    expectAll(1, RYN_ERR_NOT_ATTACHED);
    EXPECT_EQ(rynAttach(0), 999);
    expectAll(0, RYN_ERR_NOT_ATTACHED);
    EXPECT_EQ(rynRelease(), 1);
}

TEST_F(ArgumentsTest, AttachKeepsItsBounds)
{
    EXPECT_EQ(rynRelease(), 1);
    for (const uint32_t bad : { 66u, 0x80000000u, 0xFFFFFFFFu })
        EXPECT_EQ(rynAttach(bad), RYN_ERR_CHANNEL_RANGE);
    EXPECT_EQ(rynAttach(RYN_MAX_CHANNELS), 999);
    EXPECT_EQ(rynAttach(1), RYN_ERR_ALREADY_ATTACHED);
    EXPECT_EQ(rynAttach(66), RYN_ERR_ALREADY_ATTACHED);
    EXPECT_EQ(rynStatistics(64, RYN_STAT_VSOCK), -1);
}

TEST_F(ArgumentsTest, AnIdleChannelRefusesWhatNeedsAConnection)
{
    HostAttach();
    const struct {
        const char* What;
        int32_t Got, Expected;
    } rows[] = {
        { "close", rynClose(0), 0 },
        { "abort", rynAbort(0), 1 },
        { "connected", rynIsConnected(0), RYN_ERR_NO_SUCH_VSOCK },
        { "driver", rynDriver(0), 0 },
        { "driver again", rynDriver(0), 0 },
        { "send", Send({}), RYN_ERR_SMTP_ONLY },
        { "html", Send({ .Html = true }), RYN_ERR_SMTP_ONLY },
        { "verify", rynVerifyUser(0, "a"), RYN_ERR_SMTP_ONLY },
        { "socket state", rynStatistics(0, RYN_STAT_SOCKET_STATE), RYN_ERR_CONNECT_FAILED },
        { "local", rynDebug(0, RYN_DEBUG_LOCAL_ADDRESS, Buffer, 99), RYN_ERR_NO_SUCH_VSOCK },
        { "server", rynDebug(0, RYN_DEBUG_SERVER_ADDRESS, Buffer, 99), RYN_ERR_NO_SUCH_VSOCK },
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.Got, row.Expected) << row.What;
    EXPECT_EQ(rynStatistics(0, RYN_STAT_DRIVER_CALLS), 0);
    EXPECT_EQ(Connect(), RYN_ERR_CONNECT_FAILED);
    EXPECT_EQ(Send({}), RYN_ERR_NOT_CONNECTED); // SMTP it is now, but without a connection
}

TEST_F(ArgumentsTest, ConnectTellsWhichArgumentIsWrong)
{
    const std::string binary = "\x01\xFF\x80\n";
    const struct {
        const char *Server, *From;
        int32_t Status;
    } rows[] = {
        { nullptr, "<a@b>", RYN_ERR_NO_SERVER },
        { "x", nullptr, RYN_ERR_FROM_IS_NULL },
        { "x", "", RYN_ERR_EMPTY_ARGUMENT },
        { "x", "a@b.example", RYN_ERR_MISSING_LEFT_ANGLE },
        { "x", "<a@b.example", RYN_ERR_MISSING_RIGHT_ANGLE },
        { "x", ">a@b<", RYN_ERR_MISSING_RIGHT_ANGLE },
        { "x", Mib.c_str(), RYN_ERR_MISSING_LEFT_ANGLE },
        { "x", binary.c_str(), RYN_ERR_MISSING_LEFT_ANGLE },
        { Mib.c_str(), "<a@b>", RYN_ERR_SERVER_NOT_FOUND },
        { binary.c_str(), "<a@b>", RYN_ERR_SERVER_NOT_FOUND },
        { "256.1.1.1", "<a@b>", RYN_ERR_SERVER_NOT_FOUND },
        { "1.2.3", "<a@b>", RYN_ERR_SERVER_NOT_FOUND },
        { "1.2.3.4.5", "<a@b>", RYN_ERR_CONNECT_FAILED },
    };
    HostAttach();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.From == nullptr ? "null" : std::string(row.From).substr(0, 20));
        EXPECT_EQ(rynSmtpConnect(0, row.Server, row.From, Mib.c_str()), row.Status);
        EXPECT_EQ(VirtualOpenSockets(), 0);
    }
    EXPECT_EQ(rynTestConnect(0, Mib.c_str(), 1, nullptr, 0), -1008); // the name is too long
    EXPECT_EQ(rynTestConnect(0, "", 1, nullptr, 0), RYN_ERR_SERVER_NOT_FOUND);
}

TEST_F(ArgumentsTest, SendTellsWhichListIsWrong)
{
    HostAttach();
    PeerScript(HostPort, OpenScript() + ByeScript());
    EXPECT_EQ(Connect(), 0);
    const struct {
        const char *To, *Cc, *Bcc;
        int32_t Status;
    } rows[] = {
        { nullptr, nullptr, nullptr, RYN_ERR_NO_RECIPIENT },
        { "", "", "", RYN_ERR_NO_RECIPIENT },
        { "a@b", nullptr, nullptr, RYN_ERR_MISSING_LEFT_ANGLE },
        { "<a@b", nullptr, nullptr, RYN_ERR_MISSING_RIGHT_ANGLE },
        { ">a<", nullptr, nullptr, RYN_ERR_MISSING_RIGHT_ANGLE },
        { "a;<b@c>", nullptr, nullptr, RYN_ERR_MISSING_LEFT_ANGLE },
        { "<a;b>", nullptr, nullptr, RYN_ERR_MISSING_RIGHT_ANGLE },
        { "<a@b>", "x", nullptr, RYN_ERR_MISSING_LEFT_ANGLE },
        { "<a@b>", "<a@b>", "<x", RYN_ERR_MISSING_RIGHT_ANGLE },
        { ";", nullptr, nullptr, RYN_ERR_MISSING_LEFT_ANGLE },
        { Mib.c_str(), nullptr, nullptr, RYN_ERR_MISSING_LEFT_ANGLE },
        { "\xFF\x01", nullptr, nullptr, RYN_ERR_MISSING_LEFT_ANGLE },
    };
    for (const auto& row : rows) {
        for (const bool html : { false, true }) {
            SCOPED_TRACE(row.To == nullptr ? "null" : std::string(row.To).substr(0, 20));
            EXPECT_EQ(Send({ .To = row.To, .Cc = row.Cc, .Bcc = row.Bcc, .Html = html }),
                      row.Status);
            EXPECT_EQ(rynDriver(0), 0);
        }
    }
    EXPECT_EQ(rynVerifyUser(0, nullptr), RYN_ERR_NO_RECIPIENT);
    EXPECT_EQ(rynVerifyUser(0, ""), RYN_ERR_NO_RECIPIENT);
    EXPECT_EQ(Close(), 0);
}

TEST_F(ArgumentsTest, OverlongTextsPassWithoutHarm)
{
    HostAttach();
    SinkListen(HostPort);
    const std::string from = "<" + Mib + "@x>", subject = Mib;
    EXPECT_EQ(rynSmtpConnect(0, "server.test", from.c_str(), from.c_str()), 0);
    const std::string to = Mib + "<b@y.example>";
    for (const bool html : { false, true }) {
        EXPECT_EQ(Send({ .To = to.c_str(),
                         .Cc = to.c_str(),
                         .Bcc = to.c_str(),
                         .Subject = subject.c_str(),
                         .Message = Mib.c_str(),
                         .Alternative = Mib.c_str(),
                         .Html = html }),
                  0);
    }
    ASSERT_EQ(SinkMessages().size(), 2u);
    for (const SinkMessage& m : SinkMessages()) {
        EXPECT_EQ(m.From, "MAIL FROM:<" + std::string(255, 'm'));
        EXPECT_EQ(m.To, std::vector<std::string>(3, "RCPT TO:<b@y.example>"));
        EXPECT_NE(m.Data.find("\r\nSubject: " + std::string(1014, 'm') + "\r\n"),
                  std::string::npos);
        EXPECT_NE(m.Data.find("\r\nReply-To: <" + std::string(255, 'm') + "\r\n"),
                  std::string::npos);
    }
    EXPECT_EQ(Close(), 0);
}

TEST_F(ArgumentsTest, StringParamsKeepTheirCapacities)
{
    HostAttach();
    const struct {
        uint32_t Code;
        int32_t Null, Empty, Overlong, EmptySite;
    } rows[] = {
        { RYN_LOG_FILE, -47, 0, -1, 0 },
        { RYN_WRITE_LINES_FILE, -47, -21, -47, 208 },
        { RYN_REPLY_TO, -47, -21, 256, 204 },
        { RYN_EXTRA_HEADERS, -47, 0, 4, 0 },
        { RYN_LOG_TEXT, -47, -21, 0, 203 },
        { RYN_FROM, -47, -21, 256, 205 },
        { RYN_CONTENT_TYPE_LINE, -47, -21, 256, 206 },
        { RYN_TRANSFER_ENCODING_LINE, -47, -21, 256, 207 },
        { RYN_ADD_EXTRA_HEADER, -47, -21, 4, 206 },
        { RYN_AUTH_PASSWORD, -47, -21, -48, 209 },
        { RYN_AUTH_USER, -47, -21, 64, 210 },
        { RYN_INERT_TEXT_61, -47, 0, 0, 0 },
        { RYN_HEADER_PREFIX, -47, -21, 64, 211 },
        { RYN_ZONE_STRING, -47, 0, 32, 0 },
        { RYN_INERT_TEXT_66, -47, 0, 0, 0 },
        { RYN_ZONE_STRING_ALIAS, -47, 0, 32, 0 },
        { RYN_LIST_ARGUMENTS, -47, 0, 16, 0 },
        { RYN_EXTRA_LINE, -47, 0, 256, 0 },
        { RYN_LOCAL_HOST_NAME, -47, -47, 64, 0 },
        { RYN_TEST_PATH, -47, -77, -77, 0 },
        { 0, -47, -1, -1, 0 },
        { 59, -47, -1, -1, 0 },
        { 78, -47, -1, -1, 0 },
        { 0xFFFFFFFF, -47, -1, -1, 0 },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Code);
        EXPECT_EQ(rynStringParam(0, row.Code, nullptr), row.Null);
        EXPECT_EQ(rynStatistics(0, RYN_STAT_NULL_SITE), 103);
        EXPECT_EQ(rynStringParam(0, row.Code, ""), row.Empty);
        if (row.EmptySite != 0) {
            EXPECT_EQ(rynStatistics(0, RYN_STAT_EMPTY_SITE), row.EmptySite);
        }
        EXPECT_EQ(rynStringParam(0, row.Code, Mib.c_str()), row.Overlong);
    }
    EXPECT_EQ(HostSetText(0, RYN_AUTH_PASSWORD, Mib.substr(0, 2048)), 2048);
    EXPECT_EQ(HostSetText(0, RYN_AUTH_PASSWORD, Mib.substr(0, 2049)), RYN_ERR_PASSWORD_TOO_LONG);
    EXPECT_EQ(HostSetText(0, RYN_TEST_PATH, Folder), 1);
    EXPECT_EQ(HostSetText(0, RYN_TEST_PATH, Path("none")), RYN_ERR_NO_SUCH_PATH);
    EXPECT_EQ(HostErrorText(0, RYN_ERR_NO_SUCH_PATH), "No such path. " + Path("none"));
}

TEST_F(ArgumentsTest, IntegerParamsKnowTheirCodes)
{
    HostAttach();
    const int32_t known[] = { 1,    2,    3,    8,    9,    10,   13,   14,   15,   16,  17,
                              18,   19,   21,   22,   23,   24,   25,   26,   27,   28,  29,
                              30,   31,   32,   33,   34,   35,   36,   37,   38,   39,  40,
                              41,   42,   43,   60,   62,   64,   67,   68,   70,   75,  1000,
                              1002, 1003, 1004, 1005, 1006, 1008, 1010, 1011, 1012, 1013 };
    std::vector<int32_t> answered;
    for (int32_t code = -3; code < 1100; ++code) {
        if (code == RYN_UNDERSCORE_TO_SPACE)
            continue;
        const int32_t result = rynIntegerParam(0, code, 1);
        EXPECT_TRUE(result == 1 || result == -1) << code;
        if (result == 1)
            answered.push_back(code);
    }
    EXPECT_EQ(answered, std::vector<int32_t>(std::begin(known), std::end(known)));
    for (const int32_t code : known)
        EXPECT_EQ(rynIntegerParam(0, code, 0xFFFFFFFF), 1);
    EXPECT_EQ(rynIntegerParam(0, RYN_UNDERSCORE_TO_SPACE, 0), 0);
    EXPECT_EQ(rynIntegerParam(0, INT32_MIN, 0), -1);
    EXPECT_EQ(rynIntegerParam(0, INT32_MAX, 0), -1);
}

TEST_F(ArgumentsTest, FileBuffersKeepTheirIndex)
{
    HostAttach();
    const struct {
        int32_t Index, Result;
    } rows[] = {
        { 0, 5 }, { 7, 5 }, { 8, -20 }, { -1, -20 }, { INT32_MIN, -20 }, { INT32_MAX, -20 }
    };
    for (const auto& row : rows)
        EXPECT_EQ(rynSetFileBuffer(0, row.Index, "12345", 5), row.Result);
    PeerScript(HostPort, OpenScript() + EnvelopeScript({ "<b@y.example>" }) +
                             "C...\nC: .\nS: 250 ok\n" + ByeScript());
    EXPECT_EQ(rynSetFileBuffer(0, 1, nullptr, 5), 5); // a text that can't be read is an empty one
    EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(Send({ .Message = "@x*1" }), 0);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_NULL_SITE), 101);
    EXPECT_EQ(Close(), 0);
}

TEST_F(ArgumentsTest, QueriesStayInsideTheirBuffers)
{
    HostAttach();
    PeerScript(HostPort, "S: 220 0123456789");
    EXPECT_EQ(rynTestConnect(0, "server.test", HostPort, nullptr, 0), 0);
    const struct {
        int32_t Size, Result;
        const char* Text;
    } debug[] = { { 200, 14, "220 0123456789\r\n" },
                  { 16, 14, "220 0123456789\r\n" },
                  { 15, 15, "220 0123456789\r" },
                  { 3, 3, "220" },
                  { 1, 1, "2" },
                  { 0, 0, "" },
                  { -1, 0, "##" },
                  { INT32_MIN, 0, "##" } };
    for (const auto& row : debug) {
        memcpy(Buffer, "##", 3);
        EXPECT_EQ(rynDebug(0, RYN_DEBUG_LAST_REPLY, Buffer, row.Size), row.Result) << row.Size;
        EXPECT_STREQ(Buffer, row.Text);
        EXPECT_EQ(rynDebug(0, RYN_DEBUG_LAST_REPLY, nullptr, row.Size), 0);
    }
    const struct {
        int32_t Size, Result;
        const char* Text;
    } errors[] = { { 99, 16, "vSock timed out." },
                   { 17, 16, "vSock timed out." },
                   { 16, 15, "vSock timed out" },
                   { 1, 0, "" },
                   { 0, 0, "##" },
                   { -5, 0, "##" } };
    for (const auto& row : errors) {
        memcpy(Buffer, "##", 3);
        EXPECT_EQ(rynErrorText(0, RYN_ERR_TIMED_OUT, Buffer, row.Size), row.Result) << row.Size;
        EXPECT_STREQ(Buffer, row.Text);
        EXPECT_EQ(rynErrorText(0, RYN_ERR_TIMED_OUT, nullptr, row.Size), 0);
    }
    for (const int32_t code : { 0x7FFF, -2, -90, -101, -1002, INT32_MIN, INT32_MAX })
        EXPECT_EQ(rynErrorText(0, code, Buffer, 99), 0) << code;
    EXPECT_EQ(HostDebug(0, 999), "?");
    EXPECT_EQ(rynDebug(0, 999, Buffer, 99), 0);
    EXPECT_EQ(rynDebug(static_cast<uint32_t>(-2), 999, nullptr, 0), 0);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_VERSION), 0x0841);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_BUILD), 7);
    EXPECT_EQ(rynStatistics(0, 0xFFFFFFFF), -1);
    EXPECT_EQ(rynDebug(0, RYN_DEBUG_EMAIL_LINES, Buffer, 99), RYN_ERR_NULL_POINTER);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_NULL_SITE), 102);
    EXPECT_EQ(rynAbort(0), 1);
}

TEST_F(ArgumentsTest, ReplacedErrorTextsHoldFiftyChars)
{
    const std::string c50(50, 'c');
    const struct {
        std::string Text;
        int32_t Result;
        std::string Stored;
    } rows[] = { { "gone\r\nmore", 1, "gone" },       { "a\nb", 1, "a" },
                 { c50.substr(1), 1, c50.substr(1) }, { c50, 0, c50 },
                 { Mib, 0, Mib.substr(0, 50) },       { "", 1, "" } };
    for (const auto& row : rows) {
        EXPECT_EQ(rynSetErrorText(RYN_ERR_SOCK_READ, row.Text.c_str()), row.Result);
        HostAttach(2);
        EXPECT_EQ(HostErrorText(1, RYN_ERR_SOCK_READ), row.Stored);
        EXPECT_EQ(rynRelease(), 1);
    }
    EXPECT_EQ(rynSetErrorText(RYN_ERR_SOCK_READ, nullptr), 0);
    EXPECT_EQ(rynSetErrorText(999, "x"), 0);
    EXPECT_EQ(rynSetErrorText(1, "x"), 0);
    EXPECT_EQ(rynSetErrorText(RYN_ERR_CANNOT_OPEN_FILE, Mib.c_str()), 0);
    HostAttach();
    EXPECT_EQ(HostErrorText(0, RYN_ERR_SOCK_WRITE), "vSock write error.");
}

TEST_F(ArgumentsTest, OperationsWithoutAChannelNeedNoAttach)
{
    const struct {
        const char* Address;
        int32_t Result;
    } rows[] = {
        { nullptr, RYN_ERR_NULL_POINTER },
        { "", RYN_ERR_EMPTY_ARGUMENT },
        { "<a@b>", 1 },
        { "John Doe, Esq. <a@b.example>", 1 },
        { "a@b", RYN_ERR_MISSING_LEFT_ANGLE },
        { "<a@b", RYN_ERR_MISSING_RIGHT_ANGLE },
        { ">a@b<", RYN_ERR_MISSING_RIGHT_ANGLE },
        { "<>", RYN_ERR_EMPTY_ARGUMENT },
        { "<@b>", RYN_ERR_EMPTY_STRING },
        { "<a@>", RYN_ERR_EMPTY_STRING },
        { "<a@b@c>", RYN_ERR_TOO_MANY_AT },
        { "<abc>", RYN_ERR_MISSING_AT },
        { "<a@b#>", RYN_ERR_BAD_ADDRESS_CHAR },
        { "<a b>", RYN_ERR_BAD_ADDRESS_CHAR },
        { "<a\xFF@b>", RYN_ERR_BAD_ADDRESS_CHAR },
        { "<o'neil+x/y@a.example>", 1 },
        { "x;<a@b>", RYN_ERR_MISSING_LEFT_ANGLE },
        { "<a@b>;junk", 1 },
        { "<a@b\r\nDATA>", RYN_ERR_BAD_ADDRESS_CHAR },
        { "<<a@b>", RYN_ERR_BAD_ADDRESS_CHAR },
    };
    for (const auto& row : rows)
        EXPECT_EQ(rynVerifyFormat(row.Address), row.Result) << (row.Address ? row.Address : "null");
    EXPECT_EQ(rynVerifyFormat(Mib.c_str()), RYN_ERR_MISSING_LEFT_ANGLE);
    EXPECT_EQ(rynVerifyFormat(("<a@" + Mib + ">").c_str()), 1);
    EXPECT_EQ(rynMakeSubject(nullptr, 4, Buffer, 99), RYN_ERR_NULL_POINTER);
    EXPECT_EQ(rynMakeSubject("x", 4, nullptr, 99), RYN_ERR_NULL_BUFFER);
    EXPECT_EQ(rynMakeSubject("x", 8, Buffer, 99), RYN_ERR_NO_SUCH_PAGE_CODE);
    EXPECT_EQ(rynMakeSubject("x", 15, Buffer, 13), RYN_ERR_BUFFER_OVERFLOW);
    EXPECT_EQ(rynMakeSubject("x", 15, Buffer, 14), 13);
    EXPECT_STREQ(Buffer, "=?UTF-8?Q?x?=");
    EXPECT_EQ(rynMakeSubject(Mib.c_str(), 30, Buffer, 256), RYN_ERR_BUFFER_OVERFLOW);
    EXPECT_EQ(rynMakeSubject("x", 15, Buffer, -1), RYN_ERR_BUFFER_OVERFLOW);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_CID), RYN_ERR_NOT_ATTACHED);
    EXPECT_GE(rynStatistics(0, RYN_STAT_BLOCKS_ALLOCATED), 0);
    EXPECT_EQ(rynStatistics(1, RYN_STAT_BLOCKS_ALLOCATED), RYN_ERR_NOT_ATTACHED);
}
