// The POP3 and IMAP server of the fuzz targets: an honest one with two messages, or one that plays the
// bytes of an input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

constexpr uint16_t PeerPop3Port = 110;
constexpr uint16_t PeerImapPort = 143;
constexpr char PeerName[] = "server.test";

// Bytes of a script with a meaning of their own; all others go to the client as they are.
enum PeerMark : char {
    MARK_LINE = 1,    // wait until the client has sent a line
    MARK_WAIT = 2,    // wait as many hundredths of a virtual second as the next byte tells
    MARK_CLOSE = 3,   // close, the rest is for the next connection
    MARK_RESET = 4,   // drop the connection, likewise
    MARK_SILENCE = 5, // say nothing more on this connection
    MARK_PIECE = 6,   // what stands behind comes a moment later
    MARK_TAG = 7      // the first word of the line that the client has sent last
};

// From now on the server answers to every command, to RETR and to FETCH RFC822 with these bytes, all
// but the tagged line of IMAP among them. piece: bytes sent at a time, 0 = all, more for a long message; closes: it closes behind
// the message.
void PeerServe(const std::string& message, size_t piece, bool closes);

// From now on the server plays a script; at its end it closes.
void PeerPlay(const std::string& script, size_t piece);

// Virtual ms that a script takes at most for its waits, and for its pieces at so many ms each.
uint32_t PeerWaits(const std::string& script, uint32_t pieceMs);
