// TCP over IPv4 by the sockets of a POSIX system, with Winsock's error numbers.
#include "platform/platform.h"
#include "platform/posix/posix_common.h"

#include <arpa/inet.h>
#include <climits>
#include <cstring>
#include <ctime>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

// --- errors ---

struct ErrorRow {
    int Own;         // the system's number
    int32_t Winsock; // the number that callers know
};

static constexpr ErrorRow SocketErrors[] = {
    { EINTR, 10004 },           { EBADF, 10009 },         { EACCES, 10013 },
    { EPERM, 10013 },           { EFAULT, 10014 },        { EINVAL, 10022 },
    { EMFILE, 10024 },          { ENFILE, 10024 },        { EAGAIN, 10035 },
    { EWOULDBLOCK, 10035 },     { EINPROGRESS, 10035 },   { EALREADY, 10037 },
    { ENOTSOCK, 10038 },        { EDESTADDRREQ, 10039 },  { EMSGSIZE, 10040 },
    { EPROTOTYPE, 10041 },      { ENOPROTOOPT, 10042 },   { EPROTONOSUPPORT, 10043 },
    { ESOCKTNOSUPPORT, 10044 }, { EOPNOTSUPP, 10045 },    { EAFNOSUPPORT, 10047 },
    { EADDRINUSE, 10048 },      { EADDRNOTAVAIL, 10049 }, { ENETDOWN, 10050 },
    { ENETUNREACH, 10051 },     { ENETRESET, 10052 },     { ECONNABORTED, 10053 },
    { ECONNRESET, 10054 },      { EPIPE, 10054 },         { ENOBUFS, 10055 },
    { ENOMEM, 10055 },          { EISCONN, 10056 },       { ENOTCONN, 10057 },
    { ESHUTDOWN, 10058 },       { ETIMEDOUT, 10060 },     { ECONNREFUSED, 10061 },
    { EHOSTDOWN, 10064 },       { EHOSTUNREACH, 10065 },
};
constexpr int32_t UnknownSocketError = 10022;

static constexpr ErrorRow LookupErrors[] = {
    { EAI_NONAME, 11001 },     { EAI_AGAIN, 11002 }, { EAI_FAIL, 11003 },
#ifdef EAI_NODATA
    { EAI_NODATA, 11004 },
#endif
#ifdef EAI_ADDRFAMILY
    { EAI_ADDRFAMILY, 11004 }, // the name has addresses, but none of IPv4
#endif
};
constexpr int32_t UnknownLookupError = 11003;

static int32_t SocketFailure(int error)
{
    for (const ErrorRow& row : SocketErrors) {
        if (row.Own == error)
            return -row.Winsock;
    }
    return -UnknownSocketError;
}

static int32_t LookupFailure(int error)
{
    for (const ErrorRow& row : LookupErrors) {
        if (row.Own == error)
            return -row.Winsock;
    }
    return -UnknownLookupError;
}

static int32_t ZeroOrFailure(int result)
{
    return result >= 0 ? 0 : SocketFailure(errno);
}

// --- making, binding, connecting ---

int32_t osNetworkStart()
{
    return 0;
}

int32_t osSocketCreate()
{
    const int handle = AboveStandardStreams(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (handle < 0)
        return SocketFailure(-handle);
    // A dialogue is small lines that each wait for a reply: none is held back to be joined. A system
    // that refuses is slower, not wrong.
    const int on = 1;
    setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    return handle;
}

static sockaddr_in SocketAddress(uint32_t address, uint16_t port)
{
    sockaddr_in result = {};
    result.sin_family = AF_INET;
    result.sin_addr.s_addr = htonl(address);
    result.sin_port = htons(port);
    return result;
}

int32_t osSocketBind(int32_t handle, uint32_t address, uint16_t port)
{
    const sockaddr_in local = SocketAddress(address, port);
    return ZeroOrFailure(bind(handle, reinterpret_cast<const sockaddr*>(&local), sizeof(local)));
}

// A connect that a signal cut short goes on by itself, and asking again would give EALREADY: waits
// until it is decided.
static int32_t AwaitConnect(int32_t handle)
{
    pollfd query = { handle, POLLOUT, 0 };
    while (poll(&query, 1, -1) < 0) {
        if (errno != EINTR)
            return SocketFailure(errno);
    }
    int error = 0;
    socklen_t size = sizeof(error);
    if (getsockopt(handle, SOL_SOCKET, SO_ERROR, &error, &size) != 0)
        return SocketFailure(errno);
    return error == 0 ? 0 : SocketFailure(error);
}

int32_t osSocketConnect(int32_t handle, uint32_t address, uint16_t port)
{
    const sockaddr_in peer = SocketAddress(address, port);
    if (connect(handle, reinterpret_cast<const sockaddr*>(&peer), sizeof(peer)) == 0)
        return 0;
    if (errno == EINTR)
        return AwaitConnect(handle);
    return SocketFailure(errno);
}

int32_t osSocketSetBlocking(int32_t handle, bool blocking)
{
    const int flags = fcntl(handle, F_GETFL);
    if (flags < 0)
        return SocketFailure(errno);
    const int wanted = blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK;
    return ZeroOrFailure(fcntl(handle, F_SETFL, wanted));
}

// --- polling, moving bytes, closing ---

int32_t osSocketPoll(int32_t handle)
{
    pollfd query = { handle, POLLIN | POLLOUT | POLLPRI, 0 };
    while (poll(&query, 1, 0) < 0) {
        if (errno != EINTR)
            return SocketFailure(errno);
    }
    // A negative number is passed over by poll without an answer.
    if (handle < 0 || (query.revents & POLLNVAL) != 0)
        return SocketFailure(EBADF);
    int32_t answers = 0;
    if ((query.revents & (POLLIN | POLLHUP | POLLERR)) != 0)
        answers |= OS_POLL_READ;
    if ((query.revents & (POLLOUT | POLLERR)) != 0)
        answers |= OS_POLL_WRITE;
    if ((query.revents & (POLLPRI | POLLERR)) != 0)
        answers |= OS_POLL_EXCEPT;
    return answers;
}

static int32_t Receive(int32_t handle, void* buffer, int32_t count, int flags)
{
    if (count < 1)
        return SocketFailure(EINVAL); // 0 bytes would read as a peer that has closed
    for (;;) {
        const ssize_t got = recv(handle, buffer, static_cast<size_t>(count), flags | MSG_DONTWAIT);
        if (got >= 0)
            return static_cast<int32_t>(got);
        if (errno != EINTR)
            return SocketFailure(errno);
    }
}

int32_t osSocketReceive(int32_t handle, void* buffer, int32_t count)
{
    return Receive(handle, buffer, count, 0);
}

int32_t osSocketPeek(int32_t handle, void* buffer, int32_t count)
{
    return Receive(handle, buffer, count, MSG_PEEK);
}

// The system's clock and not osTickCount: the waiting below is the system's, too.
static int64_t MonotonicNs()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

// Waits for room until a moment of MonotonicNs; a signal or an error ends the wait early. False if
// the moment has passed.
static bool AwaitRoom(int32_t handle, int64_t endNs)
{
    const int64_t leftNs = endNs - MonotonicNs();
    if (leftNs <= 0)
        return false;
    const int64_t leftMs = (leftNs + 999999) / 1000000;
    pollfd query = { handle, POLLOUT, 0 };
    poll(&query, 1, leftMs < INT_MAX ? static_cast<int>(leftMs) : INT_MAX);
    return true; // the next send tells what is the matter
}

int32_t osSocketSend(int32_t handle, const void* bytes, int32_t count, uint32_t waitMs)
{
    if (count < 1)
        return SocketFailure(EINVAL);
    const int64_t endNs = MonotonicNs() + static_cast<int64_t>(waitMs) * 1000000;
    for (;;) {
        const int flags = MSG_NOSIGNAL | MSG_DONTWAIT;
        const ssize_t taken = send(handle, bytes, static_cast<size_t>(count), flags);
        if (taken >= 0)
            return static_cast<int32_t>(taken);
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK)
            return SocketFailure(errno);
        if (!AwaitRoom(handle, endNs))
            return SocketFailure(ETIMEDOUT);
    }
}

int32_t osSocketClose(int32_t handle)
{
    // The number is free again even if a signal came in between; a second try might hit another's.
    if (close(handle) == 0 || errno == EINTR)
        return 0;
    return SocketFailure(errno);
}

// --- addresses and names ---

int32_t osSocketLocalAddress(int32_t handle, uint32_t& addressOut)
{
    sockaddr_in local = {};
    socklen_t size = sizeof(local);
    if (getsockname(handle, reinterpret_cast<sockaddr*>(&local), &size) != 0)
        return SocketFailure(errno);
    if (local.sin_family != AF_INET)
        return SocketFailure(EAFNOSUPPORT);
    addressOut = ntohl(local.sin_addr.s_addr);
    return 0;
}

int32_t osResolve(const char* name, uint32_t& addressOut)
{
    addrinfo hints = {};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    int error = 0;
    do
        error = getaddrinfo(name, nullptr, &hints, &found);
    while (error == EAI_SYSTEM && errno == EINTR);
    if (error == EAI_SYSTEM)
        return SocketFailure(errno);
    if (error != 0)
        return LookupFailure(error);
    sockaddr_in first = {};
    memcpy(&first, found->ai_addr, sizeof(first));
    freeaddrinfo(found);
    addressOut = ntohl(first.sin_addr.s_addr);
    return 0;
}

int32_t osHostName(char* name, size_t capacity)
{
    if (capacity == 0)
        return SocketFailure(EINVAL);
    name[0] = 0;
    char host[HOST_NAME_MAX + 1];
    if (gethostname(host, sizeof(host)) != 0)
        return SocketFailure(errno);
    host[HOST_NAME_MAX] = 0; // a cut name need not be terminated
    const size_t length = strnlen(host, capacity - 1);
    memcpy(name, host, length);
    name[length] = 0;
    return 0;
}
