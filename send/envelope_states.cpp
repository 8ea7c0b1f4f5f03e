// States 204 to 212, 258, 259 and 270 to 272. The walk over the recipient lists rests on three
// facts: a delimiter is cut out only while its address is in use, RecipientCursor always stands
// behind the address in hand, and the two flags are set on entering a list.
#include "send/envelope_states.h"

#include "codec/text.h"
#include "frame/log.h"
#include "frame/settings.h"
#include "frame/ticks.h"
#include "retrieve/imap_response.h"
#include "send/address.h"
#include "transport/channel_io.h"
#include "transport/replies.h"
#include "transport/vfile.h"
#include "transport/vsock.h"
#include "transport/vstream.h"

static char NoRecipients[1] = ""; // where the cursor stands behind the last address of a list

int32_t SmtpMailFrom(Channel& ch, uint32_t)
{
    if (ch.FromAddress[0] == 0)
        return FailState(ch, 0, RYN_ERR_MISSING_FROM);
    const char* left = FindChar(ch.FromAddress, '<');
    if (left == nullptr) {
        LogAddressProblem(&ch, nullptr, "From:");
        return FailState(ch, 0, RYN_ERR_MISSING_LEFT_ANGLE);
    }
    if (ch.TargetMode != 0) // a file has no envelope
        return Go(ch, ST_HDR_MESSAGE_ID);
    FormatText(ch.CommandBuffer, CommandCapacity, "MAIL FROM:%s", left);
    if (const int32_t status = SendOrFail(ch, ch.CommandBuffer); status < 0)
        return status;
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, ST_SMTP_MAIL_REPLY);
}

// Puts the cursor at the head of the first list that is there.
static void StartWalk(Channel& ch)
{
    ch.CcStarted = ch.CcList == nullptr ? 1 : 0;
    ch.BccStarted = ch.BccList == nullptr ? 1 : 0;
    ch.RecipientCursor = ch.ToList;
    if (ch.RecipientCursor != nullptr)
        return;
    if (ch.CcList != nullptr) {
        ch.RecipientCursor = ch.CcList;
        ch.CcStarted = 1;
        return;
    }
    ch.RecipientCursor = ch.BccList;
    ch.BccStarted = 1;
}

int32_t SmtpMailReply(Channel& ch, uint32_t)
{
    int32_t leave = 0;
    if (!ReadReplyOrLeave(ch, leave))
        return leave;
    StartWalk(ch);
    return Go(ch, ST_SMTP_NEXT_RECIPIENT);
}

// Cuts the entry in hand out of its list and moves the cursor behind it.
static void CutEntry(Channel& ch)
{
    ch.RecipientEnd = FindChar(ch.CurrentRecipient, RecipientDelimiter);
    if (ch.RecipientEnd == nullptr || *ch.RecipientEnd == 0) {
        ch.RecipientEnd = nullptr;
        ch.RecipientCursor = NoRecipients;
        return;
    }
    *ch.RecipientEnd = 0;
    ch.RecipientCursor = ch.RecipientEnd + 1;
}

int32_t SmtpNextRecipient(Channel& ch, uint32_t now)
{
    ch.CurrentRecipient =
        ch.RecipientCursor == nullptr ? nullptr : FindInEntry(ch.RecipientCursor, '<');
    if (ch.CurrentRecipient == nullptr)
        return FailState(ch, 0, RYN_ERR_NULL_POINTER);
    CutEntry(ch);
    ch.DeadlineTick = TickAfter(now, ReplyTimeout);
    ch.WaitWritable = 1;
    return Go(ch, ST_SMTP_RCPT_TO);
}

static void Trace(const Channel& ch, const char* text)
{
    if (ch.RcptTraceFile != 0)
        u_Write(ch.RcptTraceFile, text, TextLength(text));
}

int32_t SmtpRcptTo(Channel& ch, uint32_t)
{
    FormatText(ch.CommandBuffer, CommandCapacity, "RCPT TO:%s", ch.CurrentRecipient);
    Trace(ch, ch.CurrentRecipient);
    Trace(ch, ";");
    if (const int32_t status = SendOrFail(ch, ch.CommandBuffer); status < 0)
        return status;
    Arm(ch, 0, ReplyTimeout);
    return Go(ch, ST_SMTP_RCPT_REPLY);
}

// Goes on to the next address, the next list, or the message.
static int32_t GoToNextRecipient(Channel& ch)
{
    if (*ch.RecipientCursor != 0)
        return Go(ch, ST_SMTP_NEXT_RECIPIENT);
    if (ch.CcStarted == 0) {
        ch.RecipientCursor = ch.CcList;
        ch.CcStarted = 1;
        return Go(ch, ST_SMTP_NEXT_RECIPIENT);
    }
    if (ch.BccStarted == 0) {
        ch.RecipientCursor = ch.BccList;
        ch.BccStarted = 1;
        return Go(ch, ST_SMTP_NEXT_RECIPIENT);
    }
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, ST_SMTP_DATA);
}

static int32_t AcceptRecipient(Channel& ch)
{
    ch.AcceptedRecipients++;
    CopyField(ch.LastRecipient, ch.CurrentRecipient);
    if (ch.RecipientEnd != nullptr)
        *ch.RecipientEnd = RecipientDelimiter;
    return GoToNextRecipient(ch);
}

// True for refusals that speak of the server's routing, which no other recipient would fare better
// with.
static bool IsFinalRefusal(const char* reply)
{
    static const char* const phrases[] = { "relay", "gateway", "not local", "MX lookup failure",
                                           "Invalid MX record" };
    for (const char* phrase : phrases)
        if (FindTextNoCase(reply, phrase) != nullptr)
            return true;
    return false;
}

static int32_t RefuseRecipient(Channel& ch)
{
    if (IsFinalRefusal(ch.LastReply) || ch.IgnoreRcptRefusal == 0)
        return FailState(ch, 0, RYN_ERR_SMTP_REPLY);
    if (ch.AcceptedRecipients == 0) {
        Arm(ch, 0, ReplyTimeout);
        return Go(ch, ST_SMTP_RSET);
    }
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, ST_SMTP_DATA);
}

int32_t SmtpRcptReply(Channel& ch, uint32_t)
{
    constexpr uint32_t ReplyWait = 100;
    if (ChannelDataReady(ch, ReplyWait) == 0)
        return Wait(ch);
    const int32_t result = ReadSmtpReply(ch);
    Trace(ch, ch.LastReply);
    if (result >= 0)
        return AcceptRecipient(ch);
    if (result == RYN_ERR_SMTP_REPLY)
        return RefuseRecipient(ch);
    return FailState(ch, 0, result);
}

// Commands without arguments differ only in their word and the state that reads the reply.
struct CommandRow {
    State Sender;
    const char* Command;
    State Reader;
};
static const CommandRow CommandTable[] = {
    { ST_SMTP_DATA, "DATA", ST_SMTP_DATA_REPLY },
    { ST_SMTP_RSET, "RSET", ST_SMTP_RSET_REPLY },
};

int32_t SendCommand(Channel& ch, uint32_t)
{
    const CommandRow* row = CommandTable;
    while (row->Sender != ch.ThisState)
        row++;
    if (const int32_t status = SendOrFail(ch, row->Command); status < 0)
        return status;
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, row->Reader);
}

int32_t SmtpDataReply(Channel& ch, uint32_t)
{
    int32_t leave = 0;
    if (!ReadReplyOrLeave(ch, leave))
        return leave;
    Arm(ch, 2 * CommandGap, ReplyTimeout);
    return Go(ch, ST_HDR_MAILER);
}

int32_t SmtpRsetReply(Channel& ch, uint32_t)
{
    int32_t leave = 0;
    if (!ReadReplyOrLeave(ch, leave))
        return leave;
    return Finish(ch);
}

// --- end of a session ---

int32_t SendQuit(Channel& ch, uint32_t)
{
    if (ch.Protocol == 'I')
        FormatText(ch.CommandBuffer, CommandCapacity, "%s LOGOUT", ch.ImapTag);
    else
        CopyText(ch.CommandBuffer, "QUIT", 4);
    if (const int32_t status = SendOrFail(ch, ch.CommandBuffer); status < 0)
        return status;
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, ST_QUIT_REPLY);
}

static int32_t ReadQuitReply(Channel& ch)
{
    switch (ch.Protocol) {
    case 'I':
        return ImapResponse(ch, IMAP_ANY, nullptr);
    case 'P':
        return ReadPop3Reply(ch);
    default:
        return ReadSmtpReply(ch);
    }
}

int32_t QuitReply(Channel& ch, uint32_t)
{
    if (ChannelDataReady(ch, 0) == 0)
        return Wait(ch);
    const int32_t result = ReadQuitReply(ch);
    if (result < 0)
        return FailState(ch, 0, result);
    vsDrain(ch.VSock);
    return Finish(ch);
}

// --- asking about addresses ---

int32_t VrfyNext(Channel& ch, uint32_t now)
{
    ch.CurrentRecipient = ch.RecipientCursor;
    if (ch.CurrentRecipient == nullptr || *ch.CurrentRecipient == 0)
        return Finish(ch);
    CutEntry(ch);
    ch.DeadlineTick = TickAfter(now, ReplyTimeout);
    ch.WaitWritable = 1;
    return Go(ch, ST_VRFY_SEND);
}

int32_t VrfySend(Channel& ch, uint32_t)
{
    FormatText(ch.CommandBuffer, CommandCapacity, "VRFY %s", ch.CurrentRecipient);
    if (const int32_t status = SendOrFail(ch, ch.CommandBuffer); status < 0)
        return status;
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, ST_VRFY_REPLY);
}

// A refusal is an answer here, not a failure.
int32_t VrfyReply(Channel& ch, uint32_t)
{
    constexpr uint32_t AddressIsKnown = 250;
    if (ChannelDataReady(ch, 0) == 0)
        return Wait(ch);
    const int32_t result = ReadSmtpReply(ch);
    ch.VerifyResult = result >= 0 && ch.ReplyCode == AddressIsKnown ? 1 : 0;
    return Go(ch, ST_VRFY_NEXT);
}
