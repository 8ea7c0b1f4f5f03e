// rynmail fetch: messages of a mailbox, each into a folder of its own.
#include "commands.h"
#include "imap_mailbox.h"
#include "mailbox.h"
#include "message_folder.h"
#include "message_numbers.h"
#include "received.h"
#include "ryn32.h"
#include "session.h"
#include "stored_message.h"
#include "terminal_text.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
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
static bool HasSize(const Session& session, int32_t message, const MessageTraits& traits,
                    uint32_t size)
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
    if (session.IsImap && traits.Bytes < size)
        fputs("rynmail: by IMAP lines that hold a ')' alone get lost: --pop3 fetches them\n",
              stderr);
    return false;
}

// By IMAP the bracket behind a message stands in its last line, if that has no line end. The size
// tells it from one of the message's own.
static void CutBracket(const std::string& target, int32_t message, uint32_t size,
                       MessageTraits& traits)
{
    constexpr char bracketLine[] = { ')', '\r', '\n' };
    std::error_code error;
    if (traits.Bytes != size + uint64_t{ sizeof bracketLine } ||
        memcmp(traits.Tail, bracketLine, sizeof bracketLine) != 0)
        return;
    traits.Bytes = size;
    std::filesystem::resize_file(target, size, error); // which may not be wanted
    fprintf(stderr,
            "rynmail: message %d has no line end: a ')' at the end of %s is not part of it\n",
            message, TextFileName);
}

// Takes the raw copy that the library has made: the message as it is, if that is wanted.
static ExitCode KeepRaw(const Session& session, const std::string& folder, bool isWanted,
                        MessageTraits& traits)
{
    const DotRule dots = session.IsImap ? DOTS_STAY : DOTS_LOSE_ONE;
    const std::string raw = PathIn(folder, RawPrefix + std::string(TextFileName));
    const std::string target = PathIn(folder, RawFileName);
    if (!TakeRawCopy(raw, dots, isWanted ? target : "", traits))
        return EXIT_LOCAL_FILE;
    if (traits.HasOkLine && !isWanted && !session.IsImap) {
        fprintf(stderr, "rynmail: %s lacks lines that begin with +OK: see %s beside it\n",
                TextFileName, RawFileName);
        if (!TakeRawCopy(raw, dots, target, traits))
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
    if (const ExitCode outcome = KeepRaw(session, folder, options.KeepRaw, traits);
        outcome != EXIT_DONE)
        return outcome;
    if (session.IsImap)
        CutBracket(PathIn(folder, RawFileName), message, size, traits);
    if (!HasRoomFor(folder, SpareRoom)) {
        fputs("rynmail: the disk is full\n", stderr);
        return EXIT_LOCAL_FILE;
    }
    const bool isWhole = HasSize(session, message, traits, size);
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
    int32_t count = 0;
    if (const ExitCode outcome = OpenMailbox(fetch.Conversation, options, false, count);
        outcome != EXIT_DONE)
        return outcome;
    if (const ExitCode outcome = ChooseMessages(options, count, fetch.Messages);
        outcome != EXIT_DONE)
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

// By POP3 deleted is what is marked only when the server answers the farewell. That answer is told
// from an older one by a refusal in between: a marked message is no longer there.
static ExitCode ConfirmDeletion(Fetch& fetch)
{
    uint32_t size = 0;
    bool isThere = true;
    Session& session = fetch.Conversation;
    if (!session.IsBroken && session.IsImap)
        RemoveMarked(session, isThere);
    else if (!session.IsBroken)
        AskSize(session, fetch.LastMarked, size, isThere);
    const bool isAccepted = EndSession(session, !session.IsBroken);
    if (!isThere && (isAccepted || session.IsImap)) {
        printf("deleted %zu\n", fetch.Marked);
        return EXIT_DONE;
    }
    fputs("rynmail: the server has not confirmed that messages are deleted\n", stderr);
    return EXIT_CONNECTION;
}

ExitCode RunFetch(const Options& options)
{
    Fetch fetch = {};
    if (!options.User || options.Messages.empty() || !options.Into)
        return WrongUse("fetch wants --pop3 or --imap, --user, --message and --into");
    if (const char* misuse = FindMailboxMisuse(options))
        return WrongUse(misuse);
    if (!AreNumbers(options))
        return WrongUse(NumbersWanted);
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
