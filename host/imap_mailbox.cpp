// Questions to a mailbox of IMAP.
#include "imap_mailbox.h"

#include "ryn32.h"
#include "terminal_text.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

constexpr size_t CommandLimit = 32; // chars that rynCommand and rynImapSelectMB take
constexpr char Inbox[] = "INBOX";
constexpr int32_t AllFlags = RYN_FLAG_SEEN | RYN_FLAG_ANSWERED | RYN_FLAG_FLAGGED |
                             RYN_FLAG_DELETED | RYN_FLAG_DRAFT | RYN_FLAG_RECENT;

std::string ImapWord(const std::string& text)
{
    constexpr char plainSigns[] = "!#$&'+,-./:;<=>?@^_`|~";
    bool isPlain = !text.empty();
    std::string quoted = "\"";
    for (const char c : text) {
        isPlain = isPlain && (isalnum(static_cast<unsigned char>(c)) || strchr(plainSigns, c));
        if (c == '"' || c == '\\')
            quoted += '\\';
        quoted += c;
    }
    return isPlain ? text : quoted + '"';
}

bool FitsCommand(const std::string& command, const char* name)
{
    if (command.size() <= CommandLimit)
        return true;
    fprintf(stderr,
            "rynmail: the mailbox name '%s' is too long: '%s' may have 32 chars, this has %zu\n",
            ForTerminal(name).c_str(), ForTerminal(command).c_str(), command.size());
    return false;
}

const char* FindImapMisuse(const Options& options)
{
    return options.Imap && options.User ? nullptr : "this command wants --imap and --user";
}

// Runs what an operation has begun.
static ExitCode Finish(Session& session, int32_t status)
{
    if (status >= 0)
        status = Drive(session);
    return status >= 0 ? EXIT_DONE : ReportFailure(session, status);
}

// --- opening ---

// The number in front of EXISTS in the last reply.
static int32_t ToldCount(const Session& session)
{
    const std::string reply = "\n" + LastReply(session);
    for (size_t at = 0; (at = reply.find("\n* ", at)) != std::string::npos; ++at) {
        char* end;
        const long count = strtol(reply.c_str() + at + 3, &end, 10);
        if (strncmp(end, " EXISTS", 7) == 0)
            return static_cast<int32_t>(count);
    }
    return 0;
}

// Opens a mailbox for reading only: the library fetches a whole message for its header, and that
// would mark it as seen.
static ExitCode Examine(Session& session, const std::string& word, int32_t& countOut)
{
    const ExitCode outcome = Finish(session, rynCommand(Channel, ("EXAMINE " + word).c_str()));
    countOut = ToldCount(session);
    return outcome;
}

static ExitCode Select(Session& session, const char* name, const std::string& word,
                       int32_t& countOut)
{
    // The login has opened the inbox.
    const ExitCode outcome =
        name ? Finish(session, rynImapSelectMB(Channel, word.c_str())) : EXIT_DONE;
    countOut = rynGetEmailCount(Channel);
    return outcome;
}

ExitCode OpenImapMailbox(Session& session, const Options& options, bool isOnlyLookedAt,
                         int32_t& countOut)
{
    const char* name = options.Mailbox ? options.Mailbox : Inbox;
    const std::string word = ImapWord(name);
    if (HasControlChar(name))
        return WrongUse("the name of a mailbox holds a control char");
    if (!FitsCommand(isOnlyLookedAt ? "EXAMINE " + word : word, name))
        return EXIT_USAGE;
    if (const ExitCode outcome = Connect(session, options, nullptr); outcome != EXIT_DONE)
        return outcome;
    BeginStep(session, "opening the mailbox " + ForTerminal(name));
    const ExitCode outcome = isOnlyLookedAt ? Examine(session, word, countOut)
                                            : Select(session, options.Mailbox, word, countOut);
    if (outcome != EXIT_DONE || IsAccepted(session))
        return outcome;
    fprintf(stderr, "rynmail: the mailbox '%s' can't be opened: %s\n", ForTerminal(name).c_str(),
            LastVerdict(session).c_str());
    return EXIT_REFUSED;
}

// --- messages ---

ExitCode AskFlags(Session& session, int32_t message, int32_t& flagsOut)
{
    BeginStep(session, "asking for the flags of message " + std::to_string(message));
    // The one answer that the library gives as a result only, which manual driving doesn't have.
    rynIntegerParam(Channel, RYN_AUTO_CALL_DRIVER, 1);
    flagsOut = rynImapFlags(Channel, message, RYN_FLAGS_READ, AllFlags);
    rynIntegerParam(Channel, RYN_AUTO_CALL_DRIVER, 0);
    return flagsOut >= 0 ? EXIT_DONE : ReportFailure(session, flagsOut);
}

ExitCode ChangeFlags(Session& session, int32_t message, int32_t operation, int32_t flags)
{
    BeginStep(session, "changing the flags of message " + std::to_string(message));
    return Finish(session, rynImapFlags(Channel, message, operation, flags));
}

ExitCode FindMessages(Session& session, const std::string& criteria, int32_t count,
                      std::vector<int32_t>& numbersOut)
{
    constexpr int32_t numberChars = 11;   // with a blank
    constexpr int32_t newMessages = 1000; // that may come meanwhile
    const int32_t size = numberChars * (count + newMessages);
    std::string answer(static_cast<size_t>(size), '\0');
    BeginStep(session, "searching");
    const int32_t begun = rynImapSearch(Channel, criteria.c_str(), answer.data(), size);
    if (const ExitCode outcome = Finish(session, begun); outcome != EXIT_DONE)
        return outcome;
    int32_t mode = RYN_SEARCH_FIRST;
    for (int32_t found; (found = rynImapMsgNumber(Channel, mode)) > 0; mode = RYN_SEARCH_NEXT)
        numbersOut.push_back(found);
    return EXIT_DONE;
}

ExitCode RemoveMarked(Session& session, bool& isLeftOut)
{
    std::vector<int32_t> left;
    isLeftOut = true;
    BeginStep(session, "removing what is marked for deletion");
    if (const ExitCode outcome = Finish(session, rynCommand(Channel, "EXPUNGE"));
        outcome != EXIT_DONE)
        return outcome;
    // A long answer to that may not be kept to its end. What is left tells more, anyway.
    if (const ExitCode outcome = FindMessages(session, "DELETED", 0, left); outcome != EXIT_DONE)
        return outcome;
    isLeftOut = !left.empty();
    return EXIT_DONE;
}
