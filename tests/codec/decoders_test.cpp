// What a host decodes and encodes: Base64, quoted-printable and UU in both directions, against the
// examples of the RFCs and against coders of the test's own, with margins around every target.
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

// The bytes in groups of six bits, each as the char that stands for it.
static string SixBits(const string& bytes, const string& alphabet)
{
    string text;
    unsigned bits = 0, held = 0;
    for (const char c : bytes) {
        bits = (bits << 8 | static_cast<unsigned char>(c)) & 0xFFFF;
        for (held += 8; held >= 6; held -= 6)
            text += alphabet[bits >> (held - 6) & 63];
    }
    if (held > 0)
        text += alphabet[bits << (6 - held) & 63];
    return text;
}

static string Base64(const string& bytes)
{
    string text =
        SixBits(bytes, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
    return text.append((4 - text.size() % 4) % 4, '=');
}

static string Base64Lines(const string& bytes)
{
    string text;
    for (size_t at = 0; at < bytes.size(); at += 57)
        text += Base64(bytes.substr(at, 57)) + "\r\n";
    return text;
}

// Blank for 0, as older encoders write it, or backquote.
static string Uu(const string& bytes, char zero)
{
    string alphabet(1, zero);
    for (char c = 33; c < 96; ++c)
        alphabet += c;
    return SixBits(bytes, alphabet);
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

static const struct {
    const char *Bytes, *Text;
} Rfc4648[] = {
    { "", "" },
    { "f", "Zg==" },
    { "fo", "Zm8=" },
    { "foo", "Zm9v" },
    { "foob", "Zm9vYg==" },
    { "fooba", "Zm9vYmE=" },
    { "foobar", "Zm9vYmFy" },
    { "\xFF\xEF\xBE", "/+++" },
};

TEST(Base64Codec, GivesTheVectorsOfRfc4648BothWays)
{
    for (const auto& row : Rfc4648) {
        SCOPED_TRACE(row.Text);
        const string bytes = row.Bytes, text = row.Text;
        const string line = text.empty() ? "" : text + "\r\n";
        Guarded encoded(79);
        EXPECT_EQ(rynEncodeBuffer(bytes.data(), encoded.Data(), Count(bytes)), Count(line));
        EXPECT_TRUE(encoded.UntouchedFrom(line.empty() ? 0 : line.size() + 1));
        EXPECT_EQ(encoded.Head(line.size()), line);
        Guarded decoded(text.size() / 4 * 3 + 4);
        EXPECT_EQ(rynDecodeBuffer(text.c_str(), decoded.Data(), Count(text)), Count(bytes));
        EXPECT_EQ(decoded.Head(bytes.size()), bytes);
        EXPECT_TRUE(decoded.MarginsWhole());
    }
}

TEST(Base64Codec, GoesRoundForEachLength)
{
    for (size_t length = 0; length <= 300; ++length) {
        SCOPED_TRACE(length);
        const string bytes = Sample(length), text = Base64Lines(bytes);
        Guarded encoded((length + 56) / 57 * 78 + 1);
        const auto source = Exactly(bytes);
        ASSERT_EQ(rynEncodeBuffer(source.get(), encoded.Data(), Count(bytes)), Count(text));
        ASSERT_EQ(encoded.Head(text.size()), text);
        EXPECT_TRUE(encoded.UntouchedFrom(length == 0 ? 0 : text.size() + 1));
        Guarded decoded(text.size() / 4 * 3 + 4);
        const auto lines = Exactly(text);
        ASSERT_EQ(rynDecodeBuffer(lines.get(), decoded.Data(), Count(text)), Count(bytes));
        EXPECT_EQ(decoded.Head(length), bytes);
        EXPECT_TRUE(decoded.MarginsWhole());
        if (length > 0) {
            EXPECT_EQ(decoded.Head(length + 1).back(), 0);
        }
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
        { "\r\nTWFu", "Man" },
        { "TWFuT\r\nWFu", "Man" }, // what a line has too much, the next one lacks
        { "TWF\r\nTWFu", "Man" },
        { "TWFuTW\r\nTWFuTWF", "ManMan" },
        { "T===", string("L\0", 2).substr(0, 1) },
        { "TWFu\nTWFu", string("Man\x01\x35\x85", 6) }, // a bare LF ends no line: it counts as 0
        { "TW u", "M`." },
        { "\xFF\x80**", string(3, '\0') },
        { "====", string(1, '\0') },
        { "ab", "" },
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
    } rows
        [] = {
            { "TWFuTWFu", 8, 6 },   { "TWFuTWFu", 7, 3 }, { "TWFuTWFu", 4, 3 },
            { "TWFuTWFu", 3, 0 },   { "TWFuTWFu", 0, 0 }, { "TWFuTWFu", -5, 0 },
            { "TWFuTWFu", 999, 6 }, // the text ends first
            { "TWFu\r\nTW", 6, 3 },
        };
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
    const string zero("TWFu\0TWFu", 9);
    Guarded decoded(16);
    EXPECT_EQ(rynDecodeBuffer(zero.data(), decoded.Data(), 9), 3);
}

TEST(Base64Codec, DecodesTheWholeGroupsOfALine)
{
    const string text = Base64(Sample(225));
    for (int32_t length = -1; length <= 300; ++length) {
        const string line = text.substr(0, static_cast<size_t>(std::max(length, 0)));
        const int32_t groups = length < 3 ? 0 : length / 4;
        const auto size = static_cast<size_t>(std::max(length, 0) / 4 * 3 + 4);
        Guarded decoded(size);
        const auto source = Exactly(line);
        ASSERT_EQ(DecodeBase64Line(source.get(), decoded.Data(), length), 3 * groups);
        if (length < 3) {
            EXPECT_TRUE(decoded.UntouchedFrom(0));
            continue;
        }
        const auto count = static_cast<size_t>(3 * groups);
        EXPECT_EQ(decoded.Head(count), Sample(225).substr(0, count));
        EXPECT_EQ(decoded.Head(count + 4).substr(count), string(4, '\0'));
        EXPECT_TRUE(decoded.MarginsWhole());
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
        { "a=3Db", "a=b" },
        { "=e9=E9=C3=a9", "\xE9\xE9\xC3\xA9" },
        { "a\r\nb", "a\r\nb" }, // a hard line end stays
        { "=\rdropped", "" },
        { "a=\r\nb", "a" },
        { "=?x=3F?=", "=?x?\?" },
        { "x=\"y\"", "x=\"y\"" },
        { "=ZZ=G1=1G", string("\0\x01\x10", 3) },
        { "=\nAb", string("\x0A", 1) + "b" }, // an LF is taken for a digit
        { "==3D", string("\x03", 1) + "D" },
        { "a=", "a" },
        { "a=4", "a" },
        { "=00x", string("\0x", 2) },
        { "=3D3D", "=3D" }, // what was decoded is not decoded again
        { "tail \t", "tail \t" },
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

TEST_F(QuotedHost, DecodesTheExampleOfRfc2045LineByLine)
{
    string text;
    for (const char* line :
         { "Now's the time =\r\n", "for all folk to come=\r\n", " to the aid of their country." }) {
        char decoded[80];
        const int32_t count = rynUnQuoteBuffer(line, decoded, 79);
        text.append(decoded, static_cast<size_t>(count));
    }
    EXPECT_EQ(text, "Now's the time for all folk to come to the aid of their country.");
}

TEST_F(QuotedHost, RefusesATargetShorterThanTheText)
{
    for (const int32_t size : { -1, 0, 5 }) {
        Guarded target(8);
        EXPECT_EQ(rynUnQuoteBuffer("=41=42", target.Data(), size), RYN_ERR_BUFFER_TOO_SMALL);
        EXPECT_TRUE(target.UntouchedFrom(0));
    }
    Guarded target(7);
    EXPECT_EQ(rynUnQuoteBuffer("=41=42", target.Data(), 6), 2);
    EXPECT_EQ(target.Text(), "AB");
}

TEST_F(QuotedHost, TurnsUnderscoresIntoBlanksOnRequestAndCountsThem)
{
    HostAttach();
    char text[16];
    EXPECT_EQ(rynUnQuoteBuffer("a_b=5F_", text, 15), 5);
    EXPECT_STREQ(text, "a b_ "); // on from the start; what was quoted is meant
    const int32_t before = rynIntegerParam(0, RYN_UNDERSCORE_TO_SPACE, 1);
    EXPECT_EQ(rynUnQuoteBuffer("a_b_", text, 15), 4);
    EXPECT_EQ(rynIntegerParam(0, RYN_UNDERSCORE_TO_SPACE, 0), before + 2);
    EXPECT_EQ(rynUnQuoteBuffer("a_b", text, 15), 3);
    EXPECT_STREQ(text, "a_b");
    EXPECT_EQ(rynIntegerParam(0, RYN_UNDERSCORE_TO_SPACE, 1), before + 2);
}

TEST_F(QuotedHost, GoesRoundForEachLength)
{
    HostAttach();
    rynIntegerParam(0, RYN_UNDERSCORE_TO_SPACE, 0);
    for (size_t length = 0; length <= 300; ++length) {
        string bytes = Sample(length);
        std::replace(bytes.begin(), bytes.end(), '\0', '_'); // a zero would end the text
        Guarded quoted(3 * length + 4);
        const int32_t count = rynQuoteBuffer(bytes.c_str(), quoted.Data(), 3 * Count(bytes) + 4);
        EXPECT_TRUE(quoted.MarginsWhole());
        const string text = length == 0 ? "" : quoted.Text();
        EXPECT_EQ(count, Count(text));
        Guarded decoded(text.size() + 1);
        EXPECT_EQ(rynUnQuoteBuffer(text.c_str(), decoded.Data(), count), Count(bytes));
        EXPECT_EQ(decoded.Head(length), bytes) << length;
        EXPECT_TRUE(decoded.MarginsWhole());
    }
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
        { x80, -1, string(73, 'x') + "=\r\nxxxxxxx=\r\n" },
        { x80, 254, string(73, 'x') + "=\r\nxxxxxxx=\r\n" },
        { x80, 253, x80 + "=\r\n" },
        { x80, 40, Repeat(string(40, 'x') + "=\r\n", 2) },
        { "abc", 1, "a=\r\nb=\r\nc=\r\n" },
        { "abc", 2, "ab=\r\nc=\r\n" },
        { string("ab\0cd", 5), 3, "ab=\r\ncd=\r\n" }, // a zero ends the text of its chunk
        { string("\0ab", 3), 0, "=\r\n" },
        { accents.substr(0, 85), 85, Repeat("=E9", 85) + "=\r\n" },
        { accents.substr(0, 86), 86, Repeat("=E9", 85) + "=\r\n" }, // a line has 255 chars at most
        { accents, 253, Repeat("=E9", 85) + "=\r\n" },
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

TEST_F(QuotedHost, KeepsWhatFittedWhenTheTargetIsFull)
{
    WriteWholeFile(Path("file"), string(11, 'x'));
    const string path = Path("file");
    Guarded fits(264), full(263);
    EXPECT_EQ(rynReadQuoted(path.c_str(), fits.Data(), 264, 5), 11);
    EXPECT_EQ(fits.Text(), "xxxxx=\r\nxxxxx=\r\nx=\r\n");
    EXPECT_EQ(rynReadQuoted(path.c_str(), full.Data(), 263, 5), RYN_ERR_BUFFER_OVERFLOW);
    EXPECT_EQ(full.Text(), "xxxxx=\r\nxxxxx=\r\nx=\r\n");
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
    EXPECT_EQ(rynReadQuoted("any*8", text, ReadRoom, 0), -1);
    EXPECT_EQ(rynReadQuoted(Path("none").c_str(), text, ReadRoom, 0), -1);
    EXPECT_EQ(rynReadQuoted(Folder.c_str(), text, ReadRoom, 0), -1);
}

// --- UU ---

TEST(UuCodec, DecodesTheWholeGroupsOfALine)
{
    const struct {
        string Text, Bytes;
    } rows[] = {
        { "0V%T", "Cat" },
        { "0V%T\r\n", "Cat" },
        { "0V%TX", "Cat" },
        { "0V%TXYZ\r\n", "Cat" },
        { "```` $  ", string("\0\0\0\0@\0", 6) },
        { "    ", string(3, '\0') },
        { "0V", "" },
        { "0V\r\n0V%T", "" },
        { "", "" },
        { "0V%", "" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Text);
        Guarded target(row.Text.size() / 4 * 3 + 4);
        EXPECT_EQ(rynDecodeUU(row.Text.c_str(), target.Data()), Count(row.Bytes));
        EXPECT_EQ(target.Head(row.Bytes.size()), row.Bytes);
        EXPECT_TRUE(target.MarginsWhole());
    }
    Guarded target(8);
    EXPECT_EQ(rynDecodeUU("0V", target.Data()), 0);
    EXPECT_TRUE(target.UntouchedFrom(0));
}

TEST(UuCodec, GoesRoundForEachLength)
{
    for (size_t length = 0; length <= 300; length += 3) {
        for (const char zero : { ' ', '`' }) {
            const string bytes = Sample(length), text = Uu(bytes, zero);
            Guarded target(length + 4);
            ASSERT_EQ(rynDecodeUU(text.c_str(), target.Data()), Count(bytes));
            EXPECT_EQ(target.Head(length), bytes);
            EXPECT_TRUE(target.MarginsWhole());
        }
    }
}

TEST(UuCodec, LooksForTheLineEndInTheFirst120Chars)
{
    for (const size_t at : { 0u, 3u, 4u, 116u, 119u, 120u, 200u }) {
        SCOPED_TRACE(at);
        const string line = Uu(Sample(225), '`').replace(at, 1, "\r");
        const size_t groups = at < 120 ? at / 4 : line.size() / 4;
        Guarded target(line.size() / 4 * 3 + 4);
        EXPECT_EQ(rynDecodeUU(line.c_str(), target.Data()), static_cast<int32_t>(3 * groups));
        const size_t before = std::min(at / 4, groups) * 3;
        EXPECT_EQ(target.Head(before), Sample(225).substr(0, before));
        EXPECT_TRUE(target.MarginsWhole());
    }
}

// --- XOAUTH2, and absent arguments ---

TEST(MakeXOAuth2, JoinsUserAndToken)
{
    const struct {
        string User, Token;
    } rows[] = { { "", "" },
                 { "someuser@example.com", "vF9dft4qmTc2Nvb3RlckBhdHRhdmlzdGEuY29tCg==" },
                 { string(300, 'u'), string(3000, 't') },
                 { "%s%n\x01", "%d" } };
    for (const auto& row : rows) {
        const string expected =
            "user=" + row.User + "\x01" + "auth=Bearer " + row.Token + "\x01\x01";
        Guarded target(expected.size() + 1);
        EXPECT_EQ(rynMakeXOAuth2(row.User.c_str(), row.Token.c_str(), target.Data()),
                  Count(expected));
        EXPECT_EQ(target.Head(expected.size() + 1), expected + '\0');
        EXPECT_TRUE(target.MarginsWhole());
    }
}

TEST(Codecs, RefuseAbsentArguments)
{
    char text[300] = "unchanged";
    EXPECT_EQ(rynEncodeBuffer(nullptr, text, 3), RYN_ERR_NULL_POINTER);
    EXPECT_EQ(rynDecodeBuffer(nullptr, text, 3), RYN_ERR_NULL_POINTER);
    EXPECT_EQ(rynDecodeUU(nullptr, text), RYN_ERR_NULL_POINTER);
    EXPECT_EQ(rynQuoteBuffer(nullptr, text, 300), RYN_ERR_NULL_POINTER);
    EXPECT_EQ(rynUnQuoteBuffer(nullptr, text, 299), RYN_ERR_NULL_POINTER);
    EXPECT_EQ(rynReadQuoted(nullptr, text, 300, 0), RYN_ERR_NULL_POINTER);
    EXPECT_EQ(rynEncodeBuffer("abc", nullptr, 3), RYN_ERR_NULL_BUFFER);
    EXPECT_EQ(rynDecodeBuffer("abcd", nullptr, 4), RYN_ERR_NULL_BUFFER);
    EXPECT_EQ(rynDecodeUU("abcd", nullptr), RYN_ERR_NULL_BUFFER);
    EXPECT_EQ(rynQuoteBuffer("abc", nullptr, 300), RYN_ERR_NULL_BUFFER);
    EXPECT_EQ(rynUnQuoteBuffer("abc", nullptr, 299), RYN_ERR_NULL_BUFFER);
    EXPECT_EQ(rynReadQuoted("abc", nullptr, 300, 0), RYN_ERR_NULL_BUFFER);
    EXPECT_EQ(rynMakeXOAuth2(nullptr, "t", text), RYN_ERR_NULL_POINTER);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_NULL_SITE), 101);
    EXPECT_EQ(rynMakeXOAuth2("u", nullptr, text), RYN_ERR_NULL_POINTER);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_NULL_SITE), 102);
    EXPECT_EQ(rynMakeXOAuth2("u", "t", nullptr), RYN_ERR_NULL_POINTER);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_NULL_SITE), 103);
    EXPECT_STREQ(text, "unchanged");
}
