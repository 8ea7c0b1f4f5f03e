// The reply readers of SMTP and POP3.
#include "transport/replies.h"

#include "codec/text.h"
#include "frame/channel.h"
#include "frame/settings.h"
#include "frame/ticks.h"
#include "platform/platform.h"
#include "transport/channel_io.h"

#include <cstring>

constexpr int32_t CodeDigits = 3; // of an SMTP reply; a blank or '-' stands behind them
constexpr uint32_t FirstRefusal = 400;

int32_t ParseReplyCount(const char* text)
{
    const uint32_t number = ParseReplyNumber(text);
    return number > INT32_MAX ? INT32_MAX : static_cast<int32_t>(number);
}

uint32_t ParseReplyNumber(const char* text)
{
    uint32_t value = 0;
    for (int i = 0; i < 10 && text[i] >= '0' && text[i] <= '9'; i++)
        value = value * 10 + static_cast<uint32_t>(text[i] - '0');
    return value;
}

// True for the only or last line of a reply; a shorter piece than code and separator is none.
static bool EndsReply(const char* line)
{
    if (strnlen(line, CodeDigits + 1) <= CodeDigits)
        return false;
    return line[CodeDigits] == ' ' || line[CodeDigits] == '\r';
}

int32_t ReadSmtpReply(Channel& ch)
{
    constexpr uint32_t EmptyPause = 10;
    const uint32_t deadline = TickAfter(osTickCount(), PollDelay + ReplyTimeout);
    char* cursor = ch.ReplyBuffer;
    int32_t capacity = ReplyReadCapacity;
    ch.ReplyCode = 0;
    ch.LastReply[0] = 0;
    while (!TickReached(osTickCount(), deadline)) {
        const int32_t count = ReadServerLine(ch, cursor, capacity, 0, ReplyTimeout);
        if (count == RYN_ERR_SOCK_CLOSED)
            return 0;
        AppendText(ch.LastReply, cursor, sizeof ch.LastReply - 1);
        if (count < 0)
            return count;
        if (ch.ReplyCode == 0)
            ch.ReplyCode = ParseReplyNumber(cursor);
        const bool isLast = EndsReply(cursor);
        if (ch.ReplyCode >= FirstRefusal) {
            ch.OpenReply = !isLast ? REST_LINES : ch.LineIsOpen != 0 ? REST_OF_LINE : REST_NONE;
            return RYN_ERR_SMTP_REPLY;
        }
        if (*cursor == 0) {
            osSleep(EmptyPause);
            continue;
        }
        if (isLast && (ch.LineIsOpen == 0 || count < capacity - 1))
            return 0;
        if (isLast) { // the rest of a cut line would be read as the next reply
            ch.OpenReply = REST_OF_LINE;
            return RYN_ERR_RESPONSE_OVERFLOW;
        }
        const int32_t length = TextLength(cursor);
        cursor += length;
        capacity -= length;
        if (capacity < 2) {
            ch.OpenReply = REST_LINES;
            return RYN_ERR_RESPONSE_OVERFLOW;
        }
    }
    return 0;
}

// Reads pieces of lines until a last line of the reply has ended: false when the time is over or the
// server has gone.
static bool DropLine(Channel& ch, uint32_t deadline, bool& isLastOut)
{
    char piece[ReplyReadCapacity];
    char head[CodeDigits + 2] = ""; // code and separator, in whatever pieces they come
    for (;;) {
        const uint32_t now = osTickCount();
        if (TickReached(now, deadline))
            return false;
        const int32_t count = ReadServerLine(ch, piece, sizeof piece, deadline - now, 0);
        if (count < 1)
            return false;
        AppendText(head, piece, sizeof head - 1);
        if (piece[count - 1] == '\n') {
            isLastOut = EndsReply(head);
            return true;
        }
    }
}

void DropReplyRest(Channel& ch)
{
    const uint32_t deadline = TickAfter(osTickCount(), ReplyTimeout);
    const bool wasLast = ch.OpenReply == REST_OF_LINE;
    bool isLast = false;
    if (ch.LineIsOpen != 0 && DropLine(ch, deadline, isLast))
        isLast = wasLast;
    while (!isLast && DropLine(ch, deadline, isLast)) {
    }
    ch.OpenReply = REST_NONE;
}

int32_t ReadPop3Reply(Channel& ch)
{
    ch.DeadlineTick = 0;
    if (ChannelDataReady(ch, ReplyTimeout) == 0)
        return RYN_ERR_TIMED_OUT;
    const int32_t count =
        ReadServerLine(ch, ch.ReplyBuffer, ReplyReadCapacity, ReplyTimeout, ReplyTimeout);
    if (count == RYN_ERR_SOCK_CLOSED)
        return 0;
    CopyField(ch.LastReply, ch.ReplyBuffer);
    if (count < 0)
        return count;
    ch.ReplyCode = ch.ReplyBuffer[0] == '+' ? 100 : 500;
    return ch.ReplyCode == 100 ? 0 : RYN_ERR_POP3_REPLY;
}

void KeepTimeStamp(Channel& ch)
{
    ch.AuthScratch[0] = 0;
    const char* const left = FindChar(ch.ReplyBuffer, '<');
    const char* const right = left == nullptr ? nullptr : FindChar(left, '>');
    if (right == nullptr)
        return;
    constexpr ptrdiff_t Most = sizeof ch.AuthScratch - 1;
    const ptrdiff_t chars = right + 1 - left;
    CopyText(ch.AuthScratch, left, static_cast<int32_t>(chars < Most ? chars : Most));
}
