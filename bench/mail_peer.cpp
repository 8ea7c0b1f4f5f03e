// The serving mailbox server; see mail_peer.h.
#include "bench/mail_peer.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
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

// The messages as the protocol sends them: by POP3 with dots doubled, between the server's lines.
static std::string LoadMessage(PeerProtocol protocol, const std::string& file)
{
    const bool isStuffed = protocol == PEER_POP3;
    std::string bytes = isStuffed ? "+OK message follows\r\n" : "";
    FILE* in = fopen(file.c_str(), "rb");
    if (in == nullptr)
        _exit(1);
    static char line[1 << 16];
    while (fgets(line, sizeof line, in) != nullptr) {
        if (isStuffed && line[0] == '.')
            bytes += '.';
        bytes += line;
    }
    fclose(in);
    return isStuffed ? bytes + ".\r\n" : bytes;
}

static bool AnswerPop3(int client, const std::string& line,
                       const std::vector<std::string>& messages)
{
    if (line.rfind("RETR ", 0) == 0) {
        const size_t number = strtoul(line.c_str() + 5, nullptr, 10);
        const bool isThere = number >= 1 && number <= messages.size();
        return Send(client, isThere ? messages[number - 1] : "-ERR no such message\r\n");
    }
    if (line.rfind("CAPA", 0) == 0)
        return Send(client, "+OK\r\nUSER\r\n.\r\n");
    return Send(client, "+OK\r\n") && line.rfind("QUIT", 0) != 0;
}

// The message as a literal (RFC 3501, 4.3), under the name by which it was asked for.
static bool SendLiteral(int client, const std::string& request,
                        const std::vector<std::string>& messages)
{
    char name[32] = "";
    size_t number = 0;
    if (sscanf(request.c_str(), "FETCH %zu %31s", &number, name) != 2 || number < 1 ||
        number > messages.size())
        return true;
    const std::string& message = messages[number - 1];
    return Send(client, "* " + std::to_string(number) + " FETCH (" + name + " {" +
                            std::to_string(message.size()) + "}\r\n") &&
           Send(client, message) && Send(client, ")\r\n");
}

static bool AnswerImap(int client, const std::string& line,
                       const std::vector<std::string>& messages)
{
    const size_t blank = line.find(' ');
    if (blank == std::string::npos)
        return false;
    const std::string request = line.substr(blank + 1);
    std::string answer;
    if (request.rfind("CAPABILITY", 0) == 0)
        answer = "* CAPABILITY IMAP4rev1\r\n";
    else if (request.rfind("SELECT", 0) == 0)
        answer = "* " + std::to_string(messages.size()) + " EXISTS\r\n";
    else if (!SendLiteral(client, request, messages))
        return false;
    return Send(client, answer + line.substr(0, blank) + " OK done\r\n") &&
           request.rfind("LOGOUT", 0) != 0;
}

struct PeerWays {
    const char* Greeting;
    bool (*Answer)(int client, const std::string& line, const std::vector<std::string>& messages);
};

static const PeerWays Ways[] = {
    { "+OK ready\r\n", AnswerPop3 },            // PEER_POP3
    { "* OK IMAP4rev1 ready\r\n", AnswerImap }, // PEER_IMAP
};

static void Serve(int client, const PeerWays& ways, const std::vector<std::string>& messages)
{
    const int yes = 1;
    setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    if (!Send(client, ways.Greeting))
        return;
    std::string line;
    char byte = 0;
    while (recv(client, &byte, 1, 0) == 1) {
        line += byte;
        if (byte != '\n')
            continue;
        if (!ways.Answer(client, line, messages))
            return;
        line.clear();
    }
}

PeerProcess StartMailPeer(PeerProtocol protocol, const std::vector<std::string>& files)
{
    std::vector<std::string> messages; // filled in the new process
    return StartPeerProcess(
        [&] {
            for (const std::string& file : files)
                messages.push_back(LoadMessage(protocol, file));
        },
        [&](int client) { Serve(client, Ways[protocol], messages); });
}
