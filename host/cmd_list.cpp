// rynmail list: what lies in a mailbox, a line for each message.
#include "commands.h"
#include "header_text.h"
#include "mailbox.h"
#include "session.h"
#include "terminal_text.h"

#include <cstdio>
#include <string>

static std::string IdOf(const std::string& idLines, int32_t message)
{
    const std::string mark = "\n" + std::to_string(message) + " ";
    const size_t at = idLines.find(mark);
    if (at == std::string::npos)
        return "-";
    const size_t start = at + mark.size();
    return ForTerminal(idLines.substr(start, idLines.find_first_of("\r\n", start) - start));
}

// No value holds a tab: they part the columns.
static ExitCode ListMessage(Session& session, int32_t message, const std::string& idLines)
{
    uint32_t size = 0;
    bool isThere = false;
    std::string head;
    if (const ExitCode outcome = AskSize(session, message, size, isThere); outcome != EXIT_DONE)
        return outcome;
    if (!isThere)
        return EXIT_DONE; // taken by another session
    if (const ExitCode outcome = AskHead(session, message, head); outcome != EXIT_DONE)
        return outcome;
    printf("%d\t%u\t%s\t%s\t%s\t%s\n", message, size, IdOf(idLines, message).c_str(),
           ShownHeader(head, "From").c_str(), ShownHeader(head, "Date").c_str(),
           ShownHeader(head, "Subject").c_str());
    fflush(stdout); // in step with the errors
    return EXIT_DONE;
}

static ExitCode ListInSession(Session& session, const Options& options)
{
    int32_t count = 0;
    std::string idLines;
    if (const ExitCode outcome = OpenMailbox(session, options, true, count); outcome != EXIT_DONE)
        return outcome;
    if (count > 0)
        if (const ExitCode outcome = AskIds(session, count, idLines); outcome != EXIT_DONE)
            return outcome;
    for (int32_t message = 1; message <= count; ++message)
        if (const ExitCode outcome = ListMessage(session, message, idLines); outcome != EXIT_DONE)
            return outcome;
    return EXIT_DONE;
}

ExitCode RunList(const Options& options)
{
    if (!options.User)
        return WrongUse("list wants --pop3 or --imap, and --user");
    if (const char* misuse = FindMailboxMisuse(options))
        return WrongUse(misuse);
    Session session;
    if (!StartSession(session))
        return EXIT_OTHER;
    const ExitCode outcome = ListInSession(session, options);
    EndSession(session, !session.IsBroken);
    return outcome;
}
