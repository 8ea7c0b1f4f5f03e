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
    Guarded target(4);
    EXPECT_EQ(CopyText(target.Data(), nullptr, 3), 0);
    EXPECT_TRUE(target.UntouchedFrom(0));
    EXPECT_EQ(CopyText(nullptr, "abc", 3), 0);
}

TEST(CopyText, TakesTheCapacityFromTheField)
{
    struct {
        char Field[4];
        char Behind;
    } record = { "", '!' };
    EXPECT_EQ(CopyField(record.Field, "abcdef"), 3);
    EXPECT_STREQ(record.Field, "abc");
    EXPECT_EQ(record.Behind, '!');
}

TEST(CopyBytes, CopiesZerosAndPutsOneBehind)
{
    Guarded target(5);
    CopyBytes(target.Data(), "a\0b\0cd", 4);
    EXPECT_EQ(target.Head(5), string("a\0b\0\0", 5));
    EXPECT_TRUE(target.MarginsWhole());
    CopyBytes(target.Data(), "zz", 0);
    EXPECT_EQ(target.Head(5), string("\0\0b\0\0", 5));
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
    Guarded old(301, string(300, 'x'));
    AppendText(old.Data(), "y", 256);
    EXPECT_EQ(old.Text(), string(256, 'x'));
}

TEST(FindChar, FindsTheFirstOneAndTheTerminator)
{
    char text[] = "a;b;";
    EXPECT_EQ(FindChar(text, ';'), text + 1);
    EXPECT_EQ(FindChar(text, 0), text + 4);
    EXPECT_EQ(FindChar(text, 'x'), nullptr);
    EXPECT_EQ(FindChar(static_cast<const char*>(text), 'b'), text + 2);
    EXPECT_EQ(TextLength(text), 4);
    EXPECT_EQ(TextLength(""), 0);
}

TEST(IndexOfChar, StopsAtTheCountAndAtAZero)
{
    const struct {
        const char* Text;
        char Wanted;
        int32_t Count, Result;
    } rows[] = { { "abc", 'a', 3, 0 },    { "abc", 'c', 3, 2 },  { "abc", 'c', 2, -1 },
                 { "ab\0c", 'c', 4, -1 }, { "abc", 'a', 0, -1 }, { "", 'a', 5, -1 } };
    for (const auto& row : rows)
        EXPECT_EQ(IndexOfChar(row.Text, row.Wanted, row.Count), row.Result)
            << row.Text << " " << row.Count;
}

TEST(SameTextNoCase, FoldsLettersOnlyAndEndsTogether)
{
    const struct {
        const char *First, *Second;
        int32_t Count, Result;
    } rows[] = { { "abc", "ABD", 2, 1 },     { "abc", "ABD", 3, 0 },   { "ab", "abc", 3, 0 },
                 { "abc", "ab", 3, 0 },      { "ab", "ab", 5, 1 },     { "ab", "AB", 5, 1 },
                 { "ab\0x", "AB\0y", 4, 1 }, { "a", "a", 0, 0 },       { "", "", 0, 0 },
                 { "", "", 1, 1 },           { "[", "{", 1, 0 },       { "@", "`", 1, 0 },
                 { "Zz", "zZ", 2, 1 },       { "\xC9", "\xE9", 1, 0 }, { nullptr, "a", 1, 0 },
                 { "a", nullptr, 1, 0 } };
    for (const auto& row : rows)
        EXPECT_EQ(SameTextNoCase(row.First, row.Second, row.Count), row.Result)
            << (row.First == nullptr ? "null" : row.First) << " " << row.Count;
}

TEST(FindTextNoCase, FindsTheFirstPlace)
{
    const struct {
        const char *Text, *Wanted;
        int Place; // -1 = none
    } rows[] = { { "xBoundary=boundary=", "bOUNDARY=", 1 },
                 { "aab", "AB", 1 },
                 { "ab", "abc", -1 },
                 { "", "a", -1 },
                 { "abc", "", -1 },
                 { "", "", -1 },
                 { "abc", "ABC", 0 },
                 { "abd", "abc", -1 } };
    for (const auto& row : rows) {
        const char* const found = FindTextNoCase(row.Text, row.Wanted);
        EXPECT_EQ(found == nullptr ? -1 : found - row.Text, row.Place) << row.Text << row.Wanted;
    }
}

TEST(BaseFileName, StandsBehindTheLastBackslashOrColon)
{
    const struct {
        const char *Path, *Name;
    } rows[] = { { "C:\\dir\\a.txt", "a.txt" },
                 { "C:a.txt", "a.txt" },
                 { "dir/a.txt", "dir/a.txt" },
                 { "a.txt", "a.txt" },
                 { "", "" },
                 { "dir\\", "" },
                 { "a\\b:c", "c" },
                 { "a:b\\c", "c" } };
    for (const auto& row : rows)
        EXPECT_STREQ(BaseFileName(row.Path), row.Name) << row.Path;
}

TEST(IsPrintable, HoldsForPlainCharsAndTab)
{
    for (int c = 0; c < 256; ++c)
        EXPECT_EQ(IsPrintable(static_cast<char>(c)), c == 9 || (c >= 32 && c <= 126) ? 1 : 0) << c;
}

TEST(ReplaceListDelimiter, PutsACommaForEach)
{
    char list[] = ";<a@b>;<c@d>,x;";
    ReplaceListDelimiter(list, ';');
    EXPECT_STREQ(list, ",<a@b>,<c@d>,x,");
    ReplaceListDelimiter(nullptr, ';');
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

TEST(CutAtLineEnd, CutsAtTheFirstCrOrLf)
{
    const char* const rows[][2] = {
        { "a\r\nb", "a" }, { "a\nb\r", "a" }, { "a\rb\n", "a" }, { "abc", "abc" }, { "\n", "" }
    };
    for (const auto& row : rows) {
        string text = row[0];
        CutAtLineEnd(text.data());
        EXPECT_STREQ(text.c_str(), row[1]);
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
    char text[32];
    EXPECT_EQ(FormatText(text, sizeof(text), "<%3d:%ld>%%%x", 7, -1L, 255u), 11);
    EXPECT_STREQ(text, "<  7:-1>%ff");
}
