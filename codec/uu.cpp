// The UU decoder.
#include "codec/uu.h"

#include <cstring>

constexpr size_t LongestCrSearch = 120; // a CR beyond this many chars does not end the line

static uint32_t UuValue(char c)
{
    return (static_cast<uint8_t>(c) - 32u) & 63; // blank and backquote are both 0
}

static void DecodeGroup(const char* source, char* target)
{
    const uint32_t bits = UuValue(source[0]) << 18 | UuValue(source[1]) << 12 |
                          UuValue(source[2]) << 6 | UuValue(source[3]);
    target[0] = static_cast<char>(bits >> 16);
    target[1] = static_cast<char>(bits >> 8);
    target[2] = static_cast<char>(bits);
}

int32_t DecodeUuLine(const char* source, char* target)
{
    constexpr size_t ShortestLine = 3;
    const size_t searched = strnlen(source, LongestCrSearch);
    const void* lineEnd = memchr(source, '\r', searched);
    const size_t length = lineEnd == nullptr
                              ? strlen(source)
                              : static_cast<size_t>(static_cast<const char*>(lineEnd) - source);
    if (length < ShortestLine)
        return 0;
    const size_t groups = length / 4;
    for (size_t i = 0; i < groups; i++)
        DecodeGroup(source + 4 * i, target + 3 * i);
    memset(target + 3 * groups, 0, 4);
    return static_cast<int32_t>(3 * groups);
}
