// The generators of header lines: zone, Date, Message-ID, encoded words.
#include "send/header_lines.h"

#include "codec/text.h"
#include "frame/channel.h"
#include "frame/settings.h"
#include "tests/codec/guarded.h"
#include "tests/support/host.h"
#include "tests/support/virtual_clock.h"

#include <regex>
#include <set>

using std::string;

struct HeaderLinesTest : HostTest {};

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
    } rows[] = { { 0, 0, "+0000" },   { -60, 1, "+0200" },  { 210, 1, "-0230" },
                 { 570, 0, "-0930" }, { -840, 0, "+1400" }, { 30, 0, "-0030" },
                 { 30, 1, "+0030" },  { -570, 1, "+1030" }, { 60, 1, "+0000" } };
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

TEST_F(HeaderLinesTest, SubjectIsOneEncodedWordOfItsPageCode)
{
    const struct {
        int32_t PageCode;
        string Word;
    } rows[] = { { 4, "=?ISO-8859-1?Q?caf=C3=A9 =3D?_\t=0D=0A~?=" },
                 { 12, "=?WIN-1250?Q?caf=C3=A9 =3D?_\t=0D=0A~?=" },
                 { 15, "=?UTF-8?Q?caf=C3=A9 =3D?_\t=0D=0A~?=" },
                 { 30, "=?UTF-8?B?Y2Fmw6kgPT9fCQ0Kfg==?=" } };
    const char* const text = "caf\xC3\xA9 =?_\t\r\n~";
    for (const auto& row : rows) {
        SCOPED_TRACE(row.PageCode);
        const auto length = static_cast<int32_t>(row.Word.size());
        Guarded exact(row.Word.size() + 1);
        EXPECT_EQ(rynMakeSubject(text, row.PageCode, exact.Data(), length + 1), length);
        EXPECT_EQ(exact.Text(), row.Word);
        EXPECT_TRUE(exact.MarginsWhole());
        for (const int32_t size : { length, 1, 0, -1 }) {
            Guarded small(row.Word.size());
            EXPECT_EQ(rynMakeSubject(text, row.PageCode, small.Data(), size),
                      RYN_ERR_BUFFER_OVERFLOW);
            EXPECT_TRUE(small.UntouchedFrom(0));
        }
    }
    char word[64];
    for (const int32_t code : { -1, 0, 3, 8, 9, 16, 29, 31 })
        EXPECT_EQ(rynMakeSubject("a", code, word, 64), RYN_ERR_NO_SUCH_PAGE_CODE) << code;
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
                 { 30, 756, 1020 },
                 { 30, 757, RYN_ERR_BUFFER_OVERFLOW },
                 { 30, 70000, RYN_ERR_BUFFER_OVERFLOW } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Length);
        const string text(row.Length, 'x');
        Guarded word(4096);
        EXPECT_EQ(rynMakeSubject(text.c_str(), row.PageCode, word.Data(), 4096), row.Result);
        EXPECT_TRUE(word.UntouchedFrom(row.Result > 0 ? static_cast<size_t>(row.Result) + 1 : 0));
    }
}
