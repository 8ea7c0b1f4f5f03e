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
    "      sends one message. At least one of --to, --cc and --bcc is needed, and a text\n"
    "      or a file to send.\n"
    "\n"
    "    Who gets it:\n"
    "      --to ADDR...       recipients; --cc and --bcc alike; all three may repeat\n"
    "      --skip-refused     go on without recipients that the server refuses; those\n"
    "                         behind a refused one get a copy of their own. Without it\n"
    "                         one refusal means that nobody gets the message\n"
    "    The text:\n"
    "      --subject TEXT     the subject, in UTF-8\n"
    "      --text TEXT        the text of the message; - reads standard input\n"
    "      --text-file FILE   the text of the message, from a file\n"
    "      --html FILE        an HTML text; the text of --text, --text-file or --alt is\n"
    "                         then shown by readers without HTML, and has to be ASCII\n"
    "      --alt FILE         another name of --text-file\n"
    "      --charset NAME     charset of the texts if they are not UTF-8, one of";

constexpr char HelpTail[] =
    "\n"
    "    Files that go with it:\n"
    "      --attach FILE[=NAME]...  attachments; NAME is shown instead of FILE's own name\n"
    "      --inline FILE[=NAME]...  images that the text of --html shows: it names the\n"
    "                         first as cid:message-root.1, the second as ...2, and so on\n"
    "      --forward FILE     a stored message to pass on; not with --html or --attach\n"
    "\n"
    "  rynmail verify --server HOST[:PORT] --from ADDR ADDRESS...\n"
    "      asks the server whether it knows the addresses. Many servers don't tell.\n"
    "\n"
    "  rynmail version\n"
    "      tells the version of the library.\n"
    "\n"
    "Options of send and verify:\n"
    "      --server HOST[:PORT]  a name or an IPv4 address; the port is 25 if not given,\n"
    "                         with --tls 465 or 587\n"
    "      --from ADDR        the sender\n"
    "      --ehlo             greet with EHLO and not with HELO\n"
    "      --log FILE         write the dialogue with the server to a new file; passwords\n"
    "                         are left out\n"
    "    Logging in:\n"
    "      --user NAME        log in as NAME. The password is taken from the environment\n"
    "                         variable RYNMAIL_PASSWORD or asked for on the terminal\n"
    "      --auth METHOD...   allow these methods only: cram-md5, login, plain; or xoauth2,\n"
    "                         with a token in place of the password. Without --tls all but\n"
    "                         cram-md5 show the password to the network\n"
    "    Encryption, by the program stunnel:\n"
    "      --tls KIND         implicit: from the first byte, on port 465; starttls: begin\n"
    "                         in clear, on any other port\n"
    "      --ca FILE          certificates to trust, for example\n"
    "                         /etc/ssl/certs/ca-certificates.crt; the server's name has to\n"
    "                         stand in its certificate\n"
    "      --cert FILE        key and certificate of this end, if the server asks for one;\n"
    "                         without it openssl makes one for this session\n"
    "      --stunnel PROGRAM  what to start instead of ryn32-stunnel\n"
    "      --tunnel-port N    the port on this machine; without it a free one\n"
    "\n"
    "ADDR is ann@mail.example, <ann@mail.example> or 'Ann <ann@mail.example>'.\n"
    "\n"
    "Examples:\n"
    "  rynmail send --server mail.example --from ann@mail.example --to bob@mail.example \\\n"
    "      --subject 'Lunch' --text 'At noon?' --attach menu.pdf\n"
    "  rynmail send --server mail.example --tls starttls --user ann \\\n"
    "      --ca /etc/ssl/certs/ca-certificates.crt --from ann@mail.example \\\n"
    "      --to bob@mail.example --html page.html --inline logo.png --alt page.txt\n"
    "\n"
    "Exit codes: 0 done; 1 the command line is wrong; 2 the connection failed; 3 the server\n"
    "refused the login, the message or a recipient, or doesn't know an address; 4 a local file\n"
    "can't be used; 5 anything else.\n";

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
