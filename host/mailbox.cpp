// Questions to a mailbox in manual driving. A refusal is no failure to the library in most of them:
// the last reply has the verdict.
#include "mailbox.h"

#include "imap_mailbox.h"
#include "ryn32.h"

#include <cstdlib>

constexpr int32_t HeadLimit = 65536; // bytes of a header that are looked at

// Runs what an operation has begun.
static ExitCode Finish(Session& session, int32_t status)
{
    if (status >= 0)
        status = Drive(session);
    return status >= 0 ? EXIT_DONE : ReportFailure(session, status);
}

const char* FindMailboxMisuse(const Options& options)
{
    if (!options.Pop3 == !options.Imap)
        return "a mailbox wants --pop3 or --imap, and not both";
    if (options.Imap)
        return options.UseApop ? "--apop is for --pop3 only" : nullptr;
    return options.Mailbox ? "--mailbox wants --imap: by POP3 there is one mailbox" : nullptr;
}

ExitCode OpenMailbox(Session& session, const Options& options, bool isOnlyLookedAt,
                     int32_t& countOut)
{
    if (options.Imap)
        return OpenImapMailbox(session, options, isOnlyLookedAt, countOut);
    if (const ExitCode outcome = Connect(session, options, nullptr); outcome != EXIT_DONE)
        return outcome;
    BeginStep(session, "asking how many messages there are");
    const ExitCode outcome = Finish(session, rynGetEmailCount(Channel));
    countOut = rynStatistics(Channel, RYN_STAT_EMAIL_COUNT);
    return outcome;
}

ExitCode AskSize(Session& session, int32_t message, uint32_t& sizeOut, bool& isThereOut)
{
    BeginStep(session, "asking for the size of message " + std::to_string(message));
    const ExitCode outcome = Finish(session, rynGetEmailSize(Channel, message));
    sizeOut = static_cast<uint32_t>(rynStatistics(Channel, RYN_STAT_MESSAGE_SIZE));
    isThereOut = IsAccepted(session);
    return outcome;
}

ExitCode AskHead(Session& session, int32_t message, std::string& headOut)
{
    BeginStep(session, "asking for the header of message " + std::to_string(message));
    headOut.assign(HeadLimit, '\0');
    const ExitCode outcome =
        Finish(session, rynGetEmailLines(Channel, message, 0, headOut.data(), HeadLimit));
    const int32_t used = rynStatistics(Channel, RYN_STAT_BUFFER_USED);
    headOut.resize(outcome == EXIT_DONE && used > 0 ? static_cast<size_t>(used) : 0);
    headOut.erase(0, headOut.find('\n') + 1); // the server's reply
    return outcome;
}

// Uids go on from where another mailbox of the name began anew; the validity tells that one apart.
static ExitCode AskImapIds(Session& session, int32_t count, std::string& linesOut)
{
    constexpr int32_t size = 128;
    char uid[size];
    linesOut = "\n";
    for (int32_t message = 1; message <= count; ++message) {
        BeginStep(session, "asking for the id of message " + std::to_string(message));
        const int32_t begun = rynGetEmailUID(Channel, message, uid, size);
        if (const ExitCode outcome = Finish(session, begun); outcome != EXIT_DONE)
            return outcome;
        const int32_t validity = rynStatistics(Channel, RYN_STAT_UID_VALIDITY);
        if (strtol(uid, nullptr, 10) > 0)
            linesOut += std::to_string(message) + " " + std::to_string(validity) + "-" + uid;
    }
    return EXIT_DONE;
}

ExitCode AskIds(Session& session, int32_t count, std::string& linesOut)
{
    if (session.IsImap)
        return AskImapIds(session, count, linesOut);
    constexpr int32_t lineBytes = 10 + 1 + 70 + 2; // RFC 1939, 7.: an id has 70 chars at most
    const int32_t size = 512 + 2 + lineBytes * count;
    linesOut.assign(static_cast<size_t>(size), '\0');
    // A server that refuses the list would be waited for in vain; about one message it is asked
    // without danger.
    for (const int32_t message : { 1, -1 }) {
        BeginStep(session, "asking for the ids of the messages");
        const int32_t begun = rynGetEmailUID(Channel, message, linesOut.data(), size);
        if (const ExitCode outcome = Finish(session, begun); outcome != EXIT_DONE)
            return outcome;
        if (linesOut[0] == '+')
            continue;
        linesOut.clear();
        return EXIT_DONE;
    }
    linesOut.resize(linesOut.find('\0'));
    return EXIT_DONE;
}

ExitCode MarkDeleted(Session& session, int32_t message, bool& isMarkedOut)
{
    BeginStep(session, "deleting message " + std::to_string(message));
    const ExitCode outcome = Finish(session, rynDeleteEmail(Channel, message));
    isMarkedOut = IsAccepted(session);
    return outcome;
}
