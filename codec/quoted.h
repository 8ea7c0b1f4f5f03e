// Quoted-printable (RFC 2045, 6.7): the quoting of single bytes.
#pragma once

#include <cstdint>

// Writes "=XX" for a byte, upper case, without a terminating zero; returns 3.
int32_t QuoteByte(char byte, char* target);

// Quotes a text as rynQuoteBuffer does; the exported operation adds its guards only.
int32_t QuoteText(const char* source, char* target, int32_t size);
