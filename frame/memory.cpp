// The table of memory blocks and the channel-level calls above it.
#include "frame/memory.h"

#include "codec/text.h"
#include "frame/channel.h"
#include "frame/log.h"
#include "platform/platform.h"
#include "transport/vfile.h"

#include <cstring>

constexpr uint32_t RowCount = SlotsPerChannel * RYN_MAX_CHANNELS;
constexpr char GuardBefore = 'U';
constexpr char GuardBehind = 'z';
constexpr uint32_t GuardBytes = 3; // one before, one behind, a zero behind that

// The caller's area begins at this distance from what the system gave, so that a record in it is
// aligned although a guard byte stands in front of it.
constexpr size_t AreaOffset = alignof(std::max_align_t);

struct BlockRow {
    char* Address; // of the guard before the caller's area
    uint32_t Size; // as asked for
    void* Handle;  // what the system gave; null = row free
    uint32_t Id;   // the row's own number
};

static BlockRow BlockTable[RowCount];

std::atomic<uint32_t> BlocksAllocated = 0;
std::atomic<uint32_t> BlocksFreed = 0;
std::atomic<uint32_t> BytesAllocated = 0;
std::atomic<uint32_t> LastFreedSize = 0;

static uint32_t RowOf(int32_t channel, int32_t slot)
{
    return static_cast<uint32_t>(channel * SlotsPerChannel + slot);
}

static int32_t GuardRow(uint32_t row)
{
    if (row >= RowCount)
        return BLOCK_ERR_ROW;
    return BlockTable[row].Id == row ? 0 : BLOCK_ERR_ID;
}

void BlockTableReset()
{
    for (uint32_t row = 0; row < RowCount; row++)
        BlockTable[row] = { nullptr, 0, nullptr, row };
}

int32_t BlockAllocate(uint32_t row, uint32_t size)
{
    if (const int32_t status = GuardRow(row); status < 0)
        return status;
    BlockRow& block = BlockTable[row];
    if (block.Handle != nullptr)
        return BLOCK_ERR_IN_USE;
    void* memory = osAllocate(AreaOffset + size_t{ size } + GuardBytes);
    if (memory == nullptr)
        return BLOCK_ERR_NO_MEMORY;
    BlocksAllocated.fetch_add(1, std::memory_order_relaxed);
    BytesAllocated.fetch_add(size + GuardBytes, std::memory_order_relaxed);
    block.Handle = memory;
    block.Address = static_cast<char*>(memory) + AreaOffset - 1;
    block.Size = size;
    block.Address[0] = GuardBefore;
    block.Address[size_t{ size } + 1] = GuardBehind;
    return static_cast<int32_t>(row);
}

void* BlockPointer(uint32_t row)
{
    if (GuardRow(row) < 0 || BlockTable[row].Handle == nullptr)
        return nullptr;
    return BlockTable[row].Address + 1;
}

int32_t BlockCheck(uint32_t row)
{
    if (const int32_t status = GuardRow(row); status < 0)
        return status;
    const BlockRow& block = BlockTable[row];
    if (block.Handle == nullptr || block.Address == nullptr || block.Size == 0)
        return BLOCK_ERR_FREE;
    // cppcheck-suppress nullPointerRedundantCheck ; a null address has returned above
    if (block.Address[0] != GuardBefore || block.Address[size_t{ block.Size } + 1] != GuardBehind)
        return BLOCK_ERR_GUARD;
    return 1;
}

int32_t BlockExists(uint32_t row)
{
    if (const int32_t status = GuardRow(row); status < 0)
        return status;
    return BlockTable[row].Handle != nullptr ? 1 : 0;
}

int32_t BlockSize(uint32_t row)
{
    const int32_t exists = BlockExists(row);
    if (exists < 0)
        return exists;
    return exists == 0 ? BLOCK_ERR_FREE : static_cast<int32_t>(BlockTable[row].Size);
}

int32_t BlockFree(uint32_t row)
{
    const int32_t exists = BlockExists(row);
    if (exists < 1)
        return exists < 0 ? exists : BLOCK_ERR_FREE;
    BlockRow& block = BlockTable[row];
    void* memory = block.Handle;
    block.Handle = nullptr;
    osFree(memory);
    BlocksFreed.fetch_add(1, std::memory_order_relaxed);
    LastFreedSize.store(block.Size + GuardBytes, std::memory_order_relaxed);
    block.Size = 0;
    return 1;
}

static void ReportBlockError(const char* label, int32_t channel, int32_t slot, int32_t code)
{
    const Channel* ch = ChannelTable[channel];
    if (ch != nullptr)
        LogFormat(*ch, "%s: Chan=%d, Index=%d, Code=%d\r\n", label, channel, slot, code);
}

void* AllocateMemory(int32_t channel, int32_t slot, uint32_t size)
{
    const int32_t status = BlockAllocate(RowOf(channel, slot), size);
    if (status < 0) {
        ReportBlockError("AllocateMemory Error", channel, slot, status);
        return nullptr;
    }
    return BlockPointer(RowOf(channel, slot));
}

// Clears a pointer that leads into the block.
template <typename T>
static void Forget(T*& pointer, const char* area, uint32_t size)
{
    const uintptr_t place = reinterpret_cast<uintptr_t>(pointer);
    const uintptr_t begin = reinterpret_cast<uintptr_t>(area);
    if (place >= begin && place <= begin + size)
        pointer = nullptr;
}

// Clears every pointer of the channel into a block that is about to be freed.
static void ForgetPointers(Channel& ch, uint32_t row)
{
    const char* area = static_cast<const char*>(BlockPointer(row));
    const uint32_t size = BlockTable[row].Size;
    char** const pointers[] = {
        &ch.ToList,       &ch.CcList,          &ch.BccList,          &ch.SubjectText,
        &ch.InlineText,   &ch.AltText,         &ch.AttachmentText,   &ch.ExtraHeaders,
        &ch.RecipientEnd, &ch.RecipientCursor, &ch.CurrentRecipient, &ch.AttachBegPtr,
        &ch.AttachEndPtr, &ch.UserBuffer,      &ch.SearchBuffer,
    };
    for (char** pointer : pointers)
        Forget(*pointer, area, size);
    Forget(ch.MessageText, area, size);
}

static void FreeRow(int32_t channel, uint32_t row)
{
    if (row % SlotsPerChannel != SLOT_CHANNEL && ChannelTable[channel] != nullptr)
        ForgetPointers(*ChannelTable[channel], row);
    BlockFree(row);
}

void FreeMemory(int32_t channel, int32_t first, int32_t last)
{
    for (int32_t slot = first; slot <= last; slot++) {
        const int32_t status = BlockCheck(RowOf(channel, slot));
        if (status == 1) {
            FreeRow(channel, RowOf(channel, slot));
        } else if (status == BLOCK_ERR_ID || status == BLOCK_ERR_GUARD) {
            ReportBlockError("FreeMemory Error", channel, slot, status);
            return;
        }
    }
}

char* AllocAndCopy(int32_t channel, int32_t slot, const char* text)
{
    const uint32_t row = RowOf(channel, slot);
    const size_t length = strlen(text);
    if (length == 0) {
        ReportBlockError("AllocAndCopy Error 1", channel, slot, 0);
        return nullptr;
    }
    if (BlockExists(row) == 1)
        FreeRow(channel, row);
    // Sizes are signed 32-bit numbers to a host; a longer text can't be told apart from no memory.
    constexpr size_t LongestText = INT32_MAX - 16;
    const int32_t status = length > LongestText
                               ? BLOCK_ERR_NO_MEMORY
                               : BlockAllocate(row, static_cast<uint32_t>(length) + 2);
    if (status < 0) {
        ReportBlockError("AllocAndCopy Error 2", channel, slot, status);
        return nullptr;
    }
    char* copy = static_cast<char*>(BlockPointer(row));
    memcpy(copy, text, length); // NOLINT(bugprone-not-null-terminated-result): blocks are zeroed
    return copy;
}

void CheckAllBlocks(const char* label)
{
    for (uint32_t row = 0; row < RowCount; row++) {
        const int32_t status = BlockTable[row].Handle != nullptr ? BlockCheck(row) : 0;
        if (status != BLOCK_ERR_GUARD)
            continue;
        char notice[FormatCapacity];
        FormatText(notice, sizeof notice, "Memory Corrupted (%s): ID=%u Err=%d", label, row,
                   status);
        ShowNotice(notice);
    }
}
