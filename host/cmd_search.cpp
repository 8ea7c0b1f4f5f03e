// rynmail search: which messages of an IMAP mailbox match.
#include "commands.h"
#include "imap_mailbox.h"
#include "session.h"
#include "terminal_text.h"

#include <cstdio>
#include <string>
#include <vector>

constexpr size_t CriteriaLimit = 900; // bytes; servers take lines of 1000

// The words as one text: both FROM bob and 'FROM bob' are right.
static std::string JoinWords(const Options& options)
{
    std::string text;
    for (const char* word : options.Words)
        text.append(text.empty() ? "" : " ").append(word);
    return text;
}

// What is wrong with the choice of options; null: nothing.
static const char* FindMisuse(const Options& options, const std::string& criteria)
{
    if (const char* misuse = FindImapMisuse(options))
        return misuse;
    if (criteria.empty() || criteria.size() > CriteriaLimit)
        return "search wants criteria, of 900 bytes at most";
    if (HasControlChar(criteria))
        return "the criteria hold a control char";
    // The server would wait for more, and take the next command for it.
    return criteria.ends_with('}') ? "the criteria end in '}': put that text in quotes" : nullptr;
}

static ExitCode SearchInSession(Session& session, const Options& options,
                                const std::string& criteria)
{
    int32_t count = 0;
    std::vector<int32_t> found;
    if (const ExitCode outcome = OpenImapMailbox(session, options, false, count);
        outcome != EXIT_DONE)
        return outcome;
    const ExitCode outcome = FindMessages(session, criteria, count, found);
    for (const int32_t number : found)
        printf("%d\n", number);
    return outcome;
}

ExitCode RunSearch(const Options& options)
{
    const std::string criteria = JoinWords(options);
    if (const char* misuse = FindMisuse(options, criteria))
        return WrongUse(misuse);
    Session session;
    if (!StartSession(session))
        return EXIT_OTHER;
    const ExitCode outcome = SearchInSession(session, options, criteria);
    EndSession(session, !session.IsBroken);
    return outcome;
}
