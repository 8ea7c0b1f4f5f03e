// The settings, code by code: where a value goes, how wide it is, whom it concerns.
#include "frame/channel.h"
#include "frame/memory.h"
#include "frame/settings.h"
#include "tests/support/fault.h"
#include "tests/support/host.h"
#include "tests/support/temp_folder.h"
#include "transport/vsock.h"

using std::string;

struct ParamsTest : HostTest {};

using ReadNumber = int64_t (*)(const Channel& ch);

#define FIELD(name) [](const Channel& ch) -> int64_t { return ch.name; }
#define GLOBAL(name) [](const Channel&) -> int64_t { return name; }

static constexpr uint32_t Minus1 = 0xFFFFFFFF;

// Numbers cut to their width, changed, limited, or kept in two places: pairs of a value and what is
// there afterwards.
struct IntegerRow {
    int32_t Code;
    bool Process; // concerns all channels
    ReadNumber Read;
    uint32_t Values[2];
    int64_t Results[2];
};

static const IntegerRow IntegerRows[] = {
    { 1, true, GLOBAL(CommandGap), { 70000, 7 }, { 70000, 7 } },
    { 1, true, GLOBAL(DataGap), { 70000, 5 }, { 70000, 5 } },
    { 8, false, FIELD(MessageType), { 31, 32 }, { 31, 0 } },
    { 9, false, FIELD(AutoCallDriver), { 0, 3 }, { 0, 1 } },
    { 10, false, FIELD(AttachNumbering), { Minus1, 2 }, { -1, 2 } },
    { 10, false, FIELD(AttachNumberBase), { 256, Minus1 }, { 256, 256 } },
    { 14, false, FIELD(SaveUnnamedBase64), { 70000, 256 }, { 70000, 256 } },
    { 15, false, FIELD(SmtpPort), { 65535, 65561 }, { 65535, 25 } },
    { 17, true, GLOBAL(WrapLineLength), { 76, 24 }, { 51, -1 } },
    { 18, false, FIELD(NonBlockingConnect), { 0, 256 }, { 1, 0 } },
    { 23, true, GLOBAL(RecipientDelimiter), { 0x12C, 0 }, { ',', 0 } },
    { 28, false, FIELD(DecodeState), { 255, 256 }, { 255, 0 } },
    { 43, true, GLOBAL(ShowSecrets), { 256, 0 }, { 256, 0 } },
    { 64, false, FIELD(SendXMailer), { 2, 3 }, { 0, 1 } },
    { 64, false, FIELD(SendXMailAgent), { 2, 3 }, { 1, 0 } },
    { 67, true, GLOBAL(CommaInHeaderLists), { 255, 256 }, { -1, 0 } },
    { 75, true, GLOBAL(ConnectAttempts), { 20, 21 }, { 20, 20 } },
    { 1008, true, GLOBAL(DriverDelay), { 255, 257 }, { 255, 1 } },
};

TEST_F(ParamsTest, IntegersGoWhereTheirCodesTell)
{
    ASSERT_EQ(rynAttach(2), 999);
    const Channel &named = *ChannelTable[1], &other = *ChannelTable[0];
    EXPECT_EQ(WrapLineLength, 900); // not 25 below the longest line, before the first call
    for (const auto& row : IntegerRows) {
        SCOPED_TRACE(row.Code);
        for (int i = 0; i < 2; ++i) {
            const int64_t otherBefore = row.Read(other);
            EXPECT_EQ(rynIntegerParam(1, row.Code, row.Values[i]), 1);
            EXPECT_EQ(row.Read(named), row.Results[i]) << row.Values[i];
            EXPECT_EQ(row.Read(other), row.Process ? row.Results[i] : otherBefore);
        }
    }
}

TEST_F(ParamsTest, WriteHeadersConcernsTheProcessAndTheNamedChannel)
{
    ASSERT_EQ(rynAttach(2), 999);
    const Channel &named = *ChannelTable[1], &other = *ChannelTable[0];
    const struct {
        uint32_t Value, Standard, NoTo;
        int Mailers;
    } rows[] = { { 0, 0, 1, 0 }, { 1, 1, 0, 1 }, { 256, 256, 0, 0 } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Value);
        HostSet(1, RYN_WRITE_HEADERS, row.Value);
        EXPECT_EQ(SendStandardHeaders, row.Standard);
        EXPECT_EQ(SuppressToHeader, row.NoTo);
        EXPECT_EQ(named.SendXMailer, row.Mailers);
        EXPECT_EQ(named.SendXMailAgent, row.Mailers);
        EXPECT_EQ(other.SendXMailer, 1);
        EXPECT_EQ(other.SendXMailAgent, 0);
    }
}

TEST_F(ParamsTest, SecretsOfSentLinesShowOnlyIfSetWithoutASocket)
{
    ASSERT_EQ(rynAttach(1), 999);
    ChannelTable[0]->VSock = vsCreate(0);
    HostSet(0, RYN_SHOW_SECRETS, 1);
    EXPECT_EQ(ShowConnectSecrets, 1u);
    EXPECT_EQ(ShowSecrets, 0u);
}

TEST_F(ParamsTest, IntegersRefuseUnknownCodesAndLogEachCall)
{
    ASSERT_EQ(rynAttach(2), 999);
    ASSERT_GT(HostSetText(1, RYN_LOG_FILE, Path("log")), 0);
    const size_t seen = ReadWholeFile(Path("log")).size();
    for (const int32_t code : { 24, 1000, 1002, 1005 })
        HostSet(1, code, Minus1);
    EXPECT_EQ(rynIntegerParam(1, -4, 7), -1);
    EXPECT_EQ(rynIntegerParam(0, 4, 7), -1); // that channel has no log
    EXPECT_EQ(ReadWholeFile(Path("log")).substr(seen), "*** rynIntegerParam(1,24,-1)\r\n"
                                                       "*** rynIntegerParam(1,1000,-1)\r\n"
                                                       "*** rynIntegerParam(1,1002,-1)\r\n"
                                                       "*** rynIntegerParam(1,1005,-1)\r\n"
                                                       "*** rynIntegerParam(1,-4,7)\r\n");
}

// --- texts ---

struct TextRow {
    uint32_t Code;
    size_t Capacity;
    int32_t EmptySite; // 0: an empty text is stored
    const char* (*Read)(const Channel& ch);
    bool Process;
};

#define TEXT(name) [](const Channel& ch) -> const char* { return ch.name; }, false
#define GLOBAL_TEXT(name) [](const Channel&) -> const char* { return name; }, true

static const TextRow TextRows[] = {
    { RYN_REPLY_TO, 256, 204, TEXT(ReplyToAddress) },
    { RYN_AUTH_USER, 64, 210, TEXT(UserName) },
    { RYN_HEADER_PREFIX, 64, 211, GLOBAL_TEXT(HeaderPrefix) },
    { RYN_ZONE_STRING, 32, 0, GLOBAL_TEXT(ZoneString) },
    { RYN_LIST_ARGUMENTS, 16, 0, TEXT(ListArguments) },
};

TEST_F(ParamsTest, TextsAreCutToTheirCapacity)
{
    ASSERT_EQ(rynAttach(2), 999);
    for (const auto& row : TextRows) {
        SCOPED_TRACE(row.Code);
        const string other = row.Read(*ChannelTable[0]);
        for (const size_t length :
             { size_t{ 1 }, row.Capacity, row.Capacity + 1, size_t{ 3000 } }) {
            const string text = Repeat("\xE9z%s", length).substr(0, length);
            const string kept = text.substr(0, row.Capacity);
            EXPECT_EQ(HostSetText(1, row.Code, text), static_cast<int32_t>(kept.size()));
            EXPECT_EQ(row.Read(*ChannelTable[1]), kept);
            EXPECT_EQ(row.Read(*ChannelTable[0]), row.Process ? kept : other);
        }
    }
}

TEST_F(ParamsTest, EmptyTextsAreStoredOrRefusedAtTheirSite)
{
    ASSERT_EQ(rynAttach(1), 999);
    for (const auto& row : TextRows) {
        SCOPED_TRACE(row.Code);
        ASSERT_EQ(HostSetText(0, row.Code, "old"), 3);
        EmptyStringSite = 0;
        EXPECT_EQ(HostSetText(0, row.Code, ""), row.EmptySite ? RYN_ERR_EMPTY_ARGUMENT : 0);
        EXPECT_EQ(EmptyStringSite, row.EmptySite);
        EXPECT_STREQ(row.Read(*ChannelTable[0]), row.EmptySite ? "old" : "");
    }
    EXPECT_EQ(HostSetText(0, RYN_LOCAL_HOST_NAME, ""), RYN_ERR_NULL_POINTER);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_NULL_SITE), 114);
    EXPECT_EQ(rynStringParam(0, RYN_REPLY_TO, nullptr), RYN_ERR_NULL_POINTER);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_NULL_SITE), 103);
}

TEST_F(ParamsTest, PasswordIsStoredWholeOrNotAtAllAndNeverLogged)
{
    ASSERT_EQ(rynAttach(1), 999);
    HostSet(0, RYN_SHOW_SECRETS, 1);
    ASSERT_GT(HostSetText(0, RYN_LOG_FILE, Path("log")), 0);
    const size_t seen = ReadWholeFile(Path("log")).size();
    const string secret = Repeat("S", 2048);
    EXPECT_EQ(HostSetText(0, RYN_AUTH_PASSWORD, secret), 2048);
    EXPECT_EQ(ChannelTable[0]->AuthPassword, secret);
    EXPECT_EQ(HostSetText(0, RYN_AUTH_PASSWORD, secret + "x"), RYN_ERR_PASSWORD_TOO_LONG);
    EXPECT_EQ(ChannelTable[0]->AuthPassword, secret);
    EXPECT_EQ(ReadWholeFile(Path("log")).substr(seen), "*** rynStringParam(0,57,*)\r\n"
                                                       "*** rynStringParam(0,57,*)\r\n");
}

TEST_F(ParamsTest, HeaderPrefixStaysWhileAnAlternativeTextIsHeld)
{
    ASSERT_EQ(rynAttach(2), 999);
    ChannelTable[0]->AltText = AllocAndCopy(0, SLOT_ALTERNATIVE, "plain");
    EXPECT_EQ(HostSetText(0, RYN_HEADER_PREFIX, "X:"), 0);
    EXPECT_STREQ(HeaderPrefix, "RYN:");
    EXPECT_EQ(HostSetText(1, RYN_HEADER_PREFIX, "X:"), 2);
    EXPECT_STREQ(HeaderPrefix, "X:");
}

TEST_F(ParamsTest, ExtraHeadersAreCleanedAndReplaced)
{
    ASSERT_EQ(rynAttach(1), 999);
    const Channel& ch = *ChannelTable[0];
    const struct {
        const char* Text;
        int32_t Result;
        const char* Stored; // null: none
    } rows[] = {
        { "X-Priority: 1\r\n", 2, "X-Priority: 1" },
        { "X-Priority: 1", 4, "X-Priority: 1" },
        { "X: 1\r\nY: 2\r\n", 2, "X: 1\r\nY: 2" },
        { "X:\t\xE9\x7F", 4, "X:___" },
        { "X-mailer: me", RYN_ERR_SYSTEM_HEADER, nullptr },
        { "x-MAIL-agent: me\r\n", RYN_ERR_SYSTEM_HEADER, nullptr },
        { " X-Mailer: me", 4, " X-Mailer: me" },
        { "", 0, nullptr },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Text);
        EXPECT_EQ(HostSetText(0, RYN_EXTRA_HEADERS, row.Text), row.Result);
        EXPECT_STREQ(ch.ExtraHeaders, row.Stored);
        EXPECT_EQ(BlockExists(SLOT_EXTRA_HEADERS), row.Stored == nullptr ? 0 : 1);
    }
}

TEST_F(ParamsTest, ExtraHeadersGrowLineByLine)
{
    ASSERT_EQ(rynAttach(1), 999);
    const Channel& ch = *ChannelTable[0];
    EXPECT_EQ(HostSetText(0, RYN_ADD_EXTRA_HEADER, "X-A: 1\r\n"), 2);
    EXPECT_STREQ(ch.ExtraHeaders, "X-A: 1");
    EXPECT_EQ(HostSetText(0, RYN_ADD_EXTRA_HEADER, "X-Mailer: me"), 4);
    EXPECT_STREQ(ch.ExtraHeaders, "X-A: 1\r\nX-Mailer: me");
    HostSetText(0, RYN_EXTRA_HEADERS, "");
    const string line = "X-Long: " + string(9000, 'x');
    EXPECT_EQ(HostSetText(0, RYN_ADD_EXTRA_HEADER, line), 4);
    EXPECT_EQ(HostSetText(0, RYN_ADD_EXTRA_HEADER, line), 4);
    EXPECT_EQ(string(ch.ExtraHeaders), (line + "\r\n" + line).substr(0, 16384));
}

TEST_F(ParamsTest, PathIsTestedAndUnknownTextsAreRefused)
{
    ASSERT_EQ(rynAttach(1), 999);
    EXPECT_EQ(HostSetText(0, RYN_TEST_PATH, Folder), 1);
    EXPECT_EQ(HostSetText(0, RYN_TEST_PATH, Path("none")), RYN_ERR_NO_SUCH_PATH);
    EXPECT_EQ(HostErrorText(0, RYN_ERR_NO_SUCH_PATH), "No such path. " + Path("none"));
    for (const uint32_t code : { 0u, 2100u, Minus1 })
        EXPECT_EQ(HostSetText(0, code, "x"), -1) << code;
}

TEST_F(ParamsTest, KeptLinesAreWrittenToAFile)
{
    ASSERT_EQ(rynAttach(1), 999);
    EXPECT_EQ(HostSetText(0, RYN_WRITE_LINES_FILE, Path("lines")), RYN_ERR_NULL_POINTER);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_NULL_SITE), 101);
    const string lines = "Subject: x\r\n\r\nbody\r\n";
    ASSERT_NE(AllocAndCopy(0, SLOT_EMAIL_LINES, lines.c_str()), nullptr);
    EXPECT_EQ(HostSetText(0, RYN_WRITE_LINES_FILE, Path("none/lines")), RYN_ERR_CANNOT_CREATE_FILE);
    const int32_t written = HostSetText(0, RYN_WRITE_LINES_FILE, Path("lines"));
    const string file = ReadWholeFile(Path("lines"));
    EXPECT_EQ(static_cast<size_t>(written), file.size());
    EXPECT_EQ(file.substr(0, lines.size()), lines);
    EXPECT_EQ(OpenDescriptors(), DescriptorsBefore);
}

TEST_F(ParamsTest, FileBuffersHaveEightPlaces)
{
    ASSERT_EQ(rynAttach(1), 999);
    EXPECT_EQ(rynSetFileBuffer(0, 7, "abc", 3), 3);
    for (const int32_t index : { -1, 8, 1 << 30 })
        EXPECT_EQ(rynSetFileBuffer(0, index, nullptr, 3), RYN_ERR_INDEX_RANGE) << index;
}
