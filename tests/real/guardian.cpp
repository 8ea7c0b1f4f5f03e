// Starting, watching and stopping servers; see guardian.h.
#include "tests/real/guardian.h"

#include "tests/support/temp_folder.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <netinet/in.h>
#include <poll.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

// Longer than any start or delivery takes on a machine that works at all.
constexpr auto Patience = std::chrono::seconds(60);

// The child's side: a session of its own, so that one signal reaches the server and every process
// that serves a connection. Its complaints go to a file, for it makes some at every stop.
[[noreturn]] void RunServer(const std::string& folder, const std::vector<std::string>& command)
{
    setsid();
    const int complaints = open((folder + "/stderr").c_str(), O_WRONLY | O_CREAT, 0644);
    dup2(complaints, 2);
    close(complaints);
    for (const int number : { SIGTERM, SIGINT, SIGHUP, SIGPIPE })
        signal(number, SIG_DFL);
    std::vector<char*> arguments;
    for (const std::string& word : command)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    perror(arguments[0]);
    _exit(127);
}

// True once the server's first process has ended; it is not reaped, so that its number stays taken.
bool HasEnded(pid_t server)
{
    siginfo_t info = {};
    return waitid(P_PID, static_cast<id_t>(server), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
           info.si_pid != 0;
}

// A session that is receiving a message may ignore SIGTERM until its client goes: hence SIGKILL.
// Such a session is an orphan by then and has fallen to the guardian, who waits for it too: only
// when it is gone is its connection closed.
void EndSession(pid_t server)
{
    killpg(server, SIGTERM);
    for (int i = 0; i < 200 && !HasEnded(server); i++)
        Pause();
    killpg(server, SIGKILL);
    while (waitpid(-1, nullptr, 0) > 0)
        continue;
}

// A process that was killed this moment may still hold a file open for an instant.
void RemoveFolder(const std::string& folder)
{
    std::error_code error;
    for (int i = 0; i < 100 && std::filesystem::exists(folder, error); i++) {
        std::filesystem::remove_all(folder, error);
        if (error)
            Pause();
    }
}

// The guardian's side. It keeps none of the test's handles but the end of the pipe: a connection
// held open here would outlive the test's own.
[[noreturn]] void Guard(int lifeHandle, const std::string& folder,
                        const std::vector<std::string>& command)
{
    setsid();
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    dup2(lifeHandle, 3);
    close_range(4, ~0U, 0);
    const int null = open("/dev/null", O_RDWR);
    dup2(null, 0);
    dup2(null, 1);
    close(null);

    const pid_t server = fork();
    if (server == 0) {
        close(3);
        RunServer(folder, command);
    }
    pollfd life = { 3, POLLIN, 0 };
    while (server > 0 && !HasEnded(server) && poll(&life, 1, 20) == 0)
        continue;
    if (server > 0 && HasEnded(server))
        fputs(ReadWholeFile(folder + "/stderr").c_str(), stderr);
    if (server > 0)
        EndSession(server);
    RemoveFolder(folder);
    _exit(0);
}

// Looks without connecting, which would use up a session: state 0A is LISTEN.
bool PortListens(uint32_t port)
{
    char wanted[32];
    snprintf(wanted, sizeof wanted, "0100007F:%04X 00000000:0000 0A", port);
    return ReadWholeFile("/proc/net/tcp").find(wanted) != std::string::npos;
}

// Maildir names begin with the time of arrival in seconds and microseconds: "1700000000.M5P77.host".
std::pair<unsigned long, unsigned long> ArrivalTime(const std::filesystem::path& path)
{
    const std::string name = path.filename();
    char* end = nullptr;
    const unsigned long seconds = strtoul(name.c_str(), &end, 10);
    const bool hasMicroseconds = end[0] == '.' && end[1] != 0;
    return { seconds, hasMicroseconds ? strtoul(end + 2, nullptr, 10) : 0 };
}

} // namespace

bool PatienceIsOver(std::chrono::steady_clock::time_point begin)
{
    return std::chrono::steady_clock::now() - begin > Patience;
}

void Pause()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

ServerAccount FindServerAccount()
{
    const passwd* user = geteuid() == 0 ? getpwnam("nobody") : getpwuid(geteuid());
    if (user == nullptr)
        return {};
    ServerAccount account = { user->pw_name, "", user->pw_uid, user->pw_gid };
    const group* primary = getgrgid(account.Gid);
    account.Group = primary != nullptr ? primary->gr_name : std::to_string(account.Gid);
    return account;
}

bool GiveToServer(const std::string& path, const ServerAccount& account)
{
    return geteuid() != 0 || chown(path.c_str(), account.Uid, account.Gid) == 0;
}

std::string MakeServerFolder(const std::string& name, const std::vector<std::string>& folders,
                             const ServerAccount& account, std::string& folderOut)
{
    folderOut = "/tmp/" + name + "-XXXXXX";
    if (mkdtemp(folderOut.data()) == nullptr)
        return "no temporary folder";
    std::vector<std::string> paths = { folderOut };
    for (const std::string& folder : folders)
        paths.push_back(folderOut + "/" + folder);
    for (const std::string& path : paths) {
        mkdir(path.c_str(), 0755);
        if (chmod(path.c_str(), 0755) != 0 || !GiveToServer(path, account))
            return "cannot prepare " + path;
    }
    return "";
}

void WriteFromTemplate(const std::string& path, const std::string& templatePath,
                       const std::vector<std::pair<std::string, std::string>>& words)
{
    std::string text = ReadWholeFile(templatePath);
    for (const auto& [word, value] : words)
        for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at))
            text.replace(at, word.size(), value), at += value.size();
    WriteWholeFile(path, text);
}

std::vector<uint32_t> FreePorts(size_t count)
{
    std::vector<uint32_t> ports;
    std::vector<int> handles; // all open until the last port is found, so that none comes twice
    for (size_t i = 0; i < count; i++) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        handles.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (bind(handles[i], reinterpret_cast<sockaddr*>(&address), size) != 0 ||
            getsockname(handles[i], reinterpret_cast<sockaddr*>(&address), &size) != 0)
            address.sin_port = 0;
        ports.push_back(ntohs(address.sin_port));
    }
    for (const int handle : handles)
        close(handle);
    return ports;
}

bool StartGuardian(const std::string& folder, const std::vector<std::string>& command,
                   pid_t& guardianOut, int& lifeHandleOut)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    guardianOut = fork();
    if (guardianOut == 0)
        Guard(ends[0], folder, command);
    close(ends[0]);
    lifeHandleOut = ends[1];
    return guardianOut > 0;
}

void StopGuardian(pid_t& guardian, int& lifeHandle)
{
    if (lifeHandle >= 0)
        close(lifeHandle);
    if (guardian > 0)
        waitpid(guardian, nullptr, 0);
    lifeHandle = -1;
    guardian = 0;
}

bool WaitUntilListening(pid_t& guardian, const std::string& log, const std::string& saying,
                        const std::vector<uint32_t>& ports)
{
    const auto begin = std::chrono::steady_clock::now();
    while (!PatienceIsOver(begin)) {
        if (waitpid(guardian, nullptr, WNOHANG) == guardian) {
            guardian = 0;
            return false;
        }
        const bool hasStarted = ReadWholeFile(log).find(saying) != std::string::npos;
        if (hasStarted && std::all_of(ports.begin(), ports.end(),
                                      [](uint32_t port) { return port == 0 || PortListens(port); }))
            return true;
        Pause();
    }
    return false;
}

std::vector<std::string> ListMaildir(const std::vector<std::string>& folders)
{
    std::vector<std::filesystem::path> paths;
    std::error_code error;
    for (const std::string& folder : folders)
        for (const auto& entry : std::filesystem::directory_iterator(folder, error))
            paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end(),
              [](const auto& a, const auto& b) { return ArrivalTime(a) < ArrivalTime(b); });
    return { paths.begin(), paths.end() };
}
