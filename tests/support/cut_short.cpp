// The C functions that stand before the system's own; see cut_short.h.
#include "tests/support/cut_short.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

static std::atomic<int> Failures[CUT_CALL_COUNT]; // still to come
static std::atomic<int> Errors[CUT_CALL_COUNT];
static std::atomic<bool> IsAlways;
static std::atomic<uint32_t> Turn;
static std::atomic<int> Signals;

void CutShortFail(CutCall call, int error, int times)
{
    Errors[call] = error;
    Failures[call] = times;
}

void CutShortAlways(bool on)
{
    IsAlways = on;
}

int CutShortSignals()
{
    return Signals;
}

// The error with which this call ends; 0: none.
static int Cut(CutCall call)
{
    if (Failures[call] > 0) {
        --Failures[call];
        return Errors[call];
    }
    const bool canWait = call != CUT_SOCKET && call != CUT_OPTION;
    if (!canWait || !IsAlways || ++Turn % 2 != 0)
        return 0;
    ++Signals;
    return EINTR;
}

static bool Fails(CutCall call)
{
    const int error = Cut(call);
    if (error != 0)
        errno = error;
    return error != 0;
}

static size_t Few(size_t count)
{
    constexpr size_t few = 97;
    return IsAlways ? std::min(count, few) : count;
}

extern "C" {
int __real_socket(int family, int type, int protocol);
int __real_connect(int fd, const sockaddr* address, socklen_t size);
int __real_poll(pollfd* queries, nfds_t count, int waitMs);
ssize_t __real_recv(int fd, void* buffer, size_t count, int flags);
ssize_t __real_send(int fd, const void* bytes, size_t count, int flags);
int __real_getsockopt(int fd, int level, int name, void* value, socklen_t* size);
int __real_getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                       addrinfo** found);

int __wrap_socket(int family, int type, int protocol);
int __wrap_connect(int fd, const sockaddr* address, socklen_t size);
int __wrap_poll(pollfd* queries, nfds_t count, int waitMs);
ssize_t __wrap_recv(int fd, void* buffer, size_t count, int flags);
ssize_t __wrap_send(int fd, const void* bytes, size_t count, int flags);
int __wrap_getsockopt(int fd, int level, int name, void* value, socklen_t* size);
int __wrap_getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                       addrinfo** found);
}

int __wrap_socket(int family, int type, int protocol)
{
    return Fails(CUT_SOCKET) ? -1 : __real_socket(family, type, protocol);
}

// What a signal cuts short goes on behind the caller's back.
int __wrap_connect(int fd, const sockaddr* address, socklen_t size)
{
    const int error = Cut(CUT_CONNECT);
    if (error == 0 || error == EINTR) {
        const int result = __real_connect(fd, address, size);
        if (error == 0 || result != 0)
            return result;
    }
    errno = error;
    return -1;
}

int __wrap_poll(pollfd* queries, nfds_t count, int waitMs)
{
    return Fails(CUT_POLL) ? -1 : __real_poll(queries, count, waitMs);
}

ssize_t __wrap_recv(int fd, void* buffer, size_t count, int flags)
{
    return Fails(CUT_RECEIVE) ? -1 : __real_recv(fd, buffer, Few(count), flags);
}

ssize_t __wrap_send(int fd, const void* bytes, size_t count, int flags)
{
    return Fails(CUT_SEND) ? -1 : __real_send(fd, bytes, Few(count), flags);
}

int __wrap_getsockopt(int fd, int level, int name, void* value, socklen_t* size)
{
    return Fails(CUT_OPTION) ? -1 : __real_getsockopt(fd, level, name, value, size);
}

int __wrap_getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                       addrinfo** found)
{
    const int error = Cut(CUT_LOOKUP);
    if (error == 0)
        return __real_getaddrinfo(name, service, hints, found);
    if (error > 0)
        errno = error;
    return error > 0 ? EAI_SYSTEM : error;
}
