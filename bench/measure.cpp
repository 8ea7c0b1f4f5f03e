// Measures in a child process; see measure.h.
#include "bench/measure.h"

#include <cstdio>
#include <ctime>
#include <sys/wait.h>
#include <unistd.h>

double CpuSeconds()
{
    timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

static int64_t PeakKiB()
{
    FILE* status = fopen("/proc/self/status", "r");
    char line[256];
    long long value = -1;
    while (status != nullptr && value < 0 && fgets(line, sizeof line, status) != nullptr)
        if (sscanf(line, "VmHWM: %lld", &value) != 1)
            value = -1;
    if (status != nullptr)
        fclose(status);
    return value;
}

Cost MeasureInChild(void (*prepare)(), bool (*work)(const void*), const void* data)
{
    Cost cost = { 0, 0, false };
    int ends[2];
    if (pipe(ends) != 0)
        return cost;
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        if (prepare != nullptr)
            prepare();
        const double start = CpuSeconds();
        cost.IsRight = work(data);
        cost.CpuSeconds = CpuSeconds() - start;
        cost.PeakKiB = PeakKiB();
        _exit(write(ends[1], &cost, sizeof cost) == sizeof cost ? 0 : 1);
    }
    close(ends[1]);
    if (read(ends[0], &cost, sizeof cost) != sizeof cost)
        cost.IsRight = false;
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return cost;
}
