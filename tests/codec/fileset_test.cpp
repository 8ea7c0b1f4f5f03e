// The small operations that need no server: whether files can be opened, a pause, a tick count.
#include "tests/support/host.h"
#include "tests/support/temp_folder.h"
#include "tests/support/virtual_clock.h"

namespace {

struct FileSetTest : HostTest {
    std::string Buffer = std::string(130, '#'); // the host's; '#': nobody has written there
};

} // namespace

TEST_F(FileSetTest, TestsWhetherFilesCanBeOpened)
{
    WriteWholeFile(Path("a"), "");
    WriteWholeFile(Path("b"), "");
    const std::string a = Path("a"), b = Path("b"), no = Path("no"), x80(80, 'x'), x79(79, 'x');
    const auto noChars = static_cast<int32_t>(no.size());
    const struct {
        std::string List;
        int32_t Size, Result;
        std::string Left, Log;
    } rows[] = {
        { a, 200, 0, "", "" },
        { "@" + a + ";" + b, 200, 0, "", "" },
        { a + ";@" + b, 200, noChars, "@" + b, "File #2 (@" + b + ") does not exist" },
        { a + ";" + b + ";" + no + ";" + a, 200, noChars, no,
          "File #3 (" + no + ") does not exist" },
        { "@@" + a, 200, noChars, "@" + a, "File #1 (@" + a + ") does not exist" },
        { a + "|shown", 200, noChars + 5, a + "|shown",
          "File #1 (" + a + "|shown) does not exist" },
        { "", 80, 0, "", "File #1 () does not exist" },
        { a + ";;" + no, 200, 0, "", "File #2 () does not exist" },
        { a + ";", 200, 0, "", "File #2 () does not exist" },
        { x80, 80, 99, x79, "" },
        { a + ";" + x80 + "y;" + b, 80, 99, x79, "" },
        { x79, 80, 79, x79, "File #1 (" + x79 + ") does not exist" },
        { "mem*3;" + a + ";mem*0;" + no, 200, noChars, no, "File #4 (" + no + ") does not exist" },
        { a, 79, RYN_ERR_BUFFER_TOO_SMALL, "#", "" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.List);
        rynRelease();
        Buffer.assign(202, '#');
        const std::string left = row.Left + (row.Left == "#" ? "#" : std::string(1, 0));
        EXPECT_EQ(
            rynTestFileSet(static_cast<uint32_t>(-1), row.List.c_str(), Buffer.data(), row.Size),
            row.Result);
        EXPECT_EQ(rynTestFileSet(0, row.List.c_str(), Buffer.data(), row.Size),
                  RYN_ERR_NOT_ATTACHED);
        EXPECT_EQ(Buffer.substr(0, left.size()), left);
        EXPECT_EQ(Buffer.find_first_not_of('#', static_cast<size_t>(row.Size)), std::string::npos);
        HostAttach();
        EXPECT_GT(HostSetText(0, RYN_LOG_FILE, Path("log")), 0);
        const std::string before = ReadWholeFile(Path("log"));
        EXPECT_EQ(rynTestFileSet(0, row.List.c_str(), Buffer.data(), row.Size), row.Result);
        EXPECT_EQ(ReadWholeFile(Path("log")), before + row.Log);
    }
    EXPECT_EQ(rynTestFileSet(1, "x", Buffer.data(), 80), RYN_ERR_CHANNEL_RANGE);
    EXPECT_EQ(rynTestFileSet(0, nullptr, Buffer.data(), 80), RYN_ERR_NO_FILENAME);
    EXPECT_EQ(rynTestFileSet(0, nullptr, Buffer.data(), 79), RYN_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(rynTestFileSet(0, "x", nullptr, 80), RYN_ERR_NULL_BUFFER);
}

TEST_F(FileSetTest, TestsMemoryFilesWithoutReadingThem)
{
    HostAttach();
    static const char text[] = "Subject: s\r\n\r\n.\r\n)\r\nbody\r\n";
    constexpr uint32_t count = sizeof text - 1;
    EXPECT_EQ(rynSetFileBuffer(0, 3, text, count), static_cast<int32_t>(count));
    for (int i = 0; i < 300; i++) // more often than there are handles
        EXPECT_EQ(rynTestFileSet(0, "m*3;m*0;m*3", Buffer.data(), 80), 0);
    EXPECT_EQ(rynImapSource(0, "m*3"), 1);
    EXPECT_EQ(rynGetEmailFile(0, 1, "mail", Folder.c_str(), Folder.c_str()), 0);
    EXPECT_EQ(ReadWholeFile(Path("mail")), "Subject: s\r\n\r\n.\r\nbody\r\n");
    EXPECT_EQ(rynClose(0), 1);
}

TEST_F(FileSetTest, SleepsAndCountsTicks)
{
    const uint32_t start = osTickCount();
    const struct {
        int32_t Ms, Result;
        uint32_t Slept;
    } rows[] = { { -1, 0, 0 }, { -2147483647, 0, 0 }, { 0, 1, 1 }, { 250, 1, 250 } };
    for (const auto& row : rows) {
        const uint64_t before = VirtualClockSpent();
        EXPECT_EQ(rynSleep(row.Ms), row.Result);
        EXPECT_EQ(VirtualClockSpent() - before, row.Slept);
    }
    EXPECT_EQ(start + 251, osTickCount());
    VirtualClockReset(3000000000U);
    for (const int32_t divisor : { 0, -5, 1, 2, 1000 })
        EXPECT_EQ(static_cast<uint32_t>(rynGetTicks(divisor)),
                  divisor < 1 ? 0 : 3000000000U / static_cast<uint32_t>(divisor));
}
