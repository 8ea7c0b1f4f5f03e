// Clock, calendar, identity, notices, memory and locks of the platform layer.
#include "platform/platform.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

volatile sig_atomic_t AlarmCount = 0;

void CountAlarm(int)
{
    AlarmCount = AlarmCount + 1;
}

// Sends SIGALRM every intervalUs microseconds and lets it cut system calls short; 0 ends it.
void InterruptEvery(int intervalUs)
{
    struct sigaction action = {};
    action.sa_handler = CountAlarm;
    sigaction(SIGALRM, &action, nullptr);
    itimerval timer = {};
    timer.it_interval.tv_usec = timer.it_value.tv_usec = intervalUs;
    setitimer(ITIMER_REAL, &timer, nullptr);
}

int64_t MonotonicNs()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{ now.tv_sec } * 1000000000 + now.tv_nsec;
}

// Standard error as a row of packets, so that each write can be told from the next.
struct ErrorStream {
    int Kept = dup(2);
    int Ends[2] = { -1, -1 };

    ErrorStream()
    {
        if (socketpair(AF_UNIX, SOCK_DGRAM, 0, Ends) == 0)
            dup2(Ends[0], 2);
    }

    ~ErrorStream()
    {
        dup2(Kept, 2);
        close(Kept);
        close(Ends[0]);
        close(Ends[1]);
    }

    // The next write's bytes, "" if there was none.
    std::string Next() const
    {
        char buffer[4096];
        const ssize_t count = recv(Ends[1], buffer, sizeof(buffer), MSG_DONTWAIT);
        return std::string(buffer, count > 0 ? static_cast<size_t>(count) : 0);
    }
};

} // namespace

TEST(Clock, TicksAreMillisecondsAndNoSignalShortensASleep)
{
    constexpr uint32_t Step = 16; // ms that the tick may move at once
    InterruptEvery(5000);
    for (const uint32_t ms : { 1u, 100u }) {
        const uint32_t tick = osTickCount();
        const int64_t start = MonotonicNs();
        osSleep(ms);
        EXPECT_GE(MonotonicNs() - start, int64_t{ ms } * 1000000);
        EXPECT_GE(osTickCount() - tick + Step, ms);
    }
    InterruptEvery(0);
    EXPECT_GT(AlarmCount, 0);
    // Two readings of the tick lie around the other clock's.
    const uint32_t before = osTickCount();
    const uint32_t between = static_cast<uint32_t>(MonotonicNs() / 1000000);
    const uint32_t after = osTickCount();
    EXPECT_LE(between - before, after - before + Step);
}

TEST(Clock, LocalTimeTellsTheZoneOfTheProcess)
{
    const struct {
        const char* Zone;
        int32_t Bias, IsDaylight;
    } rows[] = {
        { "UTC0", 0, 0 },
        { "NST3:30", 210, 0 },
        { "LINT-14", -840, 0 },
        { "CET-1CEST,0/0,J365/25", -60, 1 }, // daylight saving all the year (RFC 8536, 3.3.1)
        { "CHAST-12:45CHADT,0/0,J365/25", -765, 1 },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Zone);
        setenv("TZ", row.Zone, 1);
        tzset(); // the zone of a process is read once unless its host asks again
        OsLocalTime local = {};
        const time_t before = time(nullptr);
        osLocalTime(local);
        const time_t after = time(nullptr);
        EXPECT_EQ(local.Bias, row.Bias);
        EXPECT_EQ(local.IsDaylight, row.IsDaylight);

        tm fields = {};
        fields.tm_year = local.Year - 1900;
        fields.tm_mon = local.Month - 1;
        fields.tm_mday = local.Day;
        fields.tm_hour = local.Hour;
        fields.tm_min = local.Minute;
        fields.tm_sec = local.Second;
        const time_t utc = timegm(&fields) + local.Bias * 60 - local.IsDaylight * 3600;
        EXPECT_GE(utc, before);
        EXPECT_LE(utc, after);
        EXPECT_EQ(local.Weekday, fields.tm_wday);
    }
}

TEST(System, ComputerNameIsTheFirstLabelOrNothing)
{
    char full[HOST_NAME_MAX + 1] = {};
    gethostname(full, sizeof(full) - 1);
    const std::string host = full;
    const std::string label = host.substr(0, host.find('.'));
    const std::string expected = label.size() <= 15 ? label : "";
    char name[17];
    memset(name, '#', sizeof(name));
    osComputerName(name, 16);
    EXPECT_EQ(name, expected);
    EXPECT_EQ(name[16], '#');
    memset(name, '#', sizeof(name));
    osComputerName(name, expected.size()); // one too small
    EXPECT_EQ(name[0], expected.empty() ? '#' : 0);
    EXPECT_EQ(name[expected.size()], '#');
}

TEST(System, CurrentDirectoryFitsOrIsEmpty)
{
    ASSERT_EQ(chdir("/usr/lib"), 0);
    const struct {
        size_t Capacity;
        const char* Path;
    } rows[] = { { 9, "/usr/lib" }, { 8, "" }, { 1, "" } };
    for (const auto& row : rows) {
        char path[65];
        memset(path, '#', sizeof(path));
        osCurrentDirectory(path, row.Capacity);
        EXPECT_STREQ(path, row.Path) << row.Capacity;
        EXPECT_EQ(path[row.Capacity], '#');
    }
}

TEST(System, ErrorTextIsTheSystemsOwnCutToTheCapacity)
{
    const struct {
        size_t Capacity;
        const char* Text;
    } rows[] = { { 26, "No such file or directory" },
                 { 25, "No such file or director" },
                 { 1, "" } };
    for (const auto& row : rows) {
        char text[65];
        memset(text, '#', sizeof(text));
        EXPECT_EQ(osErrorText(ENOENT, text, row.Capacity), static_cast<int32_t>(strlen(row.Text)));
        EXPECT_STREQ(text, row.Text);
        EXPECT_EQ(text[row.Capacity], '#');
    }
}

TEST(System, ANoticeIsOneLineInOneWrite)
{
    const struct {
        std::string Text, Line;
    } rows[] = {
        { "", "Info: \n" },
        { "two\r\nlines\t\x1B[2J\x7F", "Info: two  lines  [2J \n" },
        { "caf\xC3\xA9 %s%n", "Info: caf\xC3\xA9 %s%n\n" },
        { std::string(1017, 'x'), "Info: " + std::string(1017, 'x') + "\n" },
        { std::string(5000, 'x'), "Info: " + std::string(1017, 'x') + "\n" },
    };
    for (const auto& row : rows) {
        std::string line, rest;
        {
            const ErrorStream stream;
            osNotice(row.Text.c_str());
            line = stream.Next();
            rest = stream.Next();
        }
        EXPECT_EQ(line, row.Line);
        EXPECT_EQ(rest, "");
    }
}

TEST(Memory, IsZeroFilledAndAlignedForAnyRecord)
{
    for (int round = 0; round < 2; round++) {
        for (const size_t size : { size_t{ 24 }, size_t{ 4097 } }) {
            auto* bytes = static_cast<unsigned char*>(osAllocate(size));
            ASSERT_NE(bytes, nullptr);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(bytes) % alignof(std::max_align_t), 0u);
            for (size_t i = 0; i < size; i++)
                EXPECT_EQ(bytes[i], 0) << i;
            memset(bytes, 0xA5, size); // what the next round may be given again
            osFree(bytes);
        }
    }
}

TEST(Lock, KeepsThreadsApartAndEachLockFromTheOthers)
{
    constexpr int Rounds = 20000;
    int counts[OS_LOCK_COUNT] = {};
    std::thread workers[4];
    for (std::thread& worker : workers) {
        worker = std::thread([&counts] {
            for (int i = 0; i < Rounds; i++) {
                for (int lock = 0; lock < OS_LOCK_COUNT; lock++) {
                    osLockEnter(static_cast<OsLock>(lock));
                    counts[lock]++;
                    osLockLeave(static_cast<OsLock>(lock));
                }
            }
        });
    }
    for (std::thread& worker : workers)
        worker.join();
    for (const int count : counts)
        EXPECT_EQ(count, 4 * Rounds);

    // One lock for all would hang here.
    for (int lock = 0; lock < OS_LOCK_COUNT; lock++)
        osLockEnter(static_cast<OsLock>(lock));
    for (int lock = 0; lock < OS_LOCK_COUNT; lock++)
        osLockLeave(static_cast<OsLock>(lock));
}

TEST(System, ANoticeNeitherWaitsNorKills)
{
    for (const bool isRead : { true, false }) { // a pipe that nobody empties, and one that is gone
        SCOPED_TRACE(isRead);
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);
            dup2(ends[1], STDERR_FILENO);
            close(ends[1]);
            if (!isRead)
                close(ends[0]);
            for (int i = 0; i < 2000; i++)
                osNotice("a line that a full pipe loses, of some length, so that it is full soon");
            _exit(7);
        }
        close(ends[1]);
        if (!isRead)
            close(ends[0]);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << status;
        if (isRead)
            close(ends[0]);
    }
}
