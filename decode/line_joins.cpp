// Reading ahead in a header.
#include "decode/line_joins.h"

#include "codec/text.h"
#include "frame/channel.h"
#include "frame/log.h"
#include "frame/settings.h"
#include "frame/ticks.h"
#include "platform/platform.h"
#include "transport/channel_io.h"

#include <cstring>

constexpr int32_t LineEndChars = 2;

static bool IsBlank(char c)
{
    return c == ' ' || c == '\t';
}

int32_t ClampIndex(const char* text, int32_t index)
{
    return static_cast<int32_t>(strnlen(text, static_cast<size_t>(index)));
}

uint32_t FoldDeadline()
{
    return TickAfter(osTickCount(), RestOfLineWait());
}

bool FoldIsNext(Channel& ch, uint32_t deadline)
{
    const uint32_t now = osTickCount();
    const uint32_t left = TickReached(now, deadline) ? 0 : deadline - now;
    char head[2];
    const int32_t count =
        PeekServerLine(ch, head, sizeof head, left < FetchTimeout ? left : FetchTimeout);
    return count == sizeof head && IsBlank(head[0]);
}

int32_t ReadFold(Channel& ch)
{
    return ReadServerLine(ch, ch.ReplyBuffer, ReplyReadCapacity, FetchTimeout, RestOfLineWait());
}

// True if what comes next is the line that ends the message, or nothing at all.
static bool EndIsNext(Channel& ch)
{
    char head[sizeof ch.ImapOkTag] = "";
    const int32_t count = PeekServerLine(ch, head, sizeof head - 1, FetchTimeout);
    if (count < 1)
        return true;
    head[count] = 0;
    return ch.LineIsOpen == 0 && EndsMessage(ch, head);
}

// Makes the line in ReplyBuffer end in exactly one CR LF: its length with them.
static int32_t NormalizeLineEnd(char* text)
{
    int32_t length = TextLength(text);
    while (length >= 3 &&
           (IsBlank(text[length - 1]) || text[length - 1] == '\r' || text[length - 1] == '\n'))
        length--;
    memcpy(text + length, "\r\n", LineEndChars + 1);
    return length + LineEndChars;
}

// Reads the next line in the place of the CR LF at the end of the line in hand, which has length
// chars with it: false if the message ends there or the buffer is full.
static bool ReadBehind(Channel& ch, int32_t length)
{
    const int32_t place = length - LineEndChars;
    // A line end must fit behind whatever is read.
    const int32_t room = static_cast<int32_t>(ReplyCapacity) - place - LineEndChars;
    const int32_t capacity = room < ReplyReadCapacity ? room : ReplyReadCapacity;
    if (capacity < 2 || EndIsNext(ch))
        return false;
    return ReadServerLine(ch, ch.ReplyBuffer + place, capacity, FetchTimeout, RestOfLineWait()) > 0;
}

int32_t JoinIfEndsWith(Channel& ch, char endChar)
{
    const int32_t length = NormalizeLineEnd(ch.ReplyBuffer);
    if (length < 3 || (endChar != 0 && ch.ReplyBuffer[length - 3] != endChar))
        return 0;
    if (!ReadBehind(ch, length))
        return 0;
    char* const joint = ch.ReplyBuffer + length - LineEndChars;
    const size_t blanks = strspn(joint, " \t");
    memmove(joint, joint + blanks, strlen(joint + blanks) + 1);
    return 1;
}

void JoinParameterLines(Channel& ch)
{
    if (JoinIfEndsWith(ch, ';') == 0)
        return;
    char head[2];
    if (PeekServerLine(ch, head, sizeof head, FetchTimeout) == sizeof head && IsBlank(head[0]) &&
        !IsBlank(head[1]))
        JoinIfEndsWith(ch, 0);
}

static bool JoinNextLine(Channel& ch)
{
    const int32_t length = NormalizeLineEnd(ch.ReplyBuffer);
    if (!ReadBehind(ch, length))
        return false;
    LogFormat(ch, "[Combined line follows]\n%s", ch.ReplyBuffer);
    return true;
}

void CombineHeaderLines(Channel& ch)
{
    constexpr int32_t MostFolds = 10;
    LogText(&ch, "[CombineHeaderLines]\n");
    const uint32_t deadline = FoldDeadline();
    for (int32_t i = 0; i < MostFolds && FoldIsNext(ch, deadline); i++)
        if (!JoinNextLine(ch))
            return;
}
