// rynmail: sends and fetches mail from the command line. This file holds the table of commands.
#include "commands.h"
#include "help.h"
#include "options.h"
#include "ryn32.h"

#include <cstdio>
#include <cstring>

static ExitCode PrintVersion()
{
    if (rynAttach(1) < 0)
        return EXIT_OTHER;
    const auto version = static_cast<unsigned>(rynStatistics(0, RYN_STAT_VERSION));
    printf("rynmail, library version %x.%x.%x, build %d\n", version >> 8, version >> 4 & 15,
           version & 15, rynStatistics(0, RYN_STAT_BUILD));
    rynRelease();
    return EXIT_DONE;
}

struct CommandRow {
    const char* Name;
    CommandBit Bit;
    ExitCode (*Run)(const Options& options);
};

constexpr CommandRow CommandTable[] = {
    { "send", COMMAND_SEND, RunSend },       { "verify", COMMAND_VERIFY, RunVerify },
    { "list", COMMAND_LIST, RunList },       { "fetch", COMMAND_FETCH, RunFetch },
    { "decode", COMMAND_DECODE, RunDecode }, { "search", COMMAND_SEARCH, RunSearch },
    { "flags", COMMAND_FLAGS, RunFlags },    { "mailboxes", COMMAND_MAILBOXES, RunMailboxes },
};

static bool AsksForHelp(const char* word)
{
    return strcmp(word, "--help") == 0 || strcmp(word, "-h") == 0 || strcmp(word, "help") == 0;
}

int main(int count, char** words)
{
    const char* name = count > 1 ? words[1] : "";
    if (AsksForHelp(name) || (count > 2 && AsksForHelp(words[2]))) {
        PrintHelp();
        return EXIT_DONE;
    }
    if (strcmp(name, "version") == 0 || strcmp(name, "--version") == 0)
        return PrintVersion();
    for (const CommandRow& row : CommandTable) {
        if (strcmp(row.Name, name) != 0)
            continue;
        Options options = {};
        if (!ReadOptions(count - 2, words + 2, row.Bit, options))
            return EXIT_USAGE;
        return row.Run(options);
    }
    fprintf(stderr, "rynmail: '%s' is no command: try rynmail --help\n", name);
    return EXIT_USAGE;
}
