// rynmail verify: asks a server about addresses, one after the other.
#include "address.h"
#include "commands.h"
#include "ryn32.h"
#include "session.h"

#include <cstdio>
#include <string>
#include <vector>

// What VRFY is asked: the mailbox without a name and without brackets (RFC 5321, 3.5.1).
static std::string BareMailbox(const std::string& address)
{
    const size_t start = address.find('<') + 1;
    return address.substr(start, address.size() - 1 - start);
}

static ExitCode VerifyEach(Session& session, const std::vector<std::string>& mailboxes)
{
    ExitCode outcome = EXIT_DONE;
    for (const std::string& mailbox : mailboxes) {
        BeginStep(session, "asking");
        int32_t status = rynVerifyUser(Channel, mailbox.c_str());
        if (status >= 0)
            status = Drive(session);
        if (status < 0)
            return ReportFailure(session, status);
        if (rynStatistics(Channel, RYN_STAT_VERIFY_RESULT) == 1) {
            printf("%s: known\n", mailbox.c_str());
            continue;
        }
        outcome = EXIT_REFUSED;
        const char* answer =
            !session.Refusal.empty() ? session.Refusal.c_str() : "the server does not tell";
        printf("%s: not confirmed: %s\n", mailbox.c_str(), answer);
    }
    return outcome;
}

static ExitCode VerifyInSession(Session& session, const Options& options)
{
    std::string from, address;
    std::vector<std::string> mailboxes;
    if (!MakeAddress(options.From, from))
        return EXIT_USAGE;
    for (const char* typed : options.Words) {
        if (!MakeAddress(typed, address))
            return EXIT_USAGE;
        mailboxes.push_back(BareMailbox(address));
    }
    if (const ExitCode outcome = Connect(session, options, from.c_str()); outcome != EXIT_DONE)
        return outcome;
    return VerifyEach(session, mailboxes);
}

ExitCode RunVerify(const Options& options)
{
    if (!options.Server || !options.From || options.Words.empty()) {
        fputs("rynmail: verify wants --server, --from and at least one address\n", stderr);
        return EXIT_USAGE;
    }
    Session session;
    if (!StartSession(session))
        return EXIT_OTHER;
    const ExitCode outcome = VerifyInSession(session, options);
    EndSession(session, outcome == EXIT_DONE || outcome == EXIT_REFUSED);
    return outcome;
}
