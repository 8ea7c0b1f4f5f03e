// States 298, 299, 398, 399, 498 and 499.
#include "retrieve/raw_states.h"

#include "codec/text.h"
#include "frame/settings.h"
#include "platform/platform.h"
#include "retrieve/imap_response.h"
#include "transport/channel_io.h"
#include "transport/replies.h"

int32_t SmtpRaw(Channel& ch, uint32_t)
{
    CopyText(ch.CommandBuffer, ch.RawCommand, sizeof ch.RawCommand - 1);
    if (const int32_t status = SendOrFail(ch, ch.CommandBuffer); status < 0)
        return status;
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, ST_SMTP_RAW_REPLY);
}

int32_t SmtpRawReply(Channel& ch, uint32_t)
{
    int32_t leave = 0;
    if (!ReadReplyOrLeave(ch, leave))
        return leave;
    return Finish(ch);
}

int32_t Pop3Raw(Channel& ch, uint32_t)
{
    CopyText(ch.CommandBuffer, ch.RawCommand, sizeof ch.RawCommand - 1);
    if (const int32_t status = SendOrFail(ch, ch.CommandBuffer); status < 0)
        return status;
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, ST_POP3_RAW_REPLY);
}

int32_t Pop3RawReply(Channel& ch, uint32_t)
{
    if (ChannelDataReady(ch, 0) == 0)
        return Wait(ch);
    const int32_t result = ReadPop3Reply(ch);
    return result < 0 ? FailState(ch, 0, result) : Finish(ch);
}

int32_t ImapRaw(Channel& ch, uint32_t)
{
    FormatText(ch.CommandBuffer, CommandCapacity, "%s %s", ch.ImapTag, ch.RawCommand);
    if (const int32_t status = SendOrFail(ch, ch.CommandBuffer); status < 0)
        return status;
    osSleep(DriverDelay);
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, ST_IMAP_RAW_REPLY);
}

// Whatever the server says counts as yes; the host reads its words.
int32_t ImapRawReply(Channel& ch, uint32_t)
{
    if (ChannelDataReady(ch, 0) == 0)
        return Wait(ch);
    const int32_t result = ImapResponse(ch, IMAP_ANY, nullptr);
    return result < 0 ? FailState(ch, 0, result) : Finish(ch);
}
