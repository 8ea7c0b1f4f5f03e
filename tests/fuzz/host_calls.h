// The operations as the host's target calls them: a row for each, and what it takes of the input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// The arguments of one call. All memory lives until the end of the input.
struct HostCall {
    uint32_t Channel;
    const char* Text[8];
    int32_t Number[3];
    char* Room; // null or of the size that the header asks for
    int32_t Size;
};

struct HostRow {
    const char* Name;
    // In this order: c channel, t text, n number; b room of Size bytes, B of one more, as the header
    // tells; files by t's place in Text: r one to read, w one to write, d a folder, x a program.
    // '#': negative results are no statuses.
    const char* Takes;
    int32_t (*Run)(const HostCall& call);
};

std::span<const HostRow> HostRows();

// Memory of exactly so many bytes that lives until the end of the input.
char* HostRoom(size_t size);

// True a few times for an input: starting a process costs real time.
bool HostMayStart();

// Gives all programs back.
void HostKillPrograms();
