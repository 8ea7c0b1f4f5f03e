// rynmail fetch: messages of a mailbox, each into a folder of its own.
#include "commands.h"
#include "mailbox.h"
#include "message_folder.h"
#include "received.h"
#include "ryn32.h"
#include "session.h"
#include "stored_message.h"
#include "terminal_text.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

// Room that a fetch leaves on the disk; with less, the last bytes may not have found theirs.
constexpr uint64_t SpareRoom = 1024 * 1024;

struct Fetch {
    Session Conversation;
    std::string Into;
    std::vector<int32_t> Messages; // to fetch
    size_t Fetched, Marked;
    int32_t LastMarked; // the message marked for deletion last
};

static ExitCode Refused(const Session& session, const char* what, int32_t message)
{
    fprintf(stderr, "rynmail: %s message %d: %s\n", what, message, session.Refusal.c_str());
    return EXIT_REFUSED;
}

// --- which ---

static bool IsAll(const Options& options)
{
    return options.Messages.size() == 1 && strcmp(options.Messages[0], "all") == 0;
}

static bool TakeNumbers(const Options& options, std::vector<int32_t>& numbersOut)
{
    for (const char* typed : options.Messages) {
        char* end;
        const unsigned long number = strtoul(typed, &end, 10);
        if (*typed < '0' || *typed > '9' || *end || number < 1 || number > INT_MAX)
            return false;
        numbersOut.push_back(static_cast<int32_t>(number));
    }
    return true;
}

// The messages of the command line that the mailbox has.
static ExitCode ChooseMessages(Fetch& fetch, const Options& options)
{
    int32_t count = 0;
    if (const ExitCode outcome = AskCount(fetch.Conversation, count); outcome != EXIT_DONE)
        return outcome;
    if (IsAll(options))
        for (int32_t message = 1; message <= count; ++message)
            fetch.Messages.push_back(message);
    for (const int32_t message : fetch.Messages) {
        if (message <= count)
            continue;
        fprintf(stderr, "rynmail: there is no message %d: the mailbox holds %d\n", message, count);
        return EXIT_REFUSED;
    }
    return EXIT_DONE;
}

// --- one message ---

// Lets the library fetch a message and decode it into the folder.
static ExitCode Receive(Session& session, int32_t message, uint32_t size, const std::string& folder)
{
    BeginStep(session, "fetching message " + std::to_string(message), size, RYN_STAT_BYTES_IN);
    int32_t status =
        rynGetEmailFile(Channel, message, TextFileName, folder.c_str(), folder.c_str());
    if (status >= 0)
        status = Drive(session);
    return status >= 0 ? EXIT_DONE : ReportFailure(session, status);
}

// A server that goes away inside a message ends it just like the last line would. One that still
// answers has said all of it.
static ExitCode ProveEnd(Session& session, int32_t message, uint32_t size)
{
    uint32_t sizeNow = 0;
    bool isThere = false;
    if (rynIsConnected(Channel) == 1) {
        const ExitCode outcome = AskSize(session, message, sizeNow, isThere);
        if (outcome != EXIT_DONE || (isThere && sizeNow == size))
            return outcome;
    }
    session.IsBroken = true;
    fprintf(stderr, "rynmail: the server went away inside message %d\n", message);
    return EXIT_CONNECTION;
}

// Compares what is on the disk with what the server had announced: a full disk cuts files short
// without a word.
static bool HasSize(int32_t message, const MessageTraits& traits, uint32_t size)
{
    constexpr uint64_t lineEnd = 2; // that a server puts behind a last line without one
    if (traits.Bytes == size || traits.Bytes == size + lineEnd)
        return true;
    if (traits.Bytes - traits.Lines == size)
        return true; // a server that counts a line end as one byte
    fprintf(stderr,
            "rynmail: message %d has %llu bytes here and %u on the server: a file may be cut "
            "short\n",
            message, static_cast<unsigned long long>(traits.Bytes), size);
    return false;
}

// Takes the raw copy that the library has made: the message as it is, if that is wanted.
static ExitCode KeepRaw(const std::string& folder, bool isWanted, MessageTraits& traits)
{
    const std::string raw = PathIn(folder, RawPrefix + std::string(TextFileName));
    const std::string target = PathIn(folder, RawFileName);
    if (!TakeRawCopy(raw, isWanted ? target : "", traits))
        return EXIT_LOCAL_FILE;
    if (traits.HasOkLine && !isWanted) {
        fprintf(stderr, "rynmail: %s lacks lines that begin with +OK: see %s beside it\n",
                TextFileName, RawFileName);
        if (!TakeRawCopy(raw, target, traits))
            return EXIT_LOCAL_FILE;
    }
    if (remove(raw.c_str()) == 0)
        return EXIT_DONE;
    fprintf(stderr, "rynmail: can't remove '%s'\n", ForTerminal(raw).c_str());
    return EXIT_LOCAL_FILE;
}

// Fetches a message into a folder of its own. Only EXIT_DONE means that all of it is on the disk.
static ExitCode FetchInto(Fetch& fetch, const Options& options, int32_t message, uint32_t size,
                          std::string& folder)
{
    MessageTraits traits;
    Session& session = fetch.Conversation;
    if (const ExitCode outcome = Receive(session, message, size, folder); outcome != EXIT_DONE)
        return outcome;
    if (const ExitCode outcome = ProveEnd(session, message, size); outcome != EXIT_DONE)
        return outcome;
    if (const ExitCode outcome = KeepRaw(folder, options.KeepRaw, traits); outcome != EXIT_DONE)
        return outcome;
    if (!HasRoomFor(folder, SpareRoom)) {
        fputs("rynmail: the disk is full\n", stderr);
        return EXIT_LOCAL_FILE;
    }
    const bool isWhole = HasSize(message, traits, size);
    const std::vector<ReceivedFile> attachments = TakeAttachments(folder);
    if (!CommitFolder(fetch.Into, folder))
        return EXIT_LOCAL_FILE;
    ++fetch.Fetched;
    printf("message %d, %u bytes: %s\n", message, size, ForTerminal(folder).c_str());
    PrintReceived(folder, traits.Head, attachments);
    fflush(stdout); // in step with the errors
    return isWhole ? EXIT_DONE : EXIT_OTHER;
}

static ExitCode Delete(Fetch& fetch, int32_t message)
{
    bool isMarked = false;
    const ExitCode outcome = MarkDeleted(fetch.Conversation, message, isMarked);
    if (outcome != EXIT_DONE)
        return outcome;
    if (!isMarked)
        return Refused(fetch.Conversation, "deleting", message);
    ++fetch.Marked;
    fetch.LastMarked = message;
    return EXIT_DONE;
}

static ExitCode FetchMessage(Fetch& fetch, const Options& options, int32_t message)
{
    uint32_t size = 0;
    bool isThere = false;
    std::string folder;
    ExitCode outcome = AskSize(fetch.Conversation, message, size, isThere);
    if (outcome != EXIT_DONE)
        return outcome;
    if (!isThere)
        return Refused(fetch.Conversation, "fetching", message);
    // Raw copy and decoded parts take room at the same time.
    if (!HasRoomFor(fetch.Into, 2 * uint64_t{ size } + SpareRoom)) {
        fprintf(stderr, "rynmail: there is no room for message %d\n", message);
        return EXIT_LOCAL_FILE;
    }
    if (!ClaimFolder(fetch.Into, folder))
        return EXIT_LOCAL_FILE;
    const size_t fetchedBefore = fetch.Fetched;
    outcome = FetchInto(fetch, options, message, size, folder);
    if (fetch.Fetched == fetchedBefore)
        LeaveUnfinished(folder);
    return outcome == EXIT_DONE && options.Delete ? Delete(fetch, message) : outcome;
}

// --- all of them ---

static ExitCode FetchInSession(Fetch& fetch, const Options& options)
{
    if (const ExitCode outcome = PrepareInto(options.Into, fetch.Into); outcome != EXIT_DONE)
        return outcome;
    if (const ExitCode outcome = Connect(fetch.Conversation, options, nullptr);
        outcome != EXIT_DONE)
        return outcome;
    if (const ExitCode outcome = ChooseMessages(fetch, options); outcome != EXIT_DONE)
        return outcome;
    SetReceiveParams();
    ExitCode worst = EXIT_DONE;
    for (const int32_t message : fetch.Messages) {
        const ExitCode outcome = FetchMessage(fetch, options, message);
        worst = worst == EXIT_DONE ? outcome : worst;
        // What one message is refused for, another may not be; a disk or a line stays as it is.
        if (outcome != EXIT_DONE && outcome != EXIT_REFUSED && outcome != EXIT_OTHER)
            break;
    }
    return worst;
}

// Deleted is what is marked only when the server answers the farewell. That answer is told from an
// older one by a refusal in between: a marked message is no longer there.
static ExitCode ConfirmDeletion(Fetch& fetch)
{
    uint32_t size = 0;
    bool isThere = true;
    Session& session = fetch.Conversation;
    if (!session.IsBroken)
        AskSize(session, fetch.LastMarked, size, isThere);
    if (EndSession(session, !session.IsBroken) && !isThere) {
        printf("deleted %zu\n", fetch.Marked);
        return EXIT_DONE;
    }
    fputs("rynmail: the server has not confirmed that messages are deleted\n", stderr);
    return EXIT_CONNECTION;
}

ExitCode RunFetch(const Options& options)
{
    Fetch fetch = {};
    if (!options.Pop3 || !options.User || options.Messages.empty() || !options.Into)
        return WrongUse("fetch wants --pop3, --user, --message and --into");
    if (!IsAll(options) && !TakeNumbers(options, fetch.Messages))
        return WrongUse("--message takes numbers from 1 on, or all");
    if (!StartSession(fetch.Conversation))
        return EXIT_OTHER;
    const ExitCode outcome = FetchInSession(fetch, options);
    if (fetch.Marked == 0) {
        EndSession(fetch.Conversation, !fetch.Conversation.IsBroken);
        return outcome;
    }
    const ExitCode confirmed = ConfirmDeletion(fetch);
    return outcome == EXIT_DONE ? confirmed : outcome;
}
