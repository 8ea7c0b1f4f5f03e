// The join between channels and vSocks.
#include "transport/channel_io.h"

#include "codec/text.h"
#include "frame/channel.h"
#include "frame/ticks.h"
#include "platform/platform.h"
#include "transport/vsock.h"
#include "transport/vstream.h"

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
    return vsReadLine(ch.VSock, buffer, capacity, firstWait, nextWait);
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

int32_t SendDataMasked(Channel& ch, const char* bytes, int32_t count, int32_t maskStart)
{
    return vsWrite(ch.VSock, bytes, count, maskStart);
}

int32_t SendExtraLine(Channel& ch)
{
    return ch.ExtraLine[0] == 0 ? 0 : SendLine(ch, ch.ExtraLine);
}
