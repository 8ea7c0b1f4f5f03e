// The generators of header lines: zone, Date, Message-ID, encoded words.
#include "send/header_lines.h"

#include "codec/text.h"
#include "frame/channel.h"
#include "frame/settings.h"
#include "tests/codec/guarded.h"
#include "tests/support/host.h"
#include "tests/support/temp_folder.h"
#include "tests/support/virtual_clock.h"

#include <regex>
#include <set>

using std::string;

struct HeaderLinesTest : HostTest {};

TEST_F(HeaderLinesTest, ZoneHasASignAndFourDigits)
{
    const struct {
        int32_t Zone;
        const char* Text;
    } rows[] = { { 0, "+0000" },    { 100, "+0100" },   { -330, "-0330" },  { 545, "+0545" },
                 { 1400, "+1400" }, { -1200, "-1200" }, { -30, "-0030" },   { 5, "+0005" },
                 { 9999, "+9999" }, { -9999, "-9999" }, { 12345, "+2345" }, { -10001, "-0001" } };
    for (const auto& row : rows) {
        Guarded text(6);
        FormatZone(row.Zone, text.Data());
        EXPECT_EQ(text.Text(), row.Text);
        EXPECT_TRUE(text.MarginsWhole());
    }
}

static string DateLine(const Channel* ch = nullptr)
{
    char line[FormatCapacity];
    FormatDateLine(ch, line);
    return line;
}

TEST_F(HeaderLinesTest, DateShowsTheZoneOfItsBias)
{
    const struct {
        int32_t Bias, IsDaylight; // minutes
        const char* Zone;
    } rows[] = { { 0, 0, "+0000" },    { -60, 0, "+0100" },  { -60, 1, "+0200" },
                 { 210, 0, "-0330" },  { 210, 1, "-0230" },  { -330, 0, "+0530" },
                 { -345, 0, "+0545" }, { 480, 0, "-0800" },  { 480, 1, "-0700" },
                 { 570, 0, "-0930" },  { -840, 0, "+1400" }, { 30, 0, "-0030" },
                 { 30, 1, "+0030" },   { -570, 1, "+1030" }, { 60, 1, "+0000" } };
    for (const auto& row : rows) {
        VirtualClockSetLocalTime({ 2026, 11, 17, 2, 22, 52, 6, row.Bias, row.IsDaylight });
        ZoneString[0] = 0;
        EXPECT_EQ(DateLine(), string("Date: Tue, 17 Nov 2026 22:52:06 ") + row.Zone);
        EXPECT_STREQ(ZoneString, row.Zone);
    }
}

TEST_F(HeaderLinesTest, DateNamesDaysAndMonths)
{
    const char* const days[] = { "Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat" };
    const char* const months[] = { "Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec" };
    for (int32_t i = 0; i < 12; ++i) {
        VirtualClockSetLocalTime({ 1999 + i, i + 1, i + 1, i % 7, i, 5, 59 - i, 0, 0 });
        char expected[64];
        snprintf(expected, sizeof(expected), "Date: %s, %d %s %d %02d:05:%02d +0000", days[i % 7],
                 i + 1, months[i], 1999 + i, i, 59 - i);
        EXPECT_EQ(DateLine(), expected);
    }
}

TEST_F(HeaderLinesTest, ZoneIsWorkedOutOnceUnlessTheHostSetsIt)
{
    HostAttach(1);
    EXPECT_EQ(DateLine().substr(32), "+0100");
    VirtualClockSetLocalTime({ 2026, 11, 17, 2, 22, 52, 6, 300, 0 });
    EXPECT_EQ(DateLine().substr(32), "+0100");
    EXPECT_EQ(HostSetText(0, RYN_ZONE_STRING, "EST"), 3);
    EXPECT_EQ(DateLine().substr(32), "EST");
    EXPECT_EQ(HostSetText(0, RYN_ZONE_STRING_ALIAS, ""), 0);
    EXPECT_EQ(DateLine().substr(32), "-0500");
    rynRelease();
    HostAttach(1);
    VirtualClockSetLocalTime({ 2026, 11, 17, 2, 22, 52, 6, 0, 0 });
    EXPECT_EQ(DateLine().substr(32), "-0500");
}

TEST_F(HeaderLinesTest, ZoneTraceShowsTheSum)
{
    HostAttach(1);
    HostSet(0, RYN_ZONE_TRACE, 1);
    ASSERT_GT(HostSetText(0, RYN_LOG_FILE, Path("log")), 0);
    const struct {
        int32_t Bias;
        const char* Line;
    } rows[] = { { -60, "ZoneCode=2, Bias=-60, Zone=200, ZoneMin=0,  ZoneString='+0200'\r\n" },
                 { 210, "ZoneCode=2, Bias=210, Zone=-230, ZoneMin=-30,  ZoneString='-0230'\r\n" } };
    for (const auto& row : rows) {
        VirtualClockSetLocalTime({ 2026, 7, 17, 2, 22, 52, 6, row.Bias, 1 });
        HostSetText(0, RYN_ZONE_STRING, "");
        const size_t seen = ReadWholeFile(Path("log")).size();
        DateLine(ChannelTable[0]);
        DateLine(ChannelTable[0]); // nothing is worked out a second time
        EXPECT_EQ(ReadWholeFile(Path("log")).substr(seen), row.Line);
    }
}

static string MessageId(const Channel& ch)
{
    char line[FormatCapacity];
    FormatMessageId(ch, line);
    return line;
}

TEST_F(HeaderLinesTest, MessageIdNamesProcessChannelAndDomain)
{
    HostAttach(4);
    char process[9];
    const uint32_t id = osProcessId();
    snprintf(process, sizeof(process), "%02x%02x%02x%02x", id & 255, id >> 8 & 255, id >> 16 & 255,
             id >> 24);
    const string longDomain = string(240, 'd') + ".example>";
    const struct {
        string From, Tail;
    } rows[] = { { "John <john@mail.example>", "@mail.example>" },
                 { "<a@x>", "@x>" },
                 { "a@b <c@d>", "@b <c@d>" }, // the first one counts
                 { "<a@x> (Ann)", "@x> (Ann)" },
                 { "<@" + longDomain, "@" + longDomain } };
    std::set<string> seen;
    for (const auto& row : rows) {
        CopyField(ChannelTable[3]->FromAddress, row.From.c_str());
        const string line = MessageId(*ChannelTable[3]);
        const string head = string("Message-ID: <") + process + ".";
        EXPECT_EQ(line.substr(0, head.size()), head);
        const string random = line.substr(head.size(), 24);
        EXPECT_EQ(random.find_first_not_of("0123456789abcdef"), string::npos) << line;
        EXPECT_EQ(line.substr(head.size() + 24), ".3.0" + row.Tail);
        EXPECT_TRUE(seen.insert(random).second);
    }
}

TEST_F(HeaderLinesTest, MessageIdHasADomainWithoutASender)
{
    HostAttach(1);
    for (const char* from : { "", "<abc>" }) {
        CopyField(ChannelTable[0]->FromAddress, from);
        EXPECT_TRUE(std::regex_match(MessageId(*ChannelTable[0]),
                                     std::regex("Message-ID: <[0-9a-f]{8}\\.[0-9a-f]{24}\\.0\\.0"
                                                "@[A-Za-z0-9.-]+>")))
            << MessageId(*ChannelTable[0]);
    }
}

static const struct {
    int32_t PageCode;
    const char* Prefix;
} Pages[] = { { 4, "=?ISO-8859-1?Q?" }, { 5, "=?ISO-8859-8?Q?" },  { 6, "=?WIN-1252?Q?" },
              { 7, "=?WIN-1255?Q?" },   { 10, "=?ISO-8859-2?Q?" }, { 11, "=?ISO-8859-7?Q?" },
              { 12, "=?WIN-1250?Q?" },  { 13, "=?ISO-8859-3?Q?" }, { 14, "=?ISO-8859-4?Q?" },
              { 15, "=?UTF-8?Q?" },     { 30, "=?UTF-8?B?" } };

TEST_F(HeaderLinesTest, SubjectIsOneEncodedWordOfItsPageCode)
{
    std::set<int32_t> known;
    for (const auto& page : Pages) {
        SCOPED_TRACE(page.PageCode);
        known.insert(page.PageCode);
        const bool base64 = page.PageCode == 30;
        const struct {
            const char *Text, *Quoted, *Base64;
        } rows[] = { { "caf\xC3\xA9 =?_\t\r\n~", "caf=C3=A9 =3D?_\t=0D=0A~",
                       "Y2Fmw6kgPT9fCQ0Kfg==" },
                     { "plain", "plain", "cGxhaW4=" },
                     { "", "", "" } };
        for (const auto& row : rows) {
            const string word = string(page.Prefix) + (base64 ? row.Base64 : row.Quoted) + "?=";
            const auto length = static_cast<int32_t>(word.size());
            Guarded exact(word.size() + 1);
            EXPECT_EQ(rynMakeSubject(row.Text, page.PageCode, exact.Data(), length + 1), length);
            EXPECT_EQ(exact.Text(), word);
            EXPECT_TRUE(exact.MarginsWhole());
            for (const int32_t size : { length, 1, 0, -1 }) {
                Guarded small(word.size());
                EXPECT_EQ(rynMakeSubject(row.Text, page.PageCode, small.Data(), size),
                          RYN_ERR_BUFFER_OVERFLOW);
                EXPECT_TRUE(small.UntouchedFrom(0));
            }
        }
    }
    char word[64];
    for (int32_t code = -1; code < 300; ++code)
        if (known.count(code) == 0) {
            EXPECT_EQ(rynMakeSubject("a", code, word, 64), RYN_ERR_NO_SUCH_PAGE_CODE) << code;
        }
    EXPECT_EQ(rynMakeSubject(nullptr, 4, word, 64), RYN_ERR_NULL_POINTER);
    EXPECT_EQ(rynMakeSubject("a", 4, nullptr, 64), RYN_ERR_NULL_BUFFER);
}

TEST_F(HeaderLinesTest, SubjectOfAtMost1023CharsIsMadeWhole)
{
    // Of "=?UTF-8?Q?" 1011 chars are left, of "=?UTF-8?B?" groups of four up to 1008.
    const struct {
        int32_t PageCode;
        size_t Length;
        int32_t Result;
    } rows[] = { { 15, 1011, 1023 },
                 { 15, 1012, RYN_ERR_BUFFER_OVERFLOW },
                 { 15, 1019, RYN_ERR_BUFFER_OVERFLOW },
                 { 15, 5000, RYN_ERR_BUFFER_OVERFLOW },
                 { 30, 756, 1020 },
                 { 30, 757, RYN_ERR_BUFFER_OVERFLOW },
                 { 30, 70000, RYN_ERR_BUFFER_OVERFLOW },
                 { 4, 1006, 1023 },
                 { 4, 1007, RYN_ERR_BUFFER_OVERFLOW } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Length);
        const string text(row.Length, 'x');
        Guarded word(4096);
        EXPECT_EQ(rynMakeSubject(text.c_str(), row.PageCode, word.Data(), 4096), row.Result);
        const bool made = row.Result > 0;
        EXPECT_TRUE(word.UntouchedFrom(made ? static_cast<size_t>(row.Result) + 1 : 0));
        if (made && row.PageCode != 30) {
            EXPECT_NE(word.Text().find("?Q?" + text + "?="), string::npos);
        }
    }
    Guarded word(4096);
    const string quoted(337, '\xE9'); // three chars each, 1011 in all
    EXPECT_EQ(rynMakeSubject(quoted.c_str(), 15, word.Data(), 4096), 1023);
    EXPECT_EQ(rynMakeSubject((quoted + "x").c_str(), 15, word.Data(), 4096),
              RYN_ERR_BUFFER_OVERFLOW);
}
