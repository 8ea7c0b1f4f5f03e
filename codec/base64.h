// Base64 (RFC 4648, 4) in both directions, by tables.
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

// Decodes the whole groups of a line; up to three chars behind them are ignored, and a char outside
// the alphabet counts as 0. Bytes decoded, less one for each '=' at the end; 0, with the target
// untouched, for fewer than 3 chars. The target needs length / 4 * 3 + 4 bytes and ends in zeros.
int32_t DecodeBase64Line(const char* source, char* target, int32_t length);

// Decodes a text line by line, at most length chars of it; nothing is carried from line to line.
int32_t DecodeBase64Text(const char* source, char* target, int32_t length);

// Chars that wait for the rest of their group on the next line of a body: how many, and which.
struct Base64Carry {
    uint8_t Count; // 0 to 3
    char Chars[4];
};

// Decodes a line of a Base64 body, its line end cut off in place, with what the line before has left
// over. Bytes decoded, less one for each '=' at the end of the last group; the target needs
// (length + 3) / 4 * 3 + 1 bytes and ends in a zero.
int32_t DecodeBase64Stream(Base64Carry& carry, char* line, char* target, int32_t length);
