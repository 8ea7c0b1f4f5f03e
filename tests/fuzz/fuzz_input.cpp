// Reading of an input.
#include "tests/fuzz/fuzz_input.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

constexpr uint8_t RepeatMark = 0x1A;
constexpr uint8_t SettingsMark = 0x80;
constexpr size_t RepeatUnit = 12; // repetitions that one step of the count stands for

uint8_t TakeByte(FuzzBytes& input)
{
    if (input.Left == 0)
        return 0;
    --input.Left;
    return *input.Next++;
}

std::string TakeLine(FuzzBytes& input)
{
    std::string line;
    while (input.Left > 0) {
        const char c = static_cast<char>(TakeByte(input));
        if (c == '\n')
            break;
        line += c;
    }
    return line;
}

FuzzSettings TakeSettings(FuzzBytes& input)
{
    FuzzSettings settings;
    if (input.Left == 0 || *input.Next < SettingsMark)
        return settings;
    settings.AreGiven = true;
    for (uint8_t& byte : settings.Bytes)
        byte = TakeByte(input);
    return settings;
}

static void Repeat(std::string& text, size_t chars, size_t times, size_t longest)
{
    const std::string piece = text.substr(text.size() - std::min(chars, text.size()));
    while (times-- > 0 && text.size() + piece.size() <= longest)
        text += piece;
}

static std::string TakeRepeated(FuzzBytes& input, size_t longest, size_t longestRepeated)
{
    std::string text;
    while (input.Left > 0 && text.size() < longest) {
        const uint8_t byte = TakeByte(input);
        if (byte != RepeatMark) {
            text += static_cast<char>(byte);
            continue;
        }
        const size_t chars = TakeByte(input);
        Repeat(text, chars, RepeatUnit * TakeByte(input), longestRepeated);
    }
    return text;
}

std::string TakeText(FuzzBytes& input, size_t longest)
{
    return TakeRepeated(input, longest, longest);
}

std::string TakeMessage(FuzzBytes& input, const FuzzSettings& settings)
{
    constexpr size_t ShortMessage = 1500;
    const bool isLong = settings.Bytes[2] & 64;
    return TakeRepeated(input, LongestMessage, isLong ? LongestMessage : ShortMessage);
}

std::string WithLineEnds(const std::string& text)
{
    std::string result;
    for (const char c : text) {
        if (c == '\n' && (result.empty() || result.back() != '\r'))
            result += '\r';
        result += c;
    }
    return result;
}

void Breach(const char* rule, const std::string& detail)
{
    fprintf(stderr, "broken: %s\n%s\n", rule, detail.c_str());
    abort();
}
