// The byte stream of a vSock: lines out of the receive ring on the way in, texts and lines on the
// way out. Nothing is read in the background: bytes leave the socket only when a reader asks, and
// a zero byte that arrives becomes a blank. Every routine answers RYN_ERR_NO_SUCH_VSOCK for a
// number out of range; RYN_ERR_SOCK_CLOSED stands for a peer that has gone, a failed read and the
// end of a source file.
#pragma once

#include <cstdint>

struct VSockRecord;

constexpr int SendTries = 12;            // of a line, and of gathered bytes
constexpr uint32_t SendRetryPause = 250; // ms behind each failed try
constexpr int32_t NoMask = -1;           // mask start of a text without a secret

// Empties the receive ring: VS_OK.
int32_t vsResetRing(int32_t vs);

// Copies what stands at the head of the ring, fetching from the peer if the ring is empty, or holds
// a single byte where more is asked for: bytes copied, 0 = nothing yet, RYN_ERR_SOCK_CLOSED.
int32_t vsPeek(int32_t vs, char* buffer, int32_t count);

// Copies the head of the next line: waits up to ms until count bytes or a line feed stand in the ring.
// Bytes copied, what is there when the peer has gone or the time is over; RYN_ERR_SOCK_CLOSED.
int32_t vsPeekLine(int32_t vs, char* buffer, int32_t count, uint32_t ms);

// Takes count bytes, out of the ring first, the rest from the peer if it has something; buffer
// needs count + 1 bytes. Bytes taken, RYN_ERR_SOCK_CLOSED, VS_ERR_BAD_LENGTH.
int32_t vsRead(int32_t vs, char* buffer, int32_t count);

// Takes what is there up to and including the first LF, at most capacity - 1 bytes, and a zero
// behind: bytes taken, 0 = nothing yet, RYN_ERR_SOCK_CLOSED.
int32_t vsGetChunk(int32_t vs, char* buffer, int32_t capacity);

// Takes a line: waits up to firstWait ms for its beginning and nextWait ms for all that follows.
// A line that does not end in time or does not fit is delivered as far as it came; 0 = time over.
int32_t vsReadLine(int32_t vs, char* buffer, int32_t capacity, uint32_t firstWait,
                   uint32_t nextWait);

// Waits for something to read: 1, or 0 when ms are over. A wait of 0 looks once.
int32_t vsWaitData(int32_t vs, uint32_t ms);

// Throws away what the peer has sent up to now.
int32_t vsDrain(int32_t vs);

// Sends count bytes, which a zero must end for the log; the log has them only when all have gone,
// with stars from index maskStart on. count, RYN_ERR_SOCK_CLOSED when the connection can't be used,
// VS_ERR_BAD_LENGTH, or a negated Winsock number.
int32_t vsWrite(int32_t vs, const char* bytes, int32_t count, int32_t maskStart);
int32_t vsWriteText(int32_t vs, const char* text);

// While a record gathers, writes without a log and without a secret wait beneath the socket, up to
// GatherCapacity bytes; a read, a wait for data, a close and vsFlush send them. A flush that fails is
// told by every later write, and by vsFlush: VS_OK or its status.
int32_t vsSetGather(int32_t vs, bool gathers);
int32_t vsFlush(int32_t vs);
int32_t vsSendFailure(int32_t vs); // 0, or why what was half sent on this connection broke off
void vsForgetSends(int32_t vs);    // drops what waits and the failure: the connection is given up

// Sends a text and CR LF, in one block up to 511 chars, in two from there on: bytes sent.
int32_t vsWriteLine(int32_t vs, const char* text);

// The same in one block with a mask; a text above 512 chars is cut there.
int32_t vsWriteLineMasked(int32_t vs, const char* text, int32_t maskStart);

// --- dots at the head of a line (RFC 5321, 4.5.2) ---

// Moves a text one place to the right and puts a '.' at its head: the buffer needs a byte more.
void InsertDot(char* text, int32_t length);

// Doubles each '.' directly behind a CR LF, in place, within a capacity that counts the terminator;
// the first char is not looked at.
void DoubleLineDots(char* text, int32_t capacity);
