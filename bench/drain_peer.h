// An SMTP server that takes every message and keeps none, in a process of its own: what it costs
// does not count in a benchmark of the client.
#pragma once

#include "bench/peer_process.h"

// Stopped by StopPeerProcess.
PeerProcess StartDrainPeer();
