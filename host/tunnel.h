// TLS by way of a tunnel: a stunnel process between the library and the server.
#pragma once

#include "options.h"

#include <cstdint>
#include <string>

struct Tunnel {
    std::string Folder; // temporary, owned; empty: none
    uint32_t LocalPort;
};

// The port of the options' protocol and kind of TLS, if none was named.
uint32_t UsualPort(const Options& options);

// Looks at the options of a tunnel before anything is made. EXIT_DONE or the code to leave with,
// after a message.
ExitCode CheckTunnel(const Options& options, uint32_t serverPort);

// Finds the program and a port, makes the folder and tells the library. As CheckTunnel; the folder
// may exist in either case.
ExitCode PrepareTunnel(const Options& options, Tunnel& tunnel);

// Says on standard error what the tunnel had to complain about.
void TellTunnelTroubles(const Options& options, const Tunnel& tunnel);

// Removes the folder.
void EndTunnel(Tunnel& tunnel);
