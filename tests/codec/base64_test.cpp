// Base64 of the sending side, against the vectors of RFC 4648; decoders_test.cpp goes
// both ways for each length.
#include "codec/base64.h"

#include "tests/codec/guarded.h"

#include <gtest/gtest.h>
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

TEST(EncodeBase64Block, GivesTheVectorsOfRfc4648)
{
    const struct {
        const char *Source, *Text;
    } rows[] = { { "", "" },
                 { "f", "Zg==" },
                 { "fo", "Zm8=" },
                 { "foo", "Zm9v" },
                 { "foob", "Zm9vYg==" },
                 { "fooba", "Zm9vYmE=" },
                 { "foobar", "Zm9vYmFy" },
                 { "\xFB\xFF\xBF", "+/+/" } };
    for (const auto& row : rows) {
        const string source = row.Source;
        const string text = row.Text;
        const auto length = static_cast<int32_t>(source.size());
        const auto chars = static_cast<int32_t>(text.size());
        EXPECT_EQ(Base64Length(length), chars);
        for (const bool lineEnd : { false, true }) {
            const string expected = text + (lineEnd ? "\r\n" : "");
            Guarded target(text.size() + 3);
            EXPECT_EQ(EncodeBase64Block(source.data(), target.Data(), length, lineEnd), chars);
            EXPECT_EQ(target.Text(), expected);
            EXPECT_TRUE(target.UntouchedFrom(expected.size() + 1));
        }
    }
}

TEST(EncodeBase64Lines, EndsEachLineAndDoublesTheWidth)
{
    for (const size_t halfWidth : { 1u, 24u, 57u }) {
        for (size_t length = 1; length <= 300; ++length) {
            const string bytes = Sample(length);
            string expected;
            for (size_t done = 0; done < length; done += 2 * halfWidth) {
                const auto count = static_cast<int32_t>(std::min(2 * halfWidth, length - done));
                char line[200];
                EncodeBase64Block(&bytes[done], line, count, true);
                expected += line;
            }
            Guarded target(2000);
            EXPECT_EQ(EncodeBase64Lines(bytes.data(), target.Data(), static_cast<int32_t>(length),
                                        static_cast<int32_t>(halfWidth)),
                      static_cast<int32_t>(expected.size()));
            EXPECT_EQ(target.Text(), expected) << length;
            EXPECT_TRUE(target.UntouchedFrom(expected.size() + 1)) << length;
        }
    }
}
