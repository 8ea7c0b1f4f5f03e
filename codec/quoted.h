// Quoted-printable (RFC 2045, 6.7): the quoting of single bytes.
#pragma once

#include <cstdint>

// Writes "=XX" for a byte, upper case, without a terminating zero; returns 3.
int32_t QuoteByte(char byte, char* target);

// Quotes a text as rynQuoteBuffer does; the exported operation adds its guards only.
int32_t QuoteText(const char* source, char* target, int32_t size);

// Decodes a text: a soft line break ends it, '=' in front of '"' or '?' stands for itself, digits
// that are none count as 0, and underscores become blanks if that is asked for;
// spacesOut counts them. Bytes decoded; the target may be as short as the source, or be the source.
int32_t UnquoteText(const char* source, char* target, bool underscoreToSpace, uint32_t& spacesOut);
