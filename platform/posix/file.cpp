// Files of a POSIX system. The rule that a file held for writing is nobody else's is kept by flock,
// which binds those that ask for it: a plain reader may follow a log while it grows.
#include "platform/platform.h"
#include "platform/posix/posix_common.h"

#include <climits>
#include <cstring>
#include <sys/file.h>
#include <sys/stat.h>

// Logs and configurations hold what only their owner may read.
constexpr mode_t NewFileMode = S_IRUSR | S_IWUSR;

// Bytes of a path as the system takes it, the terminating zero included.
constexpr size_t PathCapacity = PATH_MAX;

// Turns each '\' into '/'. 0 or -ENAMETOOLONG.
static int32_t SystemPath(const char* path, char (&systemPath)[PathCapacity])
{
    const size_t length = strnlen(path, PathCapacity);
    if (length == PathCapacity)
        return -ENAMETOOLONG;
    for (size_t i = 0; i <= length; i++)
        systemPath[i] = path[i] == '\\' ? '/' : path[i];
    return 0;
}

// Opens without waiting, be it a FIFO or a line: the caller calls BecomeBlocking when it has looked
// at what it got. Descriptor or negated errno.
static int OpenNow(const char* systemPath, int flags)
{
    const int all = flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    int descriptor = -1;
    do
        descriptor = open(systemPath, all, NewFileMode);
    while (descriptor < 0 && errno == EINTR);
    return AboveStandardStreams(descriptor);
}

static int32_t BecomeBlocking(int descriptor)
{
    const int flags = fcntl(descriptor, F_GETFL);
    if (flags < 0 || fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK) < 0)
        return -errno;
    return 0;
}

// Takes a lock of flock's kinds; a file system without locks counts as success.
static int32_t TakeLock(int descriptor, int kind)
{
    while (flock(descriptor, kind | LOCK_NB) != 0) {
        switch (errno) {
        case EINTR:
            continue;
        case ENOSYS:
        case EOPNOTSUPP:
        case ENOLCK:
        case EINVAL:
            return 0;
        default:
            return -errno;
        }
    }
    return 0;
}

static int32_t Empty(int descriptor)
{
    while (ftruncate(descriptor, 0) != 0) {
        if (errno != EINTR)
            return -errno;
    }
    return 0;
}

// Makes an open descriptor fit for use: a file is locked and, for writing, emptied. A character
// device has neither lock nor length; anything else could stall its user and is refused.
static int32_t Prepare(int descriptor, bool forWriting, bool isDeviceWelcome)
{
    struct stat info = {};
    if (fstat(descriptor, &info) != 0)
        return -errno;
    if (S_ISDIR(info.st_mode))
        return -EISDIR;
    if (S_ISCHR(info.st_mode) && isDeviceWelcome)
        return BecomeBlocking(descriptor);
    if (!S_ISREG(info.st_mode))
        return -ENXIO; // what the system says of a FIFO without a reader
    if (const int32_t status = TakeLock(descriptor, forWriting ? LOCK_EX : LOCK_SH); status < 0)
        return status;
    // Only now: whoever is refused the lock must find the content as it was. A file that is empty is left
    // alone: some systems write out at its close a file that was cut.
    if (forWriting && fstat(descriptor, &info) == 0 && info.st_size != 0) {
        if (const int32_t status = Empty(descriptor); status < 0)
            return status;
    }
    return BecomeBlocking(descriptor);
}

static int32_t OpenPrepared(const char* path, int flags)
{
    char systemPath[PathCapacity];
    if (const int32_t status = SystemPath(path, systemPath); status < 0)
        return status;
    const int descriptor = OpenNow(systemPath, flags);
    if (descriptor < 0)
        return descriptor;
    const bool forWriting = (flags & O_ACCMODE) != O_RDONLY;
    // What is read has an end, and a device has none.
    const bool isDeviceWelcome = forWriting && (flags & O_NOFOLLOW) == 0;
    if (const int32_t status = Prepare(descriptor, forWriting, isDeviceWelcome); status < 0) {
        close(descriptor);
        if ((flags & O_EXCL) != 0)
            unlink(systemPath); // made a moment ago, by this call
        return status;
    }
    return descriptor;
}

int32_t osFileOpen(const char* path)
{
    return OpenPrepared(path, O_RDONLY);
}

int32_t osFileCreate(const char* path)
{
    return OpenPrepared(path, O_WRONLY | O_CREAT);
}

int32_t osFileCreateNew(const char* path)
{
    return OpenPrepared(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW);
}

int32_t osFileCreatePlain(const char* path)
{
    return OpenPrepared(path, O_WRONLY | O_CREAT | O_NOFOLLOW);
}

// The code point at *text, which moves behind it. A surrogate without its partner stands for itself.
static uint32_t NextCodePoint(const uint16_t*& text)
{
    const uint32_t first = *text++;
    const bool isHigh = first >= 0xD800 && first <= 0xDBFF;
    if (!isHigh || *text < 0xDC00 || *text > 0xDFFF)
        return first;
    return 0x10000 + ((first - 0xD800) << 10) + (*text++ - 0xDC00u);
}

// Stores a code point as UTF-8 (RFC 3629); returns its 1 to 4 bytes.
static size_t EncodeUtf8(uint32_t point, char (&bytes)[4])
{
    if (point < 0x80) {
        bytes[0] = static_cast<char>(point);
        return 1;
    }
    const size_t count = point < 0x800 ? 2 : point < 0x10000 ? 3 : 4;
    for (size_t i = count - 1; i > 0; i--, point >>= 6)
        bytes[i] = static_cast<char>(0x80 | (point & 0x3F));
    const uint32_t lead[] = { 0, 0, 0xC0, 0xE0, 0xF0 };
    bytes[0] = static_cast<char>(lead[count] | point);
    return count;
}

// Turns a name of 16-bit chars into UTF-8. 0 or -ENAMETOOLONG.
static int32_t NarrowPath(const uint16_t* path, char (&narrow)[PathCapacity])
{
    size_t length = 0;
    while (*path != 0) {
        char bytes[4];
        const size_t count = EncodeUtf8(NextCodePoint(path), bytes);
        if (length + count >= PathCapacity)
            return -ENAMETOOLONG;
        memcpy(narrow + length, bytes, count);
        length += count;
    }
    narrow[length] = 0;
    return 0;
}

int32_t osFileOpenWide(const uint16_t* path)
{
    char narrow[PathCapacity];
    const int32_t status = NarrowPath(path, narrow);
    return status < 0 ? status : osFileOpen(narrow);
}

int32_t osFileCreateWide(const uint16_t* path)
{
    char narrow[PathCapacity];
    const int32_t status = NarrowPath(path, narrow);
    return status < 0 ? status : osFileCreate(narrow);
}

int32_t osFileCreatePlainWide(const uint16_t* path)
{
    char narrow[PathCapacity];
    const int32_t status = NarrowPath(path, narrow);
    return status < 0 ? status : osFileCreatePlain(narrow);
}

int32_t osFileRead(int32_t handle, void* buffer, int32_t count)
{
    char* target = static_cast<char*>(buffer);
    int32_t done = 0;
    while (done < count) {
        const ssize_t got = read(handle, target + done, static_cast<size_t>(count - done));
        if (got == 0)
            break;
        if (got > 0)
            done += static_cast<int32_t>(got);
        // A failure hides what was read before it: fewer bytes than asked for would read as the end.
        else if (errno != EINTR)
            return -errno;
    }
    return done;
}

int32_t osFileWrite(int32_t handle, const void* bytes, int32_t count)
{
    const char* source = static_cast<const char*>(bytes);
    int32_t done = 0;
    while (done < count) {
        const ssize_t put = write(handle, source + done, static_cast<size_t>(count - done));
        if (put > 0) {
            done += static_cast<int32_t>(put);
            continue;
        }
        const int error = put < 0 ? errno : ENOSPC; // nothing taken and no reason given: no room
        if (error == EINTR)
            continue;
        return done > 0 ? done : -error;
    }
    return done;
}

void osFileClose(int32_t handle)
{
    close(handle);
}

int32_t osFileStamp(const char* path, OsLocalTime& timeOut, uint32_t& sizeOut)
{
    char systemPath[PathCapacity];
    if (const int32_t status = SystemPath(path, systemPath); status < 0)
        return status;
    struct stat info = {};
    if (stat(systemPath, &info) != 0)
        return -errno;
    BreakDownTime(info.st_mtime, timeOut);
    sizeOut = static_cast<uint32_t>(info.st_size);
    return 0;
}

int32_t osFileDelete(const char* path)
{
    char systemPath[PathCapacity];
    if (const int32_t status = SystemPath(path, systemPath); status < 0)
        return status;
    return unlink(systemPath) == 0 ? 0 : -errno;
}
