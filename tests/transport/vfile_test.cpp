// Virtual files: handles, memory files, names, and the test of a folder.
#include "transport/vfile.h"

#include "frame/channel.h"
#include "frame/settings.h"
#include "tests/support/fault.h"
#include "tests/support/host.h"
#include "tests/support/temp_folder.h"

#include <filesystem>

using std::string;

struct VFileTest : HostTest {
    int32_t Open(const string& name, bool utf8 = false)
    {
        return u_Open(Path(name).c_str(), 0, utf8);
    }
    int32_t Create(const string& name, bool utf8 = false)
    {
        return u_Create(Path(name).c_str(), 0, utf8);
    }
};

// What is shown to the user while something is done.
template <typename Action>
static string Notices(Action action)
{
    ::testing::internal::CaptureStderr();
    action();
    return ::testing::internal::GetCapturedStderr();
}

static string ReadAll(int32_t handle, int32_t piece)
{
    string all;
    char buffer[64];
    int32_t count;
    while ((count = u_Read(handle, buffer, piece)) > 0)
        all.append(buffer, static_cast<size_t>(count));
    EXPECT_EQ(count, 0);
    return all;
}

TEST_F(VFileTest, MemoryIsReadInPiecesAndOnce)
{
    char buffer[8];
    SetMemoryFile(3, "0123456789", 10);
    const int32_t handle = u_Open("report.txt*3", 0, false);
    ASSERT_GE(handle, 1);
    for (const int32_t count : { 4, 4, 2, 0, 0 })
        EXPECT_EQ(u_Read(handle, buffer, 4), count);
    u_Close(handle);

    SetMemoryFile(3, "a\0b\0c", 5); // two handles share what is left to read
    const int32_t first = u_Open("*3", 0, false), second = u_Open("*3", 0, false);
    EXPECT_NE(first, second);
    EXPECT_EQ(u_Read(first, buffer, 2), 2);
    EXPECT_EQ(ReadAll(second, 8), string("b\0c", 3));
    SetMemoryFile(3, "abc", 3);
    EXPECT_EQ(u_Write(first, "x", 1), 0);
    u_Close(second); // closing forgets the content
    EXPECT_EQ(u_Read(first, buffer, 8), 0);
    u_Close(first);
}

TEST_F(VFileTest, NameTellsTheMemoryFile)
{
    const struct {
        const char* Name;
        int Index; // -1 = refused
        const char* Cut;
    } rows[] = { { "report.txt*7", 7, "report.txt" },
                 { "*5", 5, "" },
                 { "x*", 0, "x" },
                 { "x*7.txt", 7, "x" },
                 { "a*3*5", 3, "a" },
                 { "report.txt*8", -1, "" },
                 { "x*4294967299", -1, "" },
                 { "x*99999999999999999999", -1, "" } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Name);
        for (int i = 0; i < MemoryFileCount; ++i)
            SetMemoryFile(i, &"01234567"[i], 1);
        int32_t handle = 0;
        const string notices = Notices([&] { handle = u_Open(row.Name, 0, false); });
        if (row.Index < 0) {
            EXPECT_EQ(handle, RYN_ERR_INDEX_RANGE);
            EXPECT_EQ(notices, "");
            continue;
        }
        char expected[128];
        snprintf(expected, sizeof(expected),
                 "Info: u_Open: Index=%d, FilePtr='%s', Handle=7000000%d\n", row.Index, row.Cut,
                 row.Index);
        EXPECT_EQ(notices, expected);
        EXPECT_EQ(ReadAll(handle, 8), std::to_string(row.Index));
        u_Close(handle);
    }
}

TEST_F(VFileTest, TableHolds255Handles)
{
    WriteWholeFile(Path("file"), "abc");
    for (const bool memory : { false, true }) {
        std::vector<int32_t> handles;
        for (int i = 1; i <= 255; ++i)
            handles.push_back(memory ? u_Open("x*1", 0, false) : Open("file"));
        const int open = OpenDescriptors();
        EXPECT_EQ(Open("file"), 0);
        EXPECT_EQ(u_Open("x*1", 0, false), 0);
        EXPECT_EQ(Create("new"), 0);
        EXPECT_EQ(OpenDescriptors(), open);
        u_Close(77);
        EXPECT_EQ(memory ? Open("file") : u_Open("x*1", 0, false), 77);
        EXPECT_EQ(Open("file"), 0);
        for (const int32_t handle : handles)
            u_Close(handle);
        EXPECT_EQ(OpenDescriptors(), DescriptorsBefore);
    }
}

TEST_F(VFileTest, ReadersShareAndAWriterIsAlone)
{
    const int32_t writer = Create("file");
    ASSERT_GE(writer, 1);
    EXPECT_EQ(u_Write(writer, "a\0b", 3), 3);
    EXPECT_EQ(Create("file"), RYN_ERR_CANNOT_CREATE_FILE);
    EXPECT_NE(LastFileError(), 0);
    EXPECT_EQ(Open("file"), RYN_ERR_CANNOT_OPEN_FILE);
    EXPECT_EQ(ReadWholeFile(Path("file")), string("a\0b", 3));
    u_Close(writer);
    const int32_t first = Open("file"), second = Open("file");
    EXPECT_EQ(LastFileError(), 0);
    EXPECT_EQ(ReadAll(first, 2), string("a\0b", 3));
    u_Close(first);
    u_Close(second);
    const int32_t anew = Create("file");
    EXPECT_EQ(ReadWholeFile(Path("file")), "");
    u_Close(anew);
}

// Once the disk has refused a write nothing is written behind the hole, whatever comes.
TEST_F(VFileTest, GatheredWritesEndWhereTheDiskDid)
{
    const string half(WriteGatherBytes / 2, 'x'), over(WriteGatherBytes + 1, 'o');
    for (const int nth : { 1, 2, 3 }) {
        for (const bool lasting : { true, false }) {
            SCOPED_TRACE(std::to_string(nth) + (lasting ? " and on" : ""));
            const int32_t handle = Create("file");
            const auto write = [&](const string& bytes) {
                return u_Write(handle, bytes.data(), static_cast<int32_t>(bytes.size()));
            };
            u_GatherWrites(handle);
            lasting ? FaultArmFrom(FAULT_WRITE, nth) : FaultArm(FAULT_WRITE, nth);
            for (int i = 0; i < 2 * nth; i++)
                EXPECT_EQ(write(half), WriteGatherBytes / 2);
            for (const string& bytes : { half, over, string("y"), half, half })
                EXPECT_EQ(write(bytes), 0);
            u_Flush(handle);
            FaultDisarm();
            EXPECT_EQ(write("z"), 0);
            u_Close(handle);
            const auto whole = static_cast<size_t>((nth - 1) * WriteGatherBytes);
            EXPECT_EQ(ReadWholeFile(Path("file")), string(whole, 'x'));
            const int32_t anew = Create("file"); // which has the same handle
            u_GatherWrites(anew);
            EXPECT_EQ(u_Write(anew, "new", 3), 3);
            u_Close(anew);
            EXPECT_EQ(ReadWholeFile(Path("file")), "new");
        }
    }
}

TEST_F(VFileTest, NamesMayBeUtf8AndThenHoldAStar)
{
    const string name = "caf\xC3\xA9\xE2\x82\xAC*3";
    const int32_t writer = Create(name, true);
    ASSERT_GE(writer, 1);
    EXPECT_EQ(u_Write(writer, "text", 4), 4);
    u_Close(writer);
    EXPECT_EQ(ReadWholeFile(Path(name)), "text");
    const int32_t reader = Open(name, true);
    EXPECT_EQ(ReadAll(reader, 64), "text");
    u_Close(reader);
    EXPECT_EQ(Open("x\xC3", true), RYN_ERR_BAD_UTF8);
    EXPECT_EQ(Create("x\xF0\x9F\x98\x80", true), RYN_ERR_BAD_UTF8);
}

TEST_F(VFileTest, WrongHandlesAndCountsDoNoHarm)
{
    WriteWholeFile(Path("file"), "abc");
    const int32_t handle = Create("out");
    const auto write = [&](int32_t number, int32_t count) {
        return Notices([&] { EXPECT_EQ(u_Write(number, "abc", count), 0); });
    };
    EXPECT_EQ(write(0, 3), "");
    EXPECT_EQ(write(-1, 3), "Info: u_Write: Virtual handle -1 out of range [0,256]\n");
    EXPECT_EQ(write(handle, -5), "Info: u_Write: Error, BufLen -5 < 0\n");
    EXPECT_EQ(write(200, 3), ""); // a free one
    char buffer[4];
    for (const int32_t number : { 0, -1, 200, 256, 1 << 30 }) {
        EXPECT_EQ(u_Read(number, buffer, 4), 0) << number;
        u_Close(number);
    }
    u_Close(handle);
    u_Close(handle);
    EXPECT_EQ(u_Write(handle, "x", 1), 0);
    EXPECT_EQ(ReadWholeFile(Path("out")), "");
}

TEST_F(VFileTest, FolderTestDestroysNothingAndFollowsNoLink)
{
    namespace fs = std::filesystem;
    const string target = Path("target"), test = Path("$$$$$$.TMP");
    WriteWholeFile(test, "precious");
    EXPECT_EQ(TestDirWritable(nullptr, Folder.c_str()), 1);
    EXPECT_EQ(ReadWholeFile(test), "precious");
    fs::remove(test);
    fs::create_symlink(target, test);
    WriteWholeFile(target, "precious");
    EXPECT_EQ(TestDirWritable(nullptr, Folder.c_str()), 1);
    EXPECT_EQ(ReadWholeFile(target), "precious");
    EXPECT_TRUE(fs::is_symlink(test));
    EXPECT_EQ(std::distance(fs::directory_iterator(Folder), fs::directory_iterator()), 2);
}
