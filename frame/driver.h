// The frame around the states. A state is one small routine that runs once per rynDriver: it does
// its work and leaves by Stay, Go, Finish or FailState. It keeps nothing from one call to the next
// but what stands in the channel, and CommandBuffer and ReplyBuffer are empty when it begins.
#pragma once

#include "frame/channel.h"
#include "frame/states.h"

// A state's handler; now is the tick at the head of the call. The result is rynDriver's.
using StateHandler = int32_t (*)(Channel& ch, uint32_t now);

// The state runs again: there is more of the same work.
int32_t Stay(Channel& ch);

// The state runs again: nothing has come from the peer yet. RunDriver pauses then.
int32_t Wait(Channel& ch);

// The next call runs another state.
int32_t Go(Channel& ch, State next);

// The operation is over, without a failure: clears the timers and returns 0.
int32_t Finish(Channel& ch);

// Ends an operation from outside its states: another one takes its place, or none.
void StopDriver(Channel& ch);

// The operation has failed: logs it, leaves the channel idle and returns status. sockCode is the
// result of the transport call that failed, or 0.
int32_t FailState(Channel& ch, int32_t sockCode, int32_t status);

// A send has failed with this result: RYN_ERR_SOCK_WRITE, or RYN_ERR_TIMED_OUT where the peer took
// nothing for as long as data may wait.
int32_t FailSend(Channel& ch, int32_t result);

// Holds the next state back for gap ms and bounds its wait by timeout ms, both from this moment.
void Arm(Channel& ch, uint32_t gap, uint32_t timeout);

// --- common steps of states ---

// Sends text as a line: 0, or what FailState returned.
int32_t SendOrFail(Channel& ch, const char* text);

// The same for CommandBuffer, with a status of its own for a send that fails.
int32_t SendCommandOrFail(Channel& ch, int32_t status);

// Reads an SMTP reply: true if one has come and is no refusal. Otherwise leaveOut is what the state
// returns: it waits, or has failed.
bool ReadReplyOrLeave(Channel& ch, int32_t& leaveOut);

// Runs the channel until its operation is over: 0 or a status. In manual driving 0 at once.
int32_t RunDriver(Channel& ch);
