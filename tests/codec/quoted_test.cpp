// Quoting of single bytes and of texts (RFC 2045, 6.7), without lines.
#include "codec/quoted.h"

#include "include/ryn32.h"
#include "tests/codec/guarded.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <string>

using std::string;

static string Quoted(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    if (c != '=' && (c == '\t' || (byte >= 32 && byte <= 126)))
        return string(1, c);
    char text[4];
    snprintf(text, sizeof(text), "=%02X", byte);
    return text;
}

TEST(QuoteText, QuotesAllButPrintableCharsAndTab)
{
    for (int c = 1; c < 256; ++c) {
        const string source = string("a") + static_cast<char>(c) + "z";
        const string expected = "a" + Quoted(static_cast<char>(c)) + "z";
        Guarded target(16);
        EXPECT_EQ(QuoteText(source.c_str(), target.Data(), 16),
                  static_cast<int32_t>(expected.size()));
        EXPECT_EQ(target.Text(), expected);
    }
}

TEST(QuoteText, TakesNoByteWithFewerThanFourBytesLeft)
{
    const string source = "a=b\xE9\r\nc_ d\tef ";
    for (int32_t size = -1; size < 40; ++size) {
        string expected;
        for (const char c : source) {
            if (static_cast<int32_t>(expected.size()) > size - 4)
                break;
            expected += Quoted(c);
        }
        Guarded target(static_cast<size_t>(std::max(size, 0)));
        EXPECT_EQ(QuoteText(source.c_str(), target.Data(), size),
                  static_cast<int32_t>(expected.size()));
        EXPECT_TRUE(target.UntouchedFrom(size < 4 ? 0 : expected.size() + 1)) << size;
        if (size >= 4) {
            EXPECT_EQ(target.Text(), expected) << size;
        }
    }
}

TEST(QuoteBuffer, LeavesTheTargetForNothing)
{
    Guarded target(16);
    EXPECT_EQ(rynQuoteBuffer("", target.Data(), 16), 0);
    EXPECT_EQ(rynQuoteBuffer("abc", target.Data(), 3), 0);
    EXPECT_TRUE(target.UntouchedFrom(0));
    EXPECT_EQ(rynQuoteBuffer("\xE9=_", target.Data(), 16), 7);
    EXPECT_EQ(target.Text(), "=E9=3D_");
}
