// One piece of work in a process of its own: the CPU that it takes, user and system together, and
// the most memory that the process holds. Each run begins with the same heap and the same caches,
// so that competitors can take turns.
#pragma once

#include <cstdint>

struct Cost {
    double CpuSeconds;
    int64_t PeakKiB; // VmHWM
    bool IsRight;    // what the work said
};

// Forks; prepare runs before the clock starts and may be null. data goes to both.
Cost MeasureInChild(void (*prepare)(), bool (*work)(const void*), const void* data);

// CPU time of this process.
double CpuSeconds();
