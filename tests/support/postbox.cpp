// postbox: a small mail server for tests and the demo. It serves several clients with one thread,
// stores every message it takes by SMTP in a folder, delivers nothing, and hands the folder out by
// POP3 and IMAP.
//
//   postbox --folder DIR [--port N] [--pop3-port N] [--imap-port N] [--user NAME:PASSWORD] [--once]
//           [--verbose]
//
// Listens on 127.0.0.1 only, prints the lines "smtp PORT", "pop3 PORT" and "imap PORT" once it does,
// and runs until SIGTERM or SIGINT, or with --once until its first client has gone. With --user it
// takes mail only from who has logged in by AUTH PLAIN or LOGIN, and opens the mailbox to nobody
// else. With --verbose the dialogues are printed. This file holds the command line and the
// connections.
#include "postbox.h"

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

constexpr size_t ReadBlock = 16384;
// Bytes of replies that a client may leave unread before it is no longer listened to.
constexpr size_t OutputLimit = 65536;

struct Service {
    const Protocol* Spoken;
    int Port; // 0: any free one
    int Listener;
};

struct Settings {
    Service Services[3];
    const char* Folder;
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

// "--port 25" and the like; false: the option names no service, or the number no port.
static bool SetPort(const char* option, const char* number, Settings& settings)
{
    for (Service& service : settings.Services) {
        if (strcmp(option, service.Spoken->PortOption) != 0)
            continue;
        service.Port = static_cast<int>(strtol(number, nullptr, 10));
        return service.Port >= 0 && service.Port <= 65535;
    }
    return false;
}

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
        else if (value && SetPort(word, value, settings))
            ++i;
        else
            return false;
    }
    return settings.Folder != nullptr;
}

// --- lines ---

void Reply(Client& client, std::string_view line)
{
    client.Output.append(line).append("\r\n");
    if (client.Verbose)
        printf("S: %.*s\n", static_cast<int>(line.size()), line.data());
}

static void HandOverLine(Client& client, std::string_view line, LineKind kind)
{
    if (client.Verbose)
        printf("C: %.*s\n", static_cast<int>(line.size()), line.data());
    client.Spoken->TakeLine(client, line, kind);
}

// One line with its LF. In data a leading dot may come on top of the limit.
static void TakeWholeLine(Client& client, std::string_view line)
{
    const size_t limit = LineLimit + (client.InData && line[0] == '.' ? 1 : 0);
    const bool tooLong = client.SkippingLine || line.size() > limit;
    client.SkippingLine = false;
    line.remove_suffix(1);
    if (tooLong)
        return HandOverLine(client, "", LineLong);
    if (!line.ends_with('\r'))
        return HandOverLine(client, line, LineBareFeed);
    line.remove_suffix(1);
    HandOverLine(client, line, LineWhole);
}

// Hands over every whole line of Input. The rest stays, but never grows without end.
static void TakeInput(Client& client)
{
    size_t start = 0;
    while (!client.Closing) {
        const size_t end = client.Input.find('\n', start);
        if (end == std::string::npos)
            break;
        const std::string_view input = client.Input;
        TakeWholeLine(client, input.substr(start, end + 1 - start));
        start = end + 1;
    }
    client.Input.erase(0, start);
    if (client.Input.size() > LineLimit + 1) {
        client.SkippingLine = true;
        client.Input.clear();
    }
}

// --- sockets ---

// The listening socket, -1: none can be had. The port is told once it is known.
static int Listen(const char* name, int port)
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
    printf("%s %d\n", name, ntohs(address.sin_port));
    return listener;
}

static void Accept(const Service& service, const Settings& settings, std::vector<Client>& clients)
{
    const int peer = accept4(service.Listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (peer < 0)
        return;
    Client client = {};
    client.Socket = peer;
    client.Spoken = service.Spoken;
    client.Folder = settings.Folder;
    client.User = settings.User;
    client.Verbose = settings.Verbose;
    clients.push_back(client);
    service.Spoken->Greet(clients.back());
}

static bool WouldWait()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

// False: the client has gone.
static bool Receive(Client& client)
{
    char block[ReadBlock];
    const ssize_t count = recv(client.Socket, block, sizeof block, 0);
    if (count == 0)
        return false;
    if (count < 0)
        return WouldWait();
    client.Input.append(block, static_cast<size_t>(count));
    TakeInput(client);
    return true;
}

// False: the client has gone, or all is said and it asked to close.
static bool Send(Client& client)
{
    const ssize_t count = send(client.Socket, client.Output.data() + client.Sent,
                               client.Output.size() - client.Sent, MSG_NOSIGNAL);
    if (count < 0)
        return WouldWait();
    client.Sent += static_cast<size_t>(count);
    if (client.Sent < client.Output.size())
        return true;
    client.Output.clear();
    client.Sent = 0;
    return !client.Closing;
}

static short WantedEvents(const Client& client)
{
    const bool listens = !client.Closing && client.Output.size() - client.Sent < OutputLimit;
    return static_cast<short>((listens ? POLLIN : 0) | (client.Output.empty() ? 0 : POLLOUT));
}

static bool ServeClient(Client& client, short events)
{
    bool stays = true;
    if (events & (POLLERR | POLLNVAL))
        stays = false;
    if (stays && (events & POLLIN))
        stays = Receive(client);
    if (stays && !client.Output.empty())
        stays = Send(client);
    // A peer that has hung up and left nothing to read would wake the poll for ever.
    return stays && !((events & POLLHUP) && !(events & POLLIN));
}

// Serves those of the clients that have an event; the first of polls is the first client's. Returns
// the clients ended.
static int ServeClients(const pollfd* polls, std::vector<Client>& clients)
{
    int ended = 0;
    for (size_t i = clients.size(); i-- > 0;) {
        const short events = polls[i].revents;
        if (events == 0 || ServeClient(clients[i], events))
            continue;
        close(clients[i].Socket);
        clients.erase(clients.begin() + static_cast<std::ptrdiff_t>(i));
        ++ended;
    }
    return ended;
}

// One round: waits for events and answers them. Returns the clients ended.
static int ServeRound(const Settings& settings, const sigset_t& waitMask,
                      std::vector<Client>& clients)
{
    std::vector<pollfd> polls;
    for (const Service& service : settings.Services)
        polls.push_back({ service.Listener, POLLIN, 0 });
    for (const Client& client : clients)
        polls.push_back({ client.Socket, WantedEvents(client), 0 });
    // The stop signals are let in here only, so that none is lost between the test and the wait.
    if (ppoll(polls.data(), polls.size(), nullptr, &waitMask) < 0)
        return 0;
    constexpr size_t serviceCount = std::size(Settings{}.Services);
    const int ended = ServeClients(polls.data() + serviceCount, clients);
    for (size_t i = 0; i < serviceCount; ++i)
        if (polls[i].revents & POLLIN)
            Accept(settings.Services[i], settings, clients);
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

static bool OpenServices(Settings& settings)
{
    for (Service& service : settings.Services) {
        service.Listener = Listen(service.Spoken->Name, service.Port);
        if (service.Listener >= 0)
            continue;
        fprintf(stderr, "postbox: can't listen on port %d: %s\n", service.Port, strerror(errno));
        return false;
    }
    return true;
}

int main(int count, char** words)
{
    Settings settings = {};
    settings.Services[0].Spoken = &SmtpProtocol;
    settings.Services[1].Spoken = &Pop3Protocol;
    settings.Services[2].Spoken = &ImapProtocol;
    if (!ReadSettings(count, words, settings)) {
        fputs("usage: postbox --folder DIR [--port N] [--pop3-port N] [--imap-port N] "
              "[--user NAME:PASSWORD] [--once] [--verbose]\n",
              stderr);
        return 1;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const sigset_t waitMask = CatchStopSignals();
    if (!OpenServices(settings))
        return 2;
    std::vector<Client> clients;
    int ended = 0;
    while (!StopAsked && !(settings.Once && ended > 0 && clients.empty()))
        ended += ServeRound(settings, waitMask, clients);
    for (const Client& client : clients)
        close(client.Socket);
    for (const Service& service : settings.Services)
        close(service.Listener);
    return 0;
}
