// Finds a state's handler and name by its number.
#pragma once

#include "frame/driver.h"

// The handler; null for a number that no state has.
StateHandler FindStateHandler(int32_t state);
