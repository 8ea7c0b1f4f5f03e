// Header values that may have any number of lines: texts that grow on the heap, within a bound.
#pragma once

#include <cstdint>

struct Channel;
struct HeaderStore;

// Adds a line, its CR LF turned into an LF: the line's length. A line beyond the bound, or for which
// there is no memory, is dropped.
int32_t AppendHeaderStore(HeaderStore& store, const char* line);

// Empties the three stores of a channel and keeps their memory.
void EmptyHeaderStores(Channel& ch);

// Gives their memory back.
void FreeHeaderStores(Channel& ch);
