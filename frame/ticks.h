// Comparing ticks: milliseconds in 32 bits that wrap after 49.7 days. Two ticks less than half of that
// apart are told apart rightly across the wrap.
#pragma once

#include <cstdint>

constexpr uint32_t LongestWait = INT32_MAX; // ms; longer ones are cut to this

// ms; what a time-out of the host is cut to, so that sums and multiples of it stay true.
constexpr uint32_t LongestTimeout = LongestWait / 4;

// True once now is at or behind a moment.
constexpr bool TickReached(uint32_t now, uint32_t moment)
{
    return static_cast<int32_t>(now - moment) >= 0;
}

// The moment that is ms after now; never 0, which stands for no moment at all.
constexpr uint32_t TickAfter(uint32_t now, uint32_t ms)
{
    const uint32_t moment = now + (ms < LongestWait ? ms : LongestWait);
    return moment == 0 ? 1 : moment;
}
