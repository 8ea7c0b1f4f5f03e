// Looks at what the system knows of child processes and of ports, without touching either.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Children of this process, zombies among them.
std::vector<int32_t> ChildProcesses();

bool ProcessExists(int32_t process); // a zombie does, too

// Waits until a child has ended, and leaves it to be reaped.
void AwaitEnd(int32_t process);

// True as soon as a process has no descriptor above 2. It opens some itself while it starts; what it
// was given stays.
bool HasStandardStreamsOnly(int32_t process);

// True if somebody listens on the port.
bool PortIsOpen(uint32_t port);

// Waits until somebody does; false if nobody does for a time that no working server needs.
bool AwaitPort(uint32_t port);

// A port that nobody has, below those that the system gives to connections, so that it stays free.
uint32_t FreeTunnelPort();
