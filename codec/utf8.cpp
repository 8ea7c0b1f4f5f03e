// UTF-8 to 16-bit chars and back.
#include "codec/utf8.h"

#include "include/ryn32.h"

static bool IsContinuation(char byte)
{
    return (static_cast<uint8_t>(byte) & 0xC0) == 0x80;
}

int32_t EncodeUtf8(uint16_t code, char* target)
{
    int32_t count = 0;
    if (code <= 0x7F) {
        target[count++] = static_cast<char>(code);
    } else if (code <= 0x7FF) {
        target[count++] = static_cast<char>(0xC0 | code >> 6);
        target[count++] = static_cast<char>(0x80 | (code & 63));
    } else {
        target[count++] = static_cast<char>(0xE0 | code >> 12);
        target[count++] = static_cast<char>(0x80 | (code >> 6 & 63));
        target[count++] = static_cast<char>(0x80 | (code & 63));
    }
    target[count] = 0;
    return count;
}

int32_t DecodeUtf8(const char* source, uint16_t& codeOut)
{
    const uint8_t first = static_cast<uint8_t>(source[0]);
    if (first < 0x80) {
        codeOut = first;
        return 1;
    }
    if (first < 0xC0 || first >= 0xF0)
        return 0;
    if (!IsContinuation(source[1]))
        return first < 0xE0 ? -1 : -2;
    if (first < 0xE0) {
        codeOut = static_cast<uint16_t>((first & 31) << 6 | (source[1] & 63));
        return 2;
    }
    if (!IsContinuation(source[2]))
        return -3;
    codeOut = static_cast<uint16_t>((first & 15) << 12 | (source[1] & 63) << 6 | (source[2] & 63));
    return 3;
}

int32_t DecodeUtf8Text(const char* source, uint16_t* target)
{
    int32_t count = 0;
    for (;;) {
        uint16_t code = 0;
        const int32_t used = DecodeUtf8(source, code);
        if (used < 1)
            return RYN_ERR_BAD_UTF8;
        target[count++] = code;
        if (code == 0) { // an overlong zero ends the text as the terminator does
            target[count] = 0;
            return count;
        }
        source += used;
    }
}
