// An IMAP session with a hostile server (fuzz_session.h).
#include "include/ryn32.h"
#include "tests/fuzz/fuzz_fetch.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/fuzz/fuzz_peer.h"
#include "tests/fuzz/fuzz_session.h"
#include "tests/fuzz/fuzz_world.h"

#include <cstring>

static int32_t Connect(SessionHost& host)
{
    SessionAbort(host);
    return rynImapConnect(0, PeerName, "user", "secret");
}

// --- flags and searching ---

static int32_t ReadFlags(SessionHost&)
{
    constexpr int32_t AllFlags = 63;
    const int32_t flags = rynImapFlags(0, 1, RYN_FLAGS_READ, AllFlags);
    Require(flags <= AllFlags, "no flags but those asked for");
    return flags;
}

static int32_t AddFlags(SessionHost&)
{
    return rynImapFlags(0, 2, RYN_FLAGS_ADD, RYN_FLAG_DELETED | RYN_FLAG_RECENT);
}

static int32_t RemoveFlags(SessionHost&)
{
    return rynImapFlags(0, INT32_MAX, RYN_FLAGS_REMOVE, -1);
}

static int32_t SearchInto(SessionHost& host, size_t size)
{
    char* const found = SessionBuffer(host, size);
    const int32_t result = rynImapSearch(0, "UNSEEN FROM \"x\"", found, static_cast<int32_t>(size));
    Require(memchr(found, 0, size) != nullptr, "what was found is terminated");
    return result;
}

static int32_t Search(SessionHost& host)
{
    return SearchInto(host, 2000);
}

static int32_t SearchLittle(SessionHost& host)
{
    return SearchInto(host, 9);
}

static int32_t Walk(SessionHost&)
{
    const int32_t count = rynImapMsgNumber(0, RYN_SEARCH_COUNT);
    for (int32_t i = 0; i < count; i++)
        Require(rynImapMsgNumber(0, i == 0 ? RYN_SEARCH_FIRST : RYN_SEARCH_NEXT) >= 0,
                "a number is no status");
    Require(rynImapMsgNumber(0, RYN_SEARCH_NEXT) == 0 || count <= 0, "a walk ends");
    return count;
}

// --- mailboxes ---

static int32_t Select(SessionHost&)
{
    const int32_t result = rynImapSelectMB(0, "a mailbox with a name longer than the limit");
    Require(rynGetEmailCount(0) >= 0, "a count is no status");
    return result;
}

static int32_t Create(SessionHost&)
{
    return rynImapCreateMB(0, "box");
}

static int32_t DeleteBox(SessionHost&)
{
    return rynImapDeleteMB(0, "box");
}

static int32_t Rename(SessionHost&)
{
    return rynImapRenameMB(0, "box", "other");
}

static int32_t Copy(SessionHost&)
{
    return rynImapCopyMBmail(0, -1, "box");
}

static int32_t List(SessionHost& host)
{
    constexpr int32_t ListChars = 300;
    char* const list = SessionBuffer(host, ListChars + 1);
    const int32_t result = rynImapListMB(0, list, ListChars);
    Require(memchr(list, 0, ListChars + 1) != nullptr, "a list is terminated");
    return result;
}

// --- settings ---

static int32_t KeepDeleted(SessionHost&)
{
    Set(RYN_EXPUNGE_ON_CLOSE, 0);
    return 0;
}

static int32_t AskForParts(SessionHost&)
{
    Set(RYN_IMAP_PARTIAL, 1);
    return 0;
}

static int32_t Trace(SessionHost&)
{
    Set(RYN_IMAP_TRACE, 1);
    return 0;
}

static constexpr SessionLetter Letters[] = {
    { 'n', Connect }, { 'g', ReadFlags },    { '+', AddFlags },    { '-', RemoveFlags },
    { 'z', Search },  { 'Z', SearchLittle }, { '?', Walk },        { 'b', Select },
    { 'm', Create },  { 'k', DeleteBox },    { 't', Rename },      { 'y', Copy },
    { 'i', List },    { 'x', KeepDeleted },  { 'p', AskForParts }, { 'T', Trace },
};

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSession({ Letters, RYN_ERR_IMAP_REPLY, CheckHonestImap }, data, size);
    return 0;
}
