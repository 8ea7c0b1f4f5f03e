// Memory blocks: all that a channel allocates lives in a table of numbered blocks, 12 slots for
// each channel, each block between two guard bytes. Whatever belongs to a channel is freed by
// number; a block that is freed takes every pointer of the channel into it along.
#pragma once

#include <atomic>
#include <cstdint>

struct Channel;

// --- slots ---
constexpr int32_t SLOT_CHANNEL = 0; // the Channel record
constexpr int32_t SLOT_TO = 1;      // To list, or the addresses of rynVerifyUser
constexpr int32_t SLOT_CC = 2;
constexpr int32_t SLOT_BCC = 3;
constexpr int32_t SLOT_SUBJECT = 4;
constexpr int32_t SLOT_MESSAGE = 5;
constexpr int32_t SLOT_INLINE = 6; // inline image list
constexpr int32_t SLOT_ALTERNATIVE = 7;
constexpr int32_t SLOT_ATTACHMENTS = 8;
constexpr int32_t SLOT_EXTRA_HEADERS = 9;
constexpr int32_t SLOT_EMAIL_LINES = 10;
constexpr int32_t SLOT_SEARCH = 11;
constexpr int32_t SlotsPerChannel = 12;

// --- statuses of this layer; the outside sees them only in a log line ---
constexpr int32_t BLOCK_ERR_ROW = -100; // no such row
constexpr int32_t BLOCK_ERR_NO_MEMORY = -102;
constexpr int32_t BLOCK_ERR_IN_USE = -103;
constexpr int32_t BLOCK_ERR_FREE = -104;  // row free, or without address or size
constexpr int32_t BLOCK_ERR_ID = -105;    // the table itself was overwritten
constexpr int32_t BLOCK_ERR_GUARD = -106; // a guard byte has changed

// --- counters since the process began ---
extern std::atomic<uint32_t> BlocksAllocated;
extern std::atomic<uint32_t> BlocksFreed;
extern std::atomic<uint32_t> BytesAllocated; // with 3 for each block
extern std::atomic<uint32_t> LastFreedSize;  // likewise

// Row level; row is channel * 12 + slot.
void BlockTableReset();
int32_t BlockAllocate(uint32_t row, uint32_t size); // the row, or a status
void* BlockPointer(uint32_t row);                   // the caller's area, or null
int32_t BlockCheck(uint32_t row);                   // 1, or a status
int32_t BlockExists(uint32_t row);                  // 1 used, 0 free, or a status
int32_t BlockSize(uint32_t row);                    // as asked for, or a status
int32_t BlockFree(uint32_t row);                    // 1, or a status

// Zero-filled memory in a slot: the caller's area, or null. Failures are logged.
void* AllocateMemory(int32_t channel, int32_t slot, uint32_t size);

// Frees the slots first to last; a damaged block and all behind it stay. Failures are logged.
void FreeMemory(int32_t channel, int32_t first, int32_t last);

// A copy of a text in a slot, in the place of what was there, in a block two bytes larger than the
// text; null, logged, for an empty text and without memory.
char* AllocAndCopy(int32_t channel, int32_t slot, const char* text);

// Shows a notice for every block whose guards are damaged.
void CheckAllBlocks(const char* label);
