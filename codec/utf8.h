// UTF-8 in the range of 16-bit chars (RFC 3629 without the four-byte form). The exported
// operations of that name add their guards only.
#pragma once

#include <cstdint>

// Bytes written, 1 to 3, and a zero behind them.
int32_t EncodeUtf8(uint16_t code, char* target);

// Bytes used, 1 to 3; 0, -1, -2 or -3 for bad input, with the target untouched.
int32_t DecodeUtf8(const char* source, uint16_t& codeOut);

// Chars stored, the first of two terminators counted, or RYN_ERR_BAD_UTF8. The target needs as many
// chars as the text has bytes, and 2.
int32_t DecodeUtf8Text(const char* source, uint16_t* target);
