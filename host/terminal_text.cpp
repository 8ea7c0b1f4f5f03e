// Takes out of a text what a terminal would obey.
#include "terminal_text.h"

#include "message_text.h"

#include <cstdint>

struct CodeRange {
    uint32_t First, Last;
};

// Chars outside ASCII that show nothing of their own and change what others show.
constexpr CodeRange ObeyedChars[] = {
    { 0x80, 0x9F },     // control chars again
    { 0x61C, 0x61C },   // Arabic letter mark
    { 0x200B, 0x200F }, // zero widths and marks of direction
    { 0x2028, 0x202E }, // line and paragraph ends, embeddings and overrides
    { 0x2060, 0x206F }, // isolates among others
    { 0xFEFF, 0xFEFF }, // byte order mark
    { 0xE0000, 0xE0FFF },
};

// The code of a char of UTF-8 that is known to be whole.
static uint32_t CodeAt(const std::string& text, size_t at, size_t length)
{
    constexpr uint8_t firstByteMasks[] = { 0, 0x7F, 0x1F, 0x0F, 0x07 };
    uint32_t code = static_cast<uint8_t>(text[at]) & firstByteMasks[length];
    for (size_t i = 1; i < length; ++i)
        code = code << 6 | (static_cast<uint8_t>(text[at + i]) & 0x3F);
    return code;
}

static bool IsObeyed(uint32_t code)
{
    if (code < 0x20 || code == 0x7F)
        return true;
    for (const CodeRange& range : ObeyedChars)
        if (code >= range.First && code <= range.Last)
            return true;
    return false;
}

std::string ForTerminal(const std::string& text)
{
    std::string cleaned;
    for (size_t at = 0; at < text.size();) {
        const size_t length = LengthOfChar(text, at);
        if (length == 0 || IsObeyed(CodeAt(text, at, length)))
            cleaned += '?';
        else
            cleaned.append(text, at, length);
        at += length == 0 ? 1 : length;
    }
    return cleaned;
}

bool HasControlChar(const std::string& text)
{
    for (const char c : text)
        if ((c & 0xE0) == 0 || c == 0x7F)
            return true;
    return false;
}
