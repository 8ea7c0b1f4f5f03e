// Set-up and inspection. Files are handled by bare system calls: a target runs them a hundred times
// for an input.
#include "tests/fuzz/fuzz_world.h"

#include "frame/channel.h"
#include "frame/memory.h"
#include "frame/settings.h"
#include "tests/support/virtual_clock.h"
#include "tests/support/virtual_socket.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define RYN_HAS_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define RYN_HAS_ASAN 1
#endif
#ifdef RYN_HAS_ASAN
#include <sanitizer/asan_interface.h>

// An input allocates as much as a thousand others: what waits in quarantine is never seen again.
extern "C" const char* __asan_default_options();
const char* __asan_default_options()
{
    return "quarantine_size_mb=4";
}
#endif

constexpr size_t LongestCommand = 1024;           // what a send uses of CommandBuffer
constexpr uint32_t MostMemory = 16 * 1024 * 1024; // bytes in blocks, for one input

static uint32_t BytesBefore = 0;
static int LowestDescriptor = 0;
static int64_t StampBefore = 0;

// --- folders ---

static std::string RootFolder; // for the end of the process

static void RemoveTree()
{
    std::error_code error;
    std::filesystem::remove_all(RootFolder, error);
}

static WorldFolders MakeFolders()
{
    std::error_code error;
    std::string root = access("/dev/shm", W_OK) == 0
                           ? std::string("/dev/shm")
                           : std::filesystem::temp_directory_path(error).string();
    root += "/ryn32-fuzz-XXXXXX";
    if (mkdtemp(root.data()) == nullptr)
        Breach("a folder to work in", root);
    RootFolder = root;
    atexit(RemoveTree);
    const std::string base = root + "/a/b";
    for (const char* name : { "/mail", "/attach", "/store" })
        std::filesystem::create_directories(base + name, error);
    return { root, base + "/mail", base + "/attach", base + "/store" };
}

const WorldFolders& Folders()
{
    static const WorldFolders folders = MakeFolders();
    return folders;
}

static std::set<std::string> NamesIn(const std::string& folder)
{
    std::set<std::string> names;
    DIR* const list = opendir(folder.c_str());
    while (const dirent* entry = list == nullptr ? nullptr : readdir(list)) {
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0)
            names.insert(entry->d_name);
    }
    if (list != nullptr)
        closedir(list);
    return names;
}

std::string ReadFile(const std::string& path)
{
    std::string bytes;
    const int file = open(path.c_str(), O_RDONLY | O_NOFOLLOW);
    struct stat info = {};
    if (file < 0 || fstat(file, &info) != 0 || !S_ISREG(info.st_mode))
        Breach("a plain file", path);
    bytes.resize(static_cast<size_t>(info.st_size));
    if (read(file, bytes.data(), bytes.size()) != info.st_size)
        Breach("a file that can be read", path);
    close(file);
    return bytes;
}

std::map<std::string, std::string> FilesIn(const std::string& folder)
{
    std::map<std::string, std::string> files;
    for (const std::string& name : NamesIn(folder))
        files[name] = ReadFile(folder + "/" + name);
    return files;
}

void WriteFile(const std::string& path, const std::string& bytes)
{
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (write(file, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
        Breach("a file that can be written", path);
    close(file);
}

// --- rules ---

// When an entry of one of the folders above the three was made or removed last, in ns.
static int64_t TreeStamp()
{
    const WorldFolders& folders = Folders();
    int64_t latest = 0;
    for (const char* level : { "", "/a", "/a/b" }) {
        struct stat info = {};
        stat((folders.Root + level).c_str(), &info);
        const int64_t stamp = info.st_mtim.tv_sec * int64_t{ 1000000000 } + info.st_mtim.tv_nsec;
        latest = std::max(latest, stamp);
    }
    return latest;
}

static bool IsForbidden(char c)
{
    return (c >= 1 && c <= 31) || strchr("\"*/:<=>?\\|", c) != nullptr;
}

static std::vector<std::string> AllFolders()
{
    return { Folders().Mail, Folders().Attach, Folders().Store };
}

static void CheckNames()
{
    for (const std::string& folder : AllFolders()) {
        for (const std::string& name : NamesIn(folder)) {
            if (std::any_of(name.begin(), name.end(), IsForbidden))
                Breach("no forbidden char in a file's name", name);
        }
    }
}

template <size_t N>
static void CheckText(const char (&field)[N], const char* what)
{
    if (memchr(field, 0, N) == nullptr)
        Breach("a text ends inside its field", what);
}

static void CheckRecord(const Channel& ch)
{
    CheckText(ch.LastReply, "LastReply");
    CheckText(ch.FromAddress, "FromAddress");
    CheckText(ch.ReplyToAddress, "ReplyToAddress");
    CheckText(ch.AuthScratch, "AuthScratch");
    CheckText(ch.ErrorFileName, "ErrorFileName");
    CheckText(ch.RawCommand, "RawCommand");
    CheckText(ch.AttachList, "AttachList");
    CheckText(ch.TypeList, "TypeList");
    CheckText(ch.IdList, "IdList");
    CheckText(ch.EmailPath, "EmailPath");
    CheckText(ch.AttachPath, "AttachPath");
    CheckText(ch.Filename, "Filename");
    CheckText(ch.PartType, "PartType");
    CheckText(ch.PartId, "PartId");
    CheckText(ch.MainBoundary, "MainBoundary");
    for (const MimeBoundary& boundary : ch.AltBoundary)
        CheckText(boundary.Text, "AltBoundary");
    CheckText(ch.HeaderDate, "HeaderDate");
    CheckText(ch.HeaderContentType, "HeaderContentType");
    Require(ch.ToList == nullptr, "nothing written behind the lists");
}

// --- a channel whose buffers lie next to each other ---
//
// The sanitizer knows the record as one block. Fetching needs neither the message window behind the
// reply buffer nor more of the command buffer behind the scratch buffer than a command takes.

static void Forbid([[maybe_unused]] char* bytes, [[maybe_unused]] size_t count,
                   [[maybe_unused]] bool isForbidden)
{
#ifdef RYN_HAS_ASAN
    if (isForbidden)
        ASAN_POISON_MEMORY_REGION(bytes, count);
    else
        ASAN_UNPOISON_MEMORY_REGION(bytes, count);
#endif
}

static void ForbidNeighbours(Channel& ch, bool areForbidden)
{
    Forbid(ch.CommandBuffer + LongestCommand, CommandCapacity - LongestCommand, areForbidden);
    Forbid(ch.MessageWindow, WindowCapacity, areForbidden);
}

// --- begin and end ---

// The lowest free descriptor: a leaked one makes it rise.
static int FreeDescriptor()
{
    const int descriptor = dup(STDERR_FILENO);
    close(descriptor);
    return descriptor;
}

void Set(int32_t code, uint32_t value)
{
    if (rynIntegerParam(0, code, value) < 0)
        Breach("a parameter is taken", std::to_string(code));
}

void WorldOpen(uint32_t startTick)
{
    StampBefore = TreeStamp();
    VirtualClockReset(startTick);
    VirtualNetworkReset();
    BytesBefore = BytesAllocated.load();
    LowestDescriptor = FreeDescriptor();
}

void WorldClose()
{
    Require(VirtualOpenSockets() == 0, "no socket is left");
    Require(BlocksAllocated.load() == BlocksFreed.load(), "no memory block is left");
    Require(FreeDescriptor() == LowestDescriptor, "no descriptor is left");
    Require(TreeStamp() == StampBefore, "no file outside the folders");
    for (const std::string& folder : AllFolders()) {
        for (const std::string& name : NamesIn(folder))
            unlink((folder + "/" + name).c_str());
    }
}

void WorldBegin(uint32_t startTick, uint32_t pollDelay)
{
    WorldOpen(startTick);
    PollDelay = pollDelay; // sockets take it over when the library attaches
    Require(rynAttach(1) == 999, "attach");
    ForbidNeighbours(*ChannelTable[0], true);
}

void WorldEnd()
{
    Channel& ch = *ChannelTable[0];
    CheckRecord(ch);
    ForbidNeighbours(ch, false);
    rynRelease();
    Require(BytesAllocated.load() - BytesBefore < MostMemory, "memory is bounded");
    CheckNames();
    WorldClose();
}
