// SMTP as the test mail server speaks it (RFC 5321): strict about syntax and order, so that a
// client's fault becomes a reply and not a guess.
#include "postbox.h"

#include <strings.h>

constexpr std::string_view RefusedDomain = "refused.example";

struct SmtpCommand {
    const char* Verb;
    void (*Run)(Client& client, std::string_view argument);
};

bool EqualNoCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

static void ResetTransaction(Client& client)
{
    client.HasSender = false;
    client.Sender.clear();
    client.Recipients.clear();
    client.InData = false;
    client.DataFault = nullptr;
    client.Message.clear();
}

// --- paths ---

static bool IsPathChar(char c)
{
    return c > ' ' && c < 127 && c != '<' && c != '>';
}

// "<local@domain>" and what follows it; false for anything else.
static bool SplitPath(std::string_view text, std::string_view& pathOut, std::string_view& restOut)
{
    const size_t end = text.find('>');
    if (text.empty() || text[0] != '<' || end == std::string_view::npos)
        return false;
    pathOut = text.substr(1, end - 1);
    restOut = text.substr(end + 1);
    for (const char c : pathOut)
        if (!IsPathChar(c))
            return false;
    return true;
}

static bool IsMailbox(std::string_view path)
{
    const size_t at = path.find('@');
    return at != std::string_view::npos && at > 0 && at + 1 < path.size() &&
           path.find('@', at + 1) == std::string_view::npos;
}

static bool IsRefused(std::string_view mailbox)
{
    const std::string_view domain = mailbox.substr(mailbox.find('@') + 1);
    if (domain.size() < RefusedDomain.size())
        return false;
    const size_t start = domain.size() - RefusedDomain.size();
    return EqualNoCase(domain.substr(start), RefusedDomain) &&
           (start == 0 || domain[start - 1] == '.');
}

// Only SIZE and BODY are offered, and only behind EHLO.
static bool ParametersKnown(const Client& client, std::string_view rest)
{
    while (!rest.empty()) {
        if (rest[0] != ' ')
            return false;
        rest.remove_prefix(1);
        const std::string_view word = rest.substr(0, rest.find(' '));
        if (!client.Extended ||
            (!EqualNoCase(word.substr(0, 5), "SIZE=") && !EqualNoCase(word.substr(0, 5), "BODY=")))
            return false;
        rest.remove_prefix(word.size());
    }
    return true;
}

// --- commands, in the order in which a session uses them ---

static void Greeting(Client& client, std::string_view name, bool extended)
{
    if (name.empty() || name.find(' ') != std::string_view::npos)
        return Reply(client, "501 one name, please");
    ResetTransaction(client);
    client.Greeted = true;
    client.Extended = extended;
    if (!extended)
        return Reply(client, "250 postbox.example");
    Reply(client, "250-postbox.example");
    Reply(client, "250-PIPELINING");
    Reply(client, "250-8BITMIME");
    if (client.User)
        Reply(client, "250-AUTH PLAIN LOGIN");
    Reply(client, "250 SIZE " + std::to_string(MessageLimit));
}

static void Helo(Client& client, std::string_view argument)
{
    Greeting(client, argument, false);
}

static void Ehlo(Client& client, std::string_view argument)
{
    Greeting(client, argument, true);
}

static void Mail(Client& client, std::string_view argument)
{
    std::string_view path, rest;
    if (!client.Greeted)
        return Reply(client, "503 say HELO or EHLO first");
    if (client.User && !client.HasLoggedIn)
        return Reply(client, "530 log in first");
    if (client.HasSender)
        return Reply(client, "503 the sender was given already");
    if (!EqualNoCase(argument.substr(0, 5), "FROM:") ||
        !SplitPath(argument.substr(5), path, rest) || (!path.empty() && !IsMailbox(path)))
        return Reply(client, "501 syntax: MAIL FROM:<local@domain>");
    if (!ParametersKnown(client, rest))
        return Reply(client, "555 parameter not known");
    client.HasSender = true;
    client.Sender = path;
    Reply(client, "250 sender ok");
}

static void Rcpt(Client& client, std::string_view argument)
{
    std::string_view path, rest;
    if (!client.HasSender)
        return Reply(client, "503 say MAIL first");
    if (!EqualNoCase(argument.substr(0, 3), "TO:") || !SplitPath(argument.substr(3), path, rest) ||
        !IsMailbox(path))
        return Reply(client, "501 syntax: RCPT TO:<local@domain>");
    if (!rest.empty())
        return Reply(client, "555 parameter not known");
    if (IsRefused(path))
        return Reply(client, "550 no mailbox <" + std::string(path) + "> here");
    if (client.Recipients.size() >= RecipientLimit)
        return Reply(client, "452 too many recipients");
    client.Recipients.emplace_back(path);
    Reply(client, "250 recipient ok");
}

static void Auth(Client& client, std::string_view argument)
{
    if (!client.User || !client.Extended)
        return Reply(client, "500 command not known");
    if (client.HasLoggedIn || client.HasSender)
        return Reply(client, "503 not now");
    StartAuth(client, argument);
}

static void Data(Client& client, std::string_view argument)
{
    if (!argument.empty())
        return Reply(client, "501 DATA takes no argument");
    if (client.Recipients.empty())
        return Reply(client, "503 say MAIL and RCPT first");
    client.InData = true;
    Reply(client, "354 end with a dot on a line of its own");
}

static void Rset(Client& client, std::string_view argument)
{
    if (!argument.empty())
        return Reply(client, "501 RSET takes no argument");
    ResetTransaction(client);
    Reply(client, "250 ok");
}

static void Noop(Client& client, std::string_view)
{
    Reply(client, "250 ok");
}

// Every mailbox outside the refused domain exists. The brackets may be left out here.
static void Vrfy(Client& client, std::string_view argument)
{
    std::string_view path = argument, rest;
    if ((!argument.empty() && argument[0] == '<' && !SplitPath(argument, path, rest)) ||
        !rest.empty() || !IsMailbox(path) || path.find(' ') != std::string_view::npos)
        return Reply(client, "501 syntax: VRFY local@domain");
    if (IsRefused(path))
        return Reply(client, "550 no mailbox <" + std::string(path) + "> here");
    Reply(client, "250 <" + std::string(path) + ">");
}

static void Quit(Client& client, std::string_view argument)
{
    if (!argument.empty())
        return Reply(client, "501 QUIT takes no argument");
    Reply(client, "221 goodbye");
    client.Closing = true;
}

constexpr SmtpCommand SmtpCommands[] = {
    { "HELO", Helo }, { "EHLO", Ehlo }, { "AUTH", Auth }, { "MAIL", Mail }, { "RCPT", Rcpt },
    { "DATA", Data }, { "RSET", Rset }, { "NOOP", Noop }, { "VRFY", Vrfy }, { "QUIT", Quit },
};

static void TakeCommand(Client& client, std::string_view line, LineKind kind)
{
    if (kind == LineLong)
        return Reply(client, "500 line too long");
    if (kind == LineBareFeed)
        return Reply(client, "500 line does not end in CR LF");
    if (client.Auth != AuthNone)
        return TakeAuthLine(client, line);
    const std::string_view verb = line.substr(0, line.find(' '));
    std::string_view argument = line.substr(verb.size());
    if (!argument.empty())
        argument.remove_prefix(1);
    for (const SmtpCommand& command : SmtpCommands)
        if (EqualNoCase(verb, command.Verb))
            return command.Run(client, argument);
    Reply(client, "500 command not known");
}

// --- message data ---

static void FinishMessage(Client& client)
{
    std::string envelope = "MAIL FROM:<" + client.Sender + ">\n";
    for (const std::string& recipient : client.Recipients)
        envelope += "RCPT TO:<" + recipient + ">\n";
    if (client.DataFault)
        Reply(client, client.DataFault);
    else if (StoreMessage(client.Folder, envelope, client.Message))
        Reply(client, "250 message stored");
    else
        Reply(client, "451 the message can't be stored");
    ResetTransaction(client);
}

// A fault is kept until the end of the data: a client listens to nothing before.
static void TakeData(Client& client, std::string_view line, LineKind kind)
{
    if (kind == LineWhole && line == ".")
        return FinishMessage(client);
    if (kind == LineLong)
        client.DataFault = "500 the message holds a line that is too long";
    if (kind == LineBareFeed)
        client.DataFault = "554 the message holds a line that does not end in CR LF";
    if (client.Message.size() + line.size() + 2 > MessageLimit)
        client.DataFault = "552 the message is too big";
    if (client.DataFault)
        return;
    if (!line.empty() && line[0] == '.')
        line.remove_prefix(1);
    client.Message.append(line).append("\r\n");
}

static void SmtpGreet(Client& client)
{
    Reply(client, "220 postbox.example SMTP test server");
}

static void SmtpTakeLine(Client& client, std::string_view line, LineKind kind)
{
    if (client.InData)
        return TakeData(client, line, kind);
    TakeCommand(client, line, kind);
}

const Protocol SmtpProtocol = { "smtp", "--port", SmtpGreet, SmtpTakeLine };
