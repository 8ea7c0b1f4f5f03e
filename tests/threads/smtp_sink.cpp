// The sink's thread: one poll over the listener and all connections; see smtp_sink.h.
#include "tests/threads/smtp_sink.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

struct SinkClient {
    int Handle;
    std::string Received; // not yet a whole line
    std::string Sender;
    std::string Message; // of the message under way, dots taken out
    bool InData = false;
    bool HasQuit = false;
};

// The replies are short and few: a socket that can't take one whole is as good as gone.
void Reply(SinkClient& client, const std::string& line)
{
    const std::string bytes = line + "\r\n";
    if (send(client.Handle, bytes.data(), bytes.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(bytes.size()))
        client.HasQuit = true;
}

bool BeginsWith(const std::string& line, const char* word)
{
    return strncasecmp(line.c_str(), word, std::char_traits<char>::length(word)) == 0;
}

void FinishMessage(SmtpSink& sink, SinkClient& client)
{
    client.InData = false;
    const size_t end = client.Message.find("\r\n\r\n");
    if (end == std::string::npos)
        sink.Strays.push_back("message without an empty line: " + client.Message);
    else
        sink.Messages.push_back({ client.Sender, client.Message.substr(0, end + 2),
                                  ChecksumOf(client.Message.substr(end + 4)) });
    Reply(client, "250 taken");
}

void TakeDataLine(SmtpSink& sink, SinkClient& client, const std::string& line)
{
    if (line == ".")
        FinishMessage(sink, client);
    else
        client.Message += line.substr(line[0] == '.' ? 1 : 0) + "\r\n";
}

void TakeCommand(SmtpSink& sink, SinkClient& client, const std::string& line)
{
    if (BeginsWith(line, "HELO ") || BeginsWith(line, "RCPT TO:<") || line == "RSET") {
        Reply(client, "250 ok");
    } else if (BeginsWith(line, "MAIL FROM:")) {
        client.Sender = line.substr(10);
        Reply(client, "250 ok");
    } else if (line == "DATA") {
        client.InData = true;
        client.Message.clear();
        Reply(client, "354 go on");
    } else if (line == "QUIT") {
        Reply(client, "221 bye");
        client.HasQuit = true;
    } else {
        sink.Strays.push_back(line);
        Reply(client, "500 what?");
    }
}

void TakeLines(SmtpSink& sink, SinkClient& client)
{
    size_t start = 0;
    for (size_t end = 0; (end = client.Received.find("\r\n", start)) != std::string::npos;) {
        const std::string line = client.Received.substr(start, end - start);
        start = end + 2;
        if (client.InData)
            TakeDataLine(sink, client, line);
        else
            TakeCommand(sink, client, line);
    }
    client.Received.erase(0, start);
}

// False once the connection is over.
bool Serve(SmtpSink& sink, SinkClient& client)
{
    char bytes[16384];
    const ssize_t count = recv(client.Handle, bytes, sizeof bytes, 0);
    if (count < 0 && errno == EINTR)
        return true;
    if (count > 0) {
        client.Received.append(bytes, static_cast<size_t>(count));
        TakeLines(sink, client);
        if (!client.HasQuit)
            return true;
    }
    if (client.InData)
        sink.CutShort++;
    close(client.Handle);
    return false;
}

void Accept(SmtpSink& sink, std::vector<SinkClient>& clients)
{
    const int handle = accept4(sink.Listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (handle < 0)
        return;
    sink.Connections++;
    clients.push_back({ handle, "", "", "" });
    Reply(clients.back(), "220 sink");
}

void RunSink(SmtpSink& sink)
{
    std::vector<SinkClient> clients;
    std::vector<pollfd> waits;
    for (;;) {
        waits = { { sink.StopHandles[0], POLLIN, 0 }, { sink.Listener, POLLIN, 0 } };
        for (const SinkClient& client : clients)
            waits.push_back({ client.Handle, POLLIN, 0 });
        if (poll(waits.data(), waits.size(), -1) < 0)
            continue;
        bool isBusy = false;
        for (size_t i = clients.size(); i-- > 0;) {
            if (waits[i + 2].revents == 0)
                continue;
            isBusy = true;
            if (!Serve(sink, clients[i]))
                clients.erase(clients.begin() + static_cast<ptrdiff_t>(i));
        }
        if (waits[1].revents != 0) {
            isBusy = true;
            Accept(sink, clients);
        }
        if (waits[0].revents != 0 && !isBusy)
            break;
    }
    for (const SinkClient& client : clients)
        close(client.Handle);
}

} // namespace

bool StartSink(SmtpSink& sink)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    sink.Listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(sink.Listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        listen(sink.Listener, 64) != 0 ||
        getsockname(sink.Listener, reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
        pipe(sink.StopHandles) != 0)
        return false;
    sink.Port = ntohs(address.sin_port);
    sink.Thread = std::thread([&sink] { RunSink(sink); });
    return true;
}

void StopSink(SmtpSink& sink)
{
    if (write(sink.StopHandles[1], "x", 1) == 1)
        sink.Thread.join();
    close(sink.StopHandles[0]);
    close(sink.StopHandles[1]);
    close(sink.Listener);
}

uint32_t ChecksumOf(const std::string& bytes)
{
    uint32_t sum = 2166136261U;
    for (const char byte : bytes)
        sum = (sum ^ static_cast<uint8_t>(byte)) * 16777619U;
    return sum;
}
