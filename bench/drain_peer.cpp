// The draining SMTP server; see drain_peer.h.
#include "bench/drain_peer.h"

#include <cstring>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

static void Say(int client, const char* line)
{
    if (send(client, line, strlen(line), MSG_NOSIGNAL) < 0)
        _exit(1);
}

// Reads to the end of the message, CR LF dot CR LF, whatever pieces it comes in.
static bool DrainMessage(int client)
{
    static char buffer[1 << 18];
    std::string tail;
    for (;;) {
        const ssize_t count = recv(client, buffer, sizeof buffer, 0);
        if (count <= 0)
            return false;
        const size_t bytes = static_cast<size_t>(count);
        const size_t kept = bytes < 5 ? bytes : 5;
        tail.append(buffer + bytes - kept, kept);
        if (tail.size() > 5)
            tail.erase(0, tail.size() - 5);
        if (tail == "\r\n.\r\n")
            return true;
    }
}

static void Serve(int client)
{
    Say(client, "220 ready\r\n");
    std::string line;
    char byte = 0;
    while (recv(client, &byte, 1, 0) == 1) {
        line += byte;
        if (byte != '\n')
            continue;
        const bool isData = line == "DATA\r\n";
        Say(client, isData ? "354 go on\r\n" : "250 ok\r\n");
        if (line == "QUIT\r\n")
            return;
        line.clear();
        if (isData && !DrainMessage(client))
            return;
        if (isData)
            Say(client, "250 taken\r\n");
    }
}

PeerProcess StartDrainPeer()
{
    return StartPeerProcess([] {}, Serve);
}
