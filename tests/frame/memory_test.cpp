// Memory blocks: rows, guards, counters, the log lines of failures, and the pointers into a block
// that go with it.
#include "frame/memory.h"

#include "frame/channel.h"
#include "tests/support/fault.h"
#include "tests/support/host.h"
#include "tests/support/temp_folder.h"

#include <algorithm>

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
        EXPECT_EQ(BlockAllocate(row, 40), BLOCK_ERR_IN_USE);
        EXPECT_EQ(BlockFree(row), 1);
    }
}

TEST_F(BlockRows, NoticeAnOverrunAtEitherEnd)
{
    ASSERT_EQ(BlockAllocate(7, 8), 7);
    char* const area = static_cast<char*>(BlockPointer(7));
    for (const int place : { -1, 8 }) {
        const char guard = area[place];
        area[place] = 'x';
        EXPECT_EQ(BlockCheck(7), BLOCK_ERR_GUARD) << place;
        area[place] = guard;
        EXPECT_EQ(BlockCheck(7), 1) << place;
    }
    EXPECT_EQ(BlockFree(7), 1);
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
        EXPECT_EQ(BlockCheck(i * 12), 1);
    }
}

TEST_F(Memory, LogsWhatItRefuses)
{
    Attach(1);
    EXPECT_NE(AllocateMemory(0, SLOT_CC, 8), nullptr);
    EXPECT_EQ(AllocateMemory(0, SLOT_CC, 8), nullptr);
    EXPECT_EQ(NewLog(), "AllocateMemory Error: Chan=0, Index=2, Code=-103\r\n");
    FaultArm(FAULT_ALLOCATE, 1);
    EXPECT_EQ(AllocAndCopy(0, SLOT_MESSAGE, "text"), nullptr);
    FaultDisarm();
    EXPECT_EQ(NewLog(), "AllocAndCopy Error 2: Chan=0, Index=5, Code=-102\r\n");
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
    const string notices = ::testing::internal::GetCapturedStderr();
    first[-1] = 'U';
    second[8] = 'z';
    EXPECT_EQ(notices, "Info: Memory Corrupted (rynDebug): ID=1 Err=-106\n"
                       "Info: Memory Corrupted (rynDebug): ID=23 Err=-106\n");
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
