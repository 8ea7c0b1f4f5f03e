// The settings, code by code: where a value goes, how wide it is, whom it concerns.
#include "frame/channel.h"
#include "frame/memory.h"
#include "frame/settings.h"
#include "tests/support/fault.h"
#include "tests/support/host.h"
#include "tests/support/temp_folder.h"
#include "transport/vsock.h"

#include <cstring>
#include <set>

using std::string;

struct ParamsTest : HostTest {};

using ReadNumber = int64_t (*)(const Channel& ch);

#define FIELD(name) [](const Channel& ch) -> int64_t { return ch.name; }
#define GLOBAL(name) [](const Channel&) -> int64_t { return name; }

// One code, where its value arrives, and pairs of a value and what is there afterwards.
struct IntegerRow {
    int32_t Code;
    bool Process; // concerns all channels
    ReadNumber Read;
    int64_t Start;
    uint32_t Values[4];
    int64_t Results[4];
};

static constexpr uint32_t Minus1 = 0xFFFFFFFF;

static const IntegerRow IntegerRows[] = {
    { 1, true, GLOBAL(CommandGap), 25, { 0, 70000, 0, 7 }, { 0, 70000, 0, 7 } },
    { 1, true, GLOBAL(DataGap), 7, { 0, 70000, 0, 5 }, { 0, 70000, 0, 5 } },
    { 3, true, GLOBAL(ConnectTimeout), 30000, { 0, 70000, 1, 9 }, { 0, 70000, 1, 9 } },
    { 8, false, FIELD(MessageType), 0, { 31, 32, 33, 65539 }, { 31, 0, 1, 3 } },
    { 9, false, FIELD(AutoCallDriver), 1, { 0, 1, 2, 3 }, { 0, 1, 0, 1 } },
    { 10, false, FIELD(AttachNumbering), 0, { 1, 256, Minus1, 2 }, { 1, 256, -1, 2 } },
    { 10, false, FIELD(AttachNumberBase), 2, { 1, 256, Minus1, 0 }, { 1, 256, 256, 0 } },
    { 13, true, GLOBAL(PollDelay), 100, { 0, 70000, 1, 50 }, { 0, 70000, 1, 50 } },
    { 15, false, FIELD(SmtpPort), 25, { 0, 465, 65535, 65561 }, { 0, 465, 65535, 25 } },
    { 16, false, FIELD(Pop3Port), 110, { 0, 995, 65535, 65646 }, { 0, 995, 65535, 110 } },
    { 17, true, GLOBAL(MaxLineLength), 1000, { 76, 0, 70000, 998 }, { 76, 0, 70000, 998 } },
    { 17, true, GLOBAL(WrapLineLength), 973, { 76, 0, 70000, 24 }, { 51, -25, 69975, -1 } },
    { 18, false, FIELD(NonBlockingConnect), 0, { 0, 1, 0, 256 }, { 1, 0, 1, 0 } },
    { 19, true, GLOBAL(KeepRawChars), 0, { 1, 256, 0, 1 }, { 1, 256, 0, 1 } },
    { 21, true, GLOBAL(NoAttachNote), 0, { 1, 256, 0, 1 }, { 1, 256, 0, 1 } },
    { 22, true, GLOBAL(SuppressToHeader), 0, { 1, 256, 0, 1 }, { 1, 256, 0, 1 } },
    { 23, true, GLOBAL(RecipientDelimiter), ';', { ',', 0x12C, 0, '|' }, { ',', ',', 0, '|' } },
    { 25, true, GLOBAL(AttachDelimiter), ';', { ',', 0x12C, 0, '%' }, { ',', ',', 0, '%' } },
    { 26, true, GLOBAL(AttachNameDelimiter), '|', { ',', 0x12C, 0, '!' }, { ',', ',', 0, '!' } },
    { 28, false, FIELD(DecodeState), 0, { 1, 255, 256, 257 }, { 1, 255, 0, 1 } },
    { 31, false, FIELD(AttCounter), 0, { 1, 256, 0, Minus1 }, { 1, 256, 0, -1 } },
    { 34, true, GLOBAL(FileMarker), '@', { '#', 0x12C, 0, '~' }, { '#', ',', 0, '~' } },
    { 35, false, FIELD(HtmlCharset), 0, { 1, 255, 256, 264 }, { 1, 255, 0, 8 } },
    { 36, true, GLOBAL(NoHeaderCopy), 0, { 1, 256, 0, 1 }, { 1, 256, 0, 1 } },
    { 38, false, FIELD(ImapPort), 143, { 0, 993, 65535, 65679 }, { 0, 993, 65535, 143 } },
    { 39, false, FIELD(NoExpunge), 0, { 0, 1, 0, 256 }, { 1, 0, 1, 0 } },
    { 41, true, GLOBAL(ImapPartialFetch), 0, { 1, 256, 0, 1 }, { 1, 256, 0, 1 } },
    { 42, false, FIELD(FilenamePageCode), 0, { 15, 255, 256, 260 }, { 15, 255, 0, 4 } },
    { 43, true, GLOBAL(ShowConnectSecrets), 0, { 1, 256, 0, 1 }, { 1, 256, 0, 1 } },
    { 43, true, GLOBAL(ShowSecrets), 1, { 1, 256, 0, 1 }, { 1, 256, 0, 1 } },
    { 60, false, FIELD(QuoteAttachments), 0, { 1, 2, 256, 257 }, { 1, 2, 0, 1 } },
    { 62, false, FIELD(AuthMethods), 7, { 0, 15, 256, 264 }, { 0, 15, 0, 8 } },
    { 64, false, FIELD(SendXMailer), 1, { 0, 1, 2, 3 }, { 0, 1, 0, 1 } },
    { 64, false, FIELD(SendXMailAgent), 0, { 0, 1, 2, 3 }, { 1, 0, 1, 0 } },
    { 67, true, GLOBAL(CommaInHeaderLists), 1, { 0, 255, 256, 127 }, { 0, -1, 0, 127 } },
    { 68, false, FIELD(MultipartKind), 0, { 2, 3, 256, 258 }, { 2, 3, 0, 2 } },
    { 70, false, FIELD(RawPrefix), 0, { 1, 255, 256, 257 }, { 1, 255, 0, 1 } },
    { 75, true, GLOBAL(ConnectAttempts), 3, { 1, 0, 20, 21 }, { 1, 1, 20, 20 } },
    { 1003, false, FIELD(SendXMailer), 1, { 0, 1, 256, 257 }, { 0, 1, 0, 1 } },
    { 1003, false, FIELD(SendXMailAgent), 1, { 0, 1, 256, 0 }, { 0, 1, 0, 0 } },
    { 1006, true, GLOBAL(ImapTrace), 0, { 1, 2, 0, 1 }, { 1, 2, 0, 1 } },
    { 1008, true, GLOBAL(DriverDelay), 0, { 255, 256, 257, 2 }, { 255, 0, 1, 2 } },
    { 1011, true, GLOBAL(LogZone), 0, { 1, 256, 0, 1 }, { 1, 256, 0, 1 } },
    { 1012, true, GLOBAL(ImapPartialFetch), 1, { 0, 1, 0, 7 }, { 0, 1, 0, 7 } },
    { 1013, false, FIELD(FilenamePageCode), 4, { 15, 255, 256, 260 }, { 15, 255, 0, 4 } },
};

// Flags of one byte in the channel: 0 off, 1 on.
static const struct {
    int32_t Code;
    ReadNumber Read;
    int64_t Start;
} ChannelFlags[] = {
    { 14, FIELD(SaveUnnamedBase64), 0 }, { 27, FIELD(DetectImages), 1 },
    { 29, FIELD(UseEhlo), 0 },           { 30, FIELD(UseApop), 0 },
    { 32, FIELD(IgnoreRcptRefusal), 0 }, { 33, FIELD(TagTextParts), 0 },
    { 37, FIELD(Rfc822Keep), 0 },        { 40, FIELD(SkipAttachData), 0 },
    { 1010, FIELD(NoRelatedPart), 0 },
};

TEST_F(ParamsTest, IntegersGoWhereTheirCodesTell)
{
    ASSERT_EQ(rynAttach(2), 999);
    const Channel &named = *ChannelTable[1], &other = *ChannelTable[0];
    EXPECT_EQ(WrapLineLength, 900); // not 25 below the longest line, before the first call
    EXPECT_EQ(DataGap, 0u);
    for (const auto& row : IntegerRows) {
        SCOPED_TRACE(row.Code);
        EXPECT_EQ(row.Read(named), row.Start);
        const int64_t otherStart = row.Read(other);
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(rynIntegerParam(1, row.Code, row.Values[i]), 1);
            EXPECT_EQ(row.Read(named), row.Results[i]) << row.Values[i];
            EXPECT_EQ(row.Read(other), row.Process ? row.Results[i] : otherStart);
        }
    }
    for (const auto& flag : ChannelFlags) {
        SCOPED_TRACE(flag.Code);
        EXPECT_EQ(flag.Read(named), flag.Start);
        for (const uint32_t value : { 1u, 0u, 255u }) {
            EXPECT_EQ(rynIntegerParam(1, flag.Code, value), 1);
            EXPECT_EQ(flag.Read(named) != 0, value != 0);
            EXPECT_EQ(flag.Read(other), flag.Start);
        }
    }
}

TEST_F(ParamsTest, ProcessSettingsOutliveTheReleaseAndChannelSettingsDoNot)
{
    ASSERT_EQ(rynAttach(1), 999);
    std::vector<int64_t> before;
    for (const auto& row : IntegerRows)
        before.push_back(row.Read(*ChannelTable[0]));
    for (const auto& row : IntegerRows)
        rynIntegerParam(0, row.Code, row.Values[0]);
    for (const auto& flag : ChannelFlags)
        rynIntegerParam(0, flag.Code, flag.Start == 0);
    std::vector<int64_t> set;
    for (const auto& row : IntegerRows)
        set.push_back(row.Read(*ChannelTable[0]));
    rynRelease();
    ASSERT_EQ(rynAttach(1), 999);
    for (size_t i = 0; i < std::size(IntegerRows); ++i)
        EXPECT_EQ(IntegerRows[i].Read(*ChannelTable[0]),
                  IntegerRows[i].Process ? set[i] : before[i])
            << IntegerRows[i].Code;
    for (const auto& flag : ChannelFlags)
        EXPECT_EQ(flag.Read(*ChannelTable[0]), flag.Start) << flag.Code;
}

TEST_F(ParamsTest, ManualDrivingClearsTheTimers)
{
    ASSERT_EQ(rynAttach(1), 999);
    for (const uint32_t value : { 0u, 1u }) {
        ChannelTable[0]->NotBeforeTick = ChannelTable[0]->DeadlineTick = 99;
        HostSet(0, RYN_AUTO_CALL_DRIVER, value);
        EXPECT_EQ(ChannelTable[0]->NotBeforeTick, 0u);
        EXPECT_EQ(ChannelTable[0]->DeadlineTick, 0u);
    }
}

TEST_F(ParamsTest, WriteHeadersConcernsTheProcessAndTheNamedChannel)
{
    ASSERT_EQ(rynAttach(2), 999);
    const Channel &named = *ChannelTable[1], &other = *ChannelTable[0];
    const struct {
        uint32_t Value, Standard, NoTo;
        int Mailers;
    } rows[] = { { 0, 0, 1, 0 }, { 1, 1, 0, 1 }, { 0, 0, 1, 0 }, { 256, 256, 0, 0 } };
    EXPECT_EQ(SendStandardHeaders, 1u);
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

TEST_F(ParamsTest, UnderscoreSettingAnswersTheCount)
{
    ASSERT_EQ(rynAttach(1), 999);
    EXPECT_EQ(UnderscoreToSpace, 1u);
    EXPECT_EQ(rynIntegerParam(0, RYN_UNDERSCORE_TO_SPACE, 0), 0);
    EXPECT_EQ(UnderscoreToSpace, 0u);
    UnderscoreCount = 17;
    EXPECT_EQ(rynIntegerParam(0, RYN_UNDERSCORE_TO_SPACE, 1), 17);
}

TEST_F(ParamsTest, IntegersRefuseUnknownCodesAndLogEachCall)
{
    ASSERT_EQ(rynAttach(2), 999);
    std::set<int32_t> known = { 2, 24, 76, 1000, 1002, 1004, 1005 };
    for (const auto& row : IntegerRows)
        known.insert(row.Code);
    for (const auto& flag : ChannelFlags)
        known.insert(flag.Code);
    for (int32_t code = -3; code < 2100; ++code)
        if (known.count(code) == 0) {
            EXPECT_EQ(rynIntegerParam(0, code, 0), -1) << code;
        }
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
    { RYN_FROM, 256, 205, TEXT(FromAddress) },
    { RYN_CONTENT_TYPE_LINE, 256, 206, GLOBAL_TEXT(UserContentType) },
    { RYN_TRANSFER_ENCODING_LINE, 256, 207, GLOBAL_TEXT(UserTransferEncoding) },
    { RYN_AUTH_USER, 64, 210, TEXT(UserName) },
    { RYN_HEADER_PREFIX, 64, 211, GLOBAL_TEXT(HeaderPrefix) },
    { RYN_ZONE_STRING, 32, 0, GLOBAL_TEXT(ZoneString) },
    { RYN_ZONE_STRING_ALIAS, 32, 0, GLOBAL_TEXT(ZoneString) },
    { RYN_LIST_ARGUMENTS, 16, 0, TEXT(ListArguments) },
    { RYN_EXTRA_LINE, 256, 0, TEXT(ExtraLine) },
    { RYN_LOCAL_HOST_NAME, 64, -1, TEXT(LocalHostName) },
};

TEST_F(ParamsTest, TextsAreCutToTheirCapacity)
{
    ASSERT_EQ(rynAttach(2), 999);
    EXPECT_STREQ(HeaderPrefix, "RYN:");
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
        EmptyStringSite = NullPointerSite = 0;
        if (row.Code == RYN_LOCAL_HOST_NAME) {
            EXPECT_EQ(HostSetText(0, row.Code, ""), RYN_ERR_NULL_POINTER);
            EXPECT_EQ(NullPointerSite, 114);
        } else {
            EXPECT_EQ(HostSetText(0, row.Code, ""), row.EmptySite ? RYN_ERR_EMPTY_ARGUMENT : 0);
            EXPECT_EQ(EmptyStringSite, row.EmptySite);
        }
        EXPECT_STREQ(row.Read(*ChannelTable[0]), row.EmptySite ? "old" : "");
        EXPECT_EQ(rynStringParam(0, row.Code, nullptr), RYN_ERR_NULL_POINTER);
        EXPECT_EQ(rynStatistics(0, RYN_STAT_NULL_SITE), 103);
    }
    const struct {
        uint32_t Code;
        int32_t Site;
    } sites[] = { { 41, 208 }, { 52, 203 }, { 56, 206 }, { 57, 209 } };
    for (const auto& row : sites) {
        EXPECT_EQ(HostSetText(0, row.Code, ""), RYN_ERR_EMPTY_ARGUMENT) << row.Code;
        EXPECT_EQ(rynStatistics(0, RYN_STAT_EMPTY_SITE), row.Site) << row.Code;
    }
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
    EXPECT_EQ(HostSetText(0, RYN_AUTH_USER, "ann"), 3);
    EXPECT_EQ(ReadWholeFile(Path("log")).substr(seen), "*** rynStringParam(0,57,*)\r\n"
                                                       "*** rynStringParam(0,57,*)\r\n"
                                                       "*** rynStringParam(0,58,'ann')\r\n");
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

TEST_F(ParamsTest, LocalNamesAndAddresses)
{
    ASSERT_EQ(rynAttach(1), 999);
    const Channel& ch = *ChannelTable[0];
    EXPECT_EQ(HostSetText(0, RYN_LOCAL_HOST_NAME, "*"), static_cast<int32_t>(strlen(ComputerName)));
    EXPECT_STREQ(ch.LocalHostName, ComputerName);
    EXPECT_EQ(HostSetText(0, RYN_LOCAL_HOST_NAME, "*x"), 2);
    EXPECT_STREQ(ch.LocalHostName, "*x");
    EXPECT_EQ(HostSetText(0, RYN_LOCAL_ADDRESS, "10.0.2.255"), 0x0A0002FF);
    EXPECT_EQ(ch.LocalBindAddress, 0x0A0002FFu);
    EXPECT_EQ(HostSetText(0, RYN_LOCAL_ADDRESS, "192.168.0.1"), static_cast<int32_t>(0xC0A80001));
    HostSetText(0, RYN_LOCAL_ADDRESS, "0.0.0.0");
    EXPECT_EQ(ch.LocalBindAddress, 0u);
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
        { "X-Priority: 1\n", 3, "X-Priority: 1" },
        { "X: 1\r\n\r", 1, "X: 1" },
        { "X: 1\r\nY: 2\r\n", 2, "X: 1\r\nY: 2" },
        { "ab", 3, "ab" },
        { "X:\t\xE9\x7F", 4, "X:___" },
        { "X-mailer: me", RYN_ERR_SYSTEM_HEADER, nullptr },
        { "x-MAIL-agent: me\r\n", RYN_ERR_SYSTEM_HEADER, nullptr },
        { "X-Mailers: me", 4, "X-Mailers: me" },
        { " X-Mailer: me", 4, " X-Mailer: me" },
        { "Y: 1\r\nX-Mailer: me", 4, "Y: 1\r\nX-Mailer: me" },
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
    EXPECT_EQ(HostSetText(0, RYN_ADD_EXTRA_HEADER, "X-Mailer: me"), RYN_ERR_SYSTEM_HEADER);
    EXPECT_EQ(ch.ExtraHeaders, nullptr);
    const string line = "X-Long: " + string(9000, 'x');
    EXPECT_EQ(HostSetText(0, RYN_ADD_EXTRA_HEADER, line), 4);
    EXPECT_EQ(HostSetText(0, RYN_ADD_EXTRA_HEADER, line), 4);
    EXPECT_EQ(string(ch.ExtraHeaders), (line + "\r\n" + line).substr(0, 16384));
}

TEST_F(ParamsTest, TextsOfOtherCodes)
{
    ASSERT_EQ(rynAttach(2), 999);
    EXPECT_EQ(HostSetText(0, RYN_INERT_TEXT_61, "x"), 0);
    EXPECT_EQ(HostSetText(0, RYN_INERT_TEXT_66, "x"), 0);
    EXPECT_EQ(HostSetText(0, RYN_LOG_TEXT, "lost"), 0);
    EXPECT_EQ(HostSetText(0, RYN_TEST_PATH, Folder), 1);
    EXPECT_EQ(HostSetText(0, RYN_TEST_PATH, Path("none")), RYN_ERR_NO_SUCH_PATH);
    EXPECT_EQ(HostErrorText(0, RYN_ERR_NO_SUCH_PATH), "No such path. " + Path("none"));
    EXPECT_EQ(HostSetText(0, RYN_TEST_PATH, ""), RYN_ERR_NO_SUCH_PATH);
    std::set<uint32_t> known = { 20, 41, 51, 52, 56, 57, 61, 66, 73, 77, 2001 };
    for (const auto& row : TextRows)
        known.insert(row.Code);
    for (uint32_t code = 0; code < 2100; ++code)
        if (known.count(code) == 0) {
            EXPECT_EQ(HostSetText(0, code, "x"), -1) << code;
        }
    EXPECT_EQ(HostSetText(0, 0xFFFFFFFF, "x"), -1);
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
    ASSERT_GT(HostSetText(0, RYN_LOG_FILE, Path("log")), 0);
    const size_t seen = ReadWholeFile(Path("log")).size();
    EXPECT_EQ(rynSetFileBuffer(0, 7, "abc", 3), 3);
    for (const int32_t index : { -1, 8, 1 << 30 })
        EXPECT_EQ(rynSetFileBuffer(0, index, nullptr, 3), RYN_ERR_INDEX_RANGE) << index;
    const string log = ReadWholeFile(Path("log")).substr(seen);
    EXPECT_EQ(log.substr(0, 20), "*** rynFileBuffer(0,");
    EXPECT_EQ(log.substr(log.find('\n') + 1), Repeat("*** rynFileBuffer(0,0,3)\r\n", 3));
}
