// One conversation with a server, driven by hand: opening, running what was begun, reporting,
// leaving. Everything runs on channel 0.
#pragma once

#include "options.h"
#include "progress.h"
#include "tunnel.h"

#include <cstdint>
#include <string>

constexpr uint32_t Channel = 0;

struct Session {
    Progress Step;       // what is being done
    int32_t CountedBy;   // the code of rynStatistics whose bytes make up the step's total
    Tunnel Tls;          // the tunnel, if there is one
    std::string Refusal; // the last line by which the server refused something; empty: none
    bool IsBroken;       // the connection has failed: it takes no farewell
    bool IsImap;         // the server speaks IMAP
};

// Readies the library. False: standard error tells why.
bool StartSession(Session& session);

// Opens the log of --log, if it is given. EXIT_DONE or the code to leave with, after a message.
ExitCode OpenLog(const Options& options);

// Connects, greets and logs in; from is the sender where the protocol sends. As OpenLog.
ExitCode Connect(Session& session, const Options& options, const char* from);

// Says what the next Drive is about, for its progress line and its errors.
void BeginStep(Session& session, const std::string& doing);

// The same for a step that goes through total bytes, counted by a code of rynStatistics.
void BeginStep(Session& session, const std::string& doing, uint64_t total, int32_t countedBy);

// Runs what an operation has begun to its end: 0 or its status. RYN_WSAEINTR: the user has broken
// it off.
int32_t Drive(Session& session);

// What the server has said last: all of an IMAP answer, of others the line.
std::string LastReply(const Session& session);

// The line that ends it, of IMAP without the tag. Fit for a terminal.
std::string LastVerdict(const Session& session);

// Has the server agreed? An operation of which the library says so tells nothing of a refusal.
bool IsAccepted(const Session& session);

// Says what failed, in the library's words and the server's. Returns the code to leave with.
ExitCode ReportFailure(Session& session, int32_t status);

// Says goodbye, if the server can still understand it, and gives everything back, the tunnel too.
// True: the last reply was no refusal.
bool EndSession(Session& session, bool politely);
