// rynmail mailboxes: lists, makes, renames and deletes mailboxes of IMAP, and copies messages between
// them.
#include "commands.h"
#include "imap_mailbox.h"
#include "message_numbers.h"
#include "ryn32.h"
#include "session.h"
#include "terminal_text.h"

#include <cstdio>
#include <string>
#include <vector>

// --- what fits the library ---

static bool AreFit(const std::string& verb, const std::vector<const char*>& names)
{
    for (const char* name : names)
        if (!FitsCommand(verb + " " + ImapWord(name), name))
            return false;
    return true;
}

static bool DoesAllFit(const Options& options)
{
    if (!AreFit("CREATE", options.Create) || !AreFit("DELETE", options.DeleteBoxes))
        return false;
    if (options.Rename.empty())
        return true;
    const char* from = options.Rename[0];
    return AreFit("RENAME " + ImapWord(from), { options.Rename[1] });
}

static bool HoldControlChar(const Options& options)
{
    for (const std::vector<const char*>& names :
         { options.Create, options.DeleteBoxes, options.Rename })
        for (const char* name : names)
            if (HasControlChar(name))
                return true;
    return options.CopyTo && HasControlChar(options.CopyTo);
}

// What is wrong with the choice of options; null: nothing.
static const char* FindMisuse(const Options& options)
{
    if (const char* misuse = FindImapMisuse(options))
        return misuse;
    if (!options.Rename.empty() && options.Rename.size() != 2)
        return "--rename takes two names: the old and the new one";
    if (!options.CopyTo != options.Messages.empty())
        return "--copy-to and --message want each other";
    if (!AreNumbers(options))
        return NumbersWanted;
    if (options.Mailbox && !options.CopyTo)
        return "--mailbox wants --copy-to: it tells where the messages lie";
    return HoldControlChar(options) ? "the name of a mailbox holds a control char" : nullptr;
}

// --- one thing each ---

// Runs a command to its end and tells what came of it.
static ExitCode Tell(Session& session, int32_t status, const std::string& done)
{
    if (status >= 0)
        status = Drive(session);
    if (status < 0)
        return ReportFailure(session, status);
    if (!IsAccepted(session)) {
        fprintf(stderr, "rynmail: not %s: %s\n", done.c_str(), session.Refusal.c_str());
        return EXIT_REFUSED;
    }
    printf("%s\n", done.c_str());
    fflush(stdout); // in step with the errors
    return EXIT_DONE;
}

static ExitCode Create(Session& session, const char* name)
{
    BeginStep(session, "creating a mailbox");
    const int32_t begun = rynImapCreateMB(Channel, ImapWord(name).c_str());
    return Tell(session, begun, "created " + ForTerminal(name));
}

static ExitCode Delete(Session& session, const char* name)
{
    BeginStep(session, "deleting a mailbox");
    const int32_t begun = rynImapDeleteMB(Channel, ImapWord(name).c_str());
    return Tell(session, begun, "deleted " + ForTerminal(name));
}

static ExitCode Rename(Session& session, const char* from, const char* to)
{
    BeginStep(session, "renaming a mailbox");
    const int32_t begun = rynImapRenameMB(Channel, ImapWord(from).c_str(), ImapWord(to).c_str());
    return Tell(session, begun, "renamed " + ForTerminal(from) + " to " + ForTerminal(to));
}

static ExitCode Copy(Session& session, int32_t message, const char* name)
{
    const std::string number = std::to_string(message);
    if (!FitsCommand("COPY " + number + " " + ImapWord(name), name))
        return EXIT_USAGE;
    BeginStep(session, "copying message " + number);
    const int32_t begun = rynImapCopyMBmail(Channel, message, ImapWord(name).c_str());
    return Tell(session, begun, "copied message " + number + " to " + ForTerminal(name));
}

// --- the list ---

// A word of an answer as it is without quotes.
static std::string WithoutQuotes(const std::string& word)
{
    if (!word.starts_with('"') || !word.ends_with('"') || word.size() < 2)
        return word;
    std::string text;
    for (size_t i = 1; i + 1 < word.size(); ++i) {
        if (word[i] == '\\')
            ++i;
        text += word[i];
    }
    return text;
}

// The name in '* LIST (\Noselect) "/" "old mail"'; empty: the line is none of the list.
static std::string NameIn(const std::string& line)
{
    const size_t attributes = line.starts_with("* LIST (") ? line.find(") ") : std::string::npos;
    if (attributes == std::string::npos)
        return "";
    const size_t separator = attributes + 2; // NIL, or a char in quotes that may be a blank
    const size_t blank = line.find(' ', line[separator] == '"' ? separator + 3 : separator);
    return blank == std::string::npos ? "" : WithoutQuotes(line.substr(blank + 1));
}

static ExitCode List(Session& session)
{
    char unused = 0; // manual driving: the answer comes later
    BeginStep(session, "asking for the mailboxes");
    int32_t status = rynImapListMB(Channel, &unused, 0);
    if (status >= 0)
        status = Drive(session);
    if (status < 0)
        return ReportFailure(session, status);
    const std::string reply = LastReply(session);
    for (size_t at = 0, end; (end = reply.find("\r\n", at)) != std::string::npos; at = end + 2)
        if (const std::string name = NameIn(reply.substr(at, end - at)); !name.empty())
            printf("%s\n", ForTerminal(name).c_str());
    if (IsAccepted(session))
        return EXIT_DONE;
    fprintf(stderr, "rynmail: the list of mailboxes is not whole: %s\n", session.Refusal.c_str());
    return EXIT_REFUSED;
}

// --- all of them ---

static ExitCode CopyAll(Session& session, const Options& options, int32_t count)
{
    std::vector<int32_t> messages;
    ExitCode outcome = ChooseMessages(options, count, messages);
    for (size_t i = 0; i < messages.size() && outcome == EXIT_DONE; ++i)
        outcome = Copy(session, messages[i], options.CopyTo);
    return outcome;
}

// Up to the first refusal, for what comes later may count on what comes first.
static ExitCode WorkInSession(Session& session, const Options& options)
{
    int32_t count = 0;
    ExitCode outcome = options.CopyTo ? OpenImapMailbox(session, options, false, count)
                                      : Connect(session, options, nullptr);
    for (size_t i = 0; i < options.Create.size() && outcome == EXIT_DONE; ++i)
        outcome = Create(session, options.Create[i]);
    if (!options.Rename.empty() && outcome == EXIT_DONE)
        outcome = Rename(session, options.Rename[0], options.Rename[1]);
    if (options.CopyTo && outcome == EXIT_DONE)
        outcome = CopyAll(session, options, count);
    for (size_t i = 0; i < options.DeleteBoxes.size() && outcome == EXIT_DONE; ++i)
        outcome = Delete(session, options.DeleteBoxes[i]);
    const bool wasAsked = !options.Create.empty() || !options.Rename.empty() || options.CopyTo ||
                          !options.DeleteBoxes.empty();
    return outcome == EXIT_DONE && !wasAsked ? List(session) : outcome;
}

ExitCode RunMailboxes(const Options& options)
{
    if (const char* misuse = FindMisuse(options))
        return WrongUse(misuse);
    if (!DoesAllFit(options))
        return EXIT_USAGE;
    Session session;
    if (!StartSession(session))
        return EXIT_OTHER;
    const ExitCode outcome = WorkInSession(session, options);
    EndSession(session, !session.IsBroken);
    return outcome;
}
