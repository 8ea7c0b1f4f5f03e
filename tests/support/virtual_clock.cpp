// The counter behind osTickCount, and the turns that it gives.
#include "tests/support/virtual_clock.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

static constexpr uint64_t MaxLooks = 20000000; // looks in a row without waiting: a loop without end
static constexpr OsLocalTime FirstTime = { 2026, 11, 17, 2, 22, 52, 6, -60, 0 };

static uint32_t Tick = VirtualClockStart;
static uint64_t Spent = 0;
static uint64_t Limit = VirtualClockDay;
static uint64_t Looks = 0;
static void (*Turn)() = nullptr;
static bool InTurn = false;
static OsLocalTime LocalTime = FirstTime;

void VirtualClockReset(uint32_t startTick)
{
    Tick = startTick;
    Spent = Looks = 0;
    Limit = VirtualClockDay;
    Turn = nullptr;
    InTurn = false;
    LocalTime = FirstTime;
}

void VirtualClockOnTurn(void (*turn)())
{
    Turn = turn;
}

void VirtualClockAdvance(uint32_t ms)
{
    const uint32_t step = std::max(ms, 1u);
    Tick += step;
    Spent += step;
    Looks = 0;
    if (Spent > Limit) {
        fprintf(stderr, "virtual clock: the test waited more than %llu ms\n",
                static_cast<unsigned long long>(Limit));
        abort();
    }
    if (Turn == nullptr || InTurn)
        return; // a peer that waits must not run itself
    InTurn = true;
    Turn();
    InTurn = false;
}

uint64_t VirtualClockSpent()
{
    return Spent;
}

void VirtualClockSetLimit(uint64_t ms)
{
    Limit = ms;
}

void VirtualClockLook()
{
    if (++Looks > MaxLooks) {
        fprintf(stderr, "virtual clock: a loop looks at it without ever waiting\n");
        abort();
    }
}

void VirtualClockSetLocalTime(const OsLocalTime& time)
{
    LocalTime = time;
}

uint32_t osTickCount()
{
    VirtualClockLook();
    return Tick;
}

void osSleep(uint32_t ms)
{
    VirtualClockAdvance(ms);
}

void osYield()
{
    VirtualClockAdvance(1);
}

void osLocalTime(OsLocalTime& timeOut)
{
    timeOut = LocalTime;
}
