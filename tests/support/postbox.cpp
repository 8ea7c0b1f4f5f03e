// postbox: a small mail server for tests and the demo. It serves several clients with one thread,
// stores every message it takes in a folder, and delivers nothing.
//
//   postbox --folder DIR [--port N] [--user NAME:PASSWORD] [--once] [--verbose]
//
// Listens on 127.0.0.1 only, prints "smtp PORT" once it does, and runs until SIGTERM or SIGINT, or
// with --once until its first client has gone. With --user it takes mail only from who has logged in
// by AUTH PLAIN or LOGIN. With --verbose the dialogues are printed. This file holds the command line
// and the connections.
#include "postbox.h"

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

constexpr size_t ReadBlock = 16384;
// Bytes of replies that a client may leave unread before it is no longer listened to.
constexpr size_t OutputLimit = 65536;

struct Settings {
    const char* Folder;
    int Port;         // 0: any free one
    const char* User; // NAME:PASSWORD; null: nobody has to log in
    bool Once;
    bool Verbose;
};

static volatile sig_atomic_t StopAsked;

static void AskToStop(int)
{
    StopAsked = 1;
}

// --- command line ---

static bool ReadSettings(int count, char** words, Settings& settings)
{
    for (int i = 1; i < count; ++i) {
        const char* word = words[i];
        const char* value = i + 1 < count ? words[i + 1] : nullptr;
        if (strcmp(word, "--once") == 0)
            settings.Once = true;
        else if (strcmp(word, "--verbose") == 0)
            settings.Verbose = true;
        else if (strcmp(word, "--folder") == 0 && value)
            settings.Folder = words[++i];
        else if (strcmp(word, "--user") == 0 && value && strchr(value, ':'))
            settings.User = words[++i];
        else if (strcmp(word, "--port") == 0 && value)
            settings.Port = static_cast<int>(strtol(words[++i], nullptr, 10));
        else
            return false;
    }
    return settings.Folder && settings.Port >= 0 && settings.Port <= 65535;
}

// --- lines ---

void Reply(Client& client, std::string_view line)
{
    client.Output.append(line).append("\r\n");
    if (client.Verbose)
        printf("S: %.*s\n", static_cast<int>(line.size()), line.data());
}

static void HandOverLine(Client& client, std::string_view line, LineKind kind,
                         const Protocol& protocol)
{
    if (client.Verbose)
        printf("C: %.*s\n", static_cast<int>(line.size()), line.data());
    protocol.TakeLine(client, line, kind);
}

// One line with its LF. In data a leading dot may come on top of the limit.
static void TakeWholeLine(Client& client, std::string_view line, const Protocol& protocol)
{
    const size_t limit = LineLimit + (client.InData && line[0] == '.' ? 1 : 0);
    const bool tooLong = client.SkippingLine || line.size() > limit;
    client.SkippingLine = false;
    line.remove_suffix(1);
    if (tooLong)
        return HandOverLine(client, "", LineLong, protocol);
    if (!line.ends_with('\r'))
        return HandOverLine(client, line, LineBareFeed, protocol);
    line.remove_suffix(1);
    HandOverLine(client, line, LineWhole, protocol);
}

// Hands over every whole line of Input. The rest stays, but never grows without end.
static void TakeInput(Client& client, const Protocol& protocol)
{
    size_t start = 0;
    while (!client.Closing) {
        const size_t end = client.Input.find('\n', start);
        if (end == std::string::npos)
            break;
        const std::string_view input = client.Input;
        TakeWholeLine(client, input.substr(start, end + 1 - start), protocol);
        start = end + 1;
    }
    client.Input.erase(0, start);
    if (client.Input.size() > LineLimit + 1) {
        client.SkippingLine = true;
        client.Input.clear();
    }
}

// --- sockets ---

static int Listen(int port)
{
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (listener < 0)
        return -1;
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), size) < 0 ||
        listen(listener, SOMAXCONN) < 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) < 0) {
        close(listener);
        return -1;
    }
    printf("smtp %d\n", ntohs(address.sin_port));
    return listener;
}

static void Accept(int listener, const Settings& settings, const Protocol& protocol,
                   std::vector<Client>& clients)
{
    const int peer = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (peer < 0)
        return;
    Client client = {};
    client.Socket = peer;
    client.Folder = settings.Folder;
    client.User = settings.User;
    client.Verbose = settings.Verbose;
    clients.push_back(client);
    protocol.Greet(clients.back());
}

static bool WouldWait()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

// False: the client has gone.
static bool Receive(Client& client, const Protocol& protocol)
{
    char block[ReadBlock];
    const ssize_t count = recv(client.Socket, block, sizeof block, 0);
    if (count == 0)
        return false;
    if (count < 0)
        return WouldWait();
    client.Input.append(block, static_cast<size_t>(count));
    TakeInput(client, protocol);
    return true;
}

// False: the client has gone, or all is said and it asked to close.
static bool Send(Client& client)
{
    const ssize_t count =
        send(client.Socket, client.Output.data(), client.Output.size(), MSG_NOSIGNAL);
    if (count < 0)
        return WouldWait();
    client.Output.erase(0, static_cast<size_t>(count));
    return !(client.Closing && client.Output.empty());
}

static short WantedEvents(const Client& client)
{
    const bool listens = !client.Closing && client.Output.size() < OutputLimit;
    return static_cast<short>((listens ? POLLIN : 0) | (client.Output.empty() ? 0 : POLLOUT));
}

static bool ServeClient(Client& client, short events, const Protocol& protocol)
{
    bool stays = true;
    if (events & (POLLERR | POLLNVAL))
        stays = false;
    if (stays && (events & POLLIN))
        stays = Receive(client, protocol);
    if (stays && !client.Output.empty())
        stays = Send(client);
    // A peer that has hung up and left nothing to read would wake the poll for ever.
    return stays && !((events & POLLHUP) && !(events & POLLIN));
}

// One round: waits for events, then serves every client that has one. Returns the clients ended.
static int ServeRound(int listener, const Settings& settings, const Protocol& protocol,
                      const sigset_t& waitMask, std::vector<Client>& clients)
{
    std::vector<pollfd> polls;
    polls.push_back({ listener, POLLIN, 0 });
    for (const Client& client : clients)
        polls.push_back({ client.Socket, WantedEvents(client), 0 });
    // The stop signals are let in here only, so that none is lost between the test and the wait.
    if (ppoll(polls.data(), polls.size(), nullptr, &waitMask) < 0)
        return 0;
    int ended = 0;
    for (size_t i = clients.size(); i-- > 0;) {
        const short events = polls[i + 1].revents;
        if (events == 0 || ServeClient(clients[i], events, protocol))
            continue;
        close(clients[i].Socket);
        clients.erase(clients.begin() + static_cast<std::ptrdiff_t>(i));
        ++ended;
    }
    if (polls[0].revents & POLLIN)
        Accept(listener, settings, protocol, clients);
    return ended;
}

static sigset_t CatchStopSignals()
{
    struct sigaction action = {};
    action.sa_handler = AskToStop;
    sigset_t blocked, waitMask;
    sigemptyset(&blocked);
    for (const int number : { SIGTERM, SIGINT }) {
        sigaction(number, &action, nullptr);
        sigaddset(&blocked, number);
    }
    sigprocmask(SIG_BLOCK, &blocked, &waitMask);
    sigdelset(&waitMask, SIGTERM);
    sigdelset(&waitMask, SIGINT);
    return waitMask;
}

int main(int count, char** words)
{
    Settings settings = {};
    if (!ReadSettings(count, words, settings)) {
        fputs(
            "usage: postbox --folder DIR [--port N] [--user NAME:PASSWORD] [--once] [--verbose]\n",
            stderr);
        return 1;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const sigset_t waitMask = CatchStopSignals();
    const int listener = Listen(settings.Port);
    if (listener < 0) {
        fprintf(stderr, "postbox: can't listen on port %d: %s\n", settings.Port, strerror(errno));
        return 2;
    }
    std::vector<Client> clients;
    int ended = 0;
    while (!StopAsked && !(settings.Once && ended > 0 && clients.empty()))
        ended += ServeRound(listener, settings, SmtpProtocol, waitMask, clients);
    for (const Client& client : clients)
        close(client.Socket);
    close(listener);
    return 0;
}
