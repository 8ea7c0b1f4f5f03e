// Fetching as the targets do it: one message out of a file or from a server, what came of it, and
// the rules that hold for any message.
#pragma once

#include "tests/fuzz/fuzz_world.h"

constexpr uint32_t FetchWait = 5000; // ms, every wait for the server

struct Fetched {
    int32_t Status;
    std::string Message;                            // the message file
    std::map<std::string, std::string> Attachments; // the files by name
    std::string Values; // all that rynGetHeader, rynDebug and rynStatistics tell of the message

    bool operator==(const Fetched&) const = default;
};

// The settings of the receiving side, taken from bytes that the input gives.
struct FetchSettings {
    char Protocol = 'P';
    bool IsManual = false, HasLog = false, IsRaw = false, HasRawPrefix = false;
    bool NoHeaderCopy = false;
};
FetchSettings ApplySettings(const FuzzSettings& settings);

// The tick at which the input's world begins: the usual one, or one that soon wraps.
uint32_t FuzzTick(const FuzzSettings& settings);

// Fetches a stored message. Breaks off if that fails or if the outcome is against the rules.
Fetched FetchStored(const std::string& message, const FetchSettings& settings,
                    const std::string& attachFolder);

// Fetches the same from a server that sends so many bytes at a time and closes behind the last.
Fetched FetchServed(const std::string& message, const FetchSettings& settings, size_t piece);

// All that the library tells of the last message, in buffers of exact size.
std::string ToldValues(size_t messageSize);

// Fetches a message both ways, each in a fresh world: the outcome must be the same. Raw copies don't
// compare, for a stored message has none.
bool CanCompare(const FetchSettings& settings);
void CompareWays(const std::string& message, const FuzzSettings& settings);

// Drives in the place of a host in manual driving; the operation's own result otherwise.
int32_t FinishDriving(int32_t result, bool isManual);

// Puts all settings back and fetches an honest message with an attachment, which must come whole:
// out of a file, or from a server behind an honest login.
void CheckHonestFetch();
void CheckHonestPop3();
void CheckHonestImap();
