// rynmail: sends mail from the command line. This file holds the table of commands and the help.
#include "commands.h"
#include "options.h"
#include "ryn32.h"

#include <cstdio>
#include <cstring>

constexpr char HelpHead[] =
    "rynmail sends mail through a mail server that you name.\n"
    "\n"
    "  rynmail send --server HOST[:PORT] --from ADDR --to ADDR... [OPTION...]\n"
    "      sends one message. At least one of --to, --cc and --bcc and one of --text,\n"
    "      --text-file and --html are needed.\n"
    "\n"
    "      --to ADDR...       recipients; --cc and --bcc alike; all three may repeat\n"
    "      --subject TEXT     the subject, in UTF-8\n"
    "      --text TEXT        the text of the message; - reads standard input\n"
    "      --text-file FILE   the text of the message, from a file\n"
    "      --html FILE        an HTML text; --text or --text-file is then shown by\n"
    "                         readers without HTML, and has to be ASCII\n"
    "      --charset NAME     charset of the texts if they are not UTF-8, one of";

constexpr char HelpTail[] =
    "\n"
    "      --skip-refused     go on without recipients that the server refuses; those\n"
    "                         behind a refused one get a copy of their own. Without it\n"
    "                         one refusal means that nobody gets the message\n"
    "\n"
    "  rynmail verify --server HOST[:PORT] --from ADDR ADDRESS...\n"
    "      asks the server whether it knows the addresses. Many servers don't tell.\n"
    "\n"
    "  rynmail version\n"
    "      tells the version of the library.\n"
    "\n"
    "Options of send and verify:\n"
    "      --server HOST[:PORT]  a name or an IPv4 address; the port is 25 if not given\n"
    "      --from ADDR           the sender\n"
    "      --ehlo                greet with EHLO and not with HELO\n"
    "      --log FILE            write the dialogue with the server to a new file\n"
    "\n"
    "ADDR is ann@mail.example, <ann@mail.example> or 'Ann <ann@mail.example>'.\n"
    "\n"
    "Example:\n"
    "  rynmail send --server mail.example --from ann@mail.example --to bob@mail.example \\\n"
    "      --subject 'Lunch' --text 'At noon?'\n"
    "\n"
    "Exit codes: 0 done; 1 the command line is wrong; 2 the connection failed; 3 the server\n"
    "refused the message or a recipient, or doesn't know an address; 4 a local file can't be\n"
    "used; 5 anything else.\n";

static void PrintHelp()
{
    fputs(HelpHead, stdout);
    PrintCharsets();
    fputs(HelpTail, stdout);
}

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
    { "send", COMMAND_SEND, RunSend },
    { "verify", COMMAND_VERIFY, RunVerify },
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
