// One conversation with a server, driven by hand: opening, running what was begun, reporting,
// leaving. Everything runs on channel 0.
#pragma once

#include "options.h"

#include <cstdint>
#include <string>

constexpr uint32_t Channel = 0;

struct Session {
    std::string Doing;     // what is being done, in words, for progress and errors
    bool ShowsProgress;    // standard error is a terminal
    int32_t ShownBytes;    // of the message, as the progress line has it
    char Refusal[512 + 1]; // the last line by which the server refused something; empty: none
};

// Readies the library. False: standard error tells why.
bool StartSession(Session& session);

// Connects and greets. EXIT_DONE or the code to leave with, after a message.
ExitCode Connect(Session& session, const Options& options, const char* from);

// Says what the next Drive is about, for its progress line and its errors.
void BeginStep(Session& session, const std::string& doing);

// Runs what an operation has begun to its end: 0 or its status.
int32_t Drive(Session& session);

// Says what failed, in the library's words and the server's. Returns the code to leave with.
ExitCode ReportFailure(Session& session, int32_t status);

// Says goodbye, if the server can still understand it, and gives everything back.
void EndSession(Session& session, bool politely);
