// What driver states ask of the transport: the vSock calls on a channel's own record, with the
// retries of a send and the short answers of a channel that writes to a file.
#pragma once

#include <cstdint>

struct Channel;

// vsSelect; 2 without a look while the channel writes to a target file.
int32_t ChannelSelect(Channel& ch, int32_t kind);

// vsIsConnected, tried for some ms: 1, or 0 when they are over; 2 with a target file.
int32_t ChannelConnected(Channel& ch, uint32_t ms);

// 1 if something can be read within some ms, else 0. A wait of 0 looks once.
int32_t ChannelDataReady(Channel& ch, uint32_t ms);

// A line of the server's: bytes with the line end, 0 = none in time, or a status. capacity counts
// the terminating zero. The line that closes an IMAP literal is none; a raw copy gets every other.
int32_t ReadServerLine(Channel& ch, char* buffer, int32_t capacity, uint32_t firstWait,
                       uint32_t nextWait);

// The head of the server's next line, which stays to be read: waits up to ms for count bytes or a line
// end. Bytes copied, 0 = nothing in time, or a status.
int32_t PeekServerLine(Channel& ch, char* buffer, int32_t count, uint32_t ms);

// True for a line that ends a message by the rule of the channel's protocol: a lone dot (RFC 1939, 3)
// or the tagged line.
bool EndsMessage(const Channel& ch, const char* line);

// True for a line that begins with the session's tag and "OK".
bool HasEndTag(const Channel& ch, const char* line);

// All but the masked ones try 12 times, 250 ms apart, unless part of the text is out already, and
// return the last result: bytes sent, or a status.
int32_t SendLine(Channel& ch, const char* text);
int32_t SendText(Channel& ch, const char* text);
int32_t SendData(Channel& ch, const char* bytes, int32_t count);

// One try, with stars in the log from index maskStart on.
int32_t SendLineMasked(Channel& ch, const char* text, int32_t maskStart);
int32_t SendDataMasked(Channel& ch, const char* bytes, int32_t count, int32_t maskStart);

int32_t SendExtraLine(Channel& ch); // 0 if the host has set none
