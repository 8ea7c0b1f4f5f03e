// The exported codec operations: their guards, in front of the routines of this folder.
#include "codec/quoted.h"
#include "codec/text.h"
#include "codec/utf8.h"
#include "include/ryn32.h"

#include <cstring>

int32_t rynQuoteBuffer(const char* source, char* target, int32_t size)
{
    if (source == nullptr)
        return RYN_ERR_NULL_POINTER;
    if (target == nullptr)
        return RYN_ERR_NULL_BUFFER;
    return QuoteText(source, target, size);
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
