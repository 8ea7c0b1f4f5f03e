// States 400 to 422.
#include "retrieve/imap_states.h"

#include "codec/text.h"
#include "frame/log.h"
#include "frame/memory.h"
#include "frame/settings.h"
#include "platform/platform.h"
#include "retrieve/imap_response.h"
#include "transport/channel_io.h"
#include "transport/replies.h"

// Reads an answer: true if one has come and is no failure, with its value. Otherwise valueOut is what
// the state returns.
static bool ReadAnswerOrLeave(Channel& ch, ImapAnswer type, const char* key, int32_t& valueOut)
{
    if (ChannelDataReady(ch, 0) == 0) {
        valueOut = Wait(ch);
        return false;
    }
    valueOut = ImapResponse(ch, type, key);
    if (valueOut >= 0)
        return true;
    valueOut = FailState(ch, 0, valueOut);
    return false;
}

// --- opening a session ---

// The tag is formed once and says nothing about which command an answer belongs to.
int32_t ImapStart(Channel& ch, uint32_t)
{
    FormatText(ch.ImapTag, sizeof ch.ImapTag, "RYN%d-%d",
               static_cast<int32_t>(osTickCount() & 0x1FFF), ch.ChannelNumber);
    ch.ImapOkLength =
        static_cast<uint8_t>(FormatText(ch.ImapOkTag, sizeof ch.ImapOkTag, "%s OK", ch.ImapTag));
    ch.ImapNoLength =
        static_cast<uint8_t>(FormatText(ch.ImapNoTag, sizeof ch.ImapNoTag, "%s NO", ch.ImapTag));
    ch.AfterConnectState = ST_IMAP_GREETING;
    return Go(ch, ST_CREATE_SOCKET);
}

int32_t ImapGreeting(Channel& ch, uint32_t)
{
    if (ChannelConnected(ch, 0) == 0) {
        osSleep(PollDelay);
        return Stay(ch);
    }
    if (ChannelDataReady(ch, 0) == 0)
        return Wait(ch);
    LogText(&ch, "IMAP greeting seen\r\n");
    const int32_t result = ImapResponse(ch, IMAP_GREETING, nullptr);
    if (result < 0)
        return FailState(ch, 0, result);
    KeepTimeStamp(ch);
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, ST_IMAP_LOGIN);
}

int32_t ImapLogin(Channel& ch, uint32_t)
{
    constexpr int32_t TagChars = 12; // among which a blank ends the tag
    constexpr int32_t WordChars = 7; // " LOGIN "
    FormatText(ch.CommandBuffer, CommandCapacity, "%s LOGIN %s %s", ch.ImapTag, ch.UserName,
               ch.Password);
    const int32_t blank = IndexOfChar(ch.CommandBuffer, ' ', TagChars);
    const int32_t secretFrom = blank > 0 ? blank + WordChars : -1;
    const int32_t result = SendLineMasked(ch, ch.CommandBuffer, secretFrom);
    WipeBytes(ch.CommandBuffer, static_cast<size_t>(TextLength(ch.CommandBuffer)));
    if (result < 0)
        return FailState(ch, result, RYN_ERR_SOCK_READ);
    osSleep(DriverDelay);
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, ST_IMAP_LOGIN_REPLY);
}

// A session always begins in the inbox.
int32_t ImapLoginReply(Channel& ch, uint32_t)
{
    if (ChannelDataReady(ch, 0) == 0) {
        osSleep(PollDelay);
        return Stay(ch);
    }
    const int32_t result = ImapResponse(ch, IMAP_LOGIN, nullptr);
    if (result < 0)
        return FailState(ch, 0, result);
    ch.WaitWritable = 1;
    CopyField(ch.MailboxName, "InBox");
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, ST_IMAP_SELECT);
}

int32_t ImapSelect(Channel& ch, uint32_t)
{
    ch.ImapUidValidity = -1;
    FormatText(ch.CommandBuffer, CommandCapacity, "%s SELECT %s", ch.ImapTag, ch.MailboxName);
    if (const int32_t status = SendCommandOrFail(ch, RYN_ERR_SOCK_READ); status < 0)
        return status;
    ch.ImapCount = 0;
    Arm(ch, CommandGap, 2 * ReplyTimeout);
    return Go(ch, ST_IMAP_SELECT_REPLY);
}

// A refusal is no failure: the mailbox counts as empty.
int32_t ImapSelectReply(Channel& ch, uint32_t)
{
    constexpr uint32_t AnswerWait = 10; // ms
    if (ChannelDataReady(ch, AnswerWait) == 0)
        return Wait(ch);
    const int32_t count = ImapResponse(ch, IMAP_BEFORE_KEY, "EXISTS");
    LogFormat(ch, "(%d files exists)\n", count);
    if (count >= 0)
        ch.ImapCount = count;
    return Finish(ch);
}

// --- commands that differ in a text ---

struct ImapCommandRow {
    State Sender;
    const char* Text; // behind the tag; %d is the message's number
    int32_t SendFailure;
    State Reader;
};
static const ImapCommandRow ImapCommands[] = {
    { ST_IMAP_EXPUNGE, "EXPUNGE", RYN_ERR_SOCK_WRITE, ST_IMAP_EXPUNGE_REPLY },
    { ST_IMAP_GET_FLAGS, "FETCH %d FLAGS", RYN_ERR_SOCK_WRITE, ST_IMAP_GET_FLAGS_REPLY },
    { ST_IMAP_GET_SIZE, "FETCH %d RFC822.SIZE", RYN_ERR_SOCK_READ, ST_IMAP_GET_SIZE_REPLY },
    { ST_IMAP_GET_UID, "FETCH %d UID", RYN_ERR_SOCK_WRITE, ST_IMAP_GET_UID_REPLY },
};

int32_t ImapSendCommand(Channel& ch, uint32_t)
{
    const ImapCommandRow* row = ImapCommands;
    while (row->Sender != ch.ThisState)
        row++;
    char text[64];
    FormatText(text, sizeof text, row->Text, ch.MessageNumber);
    FormatText(ch.CommandBuffer, CommandCapacity, "%s %s", ch.ImapTag, text);
    if (row->Sender == ST_IMAP_GET_SIZE)
        ch.MessageSize = 0;
    if (const int32_t status = SendCommandOrFail(ch, row->SendFailure); status < 0)
        return status;
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, row->Reader);
}

// The first step of closing a session.
int32_t ImapExpungeReply(Channel& ch, uint32_t)
{
    int32_t value = 0;
    if (!ReadAnswerOrLeave(ch, IMAP_ANY, nullptr, value))
        return value;
    return Go(ch, ST_QUIT);
}

int32_t ImapFlagsReply(Channel& ch, uint32_t)
{
    int32_t bits = 0;
    if (!ReadAnswerOrLeave(ch, IMAP_FLAGS, nullptr, bits))
        return bits;
    ch.ImapFlags = static_cast<uint8_t>(bits);
    return Finish(ch);
}

// A size that the server does not tell is 0.
int32_t ImapGetSizeReply(Channel& ch, uint32_t)
{
    if (ChannelDataReady(ch, 0) == 0)
        return Wait(ch);
    const int32_t size = ImapResponse(ch, IMAP_AFTER_KEY, "RFC822.SIZE");
    ch.MessageSize = size < 0 ? 0 : size;
    return Finish(ch);
}

int32_t ImapGetUidReply(Channel& ch, uint32_t)
{
    int32_t uid = 0;
    if (!ReadAnswerOrLeave(ch, IMAP_AFTER_KEY, "UID", uid))
        return uid;
    if (ch.UserBuffer != nullptr) // with room for its size and a zero
        ch.UserBufferUsed =
            FormatText(ch.UserBuffer, static_cast<size_t>(ch.UserBufferSize) + 1, "%d\r\n", uid);
    return Finish(ch);
}

// --- flags and searching ---

int32_t ImapStoreFlags(Channel& ch, uint32_t)
{
    constexpr int32_t ListChars = 64; // all flags take 46
    if ((ch.ImapFlags & WritableFlags) == 0)
        return Finish(ch);
    char list[ListChars + 1];
    BuildFlagList(list, ListChars, ch.ImapFlags);
    FormatText(ch.CommandBuffer, CommandCapacity, "%s STORE %d %cFLAGS %s", ch.ImapTag,
               ch.MessageNumber, ch.ThisState == ST_IMAP_ADD_FLAGS ? '+' : '-', list);
    if (const int32_t status = SendCommandOrFail(ch, RYN_ERR_SOCK_WRITE); status < 0)
        return status;
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, ST_IMAP_STORE_REPLY);
}

int32_t ImapSearch(Channel& ch, uint32_t)
{
    FormatText(ch.CommandBuffer, CommandCapacity, "%s SEARCH %s", ch.ImapTag, ch.SearchCriteria);
    if (const int32_t status = SendCommandOrFail(ch, RYN_ERR_SOCK_WRITE); status < 0)
        return status;
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, ST_IMAP_SEARCH_REPLY);
}

// Keeps the result for the walk through it.
static void KeepSearchResult(Channel& ch)
{
    ch.SearchSize = ch.SearchTarget == nullptr ? 0 : TextLength(ch.SearchTarget);
    ch.SearchBuffer = ch.SearchTarget == nullptr
                          ? nullptr
                          : AllocAndCopy(ch.ChannelNumber, SLOT_SEARCH, ch.SearchTarget);
    ch.SearchTarget = nullptr;
    ch.SearchCriteria = nullptr;
}

int32_t ImapSearchReply(Channel& ch, uint32_t)
{
    if (ChannelDataReady(ch, 0) == 0)
        return Wait(ch);
    const int32_t result = ImapResponse(ch, IMAP_SEARCH, "SEARCH");
    KeepSearchResult(ch);
    return result < 0 ? FailState(ch, 0, result) : Finish(ch);
}
