// The counters, and the C functions that stand before the system's own.
#include "tests/support/fault.h"

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <fcntl.h>
#include <filesystem>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/types.h>

static bool Armed = false;
static FaultKind ArmedKind = FAULT_OPEN;
static int ArmedNumber = 0; // 0 = fails nothing
static bool EveryLater = false;
static bool Struck = false;
static int Calls[FAULT_ALL_COUNT];
static bool Interrupting = false;
static int InterruptTurn = 0;

const char* FaultName(FaultKind kind)
{
    static const char* const names[FAULT_ALL_COUNT] = {
        "open",    "create", "read",    "write", "lock",     "truncate", "close",   "socket",
        "connect", "poll",   "receive", "send",  "allocate", "spawn",    "inspect", "unlink",
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

void FaultInterrupt(bool on)
{
    Interrupting = on;
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
int __real_posix_spawnp(pid_t* pid, const char* file, const posix_spawn_file_actions_t* actions,
                        const posix_spawnattr_t* attributes, char* const words[],
                        char* const environment[]);
int __real_fstat(int fd, struct stat* info);
int __real_fcntl(int fd, int command, ...);
int __real_unlink(const char* path);

int __wrap_open(const char* path, int flags, ...);
ssize_t __wrap_read(int fd, void* buffer, size_t count);
ssize_t __wrap_write(int fd, const void* bytes, size_t count);
int __wrap_close(int fd);
int __wrap_flock(int fd, int operation);
int __wrap_ftruncate(int fd, off_t length);
void* __wrap_calloc(size_t count, size_t size);
int __wrap_posix_spawnp(pid_t* pid, const char* file, const posix_spawn_file_actions_t* actions,
                        const posix_spawnattr_t* attributes, char* const words[],
                        char* const environment[]);
int __wrap_fstat(int fd, struct stat* info);
int __wrap_fcntl(int fd, int command, ...);
int __wrap_unlink(const char* path);
}

// True with errno set if this call has to fail.
static bool Fails(FaultKind kind, int error)
{
    const bool strikes = FaultStrikes(kind);
    const bool interrupts = !strikes && Interrupting && ++InterruptTurn % 2 == 0;
    if (strikes || interrupts)
        errno = strikes ? error : EINTR;
    return strikes || interrupts;
}

// Of the bytes that a caller wants to move, those that go at once.
static size_t Few(size_t count)
{
    constexpr size_t few = 97;
    return Interrupting && count > few ? few : count;
}

int __wrap_open(const char* path, int flags, ...)
{
    if ((flags & O_CREAT) == 0)
        return Fails(FAULT_OPEN, EACCES) ? -1 : __real_open(path, flags);
    va_list args;
    va_start(args, flags);
    const mode_t mode = va_arg(args, mode_t);
    va_end(args);
    return Fails(FAULT_CREATE, EACCES) ? -1 : __real_open(path, flags, mode);
}

ssize_t __wrap_read(int fd, void* buffer, size_t count)
{
    return Fails(FAULT_READ, EIO) ? -1 : __real_read(fd, buffer, Few(count));
}

ssize_t __wrap_write(int fd, const void* bytes, size_t count)
{
    return Fails(FAULT_WRITE, ENOSPC) ? -1 : __real_write(fd, bytes, Few(count));
}

int __wrap_close(int fd)
{
    const bool strikes = FaultStrikes(FAULT_CLOSE);
    const int result = __real_close(fd);
    if (strikes)
        errno = EIO;
    return strikes ? -1 : result;
}

int __wrap_flock(int fd, int operation)
{
    return Fails(FAULT_LOCK, EWOULDBLOCK) ? -1 : __real_flock(fd, operation);
}

int __wrap_ftruncate(int fd, off_t length)
{
    return Fails(FAULT_TRUNCATE, EIO) ? -1 : __real_ftruncate(fd, length);
}

void* __wrap_calloc(size_t count, size_t size)
{
    return FaultStrikes(FAULT_ALLOCATE) ? nullptr : __real_calloc(count, size);
}

int __wrap_posix_spawnp(pid_t* pid, const char* file, const posix_spawn_file_actions_t* actions,
                        const posix_spawnattr_t* attributes, char* const words[],
                        char* const environment[])
{
    if (FaultStrikes(FAULT_SPAWN))
        return EAGAIN;
    return __real_posix_spawnp(pid, file, actions, attributes, words, environment);
}

int __wrap_fstat(int fd, struct stat* info)
{
    if (!FaultStrikes(FAULT_INSPECT))
        return __real_fstat(fd, info);
    errno = EIO;
    return -1;
}

int __wrap_fcntl(int fd, int command, ...)
{
    va_list args;
    va_start(args, command);
    const int argument = va_arg(args, int); // the layer's commands have one, or none that is read
    va_end(args);
    if (!FaultStrikes(FAULT_INSPECT))
        return __real_fcntl(fd, command, argument);
    errno = EMFILE;
    return -1;
}

int __wrap_unlink(const char* path)
{
    if (!FaultStrikes(FAULT_UNLINK))
        return __real_unlink(path);
    errno = EACCES;
    return -1;
}
