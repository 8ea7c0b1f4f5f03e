// The clock routines of platform.h over a counter that only waiting moves: 30 s of silence cost no
// time, and nothing depends on the load of the machine. Linked in place of the system's clock.
#pragma once

#include "platform/platform.h"

#include <cstdint>

constexpr uint32_t VirtualClockStart = 1000000;           // ms, the tick of a fresh clock
constexpr uint64_t VirtualClockDay = 24ull * 3600 * 1000; // ms

// Start tick, no hook, one day to spend, Tue 17 Nov 2026 22:52:06 one hour east of UTC.
void VirtualClockReset(uint32_t startTick = VirtualClockStart);

// What runs whenever somebody waits: the peers' turn. Null takes it away.
void VirtualClockOnTurn(void (*turn)());

// Moves the clock on by ms, at least 1, and gives the peers one turn.
void VirtualClockAdvance(uint32_t ms);

// Virtual ms since the reset.
uint64_t VirtualClockSpent();

// A test that waits longer than this in all, or that looks at the clock for ever without waiting,
// is ended by abort with a message.
void VirtualClockSetLimit(uint64_t ms);

// Called for each look at a clock or a socket that lets no time pass.
void VirtualClockLook();

void VirtualClockSetLocalTime(const OsLocalTime& time);
