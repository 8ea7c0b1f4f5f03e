// A real SMTP server for one test: Exim on a free loopback port, with all its state in a temporary
// folder. It knows the users alice, bob and carol of the domain example.test, takes mail for them
// alone, and keeps it in Maildirs below Folder/mail. A guardian (guardian.h) ends it with the test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>

struct EximServer {
    uint32_t Port = 0;
    uint32_t TlsPort = 0; // TLS from the first byte; 0 without a certificate
    std::string Folder;   // without a separator at its end; short enough for a recipient trace name
    pid_t Guardian = 0;   // 0: not running
    int LifeHandle = -1;  // write end of a pipe; the server runs while it is open
};

// Starts the server and returns when it listens. Call it while the process has one thread. Returns
// an empty text, or why it failed; Exim itself explains on standard error.
//
// With a certificate, the path of a file that holds its key too, the server also speaks TLS and offers
// all four logins: the secrets of users stand in Folder/users.smtp and Folder/tokens, the logins that
// it offers in Folder/offer, and a test may write these files anew at any time.
std::string StartExim(EximServer& server, const std::string& certificate = "");

// Stops the server with all its sessions and removes the folder. A stopped server may be started
// again and then has a new port and a new folder.
void StopExim(EximServer& server);

// How many messages that nobody has looked at stand in a user's mailbox at this moment.
size_t CountMail(const EximServer& server, const std::string& user);

// Waits for the n-th such message of a user, counted from 1 in order of arrival, and returns its
// bytes: line ends are LF, stuffed dots are out, nothing is added. False, with a failure noted, if
// it does not come for a time that no working server needs.
bool WaitForMail(const EximServer& server, const std::string& user, size_t n,
                 std::string& bytesOut);
