// A server of a benchmark in a process of its own: what it costs does not count.
#pragma once

#include <cstdint>
#include <functional>
#include <sys/types.h>

struct PeerProcess {
    pid_t Process;
    uint16_t Port; // on 127.0.0.1; 0 = it can't be started
};

// Serves one connection after the other. prepare runs once, in the new process.
PeerProcess StartPeerProcess(const std::function<void()>& prepare,
                             const std::function<void(int client)>& serve);
void StopPeerProcess(const PeerProcess& peer);
