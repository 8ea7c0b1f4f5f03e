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
// the terminating zero.
int32_t ReadServerLine(Channel& ch, char* buffer, int32_t capacity, uint32_t firstWait,
                       uint32_t nextWait);

// All but the masked one try 12 times, 250 ms apart, unless part of the text is out already, and return the last
// result: bytes sent, or a status.
int32_t SendLine(Channel& ch, const char* text);
int32_t SendText(Channel& ch, const char* text);
int32_t SendData(Channel& ch, const char* bytes, int32_t count);

// One try, with stars in the log from index maskStart on.
int32_t SendDataMasked(Channel& ch, const char* bytes, int32_t count, int32_t maskStart);

int32_t SendExtraLine(Channel& ch); // 0 if the host has set none
