// The exported codec operations: their guards, in front of the routines of this folder.
#include "codec/base64.h"
#include "codec/quoted.h"
#include "codec/text.h"
#include "codec/utf8.h"
#include "codec/uu.h"
#include "frame/settings.h"
#include "include/ryn32.h"
#include "transport/vfile.h"

#include <cstring>

int32_t rynQuoteBuffer(const char* source, char* target, int32_t size)
{
    if (source == nullptr)
        return RYN_ERR_NULL_POINTER;
    if (target == nullptr)
        return RYN_ERR_NULL_BUFFER;
    return QuoteText(source, target, size);
}

int32_t rynUnQuoteBuffer(const char* source, char* target, int32_t size)
{
    if (source == nullptr)
        return RYN_ERR_NULL_POINTER;
    if (target == nullptr)
        return RYN_ERR_NULL_BUFFER;
    if (TextLength(source) > size)
        return RYN_ERR_BUFFER_TOO_SMALL;
    uint32_t spaces = 0;
    const int32_t count = UnquoteText(source, target, UnderscoreToSpace != 0, spaces);
    UnderscoreCount.fetch_add(spaces, std::memory_order_relaxed);
    return count;
}

// Quotes the chunks of an open file, a soft line break behind each: bytes read, or
// RYN_ERR_BUFFER_OVERFLOW.
static int32_t QuoteFile(int32_t file, char* target, int32_t size, int32_t chunkLength)
{
    constexpr int32_t LongestChunk = 253;
    constexpr int32_t QuotedCapacity = 256; // of one chunk; what goes beyond is lost
    constexpr char SoftBreak[] = "=\r\n";
    constexpr int32_t SoftBreakChars = 3;
    char chunk[LongestChunk + 1];
    char quoted[QuotedCapacity];
    int64_t total = 0;
    int64_t used = 0;
    for (;;) {
        const int32_t count = u_Read(file, chunk, chunkLength);
        if (count < 1)
            return static_cast<int32_t>(total);
        chunk[count] = 0;
        quoted[0] = 0;
        total += count;
        const int32_t length = QuoteText(chunk, quoted, QuotedCapacity);
        if (used + length + SoftBreakChars >= size)
            return RYN_ERR_BUFFER_OVERFLOW;
        memcpy(target + used, quoted, static_cast<size_t>(length));
        memcpy(target + used + length, SoftBreak, sizeof SoftBreak);
        used += length + SoftBreakChars;
        if (total > int64_t{ size } - LongestChunk)
            return RYN_ERR_BUFFER_OVERFLOW;
    }
}

int32_t rynReadQuoted(const char* fileName, char* target, int32_t size, int32_t chunkLength)
{
    constexpr int32_t UsualChunk = 73;
    constexpr int32_t LongestChunk = 253;
    if (fileName == nullptr)
        return RYN_ERR_NULL_POINTER;
    if (target == nullptr)
        return RYN_ERR_NULL_BUFFER;
    if (size > 0)
        target[0] = 0;
    const int32_t file = u_Open(fileName, 0, false);
    if (file < 1)
        return -1;
    const bool isGiven = chunkLength >= 1 && chunkLength <= LongestChunk;
    const int32_t result = QuoteFile(file, target, size, isGiven ? chunkLength : UsualChunk);
    u_Close(file);
    return result;
}

int32_t rynEncodeBuffer(const char* source, char* target, int32_t length)
{
    constexpr int32_t LineBytes = 57; // 76 chars, the longest line of RFC 2045
    if (source == nullptr)
        return RYN_ERR_NULL_POINTER;
    if (target == nullptr)
        return RYN_ERR_NULL_BUFFER;
    char* place = target;
    for (; length > 0; length -= LineBytes, source += LineBytes)
        place +=
            EncodeBase64Block(source, place, length < LineBytes ? length : LineBytes, true) + 2;
    return static_cast<int32_t>(place - target);
}

int32_t rynDecodeBuffer(const char* source, char* target, int32_t length)
{
    if (source == nullptr)
        return RYN_ERR_NULL_POINTER;
    if (target == nullptr)
        return RYN_ERR_NULL_BUFFER;
    return DecodeBase64Text(source, target, length);
}

int32_t rynDecodeUU(const char* source, char* target)
{
    if (source == nullptr)
        return RYN_ERR_NULL_POINTER;
    if (target == nullptr)
        return RYN_ERR_NULL_BUFFER;
    return DecodeUuLine(source, target);
}

int32_t rynEncodeUTF8(int32_t code, char* target)
{
    if (target == nullptr)
        return RYN_ERR_NULL_BUFFER;
    return EncodeUtf8(static_cast<uint16_t>(code), target);
}

int32_t rynDecodeUTF8(const char* source, uint16_t* target)
{
    if (source == nullptr)
        return RYN_ERR_NULL_POINTER;
    if (target == nullptr)
        return RYN_ERR_NULL_BUFFER;
    return DecodeUtf8(source, *target);
}

int32_t rynEncodeUTF8String(const uint16_t* source, char* target)
{
    if (source == nullptr)
        return RYN_ERR_NULL_POINTER;
    if (target == nullptr)
        return RYN_ERR_NULL_BUFFER;
    int32_t count = 0;
    for (; *source != 0; source++)
        count += EncodeUtf8(*source, target + count);
    target[count] = 0;
    return count;
}

int32_t rynDecodeUTF8String(const char* source, uint16_t* target)
{
    if (source == nullptr)
        return RYN_ERR_NULL_POINTER;
    if (target == nullptr)
        return RYN_ERR_NULL_BUFFER;
    return DecodeUtf8Text(source, target);
}

int32_t rynShortToByte(char* text)
{
    if (text == nullptr)
        return RYN_ERR_NULL_POINTER;
    int32_t count = 0;
    while ((text[count] = text[size_t{ 2 } * static_cast<size_t>(count)]) != 0)
        count++;
    return count;
}

int32_t rynByteToShort(char* text)
{
    if (text == nullptr)
        return RYN_ERR_NULL_POINTER;
    const size_t length = strlen(text);
    for (size_t i = length; i-- > 0;) { // from the end, so that no char is overwritten unmoved
        text[2 * i] = text[i];
        text[2 * i + 1] = 0;
    }
    return static_cast<int32_t>(length);
}
