// The Base64 encoders.
#include "codec/base64.h"

static constexpr char Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

static void EncodeBase64Triple(const uint8_t* source, char* target)
{
    target[0] = Alphabet[source[0] >> 2];
    target[1] = Alphabet[(source[0] & 3) << 4 | source[1] >> 4];
    target[2] = Alphabet[(source[1] & 15) << 2 | source[2] >> 6];
    target[3] = Alphabet[source[2] & 63];
}

// The one or two bytes behind the last whole group, padded with '='.
static void EncodeBase64Rest(const uint8_t* source, char* target, int32_t length)
{
    const uint8_t padded[3] = { source[0], length > 1 ? source[1] : uint8_t{ 0 }, 0 };
    EncodeBase64Triple(padded, target);
    target[3] = '=';
    if (length == 1)
        target[2] = '=';
}

int32_t EncodeBase64Block(const char* source, char* target, int32_t length, bool addLineEnd)
{
    const uint8_t* bytes = reinterpret_cast<const uint8_t*>(source);
    char* place = target;
    int32_t rest = length;
    for (; rest >= 3; rest -= 3, bytes += 3, place += 4)
        EncodeBase64Triple(bytes, place);
    if (rest > 0) {
        EncodeBase64Rest(bytes, place, rest);
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
