// What rynmail asks of the system; the one file of the host that knows which one it is.
#include "terminal.h"

#include <chrono>
#include <thread>
#include <unistd.h>

bool ErrorsGoToTerminal()
{
    return isatty(STDERR_FILENO) == 1;
}

void PauseMilliseconds(uint32_t milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}
