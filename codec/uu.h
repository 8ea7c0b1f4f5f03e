// UU decoding, for the host alone: nothing else in the library meets UU text.
#pragma once

#include <cstdint>

// Decodes the whole groups of four chars of a line, up to its first CR or its end; the line's length
// char must have been left out. Bytes decoded, a multiple of 3; 0, with the target untouched, for
// fewer than 3 chars. The target needs length / 4 * 3 + 4 bytes and ends in zeros.
int32_t DecodeUuLine(const char* source, char* target);
