// Memory blocks: rows, guards, counters, the log lines of failures, and the pointers into a block
// that go with it.
#include "frame/memory.h"

#include "frame/channel.h"
#include "tests/support/fault.h"
#include "tests/support/host.h"
#include "tests/support/temp_folder.h"

#include <algorithm>
#include <cstring>

using std::string;

static constexpr uint32_t LastRow = 65 * 12 - 1;

struct BlockRows : ::testing::Test {
    void SetUp() override
    {
        BlockTableReset();
    }
};

TEST_F(BlockRows, LieZeroFilledBetweenTwoGuards)
{
    for (const uint32_t row : { 0u, 13u, LastRow }) {
        ASSERT_EQ(BlockAllocate(row, 40), static_cast<int32_t>(row));
        const char* const area = static_cast<const char*>(BlockPointer(row));
        ASSERT_NE(area, nullptr);
        EXPECT_EQ(string(area - 1, 43), "U" + string(40, '\0') + "z" + '\0');
        EXPECT_EQ(BlockCheck(row), 1);
        EXPECT_EQ(BlockExists(row), 1);
        EXPECT_EQ(BlockSize(row), 40);
        EXPECT_EQ(BlockAllocate(row, 40), BLOCK_ERR_IN_USE);
        EXPECT_EQ(BlockFree(row), 1);
    }
}

TEST_F(BlockRows, AnswerForFreeAndMissingRows)
{
    const struct {
        uint32_t Row;
        int32_t Exists, Other;
    } rows[] = { { 5, 0, BLOCK_ERR_FREE },
                 { LastRow, 0, BLOCK_ERR_FREE },
                 { LastRow + 1, BLOCK_ERR_ROW, BLOCK_ERR_ROW },
                 { 0xFFFFFFFF, BLOCK_ERR_ROW, BLOCK_ERR_ROW } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Row);
        EXPECT_EQ(BlockPointer(row.Row), nullptr);
        EXPECT_EQ(BlockExists(row.Row), row.Exists);
        EXPECT_EQ(BlockCheck(row.Row), row.Other);
        EXPECT_EQ(BlockSize(row.Row), row.Other);
        EXPECT_EQ(BlockFree(row.Row), row.Other);
    }
    EXPECT_EQ(BlockAllocate(LastRow + 1, 8), BLOCK_ERR_ROW);
}

TEST_F(BlockRows, NoticeAnOverrunAtEitherEnd)
{
    ASSERT_EQ(BlockAllocate(7, 8), 7);
    char* const area = static_cast<char*>(BlockPointer(7));
    const int places[] = { -1, 8 };
    for (const int place : places) {
        const char guard = area[place];
        area[place] = 'x';
        EXPECT_EQ(BlockCheck(7), BLOCK_ERR_GUARD) << place;
        area[place] = guard;
        EXPECT_EQ(BlockCheck(7), 1) << place;
    }
    memset(area, 0xFF, 8);
    EXPECT_EQ(BlockCheck(7), 1);
    EXPECT_EQ(BlockFree(7), 1);
}

TEST_F(BlockRows, AreCountedWithThreeBytesMore)
{
    const uint32_t allocated = BlocksAllocated, freed = BlocksFreed, bytes = BytesAllocated;
    ASSERT_EQ(BlockAllocate(1, 100), 1);
    ASSERT_EQ(BlockAllocate(2, 7), 2);
    EXPECT_EQ(BlockFree(1), 1);
    EXPECT_EQ(LastFreedSize, 103u);
    EXPECT_EQ(BlockFree(2), 1);
    EXPECT_EQ(LastFreedSize, 10u);
    EXPECT_EQ(BlockAllocate(LastRow + 1, 8), BLOCK_ERR_ROW);
    EXPECT_EQ(BlockFree(2), BLOCK_ERR_FREE);
    EXPECT_EQ(BlocksAllocated - allocated, 2u);
    EXPECT_EQ(BlocksFreed - freed, 2u);
    EXPECT_EQ(BytesAllocated - bytes, 113u);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_BLOCKS_ALLOCATED), static_cast<int32_t>(BlocksAllocated));
    EXPECT_EQ(rynStatistics(0, RYN_STAT_BLOCKS_FREED), static_cast<int32_t>(BlocksFreed));
    EXPECT_EQ(rynStatistics(0, RYN_STAT_BYTES_ALLOCATED), static_cast<int32_t>(BytesAllocated));
    EXPECT_EQ(rynStatistics(0, RYN_STAT_LAST_FREED_SIZE), 10);
}

TEST_F(BlockRows, StayFreeWhenTheSystemRefuses)
{
    const uint32_t allocated = BlocksAllocated;
    FaultArm(FAULT_ALLOCATE, 1);
    EXPECT_EQ(BlockAllocate(3, 8), BLOCK_ERR_NO_MEMORY);
    EXPECT_TRUE(FaultDisarm());
    EXPECT_EQ(BlockExists(3), 0);
    EXPECT_EQ(BlocksAllocated, allocated);
}

struct Memory : HostTest {
    // What the log has had since the last call.
    string NewLog()
    {
        const string all = ReadWholeFile(Path("log"));
        return all.substr(std::min(std::exchange(Seen, all.size()), all.size()));
    }
    void Attach(uint32_t channels)
    {
        HostAttach(channels);
        EXPECT_GT(HostSetText(0, RYN_LOG_FILE, Path("log")), 0);
        NewLog();
    }
    size_t Seen = 0;
};

TEST_F(Memory, HoldsEachChannelWhereItsFieldsAreAligned)
{
    Attach(65);
    for (uint32_t i = 0; i < 65; ++i) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(ChannelTable[i]) % alignof(Channel), 0u) << i;
        EXPECT_EQ(BlockPointer(i * 12), ChannelTable[i]);
        EXPECT_EQ(BlockSize(i * 12), static_cast<int32_t>(sizeof(Channel)));
        EXPECT_EQ(BlockCheck(i * 12), 1);
    }
}

TEST_F(Memory, LogsWhatItRefuses)
{
    Attach(1);
    EXPECT_NE(AllocateMemory(0, SLOT_CC, 8), nullptr);
    EXPECT_EQ(AllocateMemory(0, SLOT_CC, 8), nullptr);
    EXPECT_EQ(NewLog(), "AllocateMemory Error: Chan=0, Index=2, Code=-103\r\n");
    EXPECT_EQ(AllocAndCopy(0, SLOT_SUBJECT, ""), nullptr);
    EXPECT_EQ(NewLog(), "AllocAndCopy Error 1: Chan=0, Index=4, Code=0\r\n");
    FaultArm(FAULT_ALLOCATE, 1);
    EXPECT_EQ(AllocAndCopy(0, SLOT_MESSAGE, "text"), nullptr);
    FaultDisarm();
    EXPECT_EQ(NewLog(), "AllocAndCopy Error 2: Chan=0, Index=5, Code=-102\r\n");
    FaultArm(FAULT_ALLOCATE, 1);
    EXPECT_EQ(AllocateMemory(0, SLOT_SEARCH, 8), nullptr);
    FaultDisarm();
    EXPECT_EQ(NewLog(), "AllocateMemory Error: Chan=0, Index=11, Code=-102\r\n");
    FreeMemory(0, 1, 11);
    EXPECT_EQ(BlockExists(2), 0);
    FreeMemory(0, 1, 11);
    EXPECT_EQ(NewLog(), "");
}

TEST_F(Memory, CopiesATextIntoABlockTwoBytesLarger)
{
    Attach(2);
    for (const char* text : { "first", "x", "a longer one" }) {
        const char* const copy = AllocAndCopy(1, SLOT_TO, text);
        ASSERT_STREQ(copy, text);
        EXPECT_EQ(copy, BlockPointer(13));
        EXPECT_EQ(BlockSize(13), static_cast<int32_t>(strlen(text)) + 2);
        EXPECT_EQ(string(copy + strlen(text), 3), string("\0\0z", 3));
    }
}

TEST_F(Memory, LeavesADamagedBlockAndAllBehindIt)
{
    Attach(2);
    for (int32_t slot = 1; slot <= 11; ++slot)
        ASSERT_NE(AllocateMemory(1, slot, 8), nullptr);
    char* const damaged = static_cast<char*>(BlockPointer(15));
    damaged[8] = 'x';
    NewLog();
    FreeMemory(1, 1, 11);
    EXPECT_EQ(NewLog(), ""); // the failure stands in the log of its own channel
    for (uint32_t slot = 1; slot <= 11; ++slot)
        EXPECT_EQ(BlockExists(12 + slot), slot < 3 ? 0 : 1) << slot;
    EXPECT_GT(HostSetText(1, RYN_LOG_FILE, Path("log1")), 0);
    FreeMemory(1, 3, 11);
    const string log = ReadWholeFile(Path("log1"));
    const string line = "FreeMemory Error: Chan=1, Index=3, Code=-106\r\n";
    EXPECT_EQ(log.substr(log.size() - std::min(log.size(), line.size())), line);
    damaged[8] = 'z';
    FreeMemory(1, 1, 11);
    EXPECT_EQ(BlockExists(23), 0);
}

TEST_F(Memory, ShowsANoticeForEachDamagedBlock)
{
    Attach(2);
    char* const first = static_cast<char*>(AllocateMemory(0, SLOT_TO, 8));
    char* const second = static_cast<char*>(AllocateMemory(1, SLOT_SEARCH, 8));
    ASSERT_TRUE(first != nullptr && second != nullptr);
    first[-1] = second[8] = '?';
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(rynDebug(static_cast<uint32_t>(-2), 0, nullptr, 0), 0);
    CheckAllBlocks("mine");
    const string notices = ::testing::internal::GetCapturedStderr();
    first[-1] = 'U';
    second[8] = 'z';
    EXPECT_EQ(notices, "Info: Memory Corrupted (rynDebug): ID=1 Err=-106\n"
                       "Info: Memory Corrupted (rynDebug): ID=23 Err=-106\n"
                       "Info: Memory Corrupted (mine): ID=1 Err=-106\n"
                       "Info: Memory Corrupted (mine): ID=23 Err=-106\n");
}

// Every pointer of a channel that may stand in a block.
static void PointAllInto(Channel& ch, char* place)
{
    ch.ToList = ch.CcList = ch.BccList = ch.SubjectText = ch.InlineText = ch.AltText = place;
    ch.MessageText = ch.AttachmentText = ch.ExtraHeaders = ch.RecipientCursor = place;
    ch.CurrentRecipient = ch.RecipientEnd = ch.AttachBegPtr = place;
}

static int CountInto(const Channel& ch, const char* place)
{
    const char* const all[] = { ch.ToList,          ch.CcList,           ch.BccList,
                                ch.SubjectText,     ch.InlineText,       ch.AltText,
                                ch.MessageText,     ch.AttachmentText,   ch.ExtraHeaders,
                                ch.RecipientCursor, ch.CurrentRecipient, ch.RecipientEnd,
                                ch.AttachBegPtr };
    return static_cast<int>(std::count(std::begin(all), std::end(all), place));
}

TEST_F(Memory, TakesEveryPointerIntoABlockAlong)
{
    Attach(2);
    Channel& ch = *ChannelTable[1];
    for (int32_t slot = SLOT_TO; slot <= SLOT_SEARCH; ++slot) {
        for (const int place : { 0, 3, 6 }) { // head, middle, last byte of "text" and two zeros
            SCOPED_TRACE(slot * 100 + place);
            char* const freed = AllocAndCopy(1, slot, "text1");
            ASSERT_NE(freed, nullptr);
            PointAllInto(ch, freed + place);
            FreeMemory(1, slot, slot);
            EXPECT_EQ(CountInto(ch, nullptr), 13);
        }
    }
    char* const replaced = AllocAndCopy(1, SLOT_TO, "text");
    PointAllInto(ch, replaced);
    char* const other = AllocAndCopy(1, SLOT_CC, "other");
    ch.CcList = ch.RecipientCursor = other;
    char* const foreign = AllocAndCopy(0, SLOT_TO, "foreign");
    ch.AttachBegPtr = foreign;
    AllocAndCopy(1, SLOT_TO, "text");
    EXPECT_EQ(CountInto(ch, other), 2);
    EXPECT_EQ(CountInto(ch, foreign), 1);
    EXPECT_EQ(CountInto(ch, nullptr), 10);
    PointAllInto(ch, nullptr);
}
