// The driver: what happens before and after each state, the ways out of a state, the loop of
// automatic driving. The states themselves stand in the files of their dialogues and are listed in
// state_table.cpp.
#include "frame/driver.h"

#include "codec/text.h"
#include "frame/log.h"
#include "frame/settings.h"
#include "frame/state_table.h"
#include "frame/status.h"
#include "frame/ticks.h"
#include "platform/platform.h"
#include "retrieve/message_file.h"
#include "transport/channel_io.h"
#include "transport/replies.h"
#include "transport/vsock.h"
#include "transport/vstream.h"

constexpr uint32_t NotRipePause = 10;      // ms
constexpr uint32_t NotWritablePause = 100; // ms
constexpr uint32_t PeerPause = 1;          // ms between two looks of RunDriver for a reply

// --- ways out of a state ---

int32_t Stay(Channel& ch)
{
    ch.PrevState = ch.ThisState;
    ch.ThisState = -1;
    return ch.NextState;
}

int32_t Wait(Channel& ch)
{
    ch.WaitsForPeer = 1;
    return Stay(ch);
}

int32_t Go(Channel& ch, State next)
{
    ch.NextState = next;
    return Stay(ch);
}

int32_t Finish(Channel& ch)
{
    ch.NotBeforeTick = 0;
    ch.DeadlineTick = 0;
    return Go(ch, ST_IDLE);
}

void StopDriver(Channel& ch)
{
    ch.NextState = ST_IDLE;
    ch.NotBeforeTick = 0;
    ch.DeadlineTick = 0;
}

// The text of a status, twice: ErrorText logs it with a line end, and it is written once more
// without one.
static void LogStatus(Channel& ch, int32_t status)
{
    if (status >= 0)
        return;
    char text[FormatCapacity];
    text[0] = 0;
    ErrorText(ch, status, text, FormatCapacity - 1);
    LogText(&ch, text);
}

int32_t FailState(Channel& ch, int32_t sockCode, int32_t status)
{
    if (status == RYN_ERR_NULL_POINTER)
        RefuseNull(199);
    if (status == RYN_ERR_EMPTY_ARGUMENT)
        RefuseEmpty(299);
    if (ch.LogHandle != 0) {
        LogFormat(ch,
                  "ERROR(%d): SockCode=%d RynCode=%d PrevState=%d ThisState=%d NextState=%d\r\n",
                  static_cast<int32_t>(osTickCount()), sockCode, status, ch.PrevState, ch.ThisState,
                  ch.NextState);
        LogStatus(ch, status);
        LogStatus(ch, sockCode);
        LogWindowsError(ch);
    }
    if (status < 0) {
        StopDriver(ch);
        ch.PrevState = ch.ThisState;
        ch.ThisState = -1;
        ch.LastSockCode = sockCode;
        ch.TestConnectOnly = 0;
    }
    osYield();
    return status;
}

int32_t FailSend(Channel& ch, int32_t result)
{
    if (vsSendFailure(ch.VSock) == RYN_WSAETIMEDOUT)
        return FailState(ch, 0, RYN_ERR_TIMED_OUT);
    return FailState(ch, result, RYN_ERR_SOCK_WRITE);
}

void Arm(Channel& ch, uint32_t gap, uint32_t timeout)
{
    const uint32_t now = osTickCount();
    ch.NotBeforeTick = TickAfter(now, gap);
    ch.DeadlineTick = TickAfter(now, timeout);
}

int32_t SendOrFail(Channel& ch, const char* text)
{
    if (ch.OpenReply != REST_NONE) // else its rest would be read as the reply to this line
        DropReplyRest(ch);
    const int32_t result = SendLine(ch, text);
    return result < 0 ? FailSend(ch, result) : 0;
}

int32_t SendCommandOrFail(Channel& ch, int32_t status)
{
    const int32_t result = SendLine(ch, ch.CommandBuffer);
    return result < 0 ? FailState(ch, result, status) : 0;
}

bool ReadReplyOrLeave(Channel& ch, int32_t& leaveOut)
{
    if (ChannelDataReady(ch, 0) == 0) {
        leaveOut = Wait(ch);
        return false;
    }
    const int32_t result = ReadSmtpReply(ch);
    if (result >= 0)
        return true;
    leaveOut = FailState(ch, 0, result);
    return false;
}

// --- one call of the driver ---

static int32_t RunIdle(Channel& ch)
{
    ch.ThisState = -1;
    ch.NotBeforeTick = 0;
    ch.DeadlineTick = 0;
    return 0;
}

static int32_t RunState(Channel& ch, uint32_t now)
{
    ch.ThisState = ch.NextState;
    if (ch.ThisState > 0)
        ch.DriverCalls++;
    if (ch.LogHandle != 0 && ch.PrevState != ch.ThisState)
        LogFormat(ch, "<%3d:%d>\r\n", ch.ThisState, static_cast<int32_t>(now));
    if (ch.ThisState == ST_IDLE)
        return RunIdle(ch);
    const StateHandler handler = FindStateHandler(ch.ThisState);
    if (handler == nullptr) {
        LogFormat(ch, "ERROR! Unknown state %d\r\n", ch.ThisState);
        return Finish(ch);
    }
    return handler(ch, now);
}

// What stands at the head of every call: a pause, and the tick that serves the whole call.
static uint32_t BeginStep()
{
    if (DriverDelay == 0)
        osYield();
    else
        osSleep(DriverDelay);
    return osTickCount();
}

static int32_t StepDriver(Channel& ch, uint32_t now)
{
    ch.CommandBuffer[0] = 0;
    ch.ReplyBuffer[0] = 0;
    ch.WaitsForPeer = 0;
    vsForgetSilence(ch.VSock);
    if (ch.NotBeforeTick != 0 && !TickReached(now, ch.NotBeforeTick)) {
        osSleep(NotRipePause);
        return DRIVER_NOT_YET;
    }
    if (ch.DeadlineTick != 0 && TickReached(now, ch.DeadlineTick + 1))
        return FailState(ch, 0, RYN_ERR_TIMED_OUT);
    if (ch.WaitWritable != 0 && ch.NextState != ST_IDLE && ChannelSelect(ch, VS_WAIT_WRITE) == 0) {
        if (ch.DeadlineTick == 0) // no state has run yet that could bound this wait
            ch.DeadlineTick = TickAfter(now, ReplyTimeout);
        osSleep(NotWritablePause);
        return DRIVER_NOT_YET;
    }
    return RunState(ch, now);
}

int32_t rynDriver(uint32_t channel)
{
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    const uint32_t now = BeginStep();
    const int32_t result = StepDriver(ch, now);
    FlushFetchFiles(ch); // the host may look at them now
    return result;
}

// What RunDriver does between two steps: waits until the next may run, in one piece. Whatever has
// been gathered goes out before a wait.
static void PauseBetweenSteps(Channel& ch, uint32_t now)
{
    const bool isEarly = ch.NotBeforeTick != 0 && !TickReached(now, ch.NotBeforeTick);
    if (!isEarly && ch.WaitsForPeer == 0) {
        osYield();
        return;
    }
    vsFlush(ch.VSock);
    if (ch.WaitsForPeer != 0)
        osSleep(PeerPause);
    const uint32_t then = osTickCount();
    if (isEarly && !TickReached(then, ch.NotBeforeTick))
        osSleep(ch.NotBeforeTick - then);
}

// Runs steps until the operation is over: 0 or a status.
static int32_t DriveToEnd(Channel& ch)
{
    for (;;) {
        const uint32_t now = BeginStep();
        // What waits must not wait for that, too. Only message data comes in many small sends.
        vsSetGather(ch.VSock, DriverDelay == 0 && ch.Protocol == 'S');
        const int32_t result = StepDriver(ch, now);
        if (result < 1)
            return result;
        PauseBetweenSteps(ch, now);
        if (const int32_t failure = vsSendFailure(ch.VSock); failure < 0)
            return FailSend(ch, failure);
    }
}

int32_t RunDriver(Channel& ch)
{
    if (ch.AutoCallDriver == 0)
        return 0;
    ch.NotBeforeTick = 0;
    ch.DeadlineTick = 0;
    ch.LastSockCode = 0;
    ch.AfterConnectState = 0;
    const int32_t result = DriveToEnd(ch);
    vsSetGather(ch.VSock, false);
    FlushFetchFiles(ch);
    const int32_t failure = vsSendFailure(ch.VSock);
    return result == 0 && failure < 0 ? FailSend(ch, failure) : result;
}
