// The socket routines of platform.h over a network that exists in memory only: no kernel sockets,
// no timing, every run the same. The first half of this file sets the network up, the second half
// is what servers made by the test do with it. A connection is named by a number, its link.
#pragma once

#include "platform/platform.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

constexpr uint32_t VirtualServerAddress = 0x0A000019; // server.test, 10.0.0.25
constexpr uint32_t VirtualLoopback = 0x7F000001;      // localhost
constexpr uint32_t VirtualNever = 0xFFFFFFFF;         // a delay that does not end

// A fresh network: no listeners, "localhost" and "server.test" known, windows of 64 KiB.
void VirtualNetworkReset();

// Most bytes under way in each direction.
void VirtualSetWindows(size_t toServer, size_t toClient);

// Most bytes that one send takes; 0: what the window has room for.
void VirtualSetSendLimit(size_t bytes);

// What osResolve answers for a name; address 0: it can't be found. Names nobody added are unknown,
// dotted quads stand for themselves.
void VirtualAddName(const char* name, uint32_t address);

void VirtualSetLocalAddress(uint32_t address);

// How connects to this port end, and after how many virtual ms. Status 0: as if nothing was set.
void VirtualSetConnect(uint16_t port, int32_t status, uint32_t delayMs);

struct VirtualCounts {
    int Creates, Connects, Polls, Receives, Peeks, Sends, Closes, Resolves;
};

// Calls since the reset.
const VirtualCounts& VirtualNetworkCounts();

// Sockets created and not closed by the library.
int VirtualOpenSockets();

// --- the server's side ---

// Connects to this port are taken from now on.
void VirtualListen(uint16_t port);

// The link of the next connection to the port, 0 if none waits.
int VirtualAccept(uint16_t port);

// Takes all that the client has sent so far.
std::string VirtualTake(int link);

// Sends what the window has room for and returns how much that was.
size_t VirtualPut(int link, std::string_view bytes);

// The server closes: the client reads what was sent, then the end. What it still sends resets it.
void VirtualClose(int link);

// The server drops the connection: the client reads what was sent, then gets -10054.
void VirtualReset(int link);

bool VirtualClientClosed(int link);
