// Base64 by tables: two chars for 12 bits when encoding, three bytes of a word for each of the four
// chars of a group when decoding.
#include "codec/base64.h"

#include <cstddef>
#include <cstring>

static constexpr char Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// --- encoding ---

struct PairTable {
    char Chars[1 << 12][2];
};

static constexpr PairTable MakePairs()
{
    PairTable table = {};
    for (int i = 0; i < 1 << 12; i++) {
        table.Chars[i][0] = Alphabet[i >> 6];
        table.Chars[i][1] = Alphabet[i & 63];
    }
    return table;
}

static constexpr PairTable Pairs = MakePairs();

static void EncodeTriple(const uint8_t* source, char* target)
{
    const uint32_t bits = uint32_t{ source[0] } << 16 | uint32_t{ source[1] } << 8 | source[2];
    memcpy(target, Pairs.Chars[bits >> 12], 2);
    memcpy(target + 2, Pairs.Chars[bits & 0xFFF], 2);
}

// The one or two bytes behind the last whole group, padded with '='.
static void EncodeRest(const uint8_t* source, char* target, int32_t length)
{
    const uint8_t padded[3] = { source[0], length > 1 ? source[1] : uint8_t{ 0 }, 0 };
    EncodeTriple(padded, target);
    target[3] = '=';
    if (length == 1)
        target[2] = '=';
}

int32_t EncodeBase64Block(const char* source, char* target, int32_t length, bool addLineEnd)
{
    const uint8_t* bytes = reinterpret_cast<const uint8_t*>(source);
    char* place = target;
    int32_t rest = length;
    for (; rest >= 6; rest -= 6, bytes += 6, place += 8) { // two groups a round keep the loads busy
        EncodeTriple(bytes, place);
        EncodeTriple(bytes + 3, place + 4);
    }
    for (; rest >= 3; rest -= 3, bytes += 3, place += 4)
        EncodeTriple(bytes, place);
    if (rest > 0) {
        EncodeRest(bytes, place, rest);
        place += 4;
    }
    const int32_t count = static_cast<int32_t>(place - target);
    if (addLineEnd) {
        *place++ = '\r';
        *place++ = '\n';
    }
    *place = 0;
    return count;
}

int32_t EncodeBase64Lines(const char* source, char* target, int32_t length, int32_t halfWidth)
{
    const int32_t width = 2 * halfWidth;
    char* place = target;
    while (length > 0) {
        const int32_t block = length < width ? length : width;
        place += EncodeBase64Block(source, place, block, true) + 2;
        source += block;
        length -= block;
    }
    return static_cast<int32_t>(place - target);
}

// --- decoding ---

struct ValueTable {
    uint32_t Bits[4][256]; // of the n-th char of a group, at their place in its 24 bits
};

static constexpr ValueTable MakeValues()
{
    ValueTable table = {};
    for (uint32_t value = 0; value < 64; value++)
        for (uint32_t place = 0; place < 4; place++)
            table.Bits[place][static_cast<uint8_t>(Alphabet[value])] = value << (18 - 6 * place);
    return table;
}

static constexpr ValueTable Values = MakeValues();

static void DecodeGroup(const uint8_t* source, char* target)
{
    const uint32_t bits = Values.Bits[0][source[0]] | Values.Bits[1][source[1]] |
                          Values.Bits[2][source[2]] | Values.Bits[3][source[3]];
    target[0] = static_cast<char>(bits >> 16);
    target[1] = static_cast<char>(bits >> 8);
    target[2] = static_cast<char>(bits);
}

// Bytes that whole groups give: the '=' at the end of the last one stand for none.
static int32_t DecodedBytes(int32_t groups, const char* groupEnd)
{
    if (groups == 0)
        return 0;
    return 3 * groups - (groupEnd[-1] == '=' ? 1 : 0) - (groupEnd[-2] == '=' ? 1 : 0);
}

int32_t DecodeBase64Line(const char* source, char* target, int32_t length)
{
    constexpr int32_t ShortestLine = 3;
    if (length < ShortestLine)
        return 0;
    const uint8_t* chars = reinterpret_cast<const uint8_t*>(source);
    const int32_t groups = length / 4;
    char* place = target;
    for (int32_t i = 0; i < groups; i++, chars += 4, place += 3)
        DecodeGroup(chars, place);
    memset(place, 0, 4); // the decoded bytes are always followed by zeros
    return DecodedBytes(groups, source + ptrdiff_t{ 4 } * groups);
}

// Fills the carried group from the head of a line: the chars taken. It is whole at a Count of 4.
static int32_t FillCarry(Base64Carry& carry, const char* line, int32_t length)
{
    int32_t taken = 0;
    while (carry.Count > 0 && carry.Count < 4 && taken < length)
        carry.Chars[carry.Count++] = line[taken++];
    return taken;
}

int32_t DecodeBase64Stream(Base64Carry& carry, char* line, char* target, int32_t length)
{
    target[0] = 0;
    for (int i = 0; i < 2 && length > 0 && (line[length - 1] == '\r' || line[length - 1] == '\n');
         i++)
        line[--length] = 0;
    carry.Count &= 3;
    const int32_t taken = FillCarry(carry, line, length);
    if (carry.Count > 0 && carry.Count < 4)
        return 0;
    int32_t groups = 0;
    const char* groupEnd = carry.Chars + sizeof carry.Chars;
    if (carry.Count == 4) {
        DecodeGroup(reinterpret_cast<const uint8_t*>(carry.Chars), target);
        groups = 1;
    }
    const char* place = line + taken;
    const char* const end = line + length;
    for (; end - place >= 4; place += 4, groups++) {
        DecodeGroup(reinterpret_cast<const uint8_t*>(place), target + ptrdiff_t{ 3 } * groups);
        groupEnd = place + 4;
    }
    target[ptrdiff_t{ 3 } * groups] = 0;
    const int32_t count = DecodedBytes(groups, groupEnd);
    carry.Count = static_cast<uint8_t>(end - place);
    memcpy(carry.Chars, place, carry.Count);
    return count;
}

int32_t DecodeBase64Text(const char* source, char* target, int32_t length)
{
    const int32_t present =
        static_cast<int32_t>(strnlen(source, length > 0 ? static_cast<size_t>(length) : 0));
    const char* const end = source + present;
    int32_t total = 0;
    while (source < end) {
        const void* found = memchr(source, '\r', static_cast<size_t>(end - source));
        const char* const lineEnd = found == nullptr ? end : static_cast<const char*>(found);
        total += DecodeBase64Line(source, target + total, static_cast<int32_t>(lineEnd - source));
        source = lineEnd;
        while (source < end && (*source == '\r' || *source == '\n'))
            source++;
    }
    return total;
}
