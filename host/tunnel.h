// TLS by way of a tunnel: a stunnel process between the library and the server.
#pragma once

#include "options.h"

#include <cstdint>
#include <string>

constexpr uint32_t TlsPort = 465;        // TLS from the first byte (RFC 8314, 3.3)
constexpr uint32_t SubmissionPort = 587; // begins in clear and goes on by STARTTLS

struct Tunnel {
    std::string Folder; // temporary, owned; empty: none
    uint32_t LocalPort;
};

// The port of the options' kind of TLS if none was named. Without TLS the port of SMTP.
uint32_t UsualPort(const Options& options);

// Looks at the options of a tunnel before anything is made. EXIT_DONE or the code to leave with,
// after a message.
ExitCode CheckTunnel(const Options& options, uint32_t serverPort);

// Finds the program and a port, makes the folder and tells the library. As CheckTunnel; the folder
// may exist in either case.
ExitCode PrepareTunnel(const Options& options, Tunnel& tunnel);

// Says on standard error what the tunnel had to complain about.
void TellTunnelTroubles(const Tunnel& tunnel);

// Removes the folder.
void EndTunnel(Tunnel& tunnel);
