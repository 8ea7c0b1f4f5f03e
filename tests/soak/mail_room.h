// The mail server of the soak: SMTP, POP3 and IMAP over mailboxes in memory, a thread for each
// connection, in a process of its own. It takes what a client of these tests may say and refuses
// all else. Each connection gets its replies in pieces of another size.
#pragma once

#include <cstdint>

struct MailRoom {
    uint32_t SmtpPort, Pop3Port, ImapPort;
    int Process; // its number
    int Leash;   // the process ends when this descriptor is closed
};

// To be called while the process has one thread only. False: no port can be had.
bool OpenMailRoom(MailRoom& room);

void CloseMailRoom(const MailRoom& room);
