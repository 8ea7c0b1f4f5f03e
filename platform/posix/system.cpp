// Who and where the process is, its calendar, the system's error texts, notices on standard error.
#include "platform/platform.h"
#include "platform/posix/posix_common.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

// The longest name that counts as a computer's: the limit of a NetBIOS name.
constexpr size_t ComputerNameLength = 15;

// Bytes of a notice, "Info: " and line end included; the rest of a longer text is left out.
constexpr size_t NoticeCapacity = 1024;

constexpr size_t ErrorTextCapacity = 256;

uint32_t osProcessId()
{
    return static_cast<uint32_t>(getpid());
}

void osComputerName(char* name, size_t capacity)
{
    if (capacity == 0)
        return;
    name[0] = 0;
    char host[HOST_NAME_MAX + 1];
    if (gethostname(host, sizeof(host)) != 0)
        return;
    host[HOST_NAME_MAX] = 0; // a cut name need not be terminated
    const size_t length = strcspn(host, ".");
    if (length > ComputerNameLength || length >= capacity)
        return;
    memcpy(name, host, length);
    name[length] = 0;
}

void osCurrentDirectory(char* path, size_t capacity)
{
    if (capacity == 0)
        return;
    if (getcwd(path, capacity) == nullptr)
        path[0] = 0;
}

// strerror_r has two shapes: one fills the buffer and returns a number, the other returns the text,
// which may lie elsewhere. The overloads take whichever the C library has.
[[maybe_unused]] static const char* ErrorWords(int result, const char* buffer)
{
    return result == 0 ? buffer : "Unknown error";
}

[[maybe_unused]] static const char* ErrorWords(const char* result, const char*)
{
    return result;
}

int32_t osErrorText(int32_t error, char* text, size_t capacity)
{
    if (capacity == 0)
        return 0;
    char buffer[ErrorTextCapacity] = "";
    const char* words = ErrorWords(strerror_r(error, buffer, sizeof(buffer)), buffer);
    const size_t length = strnlen(words, capacity - 1 < INT32_MAX ? capacity - 1 : INT32_MAX);
    memcpy(text, words, length);
    text[length] = 0;
    return static_cast<int32_t>(length);
}

// Writes without waiting and without a signal, whatever standard error is: a pipe that is full or
// that nobody reads any more loses the line.
static void WriteNow(const char* line, size_t length)
{
    pollfd query = { STDERR_FILENO, POLLOUT, 0 };
    if (poll(&query, 1, 0) < 1 || (query.revents & POLLOUT) == 0 || (query.revents & POLLERR) != 0)
        return;
    sigset_t pipeSignal;
    sigset_t before;
    sigset_t pending;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    sigpending(&pending);
    pthread_sigmask(SIG_BLOCK, &pipeSignal, &before);
    while (write(STDERR_FILENO, line, length) < 0 && errno == EINTR) {
    }
    const timespec atOnce = {};
    if (sigismember(&pending, SIGPIPE) == 0) // take back the one that this write has raised
        sigtimedwait(&pipeSignal, nullptr, &atOnce);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void osNotice(const char* text)
{
    char line[NoticeCapacity] = "Info: ";
    size_t length = strlen(line);
    // Control characters become blanks: a notice stays one line and can't steer a terminal.
    for (; *text != 0 && length < NoticeCapacity - 1; text++)
        line[length++] = static_cast<unsigned char>(*text) < ' ' || *text == 0x7F ? ' ' : *text;
    line[length++] = '\n';
    // One call, so that lines of several threads or processes don't mix.
    WriteNow(line, length);
}

void BreakDownTime(time_t moment, OsLocalTime& timeOut)
{
    tm local = {};
    static pthread_once_t zoneRead = PTHREAD_ONCE_INIT;
    pthread_once(&zoneRead, tzset); // localtime_r alone need not look at the zone
    localtime_r(&moment, &local);
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
