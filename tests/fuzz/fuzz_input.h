// What all fuzz targets share: the input read from its front, and the way a broken rule is told.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The fuzzer's entry; a target defines it, replay.cpp calls it where there is no fuzzer.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

constexpr size_t LongestMessage = 20 * 1024;

struct FuzzBytes {
    const uint8_t* Next;
    size_t Left;
};

// The next byte; 0 behind the end.
uint8_t TakeByte(FuzzBytes& input);

// Chars up to the next LF, which is dropped.
std::string TakeLine(FuzzBytes& input);

// Settings stand in front of a text, behind a first byte of 0x80 or above; a plain text has none, so
// that any stored message is an input. Returns the value of the next settings byte, or 0.
struct FuzzSettings {
    bool AreGiven = false;
    uint8_t Bytes[4] = {};
};
FuzzSettings TakeSettings(FuzzBytes& input);

// All that is left, as far as it fits. Long inputs cost the fuzzer too much, so a byte 0x1A repeats
// what stands in front of it: the next byte tells how many chars, the one behind how often, in dozens.
std::string TakeText(FuzzBytes& input, size_t longest);

// The same for a message. Repetition makes a short one, for speed, unless the settings ask for a long
// one, which overruns every buffer that a message fills.
std::string TakeMessage(FuzzBytes& input, const FuzzSettings& settings);

// Each LF without a CR in front of it gets one.
std::string WithLineEnds(const std::string& text);

// Ends the process with the rule that was broken, so that the fuzzer keeps the input.
[[noreturn]] void Breach(const char* rule, const std::string& detail = {});

inline void Require(bool holds, const char* rule)
{
    if (!holds)
        Breach(rule);
}
