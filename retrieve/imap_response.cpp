// No general parser of the protocol (RFC 2060): it looks at the first word of a line and searches the
// rest for one key.
#include "retrieve/imap_response.h"

#include "codec/text.h"
#include "frame/channel.h"
#include "frame/log.h"
#include "frame/settings.h"
#include "frame/ticks.h"
#include "platform/platform.h"
#include "transport/channel_io.h"
#include "transport/replies.h"

#include <cstring>

constexpr int32_t NotThere = -1;
constexpr int32_t WordChars = 32; // of a line's first word

char ImapCollector[CollectorChars + 1];

struct FlagRow {
    uint8_t Bit;
    const char* Word;
};

static constexpr FlagRow Flags[] = {
    { 1, "\\Seen" },    { 2, "\\Answered" }, { 4, "\\Flagged" },
    { 8, "\\Deleted" }, { 16, "\\Draft" },   { 32, "\\Recent" },
};

// --- values in a line ---

static bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

// "23 EXISTS".
static int32_t NumberBeforeKey(const char* text, const char* key)
{
    if (!IsDigit(*text))
        return RYN_ERR_IMAP_SEARCH;
    const char* const blank = FindChar(text, ' ');
    if (blank == nullptr || SameTextNoCase(blank + 1, key, TextLength(key)) == 0)
        return RYN_ERR_IMAP_SEARCH;
    return static_cast<int32_t>(ParseReplyNumber(text));
}

// "12 FETCH (RFC822.SIZE 4711)".
static int32_t NumberAfterKey(const char* text, const char* key)
{
    const char* place = FindTextNoCase(text, key);
    if (place == nullptr)
        return RYN_ERR_IMAP_SEARCH;
    place += TextLength(key);
    while (*place != 0 && !IsDigit(*place))
        place++;
    return *place == 0 ? RYN_ERR_IMAP_SEARCH : static_cast<int32_t>(ParseReplyNumber(place));
}

static int32_t ParseFlags(const char* text)
{
    const char* const place = FindTextNoCase(text, "FLAGS");
    if (place == nullptr)
        return NotThere;
    int32_t bits = 0;
    for (const FlagRow& row : Flags)
        if (FindTextNoCase(place, row.Word) != nullptr)
            bits |= row.Bit;
    return bits;
}

// Each list replaces the one before.
static int32_t ParseSearchLine(Channel& ch, const char* text)
{
    const char* const place = FindTextNoCase(text, "SEARCH");
    if (place != nullptr && ch.SearchTarget != nullptr && ch.SearchSize > 0) {
        CopyText(ch.SearchTarget, place, ch.SearchSize - 1);
        CutAtLineEnd(ch.SearchTarget);
    }
    return 1;
}

// Adds the rest of an overlong list.
static void ParseSearchPiece(Channel& ch)
{
    if (ch.SearchTarget == nullptr || ch.SearchSize < 1)
        return;
    AppendText(ch.SearchTarget, ch.ReplyBuffer, ch.SearchSize - 1);
    CutAtLineEnd(ch.SearchTarget);
}

void BuildFlagList(char* text, int32_t capacity, uint8_t bits)
{
    CopyText(text, "(", capacity);
    const char* separator = "";
    for (const FlagRow& row : Flags) {
        if ((row.Bit & bits & WritableFlags) == 0)
            continue;
        AppendText(text, separator, capacity);
        AppendText(text, row.Word, capacity);
        separator = " ";
    }
    AppendText(text, ")", capacity);
}

// --- one line of an answer ---

static bool IsTraced()
{
    return ImapTrace == 1;
}

// Adds the line in hand to what a host can ask for, behind the chars that it holds so far.
static void CollectLine(Channel& ch, int32_t& collected)
{
    const bool isFirst = ch.ChannelNumber == 0;
    char* const collector = isFirst ? ImapCollector : ch.LastReply;
    const int32_t capacity =
        isFirst ? CollectorChars : static_cast<int32_t>(sizeof ch.LastReply) - 1;
    const int32_t added = CopyText(collector + collected, ch.ReplyBuffer, capacity - collected);
    if (IsTraced())
        LogFormat(ch, "-- Bytes=%d, n=%d\r\n", collected, added);
    collected += added;
}

static void EmptyCollector(Channel& ch)
{
    if (ch.ChannelNumber == 0)
        ImapCollector[0] = 0;
    else
        ch.LastReply[0] = 0;
}

// Splits the line behind its first word: the rest, which is empty for a line without a blank.
static const char* SplitLine(const char* line, char (&word)[WordChars + 1])
{
    const char* const blank = FindChar(line, ' ');
    if (blank == nullptr) {
        CopyField(word, line);
        return "";
    }
    const ptrdiff_t chars = blank - line;
    CopyText(word, line, static_cast<int32_t>(chars < WordChars ? chars : WordChars));
    return blank + 1;
}

static int32_t ReadUntagged(Channel& ch, ImapAnswer type, const char* key, const char* rest)
{
    if (const int32_t validity = NumberAfterKey(rest, "UIDVALIDITY"); validity >= 0)
        ch.ImapUidValidity = validity;
    switch (type) {
    case IMAP_FLAGS:
        return ParseFlags(rest);
    case IMAP_AFTER_KEY:
        return NumberAfterKey(rest, key);
    case IMAP_SEARCH:
        return ParseSearchLine(ch, rest);
    case IMAP_BEFORE_KEY:
        return NumberBeforeKey(rest, key);
    default:
        return NotThere;
    }
}

// The server's verdict in the line that ends an answer.
static int32_t ReadVerdict(Channel& ch, ImapAnswer type, const char* word, const char* rest,
                           int32_t best)
{
    if (strncmp(rest, "OK", 2) == 0 || strncmp(rest, "+OK", 3) == 0) {
        ch.ReplyCode = 100;
        return best < 0 ? 0 : best;
    }
    LogFormat(ch, "Bad server response (Tag '%s', Type '%c')\r\n", word, type);
    ch.ReplyCode = 500;
    return RYN_ERR_IMAP_REPLY;
}

// --- the whole answer ---

// Reads the next line into ReplyBuffer: 1, 0 for none that counts, or a status.
static int32_t ReadAnswerLine(Channel& ch)
{
    if (ChannelDataReady(ch, ReplyTimeout) == 0)
        return RYN_ERR_TIMED_OUT;
    const int32_t count =
        ReadServerLine(ch, ch.ReplyBuffer, ReplyReadCapacity, ReplyTimeout, ReplyTimeout);
    return count > 0 ? 1 : count;
}

int32_t ImapResponse(Channel& ch, ImapAnswer type, const char* key)
{
    // A server that never stops talking is not listened to for ever.
    const uint32_t deadline = TickAfter(osTickCount(), 2 * ReplyTimeout);
    int32_t best = NotThere;
    bool isSearchLine = false;
    EmptyCollector(ch);
    int32_t collected = 0;
    if (IsTraced())
        LogFormat(ch, "ImapResponse(*,%c,'%s')\r\n", type, key == nullptr ? "(null)" : key);
    ch.DeadlineTick = 0;
    while (!TickReached(osTickCount(), deadline)) {
        const int32_t status = ReadAnswerLine(ch);
        if (status == RYN_ERR_SOCK_CLOSED)
            return 0;
        if (status < 0)
            return status;
        if (status == 0) // the line that closes a literal
            continue;
        CollectLine(ch, collected);
        if (ch.LineIsPiece != 0) { // the rest of an overlong line is no line of the answer
            if (isSearchLine)
                ParseSearchPiece(ch);
            continue;
        }
        char word[WordChars + 1];
        const char* const rest = SplitLine(ch.ReplyBuffer, word);
        if (IsTraced())
            LogFormat(ch, "-- Tag='%s' Type='%c' More='%s'\r\n", word, type, "");
        const bool isUntagged = word[0] == '*';
        isSearchLine =
            type == IMAP_SEARCH && isUntagged && FindTextNoCase(rest, "SEARCH") != nullptr;
        if (isUntagged)
            if (const int32_t value = ReadUntagged(ch, type, key, rest); value >= 0)
                best = value;
        if (type == IMAP_ANY && !isUntagged) {
            ch.ReplyCode = 100;
            return 0;
        }
        if (type == IMAP_GREETING || !isUntagged)
            return ReadVerdict(ch, type, word, rest, best);
    }
    return RYN_ERR_TIMED_OUT;
}
