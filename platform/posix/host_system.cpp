// Folders, ports, programs and signals of a POSIX system.
#include "host/system.h"

#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

constexpr size_t FolderLimit = 128; // chars; leaves the library room for its own file names

bool TakeFromEnvironment(const char* name, std::string& valueOut)
{
    const char* value = getenv(name);
    if (!value)
        return false;
    valueOut = value;
    unsetenv(name);
    return true;
}

// --- folders ---

bool MakeTemporaryFolder(std::string& folderOut)
{
    const char* base = getenv("TMPDIR");
    // The command line of a tunnel is split at blanks, and '\' separates folders there.
    if (!base || *base != '/' || strpbrk(base, " \\\t\r\n") || strlen(base) > FolderLimit)
        base = "/tmp";
    std::string folder = std::string(base) + "/rynmail-XXXXXX";
    if (!mkdtemp(folder.data()))
        return false;
    folderOut = folder;
    return true;
}

void RemoveFolder(const std::string& folder)
{
    std::error_code error; // what can't be removed stays
    std::filesystem::remove_all(folder, error);
}

std::string ProgramFolder()
{
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    if (length <= 0 || static_cast<size_t>(length) == sizeof path)
        return "";
    const std::string program(path, static_cast<size_t>(length));
    return program.substr(0, program.rfind('/'));
}

// --- ports ---

uint16_t FreePort()
{
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (probe < 0)
        return 0;
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY); // as the tunnel will listen
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    const bool isFound = bind(probe, generic, size) == 0 && getsockname(probe, generic, &size) == 0;
    close(probe);
    return isFound ? ntohs(address.sin_port) : uint16_t{ 0 };
}

// --- programs ---

static bool WaitFor(pid_t program)
{
    int outcome = 0;
    while (waitpid(program, &outcome, 0) < 0)
        if (errno != EINTR)
            return false;
    return WIFEXITED(outcome) && WEXITSTATUS(outcome) == 0;
}

bool RunQuietly(const std::vector<std::string>& words)
{
    std::vector<char*> arguments;
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str())); // the call takes no const texts
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    if (posix_spawn_file_actions_init(&actions) != 0)
        return false;
    for (const int stream : { STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO })
        posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", O_RDWR, 0);
    pid_t program;
    const int error =
        posix_spawnp(&program, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return error == 0 && WaitFor(program);
}

// --- signals ---

static volatile sig_atomic_t StopAsked;

static void AskToStop(int)
{
    StopAsked = 1;
}

void CatchStopSignals()
{
    struct sigaction action = {};
    action.sa_handler = AskToStop;
    action.sa_flags = SA_RESTART;
    for (const int number : { SIGINT, SIGTERM, SIGHUP })
        sigaction(number, &action, nullptr);
}

bool StopIsAsked()
{
    return StopAsked != 0;
}
