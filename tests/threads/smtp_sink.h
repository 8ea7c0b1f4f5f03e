// An SMTP server for tests with many channels: one thread that accepts every connection and every
// command on a loopback port and remembers of each message only what tells it from the others.
#pragma once

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

struct SinkMessage {
    std::string Sender; // what followed MAIL FROM:
    std::string Head;   // the header lines, with their CR LF
    uint32_t Checksum;  // ChecksumOf the bytes behind the empty line, stuffed dots taken out
};

struct SmtpSink {
    uint32_t Port = 0;
    int Listener = -1;
    int StopHandles[2] = { -1, -1 }; // a pipe: writing to it ends the thread
    std::thread Thread;

    // Written by the thread alone; to be read after StopSink.
    std::vector<SinkMessage> Messages;
    std::vector<std::string> Strays; // commands that no client here has reason to send
    int32_t Connections = 0;
    int32_t CutShort = 0; // connections that ended inside a message
};

// False if there is no port to be had.
bool StartSink(SmtpSink& sink);

// Serves what has arrived, closes all connections and waits for the thread to end.
void StopSink(SmtpSink& sink);

// FNV-1a, 32 bits.
uint32_t ChecksumOf(const std::string& bytes);
