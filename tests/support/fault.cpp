// The counters, and the C functions that stand before the system's own.
#include "tests/support/fault.h"

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <fcntl.h>
#include <filesystem>
#include <sys/types.h>

static bool Armed = false;
static FaultKind ArmedKind = FAULT_OPEN;
static int ArmedNumber = 0; // 0 = fails nothing
static bool EveryLater = false;
static bool Struck = false;
static int Calls[FAULT_KIND_COUNT];

const char* FaultName(FaultKind kind)
{
    static const char* const names[FAULT_KIND_COUNT] = {
        "open",   "create",  "read", "write",   "lock", "truncate", "close",
        "socket", "connect", "poll", "receive", "send", "allocate",
    };
    return names[kind];
}

static void Arm(FaultKind kind, int nth, bool everyLater)
{
    for (int& calls : Calls)
        calls = 0;
    ArmedKind = kind;
    ArmedNumber = nth;
    EveryLater = everyLater;
    Struck = false;
    Armed = true;
}

void FaultArm(FaultKind kind, int nth)
{
    Arm(kind, nth, false);
}

void FaultArmFrom(FaultKind kind, int nth)
{
    Arm(kind, nth, true);
}

bool FaultDisarm()
{
    Armed = false;
    return Struck;
}

int FaultCalls(FaultKind kind)
{
    return Calls[kind];
}

bool FaultStrikes(FaultKind kind)
{
    if (!Armed)
        return false;
    const int number = ++Calls[kind];
    if (kind != ArmedKind || ArmedNumber == 0)
        return false;
    if (number != ArmedNumber && !(EveryLater && number > ArmedNumber))
        return false;
    Struck = true;
    return true;
}

int OpenDescriptors()
{
    int count = -1; // the listing holds one itself
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        static_cast<void>(entry);
        ++count;
    }
    return count;
}

// --- in front of the C library ---

extern "C" {
int __real_open(const char* path, int flags, ...);
ssize_t __real_read(int fd, void* buffer, size_t count);
ssize_t __real_write(int fd, const void* bytes, size_t count);
int __real_close(int fd);
int __real_flock(int fd, int operation);
int __real_ftruncate(int fd, off_t length);
void* __real_calloc(size_t count, size_t size);

int __wrap_open(const char* path, int flags, ...);
ssize_t __wrap_read(int fd, void* buffer, size_t count);
ssize_t __wrap_write(int fd, const void* bytes, size_t count);
int __wrap_close(int fd);
int __wrap_flock(int fd, int operation);
int __wrap_ftruncate(int fd, off_t length);
void* __wrap_calloc(size_t count, size_t size);
}

static int Fail(int error)
{
    errno = error;
    return -1;
}

int __wrap_open(const char* path, int flags, ...)
{
    if ((flags & O_CREAT) == 0)
        return FaultStrikes(FAULT_OPEN) ? Fail(EACCES) : __real_open(path, flags);
    va_list args;
    va_start(args, flags);
    const mode_t mode = va_arg(args, mode_t);
    va_end(args);
    return FaultStrikes(FAULT_CREATE) ? Fail(EACCES) : __real_open(path, flags, mode);
}

ssize_t __wrap_read(int fd, void* buffer, size_t count)
{
    return FaultStrikes(FAULT_READ) ? Fail(EIO) : __real_read(fd, buffer, count);
}

ssize_t __wrap_write(int fd, const void* bytes, size_t count)
{
    return FaultStrikes(FAULT_WRITE) ? Fail(ENOSPC) : __real_write(fd, bytes, count);
}

int __wrap_close(int fd)
{
    const bool strikes = FaultStrikes(FAULT_CLOSE);
    const int result = __real_close(fd);
    return strikes ? Fail(EIO) : result;
}

int __wrap_flock(int fd, int operation)
{
    return FaultStrikes(FAULT_LOCK) ? Fail(EWOULDBLOCK) : __real_flock(fd, operation);
}

int __wrap_ftruncate(int fd, off_t length)
{
    return FaultStrikes(FAULT_TRUNCATE) ? Fail(EIO) : __real_ftruncate(fd, length);
}

void* __wrap_calloc(size_t count, size_t size)
{
    return FaultStrikes(FAULT_ALLOCATE) ? nullptr : __real_calloc(count, size);
}
