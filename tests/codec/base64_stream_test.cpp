// Base64 bodies that are cut into lines at any place: what one line leaves over belongs to the next.
#include "codec/base64.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

// Decodes the lines one after the other, each in a buffer of its exact size.
static std::string Decode(const std::vector<std::string>& lines, Base64Carry& carry)
{
    std::string bytes;
    for (const std::string& text : lines) {
        std::vector<char> line(text.begin(), text.end());
        line.push_back(0);
        std::vector<char> target((text.size() + 3) / 4 * 3 + 1 + 3, '#');
        const int32_t count = DecodeBase64Stream(carry, line.data(), target.data(),
                                                 static_cast<int32_t>(text.size()));
        bytes.append(target.data(), static_cast<size_t>(count));
    }
    return bytes;
}

TEST(DecodeBase64Stream, CarriesWhatALineLeavesOver)
{
    const struct {
        std::vector<std::string> Lines;
        const char* Bytes;
        int Left;
    } rows[] = {
        { { "TWFuTW\r\n", "E=\r\n" }, "ManMa", 0 },
        { { "T", "W", "F", "u" }, "Man", 0 },
        { { "TW\r\n", "\r\n", "\n", "Fu\r\n" }, "Man", 0 },
        { { "TWFuT\r\n" }, "Man", 1 },
        { { "TWE=TWFu\n" }, "Ma\0Man", 0 }, // only the last group's padding counts
        { { "TQ==" }, "M", 0 },
        { { "TQ", "==\r\n" }, "M", 0 },
        { { "\r\n" }, "", 0 },
        { { "" }, "", 0 },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Lines[0]);
        Base64Carry carry = {};
        const std::string bytes = Decode(row.Lines, carry);
        EXPECT_STREQ(bytes.c_str(), row.Bytes);
        EXPECT_EQ(carry.Count, row.Left);
    }
}

TEST(DecodeBase64Stream, DoesNotCareWhereLinesAreCut)
{
    std::string bytes;
    for (int i = 0; i < 300; i++)
        bytes += static_cast<char>(i * 7);
    std::vector<char> text(512);
    EncodeBase64Block(bytes.data(), text.data(), static_cast<int32_t>(bytes.size()), false);
    const std::string whole = text.data();
    for (size_t width = 1; width < 90; width++) {
        SCOPED_TRACE(width);
        std::vector<std::string> lines;
        for (size_t at = 0; at < whole.size(); at += width)
            lines.push_back(whole.substr(at, width) + "\r\n");
        Base64Carry carry = {};
        EXPECT_EQ(Decode(lines, carry), bytes);
    }
}
