// The two questions that rynmail has for the system and the standard library doesn't answer alike
// everywhere.
#pragma once

#include <cstdint>

// Is somebody watching standard error?
bool ErrorsGoToTerminal();

// Pauses for at least that many milliseconds.
void PauseMilliseconds(uint32_t milliseconds);
