// Servers played from scripts, one script a connection. A script holds both sides of the dialogue,
// one step a line; blanks in front of a line don't count:
//
//     S: 220 ready       the server sends this line and CR LF
//     S- raw\r\n\x00     the server sends exactly these bytes: \r \n \t \\ \xHH, no line end added
//     C: HELO x.example  the client's next line is exactly this, ended by CR LF
//     C- raw             the client's next bytes are exactly these, escapes as above
//     C~ regex           the client's next line matches as a whole
//     C...               lines are passed over until one matches the C: or C~ step that follows
//     ! close            the server closes; ! reset: drops the connection; ! silence: says and reads
//                        nothing more
//     ! wait 500         virtual ms
//     ! flood TEXT 1000  TEXT, with escapes, that many times; 0: without end
//     # comment
//
// {T} in an S step and in a C: step stands for the first word of the client's line before, which is
// the tag of IMAP.
//
// Neighbouring S steps go out in one piece. What is played otherwise than written is a failure of
// the test: a step that does not match, bytes sent before the server's turn or behind the end, a
// script that was not played to its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

enum PeerCut { PEER_CUT_CLOSE, PEER_CUT_RESET, PEER_CUT_SILENCE };

struct PeerMode {
    bool ByteByByte = false; // one byte a turn
    int64_t CutAt = -1;      // bytes sent by the server before the cut; -1: no cut
    PeerCut Cut = PEER_CUT_CLOSE;
    bool MayEndEarly = false; // the client may go before the script's end
};

// Forgets all peers, and gives them the turns of the clock from now on.
void PeersReset();

// The next connection to this port is played from this script.
void PeerScript(uint16_t port, const std::string& script, PeerMode mode = {});

// Reports what was not played to its end. The host fixture calls it.
void PeersCheck();

// What passed on the connection of the n-th script, in the order of PeerScript.
const std::string& PeerReceived(size_t script);
const std::string& PeerSent(size_t script);

bool PeerWasCut(size_t script);
bool PeerWasPlayed(size_t script); // to its end

// Bytes as a script writes them, and back.
std::string PeerUnescape(const std::string& text);
std::string PeerEscape(const std::string& bytes);

// --- a server that takes everything ---

struct SinkMessage {
    std::string From;
    std::vector<std::string> To;
    std::string Data; // dots taken away, without the final one
};

// Every connection to this port is an honest SMTP server: HELO, EHLO, MAIL, RCPT, DATA, RSET, NOOP,
// VRFY, QUIT.
void SinkListen(uint16_t port);

const std::vector<SinkMessage>& SinkMessages();
