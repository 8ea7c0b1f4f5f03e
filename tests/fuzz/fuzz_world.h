// The world in which a target that fetches mail runs one input: an attached library over the virtual
// clock and network, a tree of folders in memory, and behind it the test that nothing is left and
// nothing lies where it must not.
#pragma once

#include "tests/fuzz/fuzz_input.h"

#include <map>

constexpr char MessageName[] = "message.eml";
constexpr char RawPrefixChar = '#';

struct WorldFolders {
    std::string Root;   // holds the three below two levels down, and nothing else
    std::string Mail;   // where message files go
    std::string Attach; // where attachments go
    std::string Store;  // the stored message, the log
};

// The tree lives as long as the process.
const WorldFolders& Folders();

// A fresh clock and network, nothing attached; and what must hold once the library is released: no
// sockets, blocks, descriptors or files are left. Empties the folders.
void WorldOpen(uint32_t startTick);
void WorldClose();

// The same with one channel attached. To the address sanitizer what lies behind the
// channel's work buffers is out of bounds.
void WorldBegin(uint32_t startTick, uint32_t pollDelay);

// Releases the library. Breaks off also if a text of the channel has run over its end, or if a file's
// name has chars that it must not have.
void WorldEnd();

// The files of a folder by name; the bytes of one.
std::map<std::string, std::string> FilesIn(const std::string& folder);
std::string ReadFile(const std::string& path);

void WriteFile(const std::string& path, const std::string& bytes);

// rynIntegerParam for channel 0, which must take it.
void Set(int32_t code, uint32_t value);
