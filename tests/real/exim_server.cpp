// Starting, watching and stopping Exim; see exim_server.h.
#include "tests/real/exim_server.h"

#include "tests/support/temp_folder.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// Longer than any start or delivery takes on a machine that works at all.
constexpr auto Patience = std::chrono::seconds(60);
// Another process may take the port between its choice and the server's start.
constexpr int StartAttempts = 5;

bool PatienceIsOver(std::chrono::steady_clock::time_point begin)
{
    return std::chrono::steady_clock::now() - begin > Patience;
}

void Pause()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

std::string EximProgram()
{
    for (const char* path : { "/usr/sbin/exim4", "/usr/sbin/exim" })
        if (access(path, X_OK) == 0)
            return path;
    return "";
}

uint32_t FreePort()
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    const int handle = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (handle < 0 || bind(handle, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        getsockname(handle, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        address.sin_port = 0;
    close(handle);
    return ntohs(address.sin_port);
}

// The account that the server works under: the test's own, but never root, for Exim delivers no
// mail as root.
struct Account {
    std::string User, Group;
    uid_t Uid = 0;
    gid_t Gid = 0;
};

Account ServerAccount()
{
    Account account;
    const passwd* user = geteuid() == 0 ? getpwnam("nobody") : getpwuid(geteuid());
    if (user == nullptr)
        return account;
    account = { user->pw_name, "", user->pw_uid, user->pw_gid };
    const group* primary = getgrgid(user->pw_gid);
    account.Group = primary != nullptr ? primary->gr_name : std::to_string(user->pw_gid);
    return account;
}

std::string FillTemplate(std::string text, const std::string& word, const std::string& value)
{
    for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at))
        text.replace(at, word.size(), value), at += value.size();
    return text;
}

void WriteSecrets(const std::string& folder, const std::string& certificate)
{
    WriteWholeFile(folder + "/users.smtp", "alice: secret1\nbob: secret2\ncarol: secret3\n");
    if (certificate.empty())
        return;
    WriteWholeFile(folder + "/tokens", "alice: tok\n");
    WriteWholeFile(folder + "/offer", "CRAM-MD5 LOGIN PLAIN XOAUTH2\n");
    WriteWholeFile(folder + "/server.pem", ReadWholeFile(certificate));
}

// The folder is open to all because deliveries run under the server's account.
std::string MakeFolder(EximServer& server, const Account& account, const std::string& certificate)
{
    char folder[] = "/tmp/ryn-exim-XXXXXX";
    if (mkdtemp(folder) == nullptr)
        return "no temporary folder";
    server.Folder = folder;
    for (const char* name : { "", "/spool", "/mail" }) {
        const std::string path = server.Folder + name;
        mkdir(path.c_str(), 0755);
        if (chmod(path.c_str(), 0755) != 0 ||
            (geteuid() == 0 && chown(path.c_str(), account.Uid, account.Gid) != 0))
            return "cannot prepare " + path;
    }
    WriteSecrets(server.Folder, certificate);

    std::string conf = ReadWholeFile(RYN_EXIM_CONF);
    conf = FillTemplate(conf, "@SECURE@", certificate.empty() ? "" : "WITH_TLS = yes");
    conf = FillTemplate(conf, "@EXIM@", EximProgram());
    conf = FillTemplate(conf, "@USER@", account.User);
    conf = FillTemplate(conf, "@GROUP@", account.Group);
    conf = FillTemplate(conf, "@DIR@", server.Folder);
    conf = FillTemplate(conf, "@SMTP@", std::to_string(server.Port));
    conf = FillTemplate(conf, "@SMTPS@", std::to_string(server.TlsPort));
    WriteWholeFile(server.Folder + "/exim.conf", conf);
    return "";
}

// The child's side: a session of its own, so that one signal reaches the server and every process
// that serves a connection. Its complaints go to a file, for it makes some at every stop.
[[noreturn]] void RunExim(const std::string& program, const std::string& folder)
{
    setsid();
    const std::string conf = folder + "/exim.conf";
    const int complaints = open((folder + "/stderr").c_str(), O_WRONLY | O_CREAT, 0644);
    dup2(complaints, 2);
    close(complaints);
    for (const int number : { SIGTERM, SIGINT, SIGHUP, SIGPIPE })
        signal(number, SIG_DFL);
    execl(program.c_str(), program.c_str(), "-C", conf.c_str(), "-bdf", nullptr);
    perror(program.c_str());
    _exit(127);
}

// True once the server's first process has ended; it is not reaped, so that its number stays taken.
bool HasEnded(pid_t exim)
{
    siginfo_t info = {};
    return waitid(P_PID, static_cast<id_t>(exim), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
           info.si_pid != 0;
}

// A session that is receiving a message ignores SIGTERM until its client goes: hence SIGKILL. Such
// a session is an orphan by then and has fallen to the guardian, who waits for it too: only when
// it is gone is its connection closed.
void EndSession(pid_t exim)
{
    killpg(exim, SIGTERM);
    for (int i = 0; i < 200 && !HasEnded(exim); i++)
        Pause();
    killpg(exim, SIGKILL);
    while (waitpid(-1, nullptr, 0) > 0)
        continue;
}

// The guardian's side. It keeps none of the test's handles but the end of the pipe: a connection
// held open here would outlive the test's own.
[[noreturn]] void Guard(int lifeHandle, const std::string& folder, const std::string& program)
{
    setsid();
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    dup2(lifeHandle, 3);
    close_range(4, ~0U, 0);
    const int null = open("/dev/null", O_RDWR);
    dup2(null, 0);
    dup2(null, 1);
    close(null);

    const pid_t exim = fork();
    if (exim == 0) {
        close(3);
        RunExim(program, folder);
    }
    pollfd life = { 3, POLLIN, 0 };
    while (exim > 0 && !HasEnded(exim) && poll(&life, 1, 20) == 0)
        continue;
    if (exim > 0 && HasEnded(exim))
        fputs(ReadWholeFile(folder + "/stderr").c_str(), stderr);
    if (exim > 0)
        EndSession(exim);
    // A delivery that was killed this moment may still hold a file open for an instant.
    std::error_code error;
    for (int i = 0; i < 100 && std::filesystem::exists(folder, error); i++) {
        std::filesystem::remove_all(folder, error);
        if (error)
            Pause();
    }
    _exit(0);
}

bool SpawnGuardian(EximServer& server)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    const std::string program = EximProgram();
    server.Guardian = fork();
    if (server.Guardian == 0)
        Guard(ends[0], server.Folder, program);
    close(ends[0]);
    server.LifeHandle = ends[1];
    return server.Guardian > 0;
}

// Looks without connecting, which would use up a session: state 0A is LISTEN.
bool PortListens(uint32_t port)
{
    char wanted[32];
    snprintf(wanted, sizeof wanted, "0100007F:%04X 00000000:0000 0A", port);
    return ReadWholeFile("/proc/net/tcp").find(wanted) != std::string::npos;
}

// Waits until the port is open and the server itself says that it opened it: a stranger on the
// same port would answer just as well.
bool WaitUntilReady(EximServer& server)
{
    const auto begin = std::chrono::steady_clock::now();
    while (!PatienceIsOver(begin)) {
        if (waitpid(server.Guardian, nullptr, WNOHANG) == server.Guardian) {
            server.Guardian = 0;
            return false;
        }
        const std::string log = ReadWholeFile(server.Folder + "/spool/mainlog");
        if (log.find("listening for SMTP") != std::string::npos && PortListens(server.Port) &&
            (server.TlsPort == 0 || PortListens(server.TlsPort)))
            return true;
        Pause();
    }
    return false;
}

// Maildir names begin with the time of arrival, in seconds and microseconds: "1700000000.M5P77.host".
std::pair<unsigned long, unsigned long> ArrivalTime(const std::string& name)
{
    char* end = nullptr;
    const unsigned long seconds = strtoul(name.c_str(), &end, 10);
    const bool hasMicroseconds = end[0] == '.' && end[1] != 0;
    return { seconds, hasMicroseconds ? strtoul(end + 2, nullptr, 10) : 0 };
}

std::vector<std::string> ListMail(const EximServer& server, const std::string& user)
{
    const std::string folder = server.Folder + "/mail/" + user + "/new";
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
        return ArrivalTime(a) < ArrivalTime(b);
    });
    for (std::string& name : names)
        name = folder + "/" + name;
    return names;
}

} // namespace

std::string StartExim(EximServer& server, const std::string& certificate)
{
    if (EximProgram().empty())
        return "no Exim on this machine: install exim4-daemon-light";
    const Account account = ServerAccount();
    if (account.User.empty())
        return "no account to run the server under";
    for (int attempt = 0; attempt < StartAttempts; attempt++) {
        server.Port = FreePort();
        server.TlsPort = certificate.empty() ? 0 : FreePort();
        const std::string problem = MakeFolder(server, account, certificate);
        if (!problem.empty())
            return problem;
        if (SpawnGuardian(server) && WaitUntilReady(server))
            return "";
        StopExim(server);
    }
    return "Exim does not start";
}

void StopExim(EximServer& server)
{
    if (server.LifeHandle >= 0)
        close(server.LifeHandle);
    if (server.Guardian > 0)
        waitpid(server.Guardian, nullptr, 0);
    server.LifeHandle = -1;
    server.Guardian = 0;
}

size_t CountMail(const EximServer& server, const std::string& user)
{
    return ListMail(server, user).size();
}

bool WaitForMail(const EximServer& server, const std::string& user, size_t n, std::string& bytesOut)
{
    const auto begin = std::chrono::steady_clock::now();
    while (!PatienceIsOver(begin)) {
        // A message comes into this folder by a rename: what stands here is whole.
        const std::vector<std::string> names = ListMail(server, user);
        if (names.size() >= n) {
            bytesOut = ReadWholeFile(names[n - 1]);
            return true;
        }
        Pause();
    }
    ADD_FAILURE() << "message " << n << " for " << user << " did not arrive";
    return false;
}
