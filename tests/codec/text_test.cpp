// The text routines: counts, bounds, and the places where they differ from the usual ones.
#include "codec/text.h"

#include "tests/codec/guarded.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

using std::string;

TEST(CopyText, TerminatesBehindTheCountAndTellsTheCharsCopied)
{
    const struct {
        const char* Source;
        int32_t Count, Result;
        const char* Target;
    } rows[] = { { "abcd", 3, 3, "abc" }, { "ab", 3, 2, "ab" }, { "abc", 3, 3, "abc" },
                 { "", 3, 0, "" },        { "abc", 0, 0, "" },  { "\xE9\x01z", 2, 2, "\xE9\x01" } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Source);
        Guarded target(static_cast<size_t>(row.Count) + 1);
        EXPECT_EQ(CopyText(target.Data(), row.Source, row.Count), row.Result);
        EXPECT_EQ(target.Text(), row.Target);
        EXPECT_TRUE(target.UntouchedFrom(static_cast<size_t>(row.Result) + 1));
    }
}

TEST(AppendText, KeepsToTheCapacityOfTheWholeTarget)
{
    const struct {
        const char *Target, *Source;
        int32_t Capacity;
        const char* Result;
    } rows[] = { { "ab", "cd", 3, "abc" }, { "ab", "cd", 4, "abcd" }, { "ab", "cd", 9, "abcd" },
                 { "ab", "", 9, "ab" },    { "ab", "cd", 2, "ab" },   { "abcdef", "x", 3, "abc" },
                 { "", "", 2, "" } };
    for (const auto& row : rows) {
        SCOPED_TRACE(string(row.Target) + "+" + row.Source);
        const auto capacity = static_cast<size_t>(row.Capacity);
        const size_t size = std::max(capacity, strlen(row.Target)) + 1;
        Guarded target(size, row.Target);
        AppendText(target.Data(), row.Source, row.Capacity);
        EXPECT_EQ(target.Text(), row.Result);
        EXPECT_EQ(target.Data()[capacity], 0);
        EXPECT_TRUE(target.MarginsWhole());
    }
}

TEST(SameTextNoCase, FoldsLettersOnlyAndEndsTogether)
{
    const struct {
        const char *First, *Second;
        int32_t Count, Result;
    } rows[] = { { "abc", "ABD", 2, 1 },   { "abc", "ABD", 3, 0 }, { "ab", "abc", 3, 0 },
                 { "abc", "ab", 3, 0 },    { "ab", "AB", 5, 1 },   { "ab\0x", "AB\0y", 4, 1 },
                 { "", "", 1, 1 },         { "[", "{", 1, 0 },     { "@", "`", 1, 0 },
                 { "\xC9", "\xE9", 1, 0 }, { nullptr, "a", 1, 0 }, { "a", nullptr, 1, 0 } };
    for (const auto& row : rows)
        EXPECT_EQ(SameTextNoCase(row.First, row.Second, row.Count), row.Result)
            << (row.First == nullptr ? "null" : row.First) << " " << row.Count;
}

TEST(BaseFileName, StandsBehindTheLastBackslashOrColon)
{
    const struct {
        const char *Path, *Name;
    } rows[] = { { "C:a.txt", "a.txt" },
                 { "dir/a.txt", "dir/a.txt" },
                 { "dir\\", "" },
                 { "a\\b:c", "c" },
                 { "a:b\\c", "c" } };
    for (const auto& row : rows)
        EXPECT_STREQ(BaseFileName(row.Path), row.Name) << row.Path;
}

TEST(CleanHeaderText, TurnsWhatIsNoPlainCharIntoUnderscores)
{
    const struct {
        const char* Text;
        bool Cut;
        const char* Result;
    } rows[] = { { "a\tb\x7F\x01\xE9 ~", false, "a_b___ ~" },
                 { "a\r\nb\tc\n", false, "a\r\nb_c\n" },
                 { "a\t\r\nb", true, "a_" },
                 { "a\nb", true, "a" },
                 { "\rX: y", true, "" },
                 { "", true, "" } };
    for (const auto& row : rows) {
        Guarded text(strlen(row.Text) + 1, row.Text);
        CleanHeaderText(text.Data(), row.Cut);
        EXPECT_EQ(text.Text(), row.Result);
        EXPECT_TRUE(text.MarginsWhole());
    }
}

TEST(FormatText, KeepsToTheCapacityAndTo1023Chars)
{
    const string lengthy(3000, 'x');
    const struct {
        size_t Capacity;
        int32_t Result;
    } rows[] = { { 1, 0 }, { 2, 1 }, { 11, 10 }, { 1023, 1022 }, { 1024, 1023 }, { 2048, 1023 } };
    for (const auto& row : rows) {
        Guarded target(row.Capacity);
        EXPECT_EQ(FormatText(target.Data(), row.Capacity, "%s", lengthy.c_str()), row.Result);
        EXPECT_EQ(target.Text(), lengthy.substr(0, static_cast<size_t>(row.Result)));
        EXPECT_TRUE(target.UntouchedFrom(static_cast<size_t>(row.Result) + 1));
    }
}
