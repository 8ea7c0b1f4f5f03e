// What a host decodes and encodes: Base64, quoted-printable and UU in both directions, against the
// encoder of the sending side and exact bytes, with margins around every target.
#include "codec/base64.h"
#include "include/ryn32.h"
#include "tests/codec/guarded.h"
#include "tests/support/host.h"
#include "tests/support/temp_folder.h"

#include <memory>
#include <string>

using std::string;

// Bytes of every value in no simple order.
static string Sample(size_t length)
{
    string bytes;
    for (size_t i = 0; i < length; ++i)
        bytes += static_cast<char>((i * 167 + length * 31) & 255);
    return bytes;
}

static int32_t Count(const string& text)
{
    return static_cast<int32_t>(text.size());
}

// A copy with exactly so many bytes to read, and no terminator.
static std::unique_ptr<char[]> Exactly(const string& bytes)
{
    std::unique_ptr<char[]> copy(new char[bytes.size()]);
    bytes.copy(copy.get(), bytes.size());
    return copy;
}

// --- Base64 ---

TEST(Base64Codec, GoesRoundForEachLength)
{
    for (size_t length = 1; length <= 300; ++length) {
        SCOPED_TRACE(length);
        const string bytes = Sample(length);
        string text;
        for (size_t at = 0; at < length; at += 57) {
            char line[80];
            const auto count = static_cast<int32_t>(std::min<size_t>(57, length - at));
            EncodeBase64Block(&bytes[at], line, count, true);
            text += line;
        }
        Guarded encoded((length + 56) / 57 * 78 + 1);
        const auto source = Exactly(bytes);
        ASSERT_EQ(rynEncodeBuffer(source.get(), encoded.Data(), Count(bytes)), Count(text));
        ASSERT_EQ(encoded.Text(), text);
        EXPECT_TRUE(encoded.UntouchedFrom(text.size() + 1));
        Guarded decoded(text.size() / 4 * 3 + 4);
        const auto lines = Exactly(text);
        ASSERT_EQ(rynDecodeBuffer(lines.get(), decoded.Data(), Count(text)), Count(bytes));
        EXPECT_EQ(decoded.Head(length + 1), bytes + '\0');
        EXPECT_TRUE(decoded.MarginsWhole());
    }
}

TEST(Base64Codec, DecodesEachLineAlone)
{
    const struct {
        string Text, Bytes;
    } rows[] = {
        { "TWFu\r\nTWE=\r\n", "ManMa" },
        { "TWE=\r\nTWFu\r\n", "MaMan" },      // padding ends a line, not the text
        { "TWFu\r\r\n\n\n\rTWFu", "ManMan" }, // line ends of any number and order
        { "TWFuT\r\nWFu", "Man" },            // what a line has too much, the next one lacks
        { "TWFu\nTWFu", string("Man\x01\x35\x85", 6) }, // a bare LF ends no line: it counts as 0
        { "TW u", "M`." },
        { "====", string(1, '\0') },
        { "\r\n", "" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Text);
        Guarded decoded(row.Text.size() / 4 * 3 + 4);
        EXPECT_EQ(rynDecodeBuffer(row.Text.c_str(), decoded.Data(), Count(row.Text)),
                  Count(row.Bytes));
        EXPECT_EQ(decoded.Head(row.Bytes.size()), row.Bytes);
        EXPECT_TRUE(decoded.MarginsWhole());
    }
}

TEST(Base64Codec, LooksAtNoMoreThanItIsTold)
{
    const struct {
        string Text;
        int32_t Length, Count;
    } rows[] = { { "TWFuTWFu", 7, 3 },
                 { "TWFuTWFu", 3, 0 },
                 { "TWFuTWFu", -5, 0 },
                 { "TWFuTWFu", 999, 6 }, // the text ends first
                 { "TWFu\r\nTW", 6, 3 } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Length);
        Guarded decoded(16);
        EXPECT_EQ(rynDecodeBuffer(row.Text.c_str(), decoded.Data(), row.Length), row.Count);
        EXPECT_EQ(decoded.Head(6).substr(0, static_cast<size_t>(row.Count)),
                  string("ManMan").substr(0, static_cast<size_t>(row.Count)));
        if (row.Length < 3) {
            EXPECT_TRUE(decoded.UntouchedFrom(0));
        }
    }
}

TEST(Base64Codec, EncodesNothingForNoBytes)
{
    for (const int32_t length : { 0, -1, -58 }) {
        Guarded target(80);
        EXPECT_EQ(rynEncodeBuffer("abc", target.Data(), length), 0);
        EXPECT_TRUE(target.UntouchedFrom(0));
    }
}

// --- quoted-printable ---

struct QuotedHost : HostTest {};

TEST_F(QuotedHost, DecodesByTheRulesForBreaksAndDigits)
{
    const struct {
        string Text, Bytes;
    } rows[] = {
        { "", "" },
        { "a=3Db=\r\n", "a=b" },
        { "=e9=E9=C3=a9", "\xE9\xE9\xC3\xA9" },
        { "a\r\nb", "a\r\nb" }, // a hard line end stays
        { "=\rdropped", "" },
        { "a=\r\nb", "a" },
        { "=?x=3F?=", "=?x?\?" },
        { "=ZZ=G1=1G", string("\0\x01\x10", 3) },
        { "=\nAb", string("\x0A", 1) + "b" }, // an LF is taken for a digit
        { "==3D", string("\x03", 1) + "D" },
        { "a=", "a" },
        { "a=4", "a" },
        { "=3D3D", "=3D" }, // what was decoded is not decoded again
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Text);
        Guarded target(row.Text.size() + 1);
        EXPECT_EQ(rynUnQuoteBuffer(row.Text.c_str(), target.Data(), Count(row.Text)),
                  Count(row.Bytes));
        EXPECT_EQ(target.Head(row.Bytes.size() + 1), row.Bytes + '\0');
        EXPECT_TRUE(target.MarginsWhole());
        Guarded inPlace(row.Text.size() + 1, row.Text);
        EXPECT_EQ(rynUnQuoteBuffer(inPlace.Data(), inPlace.Data(), Count(row.Text)),
                  Count(row.Bytes));
        EXPECT_EQ(inPlace.Head(row.Bytes.size() + 1), row.Bytes + '\0');
    }
}

TEST_F(QuotedHost, RefusesATargetShorterThanTheText)
{
    for (const int32_t size : { -1, 0, 5 }) {
        Guarded target(8);
        EXPECT_EQ(rynUnQuoteBuffer("=41=42", target.Data(), size), RYN_ERR_BUFFER_TOO_SMALL);
        EXPECT_TRUE(target.UntouchedFrom(0));
    }
}

TEST_F(QuotedHost, TurnsUnderscoresIntoBlanksOnRequestAndCountsThem)
{
    HostAttach();
    char text[16];
    EXPECT_EQ(rynUnQuoteBuffer("a_b=5F_", text, 15), 5);
    EXPECT_STREQ(text, "a b_ "); // on from the start; what was quoted is meant
    EXPECT_EQ(rynIntegerParam(0, RYN_UNDERSCORE_TO_SPACE, 0), 2);
    EXPECT_EQ(rynUnQuoteBuffer("a_b", text, 15), 3);
    EXPECT_STREQ(text, "a_b");
}

// --- files as quoted-printable ---

constexpr size_t ReadRoom = 2000;

TEST_F(QuotedHost, ReadsAFileInChunks)
{
    const string x80(80, 'x'), accents(253, '\xE9');
    const struct {
        string Bytes;
        int32_t Chunk;
        string Text;
    } rows[] = {
        { "", 0, "" },
        { "a=b\r\n\xE9", 0, "a=3Db=0D=0A=E9=\r\n" },
        { x80, 0, string(73, 'x') + "=\r\nxxxxxxx=\r\n" },
        { x80, 254, string(73, 'x') + "=\r\nxxxxxxx=\r\n" },
        { x80, 253, x80 + "=\r\n" },
        { x80, 40, Repeat(string(40, 'x') + "=\r\n", 2) },
        { string("ab\0cd", 5), 3, "ab=\r\ncd=\r\n" }, // a zero ends the text of its chunk
        { string("\0ab", 3), 0, "=\r\n" },
        { accents.substr(0, 85), 85, Repeat("=E9", 85) + "=\r\n" },
        { accents.substr(0, 86), 86, Repeat("=E9", 85) + "=\r\n" }, // a line has 255 chars at most
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Bytes.substr(0, 10) + " " + std::to_string(row.Chunk));
        WriteWholeFile(Path("file"), row.Bytes);
        Guarded target(ReadRoom);
        EXPECT_EQ(rynReadQuoted(Path("file").c_str(), target.Data(), ReadRoom, row.Chunk),
                  Count(row.Bytes));
        EXPECT_EQ(row.Bytes.empty() ? "" : target.Text(), row.Text);
        EXPECT_TRUE(target.MarginsWhole());
    }
}

TEST_F(QuotedHost, WritesNothingBehindATargetOfAnySize)
{
    WriteWholeFile(Path("file"), string(400, '\xE9'));
    const string path = Path("file");
    for (const int32_t chunk : { 1, 73, 84, 253 }) {
        for (int32_t size = -1; size <= 900; ++size) {
            Guarded target(static_cast<size_t>(std::max(size, 0)));
            const int32_t result = rynReadQuoted(path.c_str(), target.Data(), size, chunk);
            ASSERT_TRUE(result == RYN_ERR_BUFFER_OVERFLOW || (result == 400 && size > 400)) << size;
            ASSERT_TRUE(target.MarginsWhole()) << size;
            if (size > 0) {
                ASSERT_LT(target.Text().size(), static_cast<size_t>(size));
            }
        }
    }
}

TEST_F(QuotedHost, ReadsAMemoryFileOnce)
{
    HostAttach();
    const string bytes = "caf\xE9=";
    char text[ReadRoom];
    ASSERT_EQ(rynSetFileBuffer(0, 3, bytes.data(), 5), 5);
    EXPECT_EQ(rynReadQuoted("any*3", text, ReadRoom, 0), 5);
    EXPECT_STREQ(text, "caf=E9=3D=\r\n");
    EXPECT_EQ(rynReadQuoted("any*3", text, ReadRoom, 0), 0);
    EXPECT_EQ(rynReadQuoted(Folder.c_str(), text, ReadRoom, 0), -1);
}

// --- UU ---

TEST(UuCodec, DecodesTheWholeGroupsOfALine)
{
    const struct {
        string Text, Bytes;
    } rows[] = {
        { "0V%T", "Cat" }, { "0V%TXYZ\r\n", "Cat" }, { "```` $  ", string("\0\0\0\0@\0", 6) },
        { "0V", "" },      { "0V\r\n0V%T", "" },     { "", "" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Text);
        Guarded target(row.Text.size() / 4 * 3 + 4);
        EXPECT_EQ(rynDecodeUU(row.Text.c_str(), target.Data()), Count(row.Bytes));
        EXPECT_EQ(target.Head(row.Bytes.size()), row.Bytes);
        EXPECT_TRUE(target.MarginsWhole());
    }
}

TEST(UuCodec, LooksForTheLineEndInTheFirst120Chars)
{
    for (const size_t at : { 0u, 3u, 119u, 120u }) {
        SCOPED_TRACE(at);
        const string line = Repeat("0V%T", 75).replace(at, 1, "\r");
        const size_t groups = at < 120 ? at / 4 : 75;
        Guarded target(3 * 75 + 4);
        EXPECT_EQ(rynDecodeUU(line.c_str(), target.Data()), static_cast<int32_t>(3 * groups));
        EXPECT_EQ(target.Head(at / 4 * 3), Repeat("Cat", at / 4));
        EXPECT_TRUE(target.MarginsWhole());
    }
}

// --- XOAUTH2, and absent arguments ---

TEST(MakeXOAuth2, JoinsUserAndToken)
{
    const string expected = "user=%s%n\x01"
                            "auth=Bearer %d\x01\x01";
    Guarded target(expected.size() + 1);
    EXPECT_EQ(rynMakeXOAuth2("%s%n", "%d", target.Data()), Count(expected));
    EXPECT_EQ(target.Head(expected.size() + 1), expected + '\0');
    EXPECT_TRUE(target.MarginsWhole());
}

TEST(Codecs, RefuseAbsentArguments)
{
    char text[16] = "unchanged";
    EXPECT_EQ(rynQuoteBuffer(nullptr, text, 16), RYN_ERR_NULL_POINTER);
    EXPECT_EQ(rynReadQuoted(nullptr, text, 16, 0), RYN_ERR_NULL_POINTER);
    EXPECT_EQ(rynDecodeBuffer("abcd", nullptr, 4), RYN_ERR_NULL_BUFFER);
    EXPECT_EQ(rynDecodeUU("abcd", nullptr), RYN_ERR_NULL_BUFFER);
    EXPECT_EQ(rynMakeXOAuth2("u", "t", nullptr), RYN_ERR_NULL_POINTER);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_NULL_SITE), 103);
    EXPECT_STREQ(text, "unchanged");
}
