// The join between channels and vSocks.
#include "transport/channel_io.h"

#include "codec/text.h"
#include "frame/channel.h"
#include "frame/settings.h"
#include "frame/ticks.h"
#include "platform/platform.h"
#include "transport/raw_copy.h"
#include "transport/vsock.h"
#include "transport/vstream.h"

#include <cstring>

constexpr int32_t TargetAnswer = 2;

int32_t ChannelSelect(Channel& ch, int32_t kind)
{
    return ch.TargetMode != 0 ? TargetAnswer : vsSelect(ch.VSock, kind);
}

int32_t ChannelConnected(Channel& ch, uint32_t ms)
{
    if (ch.TargetMode != 0)
        return TargetAnswer;
    const uint32_t deadline = TickAfter(osTickCount(), ms);
    for (;;) {
        const int32_t isConnected = vsIsConnected(ch.VSock);
        if (isConnected != 0 || TickReached(osTickCount(), deadline))
            return isConnected;
        osSleep(1);
    }
}

int32_t ChannelDataReady(Channel& ch, uint32_t ms)
{
    return vsWaitData(ch.VSock, ms);
}

int32_t ReadServerLine(Channel& ch, char* buffer, int32_t capacity, uint32_t firstWait,
                       uint32_t nextWait)
{
    const int32_t count = vsReadLine(ch.VSock, buffer, capacity, firstWait, nextWait);
    if (count < 1)
        return count;
    ch.LineIsPiece = ch.LineIsOpen;
    ch.LineIsOpen = buffer[count - 1] == '\n' ? 0 : 1;
    if (ch.Protocol == 'I' && count == 3 && ch.LineIsPiece == 0 &&
        memcmp(buffer, ")\r\n", 3) == 0) {
        buffer[0] = 0;
        return 0;
    }
    if (ch.RawFile > 0)
        SaveRawLine(ch, buffer, count);
    return count;
}

int32_t PeekServerLine(Channel& ch, char* buffer, int32_t count, uint32_t ms)
{
    return vsPeekLine(ch.VSock, buffer, count, ms);
}

bool HasEndTag(const Channel& ch, const char* line)
{
    return SameTextNoCase(line, ch.ImapOkTag, ch.ImapOkLength) != 0;
}

bool EndsMessage(const Channel& ch, const char* line)
{
    if (ch.Protocol == 'P')
        return line[0] == '.' && line[1] == '\r';
    return HasEndTag(ch, line) ||
           (ImapPartialFetch != 0 && SameTextNoCase(line, ch.ImapNoTag, ch.ImapNoLength) != 0);
}

int32_t SendLine(Channel& ch, const char* text)
{
    int32_t result = 0;
    for (int i = 0; i < SendTries; i++) {
        result = vsWriteLine(ch.VSock, text);
        if (result >= 0 || vsSendFailure(ch.VSock) < 0)
            break;
        osSleep(SendRetryPause);
    }
    return result;
}

int32_t SendData(Channel& ch, const char* bytes, int32_t count)
{
    int32_t result = 0;
    for (int i = 0; i < SendTries; i++) {
        result = vsWrite(ch.VSock, bytes, count, NoMask);
        if (result >= 0 || vsSendFailure(ch.VSock) < 0)
            break;
        osSleep(SendRetryPause);
    }
    return result;
}

int32_t SendText(Channel& ch, const char* text)
{
    return SendData(ch, text, TextLength(text));
}

int32_t SendLineMasked(Channel& ch, const char* text, int32_t maskStart)
{
    return vsWriteLineMasked(ch.VSock, text, maskStart);
}

int32_t SendDataMasked(Channel& ch, const char* bytes, int32_t count, int32_t maskStart)
{
    return vsWrite(ch.VSock, bytes, count, maskStart);
}

int32_t SendExtraLine(Channel& ch)
{
    return ch.ExtraLine[0] == 0 ? 0 : SendLine(ch, ch.ExtraLine);
}
