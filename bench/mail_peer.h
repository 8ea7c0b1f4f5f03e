// A mailbox server that has its messages in memory and serves them as fast as it can, one session at
// a time, in a process of its own: what it costs does not count in a benchmark of the client.
#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

enum PeerProtocol { PEER_POP3, PEER_IMAP };

struct MailPeer {
    pid_t Process;
    uint16_t Port; // on 127.0.0.1
};

// Serves the files as messages 1, 2 and so on. Port is 0 if it can't be started.
MailPeer StartMailPeer(PeerProtocol protocol, const std::vector<std::string>& files);
void StopMailPeer(const MailPeer& peer);
