// MD5 and HMAC-MD5.
#include "codec/md5.h"

#include "codec/text.h"

#include <bit>
#include <cstring>

// Constants of RFC 1321, 3.4: the integer parts of 2^32 * abs(sin(i + 1)).
static constexpr uint32_t Sines[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391
};

static constexpr int Shifts[4][4] = {
    { 7, 12, 17, 22 }, { 5, 9, 14, 20 }, { 4, 11, 16, 23 }, { 6, 10, 15, 21 }
};

static uint32_t ReadLittle(const uint8_t* bytes)
{
    return uint32_t{ bytes[0] } | uint32_t{ bytes[1] } << 8 | uint32_t{ bytes[2] } << 16 |
           uint32_t{ bytes[3] } << 24;
}

static void WriteLittle(uint64_t value, uint8_t* bytes, size_t count)
{
    for (size_t i = 0; i < count; i++)
        bytes[i] = static_cast<uint8_t>(value >> 8 * i);
}

// The round function and the index of the word that a step takes.
static uint32_t Mix(unsigned step, uint32_t b, uint32_t c, uint32_t d, unsigned& wordOut)
{
    switch (step / 16) {
    case 0:
        wordOut = step;
        return (b & c) | (~b & d);
    case 1:
        wordOut = (5 * step + 1) % 16;
        return (b & d) | (c & ~d);
    case 2:
        wordOut = (3 * step + 5) % 16;
        return b ^ c ^ d;
    default:
        wordOut = 7 * step % 16;
        return c ^ (b | ~d);
    }
}

static void Transform(uint32_t (&state)[4], const uint8_t* block)
{
    uint32_t a = state[0];
    uint32_t b = state[1];
    uint32_t c = state[2];
    uint32_t d = state[3];
    for (unsigned step = 0; step < 64; step++) {
        unsigned word = 0;
        const uint32_t mixed =
            a + Mix(step, b, c, d, word) + Sines[step] + ReadLittle(block + size_t{ 4 } * word);
        a = d;
        d = c;
        c = b;
        b += std::rotl(mixed, Shifts[step / 16][step % 4]);
    }
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
}

void Md5Init(Md5Context& context)
{
    context = { { 0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476 }, 0, {} };
}

void Md5Update(Md5Context& context, const void* bytes, size_t count)
{
    const uint8_t* from = static_cast<const uint8_t*>(bytes);
    while (count > 0) {
        const size_t used = context.Bytes % Md5BlockBytes;
        const size_t room = Md5BlockBytes - used;
        const size_t taken = count < room ? count : room;
        memcpy(context.Block + used, from, taken);
        context.Bytes += taken;
        from += taken;
        count -= taken;
        if (taken == room)
            Transform(context.State, context.Block);
    }
}

void Md5Final(uint8_t (&digest)[Md5DigestBytes], Md5Context& context)
{
    constexpr size_t LengthBytes = 8;
    static constexpr uint8_t Padding[Md5BlockBytes] = { 0x80 };
    uint8_t length[LengthBytes];
    WriteLittle(context.Bytes * 8, length, LengthBytes);
    const size_t used = context.Bytes % Md5BlockBytes;
    const size_t end = Md5BlockBytes - LengthBytes;
    Md5Update(context, Padding, used < end ? end - used : end + Md5BlockBytes - used);
    Md5Update(context, length, LengthBytes);
    for (size_t i = 0; i < 4; i++)
        WriteLittle(context.State[i], digest + 4 * i, 4);
    WipeBytes(&context, sizeof context);
}

static void HashPadded(Md5Context& context, const uint8_t (&key)[Md5BlockBytes], uint8_t pad)
{
    uint8_t padded[Md5BlockBytes];
    for (size_t i = 0; i < Md5BlockBytes; i++)
        padded[i] = key[i] ^ pad;
    Md5Init(context);
    Md5Update(context, padded, Md5BlockBytes);
}

void HmacMd5(const void* text, size_t length, const void* key, size_t keyLength,
             uint8_t (&digest)[Md5DigestBytes])
{
    Md5Context context;
    uint8_t block[Md5BlockBytes] = {};
    if (keyLength > Md5BlockBytes) {
        Md5Init(context);
        Md5Update(context, key, keyLength);
        Md5Final(digest, context);
        memcpy(block, digest, Md5DigestBytes);
    } else {
        memcpy(block, key, keyLength);
    }
    HashPadded(context, block, 0x36);
    Md5Update(context, text, length);
    Md5Final(digest, context);
    HashPadded(context, block, 0x5C);
    Md5Update(context, digest, Md5DigestBytes);
    Md5Final(digest, context);
}

void HmacMd5Text(const char* text, const char* key, uint8_t (&digest)[Md5DigestBytes])
{
    HmacMd5(text, strcspn(text, "\r"), key, strlen(key), digest);
}

void DigestToHex(const uint8_t (&digest)[Md5DigestBytes], char* text)
{
    static constexpr char Digits[] = "0123456789abcdef";
    for (const uint8_t byte : digest) {
        *text++ = Digits[byte >> 4];
        *text++ = Digits[byte & 15];
    }
    *text = 0;
}
