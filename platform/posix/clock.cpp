// The clock and the calendar of a POSIX system.
#include "platform/platform.h"

#include <cerrno>
#include <ctime>
#include <pthread.h>
#include <sched.h>

constexpr int64_t NsPerMs = 1000000;
constexpr int64_t NsPerSecond = 1000000000;

uint32_t osTickCount()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
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
    const time_t now = time(nullptr);
    tm local = {};
    static pthread_once_t zoneRead = PTHREAD_ONCE_INIT;
    pthread_once(&zoneRead, tzset); // localtime_r alone need not look at the zone
    localtime_r(&now, &local);
    timeOut.Year = local.tm_year + 1900;
    timeOut.Month = local.tm_mon + 1;
    timeOut.Day = local.tm_mday;
    timeOut.Weekday = local.tm_wday;
    timeOut.Hour = local.tm_hour;
    timeOut.Minute = local.tm_min;
    timeOut.Second = local.tm_sec;
    timeOut.IsDaylight = local.tm_isdst > 0 ? 1 : 0;
    // tm_gmtoff is seconds east of UTC with daylight saving in it; Bias is without, westward.
    timeOut.Bias = timeOut.IsDaylight * 60 - static_cast<int32_t>(local.tm_gmtoff / 60);
}
