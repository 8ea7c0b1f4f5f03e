// Base64 (RFC 4648, 4) as the sending side needs it: one block of bytes to one text.
#pragma once

#include <cstdint>

// Chars that a block of length bytes takes, without line end and terminating zero.
constexpr int32_t Base64Length(int32_t length)
{
    return (length + 2) / 3 * 4;
}

// Encodes length bytes in one piece, a CR LF behind them if asked for, and a zero. The target needs
// Base64Length + 3 bytes. Returns the Base64 chars, without the CR LF.
int32_t EncodeBase64Block(const char* source, char* target, int32_t length, bool addLineEnd);

// Encodes in lines from 2 * halfWidth bytes each, every line ended by CR LF; returns the bytes
// written. The target needs Base64Length + 2 bytes for each line, and 1. A length of 0 or below
// writes nothing.
int32_t EncodeBase64Lines(const char* source, char* target, int32_t length, int32_t halfWidth);
