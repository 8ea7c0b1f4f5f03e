// The terminal and the clock. Answered, like system.h, in the platform's folder: nothing in this one
// knows which system it runs on.
#pragma once

#include <cstdint>
#include <string>

// Is somebody watching standard error?
bool ErrorsGoToTerminal();

// Asks on the terminal for a line and doesn't show what is typed. False: there is no terminal, or
// the answer was broken off.
bool AskSecret(const std::string& question, std::string& secretOut);

// Pauses for at least that many milliseconds.
void PauseMilliseconds(uint32_t milliseconds);

// Milliseconds since some fixed moment.
uint64_t MillisecondsNow();
