// rynmail flags: shows and changes the flags of messages in an IMAP mailbox.
#include "commands.h"
#include "imap_mailbox.h"
#include "message_numbers.h"
#include "ryn32.h"
#include "session.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

struct FlagRow {
    const char* Name;
    int32_t Bit;
};

constexpr FlagRow FlagTable[] = {
    { "seen", RYN_FLAG_SEEN },       { "answered", RYN_FLAG_ANSWERED },
    { "flagged", RYN_FLAG_FLAGGED }, { "deleted", RYN_FLAG_DELETED },
    { "draft", RYN_FLAG_DRAFT },     { "recent", RYN_FLAG_RECENT },
};

// The sum of the flags that were named. False: one is none that can be changed.
static bool TakeFlags(const std::vector<const char*>& typed, int32_t& flagsOut)
{
    flagsOut = 0;
    for (const char* name : typed) {
        int32_t bit = 0;
        for (const FlagRow& row : FlagTable)
            if (strcmp(row.Name, name) == 0 && row.Bit != RYN_FLAG_RECENT)
                bit = row.Bit;
        if (bit == 0)
            return false;
        flagsOut |= bit;
    }
    return true;
}

static void PrintFlags(int32_t message, int32_t flags)
{
    std::string names;
    for (const FlagRow& row : FlagTable)
        if ((flags & row.Bit) != 0)
            names.append(names.empty() ? "" : " ").append(row.Name);
    printf("%d\t%s\n", message, names.c_str());
    fflush(stdout); // in step with the errors
}

static ExitCode FlagMessage(Session& session, int32_t message, int32_t added, int32_t removed)
{
    int32_t flags = 0;
    if (added != 0)
        if (const ExitCode outcome = ChangeFlags(session, message, RYN_FLAGS_ADD, added);
            outcome != EXIT_DONE)
            return outcome;
    if (removed != 0)
        if (const ExitCode outcome = ChangeFlags(session, message, RYN_FLAGS_REMOVE, removed);
            outcome != EXIT_DONE)
            return outcome;
    if (const ExitCode outcome = AskFlags(session, message, flags); outcome != EXIT_DONE)
        return outcome;
    PrintFlags(message, flags);
    return EXIT_DONE;
}

static ExitCode FlagInSession(Session& session, const Options& options, int32_t added,
                              int32_t removed)
{
    int32_t count = 0;
    std::vector<int32_t> messages;
    if (const ExitCode outcome = OpenImapMailbox(session, options, false, count);
        outcome != EXIT_DONE)
        return outcome;
    if (const ExitCode outcome = ChooseMessages(options, count, messages); outcome != EXIT_DONE)
        return outcome;
    for (const int32_t message : messages)
        if (const ExitCode outcome = FlagMessage(session, message, added, removed);
            outcome != EXIT_DONE)
            return outcome;
    return EXIT_DONE;
}

ExitCode RunFlags(const Options& options)
{
    int32_t added = 0;
    int32_t removed = 0;
    if (const char* misuse = FindImapMisuse(options))
        return WrongUse(misuse);
    if (options.Messages.empty() || !AreNumbers(options))
        return WrongUse(NumbersWanted);
    if (!TakeFlags(options.Add, added) || !TakeFlags(options.Remove, removed))
        return WrongUse("--add and --remove take seen, answered, flagged, deleted and draft");
    Session session;
    if (!StartSession(session))
        return EXIT_OTHER;
    const ExitCode outcome = FlagInSession(session, options, added, removed);
    EndSession(session, !session.IsBroken);
    return outcome;
}
