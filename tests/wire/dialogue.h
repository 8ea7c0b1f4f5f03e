// What the wire tests have in common: the pieces of scripts that every message passes through, and
// one way to play a whole conversation.
#pragma once

#include "tests/support/fault.h"
#include "tests/support/host.h"
#include "tests/support/scripted_peer.h"
#include "tests/support/temp_folder.h"
#include "tests/support/virtual_clock.h"
#include "tests/support/virtual_socket.h"

#include <functional>
#include <string>

inline constexpr char Sender[] = "Ann <a@x.example>";

// One message; null as in the library.
struct Mail {
    const char* To = "<b@y.example>";
    const char* Cc = nullptr;
    const char* Bcc = nullptr;
    const char* Subject = "Hello";
    const char* Message = "one\r\ntwo";
    const char* Alternative = nullptr;
    bool Html = false;
};

// --- scripts ---

// Each text as a step of its own.
std::string Lines(const char* step, std::initializer_list<std::string> texts);

std::string OpenScript();                                             // 220, HELO, 250
std::string EnvelopeScript(std::initializer_list<std::string> rcpts); // MAIL, RCPTs, DATA
std::string IdLine();                                                 // the Message-ID line
std::string HeadLines();                                              // all lines of a plain head
std::string HeadScript(); // and the empty line behind them
std::string ByeScript();  // QUIT, 221

// A conversation with one message, whose head and body are given.
std::string Conversation(const std::string& headAndBody);

// --- driving ---

int32_t Connect(bool manual = false, uint32_t channel = 0);
int32_t Send(const Mail& mail, bool manual = false, uint32_t channel = 0);
int32_t Close(bool manual = false, uint32_t channel = 0);
void Deliver(const Mail& mail, bool manual = false); // all three, which must succeed

struct WireTest : HostTest {
    // Begins a round with one channel: "whole" or "byte by byte" replies, or "manual" driving, which
    // it answers by true. "{B}" in the script stands for the seed of the boundaries.
    bool Begin(const std::string& script, const char* way = "whole");

    // Connects, sends and closes by automatic driving with replies whole and byte by byte, and by
    // manual driving.
    void PlayAllWays(const std::string& script, const Mail& mail,
                     const std::function<void()>& settings = nullptr);

    // Attaches and sends one message to a server that takes everything; the bytes of the head, or
    // of the body from behind the first empty line to in front of the final dot.
    std::string Head(const Mail& mail, const std::function<void()>& settings = nullptr);
    std::string Body(const Mail& mail, const std::function<void()>& settings = nullptr);
};
