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

constexpr int Both = COMMAND_SEND | COMMAND_VERIFY;

constexpr OptionRow OptionTable[] = {
    { "--from", Both, &Options::From, nullptr, nullptr },
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
    { "--server", Both, &Options::Server, nullptr, nullptr },
    { "--log", Both, &Options::LogFile, nullptr, nullptr },
    { "--ehlo", Both, nullptr, nullptr, &Options::UseEhlo },
    { "--user", Both, &Options::User, nullptr, nullptr },
    { "--auth", Both, nullptr, &Options::Auth, nullptr },
    { "--tls", Both, &Options::Tls, nullptr, nullptr },
    { "--ca", Both, &Options::CaFile, nullptr, nullptr },
    { "--cert", Both, &Options::CertFile, nullptr, nullptr },
    { "--stunnel", Both, &Options::TunnelProgram, nullptr, nullptr },
    { "--tunnel-port", Both, &Options::TunnelPort, nullptr, nullptr },
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
    std::vector<const char*>* list = command == COMMAND_VERIFY ? &options.Addresses : nullptr;
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
        list = command == COMMAND_VERIFY ? &options.Addresses : nullptr;
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
