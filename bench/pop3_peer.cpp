// The serving POP3 server; see pop3_peer.h.
#include "bench/pop3_peer.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

static bool Send(int client, const std::string& bytes)
{
    for (size_t sent = 0; sent < bytes.size();) {
        const ssize_t count = send(client, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        sent += static_cast<size_t>(count);
    }
    return true;
}

// The answer to RETR: the message with its dots doubled, between the server's lines.
static std::string LoadAnswer(const std::string& file)
{
    std::string answer = "+OK message follows\r\n";
    FILE* in = fopen(file.c_str(), "rb");
    if (in == nullptr)
        _exit(1);
    static char line[1 << 16];
    while (fgets(line, sizeof line, in) != nullptr) {
        if (line[0] == '.')
            answer += '.';
        answer += line;
    }
    fclose(in);
    return answer + ".\r\n";
}

static bool Answer(int client, const std::string& line, const std::vector<std::string>& answers)
{
    if (line.rfind("RETR ", 0) == 0) {
        const size_t number = strtoul(line.c_str() + 5, nullptr, 10);
        const bool isThere = number >= 1 && number <= answers.size();
        return Send(client, isThere ? answers[number - 1] : "-ERR no such message\r\n");
    }
    if (line.rfind("CAPA", 0) == 0)
        return Send(client, "+OK\r\nUSER\r\n.\r\n");
    return Send(client, "+OK\r\n") && line.rfind("QUIT", 0) != 0;
}

static void Serve(int client, const std::vector<std::string>& answers)
{
    const int yes = 1;
    setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    if (!Send(client, "+OK ready\r\n"))
        return;
    std::string line;
    char byte = 0;
    while (recv(client, &byte, 1, 0) == 1) {
        line += byte;
        if (byte != '\n')
            continue;
        if (!Answer(client, line, answers))
            return;
        line.clear();
    }
}

[[noreturn]] static void RunPeer(int listener, const std::vector<std::string>& files)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::vector<std::string> answers;
    for (const std::string& file : files)
        answers.push_back(LoadAnswer(file));
    for (;;) {
        const int client = accept(listener, nullptr, nullptr);
        Serve(client, answers);
        close(client);
    }
}

Pop3Peer StartPop3Peer(const std::vector<std::string>& files)
{
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    sockaddr* const generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener, generic, length) != 0 || listen(listener, 8) != 0 ||
        getsockname(listener, generic, &length) != 0)
        return { 0, 0 };
    const pid_t process = fork();
    if (process == 0)
        RunPeer(listener, files);
    close(listener);
    return { process, ntohs(address.sin_port) };
}

void StopPop3Peer(const Pop3Peer& peer)
{
    kill(peer.Process, SIGKILL);
    waitpid(peer.Process, nullptr, 0);
}
