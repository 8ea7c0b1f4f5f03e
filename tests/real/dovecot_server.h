// A real POP3 and IMAP server for one test: Dovecot on free loopback ports, with all its state in a
// temporary folder, over Maildirs of its own or over those that another server fills. A guardian
// (guardian.h) ends it with the test.
#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

struct DovecotServer {
    // One "name:{PLAIN}password" a line; a test may write others before the start.
    std::string Users = "alice:{PLAIN}secret1\nbob:{PLAIN}secret2\ncarol:{PLAIN}secret3\n";
    uint32_t Pop3Port = 0, ImapPort = 0;
    uint32_t Pop3TlsPort = 0, ImapTlsPort = 0; // TLS from the first byte; 0 without a certificate
    std::string Folder;                        // its state, without a separator at its end
    std::string MailFolder;                    // one Maildir for each user below it
    pid_t Guardian = 0;                        // 0: not running
    int LifeHandle = -1; // write end of a pipe; the server runs while it is open
};

// Starts the server and returns when it listens. Call it while the process has one thread. Returns
// an empty text, or why it failed; Dovecot itself explains on standard error.
//
// An empty mailFolder stands for a folder of the server's own. Logins go by password and by APOP.
// With a certificate, the path of a file that holds its key too, the server also speaks TLS. Its log
// is Folder/dovecot.log.
std::string StartDovecot(DovecotServer& server, const std::string& mailFolder = "",
                         const std::string& certificate = "");

// Stops the server with all its sessions and removes the folder.
void StopDovecot(DovecotServer& server);

// Puts a message into a user's Maildir as it stands, behind all others: lines end in LF there, but
// anything can be put.
void PutMail(const DovecotServer& server, const std::string& user, const std::string& bytes);

// The files of a user's mailbox, looked at or not, in order of arrival, each with its path. Call it
// while nothing arrives and no session is open on the mailbox.
std::vector<std::string> ListMailbox(const DovecotServer& server, const std::string& user);
