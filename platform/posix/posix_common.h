// What the files of this folder share: the rule for descriptor numbers, the calendar.
#pragma once

#include "platform/platform.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

// Standard input, output and error are 0 to 2, open or not.
constexpr int FirstOwnDescriptor = 3;

// Moves a new descriptor above the standard streams: in a host that runs with one of them closed a
// mail or a log would otherwise end up there. Takes what a system call returned, -1 with errno
// among it; returns the descriptor, close-on-exec, or the negated errno.
inline int AboveStandardStreams(int descriptor)
{
    if (descriptor < 0)
        return -errno;
    if (descriptor >= FirstOwnDescriptor)
        return descriptor;
    const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, FirstOwnDescriptor);
    const int result = moved < 0 ? -errno : moved;
    close(descriptor);
    return result;
}

// A moment as the zone of the process shows it (system.cpp).
void BreakDownTime(time_t moment, OsLocalTime& timeOut);
