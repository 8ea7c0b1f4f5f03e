// States 221 to 231, and 220 in their midst. A target file gets the head from 220 on.
#include "send/header_states.h"

#include "codec/text.h"
#include "frame/settings.h"
#include "frame/ticks.h"
#include "send/header_lines.h"

static const char MailerHeader[] = "X-Mailer: Brindlecroft Rynmark Version 8.4.1 ";
static const char MailAgentHeader[] = "X-Mail-Agent: Brindlecroft Rynmark Version 8.4.1 ";

// Sends a line if it is due, and goes on: every state of the head ends like this.
static int32_t SendAndGo(Channel& ch, bool isDue, const char* line, State next)
{
    if (isDue)
        if (const int32_t status = SendOrFail(ch, line); status < 0)
            return status;
    return Go(ch, next);
}

// The same for a line made of a name and a text.
static int32_t SendFieldAndGo(Channel& ch, const char* name, const char* text, State next)
{
    const bool isDue = text != nullptr && *text != 0;
    if (isDue)
        FormatText(ch.CommandBuffer, CommandCapacity, "%s%s", name, text);
    return SendAndGo(ch, isDue, ch.CommandBuffer, next);
}

int32_t HdrMailer(Channel& ch, uint32_t)
{
    if (ch.SendXMailer != 0)
        if (const int32_t status = SendOrFail(ch, MailerHeader); status < 0)
            return status;
    return SendAndGo(ch, ch.SendXMailAgent != 0, MailAgentHeader, ST_HDR_DATE);
}

int32_t HdrDate(Channel& ch, uint32_t)
{
    if (SendStandardHeaders != 0)
        FormatDateLine(&ch, ch.CommandBuffer);
    return SendAndGo(ch, SendStandardHeaders != 0, ch.CommandBuffer, ST_HDR_TO);
}

int32_t HdrTo(Channel& ch, uint32_t)
{
    if (SuppressToHeader != 0)
        return Go(ch, ST_HDR_FROM);
    if (CommaInHeaderLists != 0)
        ReplaceListDelimiter(ch.ToList, RecipientDelimiter);
    Arm(ch, CommandGap, ReplyTimeout);
    return SendFieldAndGo(ch, "To: ", ch.ToList, ST_HDR_FROM);
}

int32_t HdrFrom(Channel& ch, uint32_t)
{
    const char* from = SendStandardHeaders != 0 ? ch.FromAddress : nullptr;
    return SendFieldAndGo(ch, "From: ", from, ST_HDR_REPLY_TO);
}

int32_t HdrReplyTo(Channel& ch, uint32_t)
{
    return SendFieldAndGo(ch, "Reply-To: ", ch.ReplyToAddress, ST_HDR_MESSAGE_ID);
}

int32_t HdrMessageId(Channel& ch, uint32_t now)
{
    FormatMessageId(ch, ch.CommandBuffer);
    ch.DeadlineTick = TickAfter(now, ReplyTimeout);
    return SendAndGo(ch, true, ch.CommandBuffer, ST_HDR_SUBJECT);
}

int32_t HdrSubject(Channel& ch, uint32_t)
{
    const bool isDue = ch.SubjectText != nullptr;
    if (isDue)
        FormatText(ch.CommandBuffer, CommandCapacity, "Subject: %s", ch.SubjectText);
    return SendAndGo(ch, isDue, ch.CommandBuffer, ST_HDR_EXTRA);
}

int32_t HdrExtra(Channel& ch, uint32_t)
{
    return SendFieldAndGo(ch, "", ch.ExtraHeaders, ST_HDR_CC);
}

// The last line that every message may have; decides whether MIME lines follow.
int32_t HdrCc(Channel& ch, uint32_t)
{
    const bool isMime = ch.IsHtml != 0 || ch.MessageType != 0 || ch.AttachmentText != nullptr;
    if (CommaInHeaderLists != 0)
        ReplaceListDelimiter(ch.CcList, RecipientDelimiter);
    if (isMime)
        return SendFieldAndGo(ch, "CC: ", ch.CcList, ST_HDR_MIME_VERSION);
    return SendFieldAndGo(ch, "CC: ", ch.CcList, ST_HDR_END);
}

int32_t HdrMimeVersion(Channel& ch, uint32_t)
{
    return SendAndGo(ch, true, "MIME-Version: 1.0", ST_HDR_MULTIPART);
}

int32_t HdrMultipart(Channel& ch, uint32_t)
{
    const char* kind = ch.MultipartKind == 2   ? "alternative"
                       : ch.MultipartKind == 3 ? "related"
                                               : "mixed";
    FormatText(ch.CommandBuffer, CommandCapacity,
               "Content-Type: multipart/%s; boundary=\"%sMIX===\"", kind, BoundarySeed);
    if (const int32_t status = SendOrFail(ch, ch.CommandBuffer); status < 0)
        return status;
    ch.MixedOpen = 1;
    return Go(ch, ST_HDR_END);
}
