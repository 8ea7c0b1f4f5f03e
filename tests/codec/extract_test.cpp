// Lines that a host takes out of a text.
#include "include/ryn32.h"
#include "tests/codec/guarded.h"

#include <functional>
#include <gtest/gtest.h>

TEST(Extract, CopiesALineOrLeavesTheTargetAsTold)
{
    static const char text[] = "From: a\r\nSUBJECT: b\n\nlast";
    const auto find = [](const char* what) {
        return [=](char* target, int32_t size) { return rynExtractText(text, what, target, size); };
    };
    const auto line = [](int32_t number) {
        return
            [=](char* target, int32_t size) { return rynExtractLine(text, number, target, size); };
    };
    const auto none = nullptr;
    const struct {
        std::function<int32_t(char*, int32_t)> Take;
        int32_t Size;
        const char* Text; // null: nothing is written
    } rows[] = {
        { find("From"), 20, "From: a\r\n" },
        { find("fROM: A"), 20, "From: a\r\n" },
        { find("Subject: "), 20, "SUBJECT: b\n" },
        { find("ject"), 9, "JECT: b\n" },
        { find("missing"), 20, nullptr },
        { find("lasts"), 20, nullptr },
        { find("From"), 10, "From: a\r\n" },
        { find("From"), 9, "" },
        { find("last"), 6, "last" },
        { find("last"), 5, "" },
        { find("From"), 1, "" },
        { find("From"), 0, nullptr },
        { find("From"), -1, nullptr },
        { [=](char* t, int32_t size) { return rynExtractText(none, "x", t, size); }, 9, nullptr },
        { [](char* t, int32_t size) { return rynExtractText(text, nullptr, t, size); }, 9,
          nullptr },
        { [](char*, int32_t size) { return rynExtractText(text, "F", nullptr, size); }, 9,
          nullptr },
        { line(1), 20, "From: a\r\n" },
        { line(0), 20, "From: a\r\n" },
        { line(-7), 20, "From: a\r\n" },
        { line(2), 20, "SUBJECT: b\n" },
        { line(3), 20, "\n" },
        { line(4), 6, "last" },
        { line(4), 5, "" },
        { line(5), 20, nullptr },
        { line(2), 12, "SUBJECT: b\n" },
        { line(2), 11, "" },
        { line(2), 1, "" },
        { line(2), 0, nullptr },
        { [](char* t, int32_t size) { return rynExtractLine(nullptr, 1, t, size); }, 9, nullptr },
        { [](char*, int32_t size) { return rynExtractLine(text, 1, nullptr, size); }, 9, nullptr },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        Guarded target(static_cast<size_t>(std::max(row.Size, 0)));
        const std::string expected = row.Text == nullptr ? "" : row.Text;
        EXPECT_EQ(row.Take(target.Data(), row.Size), static_cast<int32_t>(expected.size()));
        EXPECT_TRUE(row.Text != nullptr ? target.MarginsWhole() : target.UntouchedFrom(0));
        if (row.Text != nullptr) {
            EXPECT_EQ(target.Head(expected.size() + 1), expected + '\0');
        }
    }
    char empty[] = "x";
    EXPECT_EQ(rynExtractLine("", 1, empty, 2), 0);
    EXPECT_STREQ(empty, "");
}
