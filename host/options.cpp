// Reads the command line by a table of options.
#include "options.h"

#include <cstdio>
#include <cstring>
#include <string>

// Exactly one of the three targets is set; it tells what the option takes.
struct OptionRow {
    const char* Name;
    int Commands; // sum of CommandBit
    const char* Options::*Text;
    std::vector<const char*> Options::*List;
    bool Options::*Flag;
};

constexpr int Sending = COMMAND_SEND | COMMAND_VERIFY;
constexpr int Mailbox = COMMAND_LIST | COMMAND_FETCH;
constexpr int AnyMailbox = Mailbox | COMMAND_SEARCH | COMMAND_FLAGS | COMMAND_MAILBOXES;
constexpr int AnySession = Sending | AnyMailbox;
constexpr int TakesNumbers = COMMAND_FETCH | COMMAND_FLAGS | COMMAND_MAILBOXES;
constexpr int TakesWords = COMMAND_VERIFY | COMMAND_DECODE | COMMAND_SEARCH;

constexpr OptionRow OptionTable[] = {
    { "--from", Sending, &Options::From, nullptr, nullptr },
    { "--to", COMMAND_SEND, nullptr, &Options::To, nullptr },
    { "--cc", COMMAND_SEND, nullptr, &Options::Cc, nullptr },
    { "--bcc", COMMAND_SEND, nullptr, &Options::Bcc, nullptr },
    { "--subject", COMMAND_SEND, &Options::Subject, nullptr, nullptr },
    { "--text", COMMAND_SEND, &Options::Text, nullptr, nullptr },
    { "--text-file", COMMAND_SEND, &Options::TextFile, nullptr, nullptr },
    { "--alt", COMMAND_SEND, &Options::TextFile, nullptr, nullptr },
    { "--html", COMMAND_SEND, &Options::HtmlFile, nullptr, nullptr },
    { "--charset", COMMAND_SEND, &Options::Charset, nullptr, nullptr },
    { "--attach", COMMAND_SEND, nullptr, &Options::Attach, nullptr },
    { "--inline", COMMAND_SEND, nullptr, &Options::Inline, nullptr },
    { "--forward", COMMAND_SEND, &Options::Forward, nullptr, nullptr },
    { "--skip-refused", COMMAND_SEND, nullptr, nullptr, &Options::SkipRefused },
    { "--message", TakesNumbers, nullptr, &Options::Messages, nullptr },
    { "--into", COMMAND_FETCH | COMMAND_DECODE, &Options::Into, nullptr, nullptr },
    { "--keep-raw", COMMAND_FETCH, nullptr, nullptr, &Options::KeepRaw },
    { "--delete", COMMAND_FETCH, nullptr, nullptr, &Options::Delete },
    { "--mailbox", AnyMailbox, &Options::Mailbox, nullptr, nullptr },
    { "--add", COMMAND_FLAGS, nullptr, &Options::Add, nullptr },
    { "--remove", COMMAND_FLAGS, nullptr, &Options::Remove, nullptr },
    { "--create", COMMAND_MAILBOXES, nullptr, &Options::Create, nullptr },
    { "--rename", COMMAND_MAILBOXES, nullptr, &Options::Rename, nullptr },
    { "--delete", COMMAND_MAILBOXES, nullptr, &Options::DeleteBoxes, nullptr },
    { "--copy-to", COMMAND_MAILBOXES, &Options::CopyTo, nullptr, nullptr },
    { "--server", Sending, &Options::Server, nullptr, nullptr },
    { "--pop3", Mailbox, &Options::Pop3, nullptr, nullptr },
    { "--imap", AnyMailbox, &Options::Imap, nullptr, nullptr },
    { "--log", AnySession | COMMAND_DECODE, &Options::LogFile, nullptr, nullptr },
    { "--ehlo", Sending, nullptr, nullptr, &Options::UseEhlo },
    { "--apop", Mailbox, nullptr, nullptr, &Options::UseApop },
    { "--user", AnySession, &Options::User, nullptr, nullptr },
    { "--auth", Sending, nullptr, &Options::Auth, nullptr },
    { "--tls", AnySession, &Options::Tls, nullptr, nullptr },
    { "--ca", AnySession, &Options::CaFile, nullptr, nullptr },
    { "--cert", AnySession, &Options::CertFile, nullptr, nullptr },
    { "--stunnel", AnySession, &Options::TunnelProgram, nullptr, nullptr },
    { "--tunnel-port", AnySession, &Options::TunnelPort, nullptr, nullptr },
};

static bool IsOption(const char* word)
{
    return strncmp(word, "--", 2) == 0;
}

static const OptionRow* FindOption(const char* word, CommandBit command)
{
    for (const OptionRow& row : OptionTable)
        if ((row.Commands & command) != 0 && strcmp(row.Name, word) == 0)
            return &row;
    return nullptr;
}

static bool WordIsWrong(const char* word, const char* what)
{
    fprintf(stderr, "rynmail: %s: %s (rynmail --help tells more)\n", word, what);
    return false;
}

bool ReadOptions(int count, char** words, CommandBit command, Options& options)
{
    std::vector<const char*>* const ownWords =
        (TakesWords & command) != 0 ? &options.Words : nullptr;
    std::vector<const char*>* list = ownWords;
    for (int i = 0; i < count; ++i) {
        const char* word = words[i];
        if (!IsOption(word)) {
            // A word of its own continues the list in front of it: --to ADDR ADDR.
            if (!list)
                return WordIsWrong(word, "no option takes this word");
            list->push_back(word);
            continue;
        }
        const OptionRow* row = FindOption(word, command);
        if (!row)
            return WordIsWrong(word, "no such option");
        list = ownWords;
        if (row->Flag) {
            options.*row->Flag = true;
            continue;
        }
        if (i + 1 == count || (row->List && IsOption(words[i + 1])))
            return WordIsWrong(word, "a value is missing behind this option");
        ++i;
        if (row->Text) {
            options.*row->Text = words[i];
            continue;
        }
        list = &(options.*row->List);
        list->push_back(words[i]);
    }
    return true;
}

ExitCode WrongUse(const char* what)
{
    fprintf(stderr, "rynmail: %s (rynmail --help tells more)\n", what);
    return EXIT_USAGE;
}
