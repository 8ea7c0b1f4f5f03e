// What only IMAP can do: flags, searching, and mailboxes. The commands on mailboxes are texts for
// rynCommand, cut at its 32 chars.
#include "codec/text.h"
#include "frame/channel.h"
#include "frame/driver.h"
#include "frame/log.h"
#include "frame/memory.h"
#include "frame/settings.h"
#include "platform/platform.h"
#include "retrieve/message_file.h"
#include "transport/replies.h"

// The guards of an operation, and its line in the log: 0 or a status.
static int32_t BeginImap(uint32_t channel, const char* name)
{
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    LogFormat(*ChannelTable[channel], "*** %s\r\n", name);
    return 0;
}

// The same for an operation that no other protocol has.
static int32_t BeginImapOnly(uint32_t channel, const char* name)
{
    if (const int32_t status = BeginImap(channel, name); status < 0)
        return status;
    return ChannelTable[channel]->Protocol == 'I' ? 0 : RYN_ERR_IMAP_ONLY;
}

// --- flags ---

static int32_t StartFlags(Channel& ch, int32_t operation, int32_t bits)
{
    constexpr int32_t WritableFlags = 31; // the server alone sets \Recent
    switch (operation) {
    case RYN_FLAGS_READ:
        ch.NextState = ST_IMAP_GET_FLAGS;
        return 0;
    case RYN_FLAGS_ADD:
        ch.ImapFlags = static_cast<uint8_t>(bits & WritableFlags);
        ch.NextState = ST_IMAP_ADD_FLAGS;
        return 0;
    case RYN_FLAGS_REMOVE:
        ch.ImapFlags = static_cast<uint8_t>(bits & WritableFlags);
        ch.NextState = ST_IMAP_REMOVE_FLAGS;
        return 0;
    default:
        return FailState(ch, 0, RYN_ERR_IMAP_FLAG);
    }
}

int32_t rynImapFlags(uint32_t channel, int32_t message, int32_t operation, int32_t flags)
{
    if (const int32_t status = BeginImapOnly(channel, "rynImapFlags"); status < 0)
        return status;
    if (message < 1)
        return RYN_ERR_NO_SUCH_MESSAGE;
    Channel& ch = *ChannelTable[channel];
    CloseFetchFiles(ch);
    ch.MessageNumber = message;
    if (const int32_t status = StartFlags(ch, operation, flags); status < 0)
        return status;
    if (ch.AutoCallDriver == 0)
        return 0;
    if (const int32_t result = RunDriver(ch); result < 0)
        return result;
    LogFormat(ch, "Flags=%d\r\n", ch.ImapFlags);
    return ch.ImapFlags & flags;
}

// --- searching ---

int32_t rynImapSearch(uint32_t channel, const char* criteria, char* buffer, int32_t size)
{
    if (const int32_t status = BeginImapOnly(channel, "rynImapSearch"); status < 0)
        return status;
    if (criteria == nullptr)
        return RYN_ERR_NULL_POINTER;
    if (buffer == nullptr)
        return RYN_ERR_NULL_BUFFER;
    Channel& ch = *ChannelTable[channel];
    CloseFetchFiles(ch);
    if (size > 0)
        buffer[0] = 0;
    FreeMemory(ch.ChannelNumber, SLOT_SEARCH, SLOT_SEARCH);
    ch.SearchCriteria = criteria;
    ch.SearchTarget = size > 0 ? buffer : nullptr;
    ch.SearchSize = size;
    ch.SearchCursor = SEARCH_AT_START;
    ch.NextState = ST_IMAP_SEARCH;
    return RunDriver(ch);
}

static bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

// The first digit from a place on, or the end of the text.
static const char* FindDigit(const char* text)
{
    while (*text != 0 && !IsDigit(*text))
        text++;
    return text;
}

static const char* FindNonDigit(const char* text)
{
    while (IsDigit(*text))
        text++;
    return text;
}

static int32_t CountNumbers(const char* text)
{
    int32_t count = 0;
    for (text = FindDigit(text); *text != 0; text = FindDigit(FindNonDigit(text)))
        count++;
    return count;
}

// The number at the cursor or behind it, and the cursor moved behind that; 0 at the end.
static int32_t NextNumber(Channel& ch)
{
    const char* const number = FindDigit(ch.SearchBuffer + ch.SearchCursor);
    const char* const behind = FindNonDigit(number);
    ch.SearchCursor = *behind == 0 ? SEARCH_AT_END : static_cast<int32_t>(behind - ch.SearchBuffer);
    return ParseReplyCount(number);
}

int32_t rynImapMsgNumber(uint32_t channel, int32_t mode)
{
    if (const int32_t status = BeginImapOnly(channel, "rynImapMsgNumber"); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    if (ch.SearchBuffer == nullptr)
        return 0;
    switch (mode) {
    case RYN_SEARCH_COUNT:
        return CountNumbers(ch.SearchBuffer);
    case RYN_SEARCH_FIRST:
        ch.SearchCursor = 0;
        return NextNumber(ch);
    case RYN_SEARCH_NEXT:
        if (ch.SearchCursor == SEARCH_AT_END)
            return 0;
        if (ch.SearchCursor == SEARCH_AT_START)
            ch.SearchCursor = 0;
        return NextNumber(ch);
    default:
        return -1;
    }
}

// --- mailboxes ---

int32_t rynImapSelectMB(uint32_t channel, const char* mailbox)
{
    constexpr int32_t NameChars = 32;
    if (const int32_t status = BeginImapOnly(channel, "rynImapSelectMB"); status < 0)
        return status;
    if (mailbox == nullptr)
        return RYN_ERR_NULL_POINTER;
    Channel& ch = *ChannelTable[channel];
    CloseFetchFiles(ch);
    CopyText(ch.MailboxName, mailbox, NameChars);
    ch.NextState = ST_IMAP_SELECT;
    return RunDriver(ch);
}

// Sends "WORD NAME" as a command of the host's own.
static int32_t NameCommand(uint32_t channel, const char* operation, const char* word,
                           const char* name)
{
    if (const int32_t status = BeginImap(channel, operation); status < 0)
        return status;
    if (name == nullptr)
        return RYN_ERR_NULL_POINTER;
    char text[FormatCapacity];
    FormatText(text, sizeof text, "%s %s", word, name);
    return rynCommand(channel, text);
}

int32_t rynImapDeleteMB(uint32_t channel, const char* mailbox)
{
    return NameCommand(channel, "rynImapDeleteMB", "DELETE", mailbox);
}

int32_t rynImapCreateMB(uint32_t channel, const char* mailbox)
{
    return NameCommand(channel, "rynImapCreateMB", "CREATE", mailbox);
}

int32_t rynImapRenameMB(uint32_t channel, const char* from, const char* to)
{
    if (const int32_t status = BeginImap(channel, "rynImapRenameMB"); status < 0)
        return status;
    if (from == nullptr || to == nullptr)
        return RYN_ERR_NULL_POINTER;
    char text[FormatCapacity];
    FormatText(text, sizeof text, "RENAME %s %s", from, to);
    return rynCommand(channel, text);
}

int32_t rynImapCopyMBmail(uint32_t channel, int32_t message, const char* mailbox)
{
    if (const int32_t status = BeginImap(channel, "rynImapCopyMBmail"); status < 0)
        return status;
    if (mailbox == nullptr)
        return RYN_ERR_NULL_POINTER;
    char text[FormatCapacity];
    FormatText(text, sizeof text, "COPY %d %s", message, mailbox);
    return rynCommand(channel, text);
}

int32_t rynImapListMB(uint32_t channel, char* buffer, int32_t size)
{
    constexpr uint32_t ListPause = 100; // ms, beside the usual waits
    if (const int32_t status = BeginImap(channel, "rynImapListMB"); status < 0)
        return status;
    if (buffer == nullptr)
        return RYN_ERR_NULL_BUFFER;
    const Channel& ch = *ChannelTable[channel];
    char text[64];
    FormatText(text, sizeof text, "LIST %s", ch.ListArguments);
    const int32_t result = rynCommand(channel, text);
    const uint32_t pause = PollDelay > CommandGap ? PollDelay : CommandGap;
    if (ImapTrace == 1)
        LogFormat(ch, "rynCommand(%d,'%s') returns %d (Sleep %d)\r\n", ch.ChannelNumber, text,
                  result, static_cast<int32_t>(pause));
    if (size >= 0)
        buffer[0] = 0;
    if (result < 0)
        return result;
    osSleep(pause + ListPause);
    rynDebug(channel, RYN_DEBUG_LAST_REPLY, buffer, size);
    return result;
}
