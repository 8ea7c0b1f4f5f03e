// A mail session of a host with a hostile server, as the targets of both protocols run it. The input:
// settings, a line of letters for what the host does, then the server's script (fuzz_peer.h). Whatever
// the server does, each operation ends in time and with a documented result, and the channel serves
// an honest server afterwards.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <span>
#include <vector>

struct SessionHost {
    bool IsManual;
    bool IsHasty;                         // leaves the next operation in the middle
    int FaultNumber;                      // which call of a kind is to fail
    bool FaultsLast;                      // and all later ones of the kind, too
    std::list<std::vector<char>> Buffers; // live until the end, as an operation may be left
};

// Room of exactly so many bytes.
char* SessionBuffer(SessionHost& host, size_t size);

// Drops the connection; the channel stays in the driving that the input asks for.
int32_t SessionAbort(SessionHost& host);

struct SessionLetter {
    char Letter;
    int32_t (*Run)(SessionHost& host);
};

// What a protocol has of its own.
struct SessionProtocol {
    std::span<const SessionLetter> Letters; // 'n' to connect, and what the other has not
    int32_t Refusal;                        // the status of a command that the server refuses
    void (*CheckHonest)();
};

// Runs one input.
void FuzzSession(const SessionProtocol& protocol, const uint8_t* data, size_t size);
