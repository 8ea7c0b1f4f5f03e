// The protocols that rynmail speaks, as rows: ports, the tunnel's peculiarities, and how a connect
// begins.
#pragma once

#include "login.h"
#include "options.h"

#include <cstdint>
#include <string>

// Where a connect goes.
struct Target {
    std::string Host;
    uint32_t Port;
    uint32_t TunnelPort; // on this machine; 0: no tunnel
    const char* From;    // the sender, for protocols that send
};

struct Protocol {
    const char* Options::*Server; // the option by which a user chooses it
    uint32_t Port, ImplicitPort, StartTlsPort;
    bool ImplicitHasOnePort;  // the library tells the two kinds of TLS apart by the port
    const char* StartTlsLine; // that the tunnel's configuration needs for it; null: none
    const char* TunnelLog;    // the library's name for the log of channel 0's tunnel
    // Begins the connect: 0 or a status.
    int32_t (*Start)(const Target& target, const Login& login);
};

// The protocol of the server that was named.
const Protocol& ProtocolOf(const Options& options);
