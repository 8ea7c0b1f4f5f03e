// Processes and ports by what stands in /proc; see stunnel_watch.h. A process may vanish at any
// moment: what can't be read is not there.
#include "tests/real/stunnel_watch.h"

#include <arpa/inet.h>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

static constexpr int MostLooks = 6000; // of 10 ms: longer than anything takes that works at all

static std::string ReadProc(const std::string& path)
{
    std::string text;
    FILE* file = fopen(path.c_str(), "re");
    if (file == nullptr)
        return text;
    char block[4096];
    for (size_t count; (count = fread(block, 1, sizeof block, file)) > 0;)
        text.append(block, count);
    fclose(file);
    return text;
}

static std::vector<int32_t> NumbersIn(const std::string& folder)
{
    std::vector<int32_t> numbers;
    DIR* entries = opendir(folder.c_str());
    if (entries == nullptr)
        return numbers;
    while (const dirent* entry = readdir(entries))
        if (isdigit(static_cast<unsigned char>(entry->d_name[0])) != 0)
            numbers.push_back(atoi(entry->d_name));
    closedir(entries);
    return numbers;
}

std::vector<int32_t> ChildProcesses()
{
    std::vector<int32_t> children;
    for (const int32_t process : NumbersIn("/proc")) {
        const std::string stat = ReadProc("/proc/" + std::to_string(process) + "/stat");
        const size_t state = stat.rfind(") "); // behind the program's name
        if (state != std::string::npos && atoi(stat.c_str() + state + 4) == getpid())
            children.push_back(process);
    }
    return children;
}

bool ProcessExists(int32_t process)
{
    return access(("/proc/" + std::to_string(process)).c_str(), F_OK) == 0;
}

void AwaitEnd(int32_t process)
{
    siginfo_t info = {};
    waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOWAIT);
}

bool HasStandardStreamsOnly(int32_t process)
{
    for (int i = 0; i < MostLooks; ++i) {
        bool hasMore = false;
        for (const int32_t number : NumbersIn("/proc/" + std::to_string(process) + "/fd"))
            hasMore |= number > STDERR_FILENO;
        if (!hasMore)
            return true;
        usleep(10000);
    }
    return false;
}

bool PortIsOpen(uint32_t port)
{
    char local[16];
    snprintf(local, sizeof local, ":%04X ", port);
    for (const char* table : { "/proc/net/tcp", "/proc/net/tcp6" }) {
        const std::string text = ReadProc(table);
        // The local address and the far one, which is all zeros, then the state: 0A is LISTEN.
        for (size_t at = text.find(local); at != std::string::npos; at = text.find(local, at + 1)) {
            const size_t state = text.find(' ', at + 6);
            if (state != std::string::npos && text.compare(state, 4, " 0A ") == 0)
                return true;
        }
    }
    return false;
}

bool AwaitPort(uint32_t port)
{
    for (int i = 0; i < MostLooks; ++i) {
        if (PortIsOpen(port))
            return true;
        usleep(10000);
    }
    return false;
}

uint32_t FreeTunnelPort()
{
    constexpr uint32_t First = 10000;
    constexpr uint32_t Count = 20000;
    static uint32_t next = static_cast<uint32_t>(getpid()) * 16;
    for (uint32_t i = 0; i < Count; ++i) {
        const uint32_t port = First + next++ % Count;
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        const int handle = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const bool isFree =
            bind(handle, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
        close(handle);
        if (isFree)
            return port;
    }
    return 0;
}
