// The process of a server; see peer_process.h.
#include "bench/peer_process.h"

#include <arpa/inet.h>
#include <csignal>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

PeerProcess StartPeerProcess(const std::function<void()>& prepare,
                             const std::function<void(int client)>& serve)
{
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    sockaddr* const generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener, generic, length) != 0 || listen(listener, 8) != 0 ||
        getsockname(listener, generic, &length) != 0)
        return { 0, 0 };
    const pid_t process = fork();
    if (process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        prepare();
        for (;;) {
            const int client = accept(listener, nullptr, nullptr);
            serve(client);
            close(client);
        }
    }
    close(listener);
    return { process, ntohs(address.sin_port) };
}

void StopPeerProcess(const PeerProcess& peer)
{
    kill(peer.Process, SIGKILL);
    waitpid(peer.Process, nullptr, 0);
}
