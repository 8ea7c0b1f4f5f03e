// MD5 (RFC 1321) and HMAC-MD5 (RFC 2104), for the logins that are built on them.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr size_t Md5DigestBytes = 16;
constexpr size_t Md5BlockBytes = 64;

struct Md5Context {
    uint32_t State[4];
    uint64_t Bytes; // taken so far
    uint8_t Block[Md5BlockBytes];
};

void Md5Init(Md5Context& context);
void Md5Update(Md5Context& context, const void* bytes, size_t count);
void Md5Final(uint8_t (&digest)[Md5DigestBytes], Md5Context& context); // wipes the context

void HmacMd5(const void* text, size_t length, const void* key, size_t keyLength,
             uint8_t (&digest)[Md5DigestBytes]);

// HmacMd5 over a text up to its first CR, or to its end, with a key up to its end.
void HmacMd5Text(const char* text, const char* key, uint8_t (&digest)[Md5DigestBytes]);

// 32 lower-case hexadecimal digits and a zero.
void DigestToHex(const uint8_t (&digest)[Md5DigestBytes], char* text);
