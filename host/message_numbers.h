// The numbers of --message.
#pragma once

#include "options.h"

#include <cstdint>
#include <vector>

constexpr char NumbersWanted[] = "--message takes numbers from 1 on, or all";

// Are they numbers from 1 on, or all?
bool AreNumbers(const Options& options);

// Those of a mailbox that holds count messages. EXIT_DONE or the code to leave with, after a message.
ExitCode ChooseMessages(const Options& options, int32_t count, std::vector<int32_t>& numbersOut);
