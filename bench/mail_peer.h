// A mailbox server that has its messages in memory and serves them as fast as it can, one session at
// a time, in a process of its own: what it costs does not count in a benchmark of the client.
#pragma once

#include "bench/peer_process.h"

#include <string>
#include <vector>

enum PeerProtocol { PEER_POP3, PEER_IMAP };

// Serves the files as messages 1, 2 and so on. Stopped by StopPeerProcess.
PeerProcess StartMailPeer(PeerProtocol protocol, const std::vector<std::string>& files);
