// IMAP as the test mail server speaks it (RFC 3501, a part of it): flat mailboxes, no literals from
// the client, no body structures. Strict about syntax and order, so that a client's fault becomes a
// reply and not a guess. This file holds the session and the mailboxes.
#include "postbox_imap.h"

enum Stage { BeforeLogin = 1, BehindLogin = 2, InMailbox = 4, AnyStage = 7 };

struct ImapCommand {
    std::string_view Verb;
    int Stages; // sum of Stage; a command behind the login goes in a mailbox, too
    size_t LeastWords, MostWords;
    bool TakesUid; // UID may stand in front of the verb
    void (*Run)(Client& client, const Words& words, bool byUid);
};

void End(Client& client, const std::string& verdict)
{
    Reply(client, client.Tag + " " + verdict);
}

// --- the session ---

static void Capability(Client& client, const Words&, bool)
{
    Reply(client, "* CAPABILITY IMAP4rev1");
    End(client, "OK that is what I can");
}

static void Login(Client& client, const Words& words, bool)
{
    if (client.User && words[0] + ":" + words[1] != client.User)
        return End(client, "NO [AUTHENTICATIONFAILED] user or password is wrong");
    client.MailboxIsOpen = true;
    End(client, "OK welcome");
}

static void Logout(Client& client, const Words&, bool)
{
    Reply(client, "* BYE goodbye");
    End(client, "OK closing");
    client.Closing = true;
}

// Messages that have come are told, messages that others have removed stay until the next SELECT.
static void Noop(Client& client, const Words&, bool)
{
    const size_t before = client.Mailbox.size();
    if (!client.Selected.empty())
        for (const StoredMessage& message : ListByUid(client.Selected))
            if (client.Mailbox.empty() || message.Uid > client.Mailbox.back().Uid)
                client.Mailbox.push_back(message);
    if (client.Mailbox.size() != before)
        Reply(client, "* " + std::to_string(client.Mailbox.size()) + " EXISTS");
    End(client, "OK");
}

// --- mailboxes ---

static void Deselect(Client& client)
{
    client.Selected.clear();
    client.Mailbox.clear();
}

static void OpenMailbox(Client& client, const std::string& name, bool isReadOnly)
{
    Deselect(client);
    const std::string folder = FolderOfMailbox(client.Folder, name);
    if (!MailboxExists(folder))
        return End(client, "NO no such mailbox");
    client.Selected = folder;
    client.IsReadOnly = isReadOnly;
    client.Mailbox = ListByUid(folder);
    Reply(client, "* FLAGS (\\Answered \\Flagged \\Deleted \\Seen \\Draft)");
    Reply(client, "* " + std::to_string(client.Mailbox.size()) + " EXISTS");
    Reply(client, "* 0 RECENT");
    Reply(client, "* OK [UIDVALIDITY " + std::to_string(UidValidity()) + "] of all mailboxes");
    Reply(client, "* OK [UIDNEXT " + std::to_string(NextUid(folder)) + "] next");
    End(client, isReadOnly ? "OK [READ-ONLY] selected" : "OK [READ-WRITE] selected");
}

static void Select(Client& client, const Words& words, bool)
{
    OpenMailbox(client, words[0], false);
}

static void Examine(Client& client, const Words& words, bool)
{
    OpenMailbox(client, words[0], true);
}

static void Close(Client& client, const Words&, bool)
{
    const bool isDone = client.IsReadOnly || RemoveDeleted(client, false);
    Deselect(client);
    End(client, isDone ? "OK closed" : "NO some messages can't be removed");
}

// "*" and "%" fit any chars, for the names have no levels.
static bool FitsPattern(std::string_view name, std::string_view pattern)
{
    size_t at = 0, place = 0;
    size_t star = std::string_view::npos; // the last one so far, and where its chars begin
    size_t starPlace = 0;
    while (place < name.size()) {
        if (at < pattern.size() && (pattern[at] == '*' || pattern[at] == '%')) {
            star = at++;
            starPlace = place;
        } else if (at < pattern.size() &&
                   EqualNoCase(name.substr(place, 1), pattern.substr(at, 1))) {
            ++at, ++place;
        } else if (star != std::string_view::npos) {
            at = star + 1;
            place = ++starPlace;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of("*%", at) == std::string_view::npos;
}

static void List(Client& client, const Words& words, bool)
{
    if (words[1].empty())
        Reply(client, "* LIST (\\Noselect) NIL \"\"");
    for (const std::string& name : ListMailboxes(client.Folder))
        if (FitsPattern(name, words[0] + words[1]))
            Reply(client, "* LIST () NIL \"" + name + "\"");
    End(client, "OK listed");
}

static void Create(Client& client, const Words& words, bool)
{
    const std::string folder = FolderOfMailbox(client.Folder, words[0]);
    if (folder.empty() || !CreateMailbox(folder))
        return End(client, "NO there can't be such a mailbox, or there is one");
    End(client, "OK created");
}

// The folder of a mailbox that may go; empty: the client has been told that it may not.
static std::string TakeMailbox(Client& client, const std::string& name)
{
    const std::string folder = FolderOfMailbox(client.Folder, name);
    if (MailboxExists(folder) && folder != client.Folder)
        return folder;
    End(client, folder == client.Folder ? "NO INBOX stays" : "NO no such mailbox");
    return "";
}

static void Rename(Client& client, const Words& words, bool)
{
    const std::string folder = TakeMailbox(client, words[0]);
    const std::string newFolder = FolderOfMailbox(client.Folder, words[1]);
    if (folder.empty())
        return;
    if (newFolder.empty() || !RenameMailbox(folder, newFolder))
        return End(client, "NO the new name can't be had");
    if (client.Selected == folder)
        client.Selected = newFolder;
    End(client, "OK renamed");
}

static void Delete(Client& client, const Words& words, bool)
{
    const std::string folder = TakeMailbox(client, words[0]);
    if (folder.empty())
        return;
    if (client.Selected == folder)
        Deselect(client);
    End(client, RemoveMailbox(folder) ? "OK deleted" : "NO it can't be removed");
}

// --- commands ---

constexpr size_t AnyWords = LineLimit;
constexpr int InAnyBox = BehindLogin | InMailbox;

constexpr ImapCommand ImapCommands[] = {
    { "CAPABILITY", AnyStage, 0, 0, false, Capability },
    { "NOOP", AnyStage, 0, 0, false, Noop },
    { "LOGOUT", AnyStage, 0, 0, false, Logout },
    { "LOGIN", BeforeLogin, 2, 2, false, Login },
    { "SELECT", InAnyBox, 1, 1, false, Select },
    { "EXAMINE", InAnyBox, 1, 1, false, Examine },
    { "LIST", InAnyBox, 2, 2, false, List },
    { "CREATE", InAnyBox, 1, 1, false, Create },
    { "RENAME", InAnyBox, 2, 2, false, Rename },
    { "DELETE", InAnyBox, 1, 1, false, Delete },
    { "FETCH", InMailbox, 2, 2, true, Fetch },
    { "STORE", InMailbox, 3, 3, true, Store },
    { "SEARCH", InMailbox, 1, AnyWords, true, Search },
    { "COPY", InMailbox, 2, 2, true, Copy },
    { "EXPUNGE", InMailbox, 0, 0, false, Expunge },
    { "CLOSE", InMailbox, 0, 0, false, Close },
};

static const ImapCommand* FindCommand(std::string_view verb)
{
    for (const ImapCommand& command : ImapCommands)
        if (EqualNoCase(verb, command.Verb))
            return &command;
    return nullptr;
}

static void RunCommand(Client& client, Words& words)
{
    const bool byUid = words.size() > 2 && EqualNoCase(words[1], "UID");
    const ImapCommand* command = FindCommand(words[byUid ? 2 : 1]);
    if (!command || (byUid && !command->TakesUid))
        return End(client, "BAD command not known");
    words.erase(words.begin(), words.begin() + (byUid ? 3 : 2));
    if (words.size() < command->LeastWords || words.size() > command->MostWords)
        return End(client, "BAD wrong number of arguments");
    const int stage = !client.MailboxIsOpen     ? BeforeLogin
                      : client.Selected.empty() ? BehindLogin
                                                : InMailbox;
    if ((command->Stages & stage) == 0)
        return End(client, "BAD not now");
    command->Run(client, words, byUid);
}

static void ImapTakeLine(Client& client, std::string_view line, LineKind kind)
{
    Words words;
    if (kind != LineWhole)
        return Reply(client, "* BAD line too long, or without CR LF");
    const bool isRight = SplitWords(line, words);
    client.Tag = words.empty() ? "*" : words[0];
    if (!isRight || words.size() < 2)
        return End(client, "BAD tag, command and arguments are wanted");
    if (line.ends_with('}'))
        return End(client, "BAD literals are not taken here");
    RunCommand(client, words);
}

static void ImapGreet(Client& client)
{
    Reply(client, "* OK postbox.example IMAP4rev1 test server");
}

const Protocol ImapProtocol = { "imap", "--imap-port", ImapGreet, ImapTakeLine };
