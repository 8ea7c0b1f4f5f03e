// Memory from the C library's heap.
#include "platform/platform.h"

#include <cstdlib>

void* osAllocate(size_t size)
{
    // Systems differ in what they give for nothing; null would read as a refusal.
    return calloc(1, size == 0 ? 1 : size);
}

void osFree(void* memory)
{
    free(memory);
}
