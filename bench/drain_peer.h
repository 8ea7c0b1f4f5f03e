// An SMTP server that takes every message and keeps none, in a process of its own: what it costs
// does not count in a benchmark of the client.
#pragma once

#include <cstdint>
#include <sys/types.h>

struct DrainPeer {
    pid_t Process;
    uint16_t Port; // on 127.0.0.1
};

// Port is 0 if it can't be started.
DrainPeer StartDrainPeer();
void StopDrainPeer(const DrainPeer& peer);
