// Base64 of the sending side, against the vectors of RFC 4648 and a decoder of the test's own.
#include "codec/base64.h"

#include "tests/codec/guarded.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>

using std::string;

// Decodes strictly: whole groups, padding at the end only and with zero bits in front of it.
static string Decode(const string& text)
{
    static const string alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    string bytes;
    unsigned bits = 0, held = 0;
    size_t padding = 0;
    for (const char c : text) {
        if (c == '=') {
            ++padding;
            continue;
        }
        const size_t value = alphabet.find(c);
        if (value == string::npos || padding != 0)
            return "<bad char>";
        bits = (bits << 6 | static_cast<unsigned>(value)) & 0xFFFF;
        held += 6;
        if (held < 8)
            continue;
        held -= 8;
        bytes += static_cast<char>(bits >> held & 255);
    }
    if (text.size() % 4 != 0 || padding > 2 || (bits & ((1u << held) - 1)) != 0)
        return "<bad end>";
    return bytes;
}

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

TEST(EncodeBase64Block, EncodesEachLengthInOnePiece)
{
    for (size_t length = 0; length <= 300; ++length) {
        // Exactly so many bytes are there to read.
        const std::unique_ptr<char[]> source(new char[length]);
        const string bytes = Sample(length);
        bytes.copy(source.get(), length);
        const size_t chars = (length + 2) / 3 * 4;
        Guarded target(chars + 3);
        EXPECT_EQ(EncodeBase64Block(source.get(), target.Data(), static_cast<int32_t>(length), 0),
                  static_cast<int32_t>(chars));
        EXPECT_EQ(Decode(target.Text()), bytes) << length;
        EXPECT_TRUE(target.UntouchedFrom(chars + 1)) << length;
    }
}

TEST(EncodeBase64Lines, EndsEachLineAndDoublesTheWidth)
{
    for (const size_t halfWidth : { 1u, 24u, 57u }) {
        for (size_t length = 0; length <= 300; ++length) {
            const string bytes = Sample(length);
            string decoded;
            Guarded target(2000);
            const int32_t count =
                EncodeBase64Lines(bytes.data(), target.Data(), static_cast<int32_t>(length),
                                  static_cast<int32_t>(halfWidth));
            size_t place = 0;
            const string text = length == 0 ? "" : target.Text();
            for (size_t done = 0; done < length; done += 2 * halfWidth) {
                const size_t chars = (std::min(2 * halfWidth, length - done) + 2) / 3 * 4;
                decoded += Decode(text.substr(place, chars));
                ASSERT_EQ(text.substr(place + chars, 2), "\r\n") << length;
                place += chars + 2;
            }
            EXPECT_EQ(decoded, bytes) << length;
            EXPECT_EQ(static_cast<size_t>(count), place);
            EXPECT_EQ(text.size(), place);
            EXPECT_TRUE(target.UntouchedFrom(length == 0 ? 0 : place + 1)) << length;
        }
    }
}

TEST(EncodeBase64Lines, WritesNothingForNoBytes)
{
    for (const int32_t length : { 0, -1, -300 }) {
        Guarded target(8);
        EXPECT_EQ(EncodeBase64Lines("abc", target.Data(), length, 57), 0);
        EXPECT_TRUE(target.UntouchedFrom(0));
    }
}
