// UTF-8 in the range of 16-bit chars, and plain bytes as wide text.
#include "codec/utf8.h"

#include "include/ryn32.h"
#include "tests/codec/guarded.h"

#include <gtest/gtest.h>
#include <string>

using std::string;
using std::u16string;

static string Encoded(unsigned code)
{
    const auto six = [](unsigned bits) { return static_cast<char>(0x80 | (bits & 63)); };
    if (code < 0x80)
        return string(1, static_cast<char>(code));
    if (code < 0x800)
        return { static_cast<char>(0xC0 | code >> 6), six(code) };
    return { static_cast<char>(0xE0 | code >> 12), six(code >> 6), six(code) };
}

TEST(Utf8, EncodesAndDecodesEach16BitChar)
{
    for (unsigned code = 0; code <= 0xFFFF; ++code) {
        const string expected = Encoded(code);
        Guarded target(expected.size() + 1);
        const auto length = static_cast<int32_t>(expected.size());
        ASSERT_EQ(EncodeUtf8(static_cast<uint16_t>(code), target.Data()), length) << code;
        ASSERT_EQ(target.Head(expected.size() + 1), expected + '\0') << code;
        ASSERT_TRUE(target.MarginsWhole()) << code;
        uint16_t decoded = 0x5555;
        ASSERT_EQ(DecodeUtf8(target.Data(), decoded), length) << code;
        ASSERT_EQ(decoded, code);
    }
}

TEST(Utf8, TellsWhichByteIsWrongAndLeavesTheTarget)
{
    const struct {
        const char* Source;
        int32_t Result;
        uint16_t Code; // with a result above 0
    } rows[] = { { "\xC3", -1, 0 },
                 { "\xDF\xC0", -1, 0 },
                 { "\xE2\x7F\x80", -2, 0 },
                 { "\xE2\x82", -3, 0 },
                 { "\xEF\xBF\xC0", -3, 0 },
                 { "\x80", 0, 0 },
                 { "\xF0\x9F\x98\x80", 0, 0 },
                 { "", 1, 0 },
                 { "\xC0\x80", 2, 0 }, // overlong forms pass
                 { "\xED\xA0\x80", 3, 0xD800 } };
    for (const auto& row : rows) {
        uint16_t code = 0x5555;
        EXPECT_EQ(rynDecodeUTF8(row.Source, &code), row.Result);
        EXPECT_EQ(code, row.Result > 0 ? row.Code : 0x5555);
    }
}

TEST(Utf8Text, EncodesUpToTheWideZero)
{
    const uint16_t source[] = { 'A', 0xE9, 0x20AC, 0x7FF, 0x800, 0, 'B', 0 };
    Guarded target(12);
    EXPECT_EQ(rynEncodeUTF8String(source, target.Data()), 11);
    EXPECT_EQ(target.Text(), "A\xC3\xA9\xE2\x82\xAC\xDF\xBF\xE0\xA0\x80");
    EXPECT_TRUE(target.MarginsWhole());
}

TEST(Utf8Text, DecodesWithTwoTerminators)
{
    const struct {
        const char* Source;
        int32_t Result;
        u16string Stored; // what stands in the target, terminators included
    } rows[] = { { "", 1, u16string(u"\0\0", 2) },
                 { "\xC3\xA9\xE2\x82\xAC", 3, u16string(u"\u00E9\u20AC\0\0", 4) },
                 { "a\xF0\x9F\x98\x80z", RYN_ERR_BAD_UTF8, u"a" },
                 { "ab\xC3", RYN_ERR_BAD_UTF8, u"ab" },
                 { "\x80", RYN_ERR_BAD_UTF8, u"" } };
    for (const auto& row : rows) {
        uint16_t target[12];
        std::fill_n(target, 12, uint16_t{ 0xA5A5 });
        EXPECT_EQ(rynDecodeUTF8String(row.Source, target), row.Result);
        const size_t stored = row.Stored.size();
        EXPECT_TRUE(std::equal(target, target + stored, row.Stored.begin())) << row.Source;
        EXPECT_EQ(std::count(target + stored, target + 12, 0xA5A5),
                  static_cast<int32_t>(12 - stored));
    }
}

TEST(WideText, LosesItsHighBytesInPlace)
{
    const struct {
        string Wide, Bytes;
    } rows[] = { { string("a\0b\1c\0\0\0", 8), "abc" },
                 { string("a\0\0\1c\0\0\0", 8), "a" } }; // the low byte of 0x0100 ends the text
    for (const auto& row : rows) {
        Guarded text(8);
        row.Wide.copy(text.Data(), 8);
        EXPECT_EQ(rynShortToByte(text.Data()), static_cast<int32_t>(row.Bytes.size()));
        EXPECT_EQ(text.Text(), row.Bytes);
        EXPECT_TRUE(text.MarginsWhole());
    }
}

TEST(WideText, GrowsFromBytesInPlaceWithoutATerminator)
{
    Guarded text(6, "abc");
    EXPECT_EQ(rynByteToShort(text.Data()), 3);
    EXPECT_EQ(text.Head(6), string("a\0b\0c\0", 6));
    EXPECT_TRUE(text.MarginsWhole());
}
