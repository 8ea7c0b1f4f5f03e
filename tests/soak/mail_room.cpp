// The server's process; see mail_room.h.
#include "tests/soak/mail_room.h"

#include <arpa/inet.h>
#include <atomic>
#include <map>
#include <mutex>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Box = std::vector<std::string>; // of messages; a deleted one is a single zero byte
const std::string Gone(1, 0);

std::mutex BoxesLock;
std::map<std::string, Box> Boxes;

struct Link {
    int Socket = -1;
    size_t Piece = 0; // bytes handed to the system at a time
    std::string Input;
    std::string Name; // of the mailbox
    Box Mail;         // what it held at the login
};

// --- lines ---

bool ReadLine(Link& link, std::string& lineOut)
{
    size_t end = 0;
    for (size_t from = 0; (end = link.Input.find("\r\n", from)) == std::string::npos;) {
        from = link.Input.empty() ? 0 : link.Input.size() - 1;
        char block[65536];
        const ssize_t count = recv(link.Socket, block, sizeof block, 0);
        if (count < 1)
            return false;
        link.Input.append(block, static_cast<size_t>(count));
    }
    lineOut = link.Input.substr(0, end);
    link.Input.erase(0, end + 2);
    return true;
}

void Say(Link& link, const std::string& text)
{
    const std::string bytes = text + "\r\n";
    for (size_t at = 0; at < bytes.size();) {
        const size_t count = std::min(link.Piece, bytes.size() - at);
        const ssize_t sent = send(link.Socket, bytes.data() + at, count, MSG_NOSIGNAL);
        if (sent < 1)
            return; // the next read tells that the client has gone
        at += static_cast<size_t>(sent);
    }
}

bool Begins(const std::string& line, const char* start)
{
    return line.rfind(start, 0) == 0;
}

// --- mailboxes ---

void Store(const std::string& name, const std::string& message)
{
    const std::lock_guard<std::mutex> guard(BoxesLock);
    Boxes[name].push_back(message);
}

void OpenBox(Link& link, const std::string& name)
{
    const std::lock_guard<std::mutex> guard(BoxesLock);
    link.Name = name;
    link.Mail = Boxes[name];
}

// Nobody else uses the mailbox meanwhile: each channel has one of its own.
void KeepBox(Link& link)
{
    const std::lock_guard<std::mutex> guard(BoxesLock);
    std::erase(link.Mail, Gone);
    Boxes[link.Name] = link.Mail;
}

// The message that a command names by the number behind its first blank; null: there is none.
std::string* Find(Link& link, const std::string& arguments)
{
    const size_t number = std::stoul("0" + arguments);
    if (number < 1 || number > link.Mail.size() || link.Mail[number - 1] == Gone)
        return nullptr;
    return &link.Mail[number - 1];
}

// --- SMTP ---

bool TakeData(Link& link, std::string& messageOut)
{
    messageOut.clear();
    for (std::string line; ReadLine(link, line);) {
        if (line == ".")
            return true;
        messageOut += line.substr(line[0] == '.' ? 1 : 0) + "\r\n";
    }
    return false;
}

void ServeSmtp(Link& link)
{
    std::string recipient, message;
    Say(link, "220 soak");
    for (std::string line; ReadLine(link, line);) {
        if (line == "DATA") {
            Say(link, "354 go on");
            if (!TakeData(link, message))
                return;
            Store(recipient, message);
            Say(link, "250 taken");
        } else if (line == "QUIT") {
            return Say(link, "221 bye");
        } else if (Begins(line, "RCPT TO:<")) {
            recipient = line.substr(9, line.find('@') - 9);
            Say(link, "250 ok");
        } else {
            const bool isKnown = Begins(line, "HELO ") || Begins(line, "MAIL FROM:<");
            Say(link, isKnown ? "250 ok" : "500 what is " + line);
        }
    }
}

// --- POP3 ---

void SendLines(Link& link, const std::string& message)
{
    std::string lines = "+OK here\r\n";
    for (size_t at = 0, end = 0; at < message.size(); at = end) {
        end = message.find('\n', at) + 1;
        lines += message[at] == '.' ? "." : "";
        lines.append(message, at, end - at);
    }
    Say(link, lines + ".");
}

// A command that names a message.
void ServePop3Message(Link& link, const std::string& verb, std::string* message)
{
    if (message == nullptr)
        return Say(link, "-ERR no such message");
    if (verb == "RETR ")
        return SendLines(link, *message);
    *message = Gone;
    Say(link, "+OK");
}

void ServePop3(Link& link)
{
    Say(link, "+OK soak");
    for (std::string line; ReadLine(link, line);) {
        const std::string verb = line.substr(0, 5);
        if (verb == "USER ") {
            OpenBox(link, line.substr(5));
            Say(link, "+OK");
        } else if (verb == "PASS ") {
            Say(link, "+OK");
        } else if (line == "STAT") {
            Say(link, "+OK " + std::to_string(link.Mail.size()) + " 1");
        } else if (verb == "RETR " || verb == "DELE ") {
            ServePop3Message(link, verb, Find(link, line.substr(5)));
        } else if (line == "QUIT") {
            KeepBox(link);
            return Say(link, "+OK bye");
        } else {
            Say(link, "-ERR what is " + line);
        }
    }
}

// --- IMAP ---

void SendWhole(Link& link, const std::string& tag, const std::string& message)
{
    Say(link, "* 1 FETCH (RFC822 {" + std::to_string(message.size()) + "}\r\n" + message + ")\r\n" +
                  tag + "OK fetched");
}

// FETCH and STORE.
void ServeImapMessage(Link& link, const std::string& tag, const std::string& command)
{
    std::string* const message = Find(link, command.substr(6));
    const std::string rest = command.substr(command.find(' ', 6));
    if (message == nullptr)
        return Say(link, tag + "NO such message");
    if (rest == " RFC822")
        return SendWhole(link, tag, *message);
    if (rest != " +FLAGS (\\Deleted)")
        return Say(link, tag + "BAD " + command);
    *message = Gone;
    Say(link, tag + "OK stored");
}

void ServeImap(Link& link)
{
    Say(link, "* OK soak");
    for (std::string line; ReadLine(link, line);) {
        const std::string tag = line.substr(0, line.find(' ') + 1);
        const std::string command = line.substr(tag.size());
        if (Begins(command, "LOGIN ")) {
            OpenBox(link, command.substr(6, command.find(' ', 6) - 6));
            Say(link, tag + "OK in");
        } else if (Begins(command, "SELECT ")) {
            Say(link, "* " + std::to_string(link.Mail.size()) + " EXISTS\r\n" + tag + "OK");
        } else if (Begins(command, "FETCH ") || Begins(command, "STORE ")) {
            ServeImapMessage(link, tag, command);
        } else if (command == "EXPUNGE") {
            KeepBox(link);
            Say(link, tag + "OK");
        } else if (command == "LOGOUT") {
            return Say(link, "* BYE\r\n" + tag + "OK");
        } else {
            Say(link, tag + "BAD " + command);
        }
    }
}

// --- the process ---

void Accept(int listener, void (*serve)(Link&))
{
    static std::atomic<size_t> turn;
    static constexpr size_t pieces[] = { 1u << 20, 4096, 1000, 77 };
    for (;;) {
        Link link;
        link.Socket = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        link.Piece = pieces[turn++ % std::size(pieces)];
        if (link.Socket < 0)
            continue;
        const int on = 1;
        setsockopt(link.Socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        std::thread([link, serve]() mutable {
            serve(link);
            close(link.Socket);
        }).detach();
    }
}

// A listening socket on a free port, -1: none can be had.
int Listen(uint32_t& portOut)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        listen(listener, SOMAXCONN) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        return -1;
    portOut = ntohs(address.sin_port);
    return listener;
}

} // namespace

bool OpenMailRoom(MailRoom& room)
{
    const int listeners[] = { Listen(room.SmtpPort), Listen(room.Pop3Port), Listen(room.ImapPort) };
    int leash[2];
    if (pipe(leash) != 0 || listeners[0] < 0 || listeners[1] < 0 || listeners[2] < 0)
        return false;
    room.Leash = leash[1];
    room.Process = fork();
    if (room.Process == 0) {
        close(leash[1]);
        std::thread(Accept, listeners[0], ServeSmtp).detach();
        std::thread(Accept, listeners[1], ServePop3).detach();
        std::thread(Accept, listeners[2], ServeImap).detach();
        char byte = 0;
        while (read(leash[0], &byte, 1) > 0) {
        }
        _exit(0);
    }
    close(leash[0]);
    for (const int listener : listeners)
        close(listener);
    return room.Process > 0;
}

void CloseMailRoom(const MailRoom& room)
{
    close(room.Leash);
    waitpid(room.Process, nullptr, 0);
}
