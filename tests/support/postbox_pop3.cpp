// POP3 as the test mail server speaks it (RFC 1939, CAPA of RFC 2449): the folder of stored
// messages is the one mailbox. Strict about syntax and order, so that a client's fault becomes a
// reply and not a guess.
#include "postbox.h"

constexpr size_t CommandLimit = 255 - 2; // RFC 2449, 4.: bytes of a command, less CR LF
constexpr size_t NoNumber = 0;

enum Stage { BeforeLogin = 1, BehindLogin = 2, AnyStage = 3 };

struct Pop3Command {
    std::string_view Verb;
    int Stages; // sum of Stage
    size_t LeastWords, MostWords;
    // Arguments are what follows the verb, without the blank.
    void (*Run)(Client& client, std::string_view arguments);
};

// --- numbers ---

// The message that an argument names; null: the client has been told that there is none.
static StoredMessage* FindMessage(Client& client, std::string_view argument)
{
    size_t number = NoNumber;
    if (!ParseNumber(argument, number)) {
        Reply(client, "-ERR a message number is wanted");
        return nullptr;
    }
    if (number < 1 || number > client.Mailbox.size() || client.Mailbox[number - 1].IsDeleted) {
        Reply(client, "-ERR no such message");
        return nullptr;
    }
    return &client.Mailbox[number - 1];
}

static std::string TotalsOf(const Client& client)
{
    size_t count = 0;
    size_t size = 0;
    for (const StoredMessage& message : client.Mailbox) {
        count += message.IsDeleted ? 0 : 1;
        size += message.IsDeleted ? 0 : message.Size;
    }
    return std::to_string(count) + " " + std::to_string(size);
}

// --- logging in ---

static void User(Client& client, std::string_view arguments)
{
    client.MailboxUser = arguments;
    Reply(client, "+OK now the password");
}

// The password is the rest of the line, blanks and all.
static void Pass(Client& client, std::string_view arguments)
{
    const std::string account = client.MailboxUser + ":" + std::string(arguments);
    if (client.MailboxUser.empty())
        return Reply(client, "-ERR say USER first");
    client.MailboxUser.clear();
    if (client.User && account != client.User)
        return Reply(client, "-ERR [AUTH] user or password is wrong");
    client.MailboxIsOpen = true;
    client.Mailbox = ListMessages(client.Folder);
    Reply(client, "+OK " + TotalsOf(client));
}

static void Capa(Client& client, std::string_view)
{
    for (const char* line : { "+OK this is what I can", "USER", "TOP", "UIDL", "RESP-CODES",
                              "AUTH-RESP-CODE", "IMPLEMENTATION postbox", "." })
        Reply(client, line);
}

// --- looking ---

static void Stat(Client& client, std::string_view)
{
    Reply(client, "+OK " + TotalsOf(client));
}

// One line for the message that is named, or one for each; tell makes what stands behind the number.
static void TellMessages(Client& client, std::string_view argument,
                         std::string (*tell)(const StoredMessage& message))
{
    if (!argument.empty()) {
        const StoredMessage* message = FindMessage(client, argument);
        if (message)
            Reply(client, "+OK " + std::string(argument) + " " + tell(*message));
        return;
    }
    Reply(client, "+OK a line for each message");
    size_t number = 0;
    for (const StoredMessage& message : client.Mailbox) {
        ++number;
        if (!message.IsDeleted)
            Reply(client, std::to_string(number) + " " + tell(message));
    }
    Reply(client, ".");
}

static std::string TellSize(const StoredMessage& message)
{
    return std::to_string(message.Size);
}

static std::string TellId(const StoredMessage& message)
{
    return message.Id;
}

static void List(Client& client, std::string_view arguments)
{
    TellMessages(client, arguments, TellSize);
}

static void Uidl(Client& client, std::string_view arguments)
{
    TellMessages(client, arguments, TellId);
}

// --- fetching ---

// Sends lines of a message, a dot in front of those that begin with one.
static void SendLines(Client& client, std::string_view lines)
{
    while (!lines.empty()) {
        const size_t length = lines.find('\n') + 1;
        if (lines[0] == '.')
            client.Output += '.';
        client.Output.append(lines.substr(0, length));
        lines.remove_prefix(length);
    }
    Reply(client, ".");
}

static void Retr(Client& client, std::string_view arguments)
{
    const StoredMessage* message = FindMessage(client, arguments);
    if (!message)
        return;
    Reply(client, "+OK " + std::to_string(message->Size) + " bytes");
    SendLines(client, ReadMessage(client.Folder, message->Number));
}

// Length of a header with the empty line that ends it.
static size_t HeadSize(std::string_view text)
{
    if (text.starts_with("\r\n"))
        return 2;
    const size_t end = text.find("\r\n\r\n");
    return end == std::string_view::npos ? text.size() : end + 4;
}

static void Top(Client& client, std::string_view arguments)
{
    const size_t blank = arguments.find(' ');
    size_t count = 0;
    const StoredMessage* message = FindMessage(client, arguments.substr(0, blank));
    if (!message)
        return;
    if (!ParseNumber(arguments.substr(blank + 1), count))
        return Reply(client, "-ERR a number of lines is wanted");
    Reply(client, "+OK the top");
    const std::string text = ReadMessage(client.Folder, message->Number);
    size_t end = HeadSize(text);
    for (; count > 0 && end < text.size(); --count)
        end = text.find('\n', end) + 1;
    SendLines(client, std::string_view(text).substr(0, end));
}

// --- the rest ---

static void Dele(Client& client, std::string_view arguments)
{
    StoredMessage* message = FindMessage(client, arguments);
    if (!message)
        return;
    message->IsDeleted = true;
    Reply(client, "+OK it goes when you do");
}

static void Rset(Client& client, std::string_view)
{
    for (StoredMessage& message : client.Mailbox)
        message.IsDeleted = false;
    Reply(client, "+OK " + TotalsOf(client));
}

static void Noop(Client& client, std::string_view)
{
    Reply(client, "+OK");
}

static void Quit(Client& client, std::string_view)
{
    bool isDone = true;
    for (const StoredMessage& message : client.Mailbox)
        if (message.IsDeleted)
            isDone = RemoveMessage(client.Folder, message.Number) && isDone;
    Reply(client, isDone ? "+OK goodbye" : "-ERR some messages can't be removed");
    client.Closing = true;
}

constexpr size_t AnyWords = CommandLimit;

constexpr Pop3Command Pop3Commands[] = {
    { "USER", BeforeLogin, 1, 1, User }, { "PASS", BeforeLogin, 1, AnyWords, Pass },
    { "CAPA", AnyStage, 0, 0, Capa },    { "STAT", BehindLogin, 0, 0, Stat },
    { "LIST", BehindLogin, 0, 1, List }, { "UIDL", BehindLogin, 0, 1, Uidl },
    { "RETR", BehindLogin, 1, 1, Retr }, { "TOP", BehindLogin, 2, 2, Top },
    { "DELE", BehindLogin, 1, 1, Dele }, { "RSET", BehindLogin, 0, 0, Rset },
    { "NOOP", BehindLogin, 0, 0, Noop }, { "QUIT", AnyStage, 0, 0, Quit },
};

// Words parted by single blanks. A blank too many makes an empty word, which counts.
static size_t CountWords(std::string_view line, size_t verbSize)
{
    size_t words = 0;
    for (const char c : line.substr(verbSize))
        words += c == ' ' ? 1 : 0;
    return words;
}

static void RunCommand(Client& client, const Pop3Command& command, std::string_view line)
{
    const size_t words = CountWords(line, command.Verb.size());
    const std::string_view arguments = line.substr(command.Verb.size() + (words > 0 ? 1 : 0));
    const bool isEmpty = words > 0 && (arguments.empty() || arguments[0] == ' ');
    if (words < command.LeastWords || words > command.MostWords || isEmpty)
        return Reply(client, "-ERR wrong number of arguments");
    if ((command.Stages & (client.MailboxIsOpen ? BehindLogin : BeforeLogin)) == 0)
        return Reply(client, "-ERR not now");
    if (command.Run != Pass && command.Run != User)
        client.MailboxUser.clear(); // PASS has to follow USER directly
    command.Run(client, arguments);
}

static void Pop3TakeLine(Client& client, std::string_view line, LineKind kind)
{
    if (kind == LineLong || line.size() > CommandLimit)
        return Reply(client, "-ERR line too long");
    if (kind == LineBareFeed)
        return Reply(client, "-ERR line does not end in CR LF");
    const std::string_view verb = line.substr(0, line.find(' '));
    for (const Pop3Command& command : Pop3Commands)
        if (EqualNoCase(verb, command.Verb))
            return RunCommand(client, command, line);
    Reply(client, "-ERR command not known");
}

static void Pop3Greet(Client& client)
{
    Reply(client, "+OK postbox.example POP3 test server");
}

const Protocol Pop3Protocol = { "pop3", "--pop3-port", Pop3Greet, Pop3TakeLine };
