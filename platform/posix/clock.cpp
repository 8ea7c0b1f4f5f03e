// The clock and the calendar of a POSIX system.
#include "platform/platform.h"
#include "platform/posix/posix_common.h"

#include <cerrno>
#include <ctime>
#include <sched.h>

constexpr int64_t NsPerMs = 1000000;
constexpr int64_t NsPerSecond = 1000000000;

// The driver looks at the clock for every line. The coarse clock moves in steps of 1 to 10 ms, which
// waits of this library never notice, and is read in a fifth of the time.
#ifdef CLOCK_MONOTONIC_COARSE
constexpr clockid_t TickClock = CLOCK_MONOTONIC_COARSE;
#else
constexpr clockid_t TickClock = CLOCK_MONOTONIC;
#endif

uint32_t osTickCount()
{
    timespec now = {};
    clock_gettime(TickClock, &now);
    return static_cast<uint32_t>(static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / NsPerMs);
}

void osSleep(uint32_t ms)
{
    if (ms == 0) {
        sched_yield();
        return;
    }
    // A fixed end instead of a length: signals can neither shorten the pause nor stretch it.
    timespec end = {};
    clock_gettime(CLOCK_MONOTONIC, &end);
    const int64_t ns = end.tv_nsec + ms * NsPerMs;
    end.tv_sec += static_cast<time_t>(ns / NsPerSecond);
    end.tv_nsec = static_cast<long>(ns % NsPerSecond);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
    }
}

void osYield()
{
    // The scheduler preempts by itself: a system call here would cost every caller and help nobody.
}

void osLocalTime(OsLocalTime& timeOut)
{
    BreakDownTime(time(nullptr), timeOut);
}
