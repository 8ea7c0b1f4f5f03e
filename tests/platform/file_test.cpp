// The file operations of the platform layer over the system's own files and locks.
#include "platform/platform.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <limits.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Seconds after which a child that hangs is ended by a signal: far beyond what any of them takes.
constexpr unsigned ChildAlarm = 60;

// A folder of the case's own, gone with all it holds when the case is over.
struct Folder {
    std::string Path;

    Folder()
    {
        char name[] = "/tmp/platform_file_XXXXXX";
        Path = mkdtemp(name) == nullptr ? "" : name;
    }

    ~Folder()
    {
        if (!Path.empty())
            std::filesystem::remove_all(Path);
    }

    std::string operator/(const std::string& name) const
    {
        return Path + "/" + name;
    }
};

void Put(const std::string& path, const std::string& content)
{
    std::ofstream(path, std::ios::binary) << content;
}

// What a reader sees that keeps no rule of ours, as cat does.
std::string Get(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return { std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>() };
}

int32_t WriteText(int32_t handle, const std::string& text)
{
    return osFileWrite(handle, text.data(), static_cast<int32_t>(text.size()));
}

int CountDescriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<int>(std::distance(begin(all), end(all)));
}

// Runs the body in a forked child; its exit status, or the negated signal that ended it.
int InChild(const std::function<int()>& body)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(ChildAlarm);
        _exit(body());
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

} // namespace

TEST(File, WhatIsHeldForWritingIsTheOwnersAloneUntilClosed)
{
    const Folder folder;
    const std::string path = folder / "held";
    umask(0);
    const auto makers = { osFileCreate, osFileCreateNew };
    for (const auto maker : makers) {
        osFileDelete(path.c_str());
        const int32_t handle = maker(path.c_str());
        ASSERT_GT(handle, 2);
        struct stat info = {};
        ASSERT_EQ(stat(path.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777u, 0600u);
        EXPECT_EQ(WriteText(handle, "first;"), 6);

        EXPECT_EQ(osFileCreate(path.c_str()), -EWOULDBLOCK);
        EXPECT_EQ(InChild([&] { return -osFileCreate(path.c_str()); }), EWOULDBLOCK);
        EXPECT_EQ(InChild([&] { return -osFileOpen(path.c_str()); }), EWOULDBLOCK);
        EXPECT_EQ(Get(path), "first;") << "a refused create has emptied the file";

        EXPECT_EQ(WriteText(handle, "second"), 6);
        osFileClose(handle);
        EXPECT_EQ(Get(path), "first;second");
    }
}

TEST(File, ReadersShareAFileAndKeepItFromBeingEmptied)
{
    const Folder folder;
    const std::string path = folder / "attachment";
    Put(path, "content");
    const int32_t first = osFileOpen(path.c_str());
    const int32_t second = osFileOpen(path.c_str());
    char buffer[8] = {};
    EXPECT_EQ(osFileRead(first, buffer, 8), 7);
    EXPECT_EQ(osFileRead(second, buffer, 8), 7) << "the two share one position";
    osFileClose(first);
    EXPECT_EQ(osFileCreate(path.c_str()), -EWOULDBLOCK);
    osFileClose(second);
    EXPECT_EQ(Get(path), "content");
    const int32_t target = osFileCreate(path.c_str());
    EXPECT_GT(target, 2);
    EXPECT_EQ(Get(path), "");
    osFileClose(target);
}

TEST(File, CreateNewRefusesEveryNameThatIsTaken)
{
    const Folder folder;
    Put(folder / "file", "kept");
    std::filesystem::create_directory(folder / "folder");
    std::filesystem::create_symlink(folder / "file", folder / "link");
    std::filesystem::create_symlink(folder / "nowhere", folder / "dangling");
    for (const char* name : { "file", "folder", "link", "dangling" }) {
        SCOPED_TRACE(name);
        EXPECT_EQ(osFileCreateNew((folder / name).c_str()), -EEXIST);
    }
    EXPECT_EQ(Get(folder / "file"), "kept");
    EXPECT_FALSE(std::filesystem::exists(folder / "nowhere"));
    EXPECT_TRUE(std::filesystem::is_symlink(folder / "dangling"));
}

TEST(File, FailuresAnswerWithTheSystemsNumber)
{
    const Folder folder;
    Put(folder / "file", "kept");
    std::filesystem::create_directory(folder / "folder");
    const struct {
        const char* Name;
        int32_t Open, Create, CreateNew, Delete;
    } rows[] = {
        { "folder", -EISDIR, -EISDIR, -EEXIST, -EISDIR },
        { "absent/file", -ENOENT, -ENOENT, -ENOENT, -ENOENT },
        { "file/below", -ENOTDIR, -ENOTDIR, -ENOTDIR, -ENOTDIR },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Name);
        const std::string path = folder / row.Name;
        EXPECT_EQ(osFileOpen(path.c_str()), row.Open);
        EXPECT_EQ(osFileCreate(path.c_str()), row.Create);
        EXPECT_EQ(osFileCreateNew(path.c_str()), row.CreateNew);
        EXPECT_EQ(osFileDelete(path.c_str()), row.Delete);
    }
    EXPECT_EQ(osFileOpen(""), -ENOENT);
    EXPECT_EQ(osFileCreate(""), -ENOENT);
}

TEST(File, BothSeparatorsReachTheSameFolders)
{
    const Folder folder;
    std::filesystem::create_directories(folder / "one/two");
    Put(folder / "one/two/file", "x");
    std::string path = folder / "one/two\\file";
    EXPECT_EQ(osFileCreateNew(path.c_str()), -EEXIST);
    std::replace(path.begin(), path.end(), '/', '\\');
    const int32_t opened = osFileOpen(path.c_str());
    EXPECT_GT(opened, 2) << path;
    osFileClose(opened);
    EXPECT_EQ(osFileDelete(path.c_str()), 0);
    EXPECT_FALSE(std::filesystem::exists(folder / "one/two/file"));
}

TEST(File, PathsUpToTheSystemsLimitWorkAndLongerOnesAreRefused)
{
    const Folder folder;
    Put(folder / "f", "x");
    std::string path = folder.Path;
    path.append(PATH_MAX - 2 - path.size(), '/');
    path += "f";
    ASSERT_EQ(path.size(), size_t{ PATH_MAX - 1 });
    std::u16string wide(path.begin(), path.end());
    const auto units = [&] { return reinterpret_cast<const uint16_t*>(wide.c_str()); };

    for (const int32_t handle : { osFileOpen(path.c_str()), osFileOpenWide(units()) }) {
        EXPECT_GT(handle, 2);
        osFileClose(handle);
    }
    path.insert(0, 1, '/');
    wide.insert(0, 1, u'/');
    EXPECT_EQ(osFileOpen(path.c_str()), -ENAMETOOLONG);
    EXPECT_EQ(osFileOpenWide(units()), -ENAMETOOLONG);
    wide.assign(PATH_MAX / 3 + 1, u'\u20AC'); // short in chars, too long in bytes
    EXPECT_EQ(osFileCreateWide(units()), -ENAMETOOLONG);
}

TEST(File, WideNamesBecomeUtf8)
{
    const struct {
        std::u16string Wide;
        const char* Narrow;
    } rows[] = {
        { u"~\x7F\x80\u07FF", "~\x7F\xC2\x80\xDF\xBF" },
        { u"\u0800\u20AC\uFFFD", "\xE0\xA0\x80\xE2\x82\xAC\xEF\xBF\xBD" },
        { u"\U00010000\U0001F600\U0010FFFF", "\xF0\x90\x80\x80\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF" },
        { { u'a', 0xD800 }, "a\xED\xA0\x80" },
        { { 0xDFFF, u'b' },
          "\xED\xBF\xBF"
          "b" },
        { { 0xDBFF, 0xD83D, 0xDE00 }, "\xED\xAF\xBF\xF0\x9F\x98\x80" },
        { { 0xDC00, 0xD800 }, "\xED\xB0\x80\xED\xA0\x80" },
    };
    const Folder folder;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Narrow);
        std::string path = folder / "";
        std::u16string wide(path.begin(), path.end());
        std::replace(wide.begin(), wide.end(), u'/', u'\\');
        wide += row.Wide;
        path += row.Narrow;
        const auto* units = reinterpret_cast<const uint16_t*>(wide.c_str());

        const int32_t made = osFileCreateWide(units);
        ASSERT_GT(made, 2);
        EXPECT_EQ(WriteText(made, "x"), 1);
        osFileClose(made);
        EXPECT_EQ(Get(path), "x");
        const int32_t opened = osFileOpenWide(units);
        EXPECT_GT(opened, 2);
        osFileClose(opened);
    }
}

TEST(File, FifosNeverHangAnOpen)
{
    const Folder folder;
    const std::string fifo = folder / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(InChild([&] { return -osFileOpen(fifo.c_str()); }), ENXIO);
    EXPECT_EQ(InChild([&] { return -osFileCreate(fifo.c_str()); }), ENXIO);
    const int bothEnds = open(fifo.c_str(), O_RDWR);
    ASSERT_GT(bothEnds, 0);
    EXPECT_EQ(InChild([&] { return -osFileOpen(fifo.c_str()); }), ENXIO);
    EXPECT_EQ(InChild([&] { return -osFileCreate(fifo.c_str()); }), ENXIO);
    close(bothEnds);
}

TEST(File, ReadsAndWritesGoOnAfterShortOnes)
{
    // A pipe moves fewer bytes than asked for; its peer works in small pieces.
    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    std::string content;
    for (int i = 0; i < 300000; i++)
        content += static_cast<char>('a' + i % 23);
    const pid_t child = fork();
    if (child == 0) {
        alarm(ChildAlarm);
        close(pipeEnds[0]);
        for (size_t at = 0; at < content.size(); at += 7500)
            if (write(pipeEnds[1], content.data() + at, 7500) != 7500)
                _exit(1);
        _exit(0);
    }
    close(pipeEnds[1]);
    std::string got(400000, 0);
    EXPECT_EQ(osFileRead(pipeEnds[0], got.data(), 250000), 250000);
    EXPECT_EQ(osFileRead(pipeEnds[0], got.data() + 250000, 150000), 50000);
    got.resize(content.size());
    EXPECT_TRUE(got == content);
    close(pipeEnds[0]);
    waitpid(child, nullptr, 0);
}

TEST(File, AWriteThatStopsHalfwayAnswersWhatWasTaken)
{
    int pipeEnds[2];
    ASSERT_EQ(pipe2(pipeEnds, O_NONBLOCK), 0);
    const int32_t room = fcntl(pipeEnds[1], F_GETPIPE_SZ);
    const std::string content(static_cast<size_t>(room) + 5000, 'x');
    EXPECT_EQ(WriteText(pipeEnds[1], content), room);
    EXPECT_EQ(WriteText(pipeEnds[1], content), -EAGAIN);
    close(pipeEnds[0]);
    close(pipeEnds[1]);
}

TEST(File, HandlesStayAboveTheStandardStreamsAndDieWithAnExec)
{
    const Folder folder;
    Put(folder / "old", "content");
    // Each bit of the answer is one promise broken.
    const int broken = InChild([&] {
        for (int i = 0; i < 3; i++)
            close(i);
        const int32_t handles[] = { osFileOpen((folder / "old").c_str()),
                                    osFileCreate((folder / "new").c_str()),
                                    osFileCreateNew((folder / "newer").c_str()) };
        int bits = 0;
        for (const int32_t handle : handles) {
            bits |= handle > 2 ? 0 : 1;
            bits |= fcntl(handle, F_GETFD) == FD_CLOEXEC ? 0 : 2;
        }
        for (int i = 0; i < 3; i++)
            bits |= fcntl(i, F_GETFD) < 0 ? 0 : 4;
        // The lock has moved with the handle.
        bits |= osFileOpen((folder / "new").c_str()) == -EWOULDBLOCK ? 0 : 8;
        return bits;
    });
    EXPECT_EQ(broken, 0);
}

TEST(File, NoDescriptorIsLeftByAnyOutcome)
{
    const Folder folder;
    Put(folder / "old", "content");
    ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
    const int bothEnds = open((folder / "fifo").c_str(), O_RDWR);
    const int32_t held = osFileCreate((folder / "held").c_str());
    ASSERT_GT(held, 2);
    const int before = CountDescriptors();
    for (const std::string name : { "", "old", "fifo", "held", "absent/file", "made" }) {
        const std::string path = folder / name;
        for (const auto call : { osFileOpen, osFileCreate, osFileCreateNew }) {
            if (const int32_t handle = call(path.c_str()); handle > 0)
                osFileClose(handle);
        }
    }
    EXPECT_EQ(CountDescriptors(), before);
    osFileClose(held);
    close(bothEnds);
}
