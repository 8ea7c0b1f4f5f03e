// Where a fetch puts what it reads: the message file and its companions, and the buffer of a host.
#pragma once

#include <cstdint>

struct Channel;

// Makes the file and notes its path: 0, or RYN_ERR_CANNOT_CREATE_FILE with the path in the status
// text.
int32_t BeginEmailFile(Channel& ch);

void EndEmailFile(Channel& ch);

// Closes what a fetch that broke off has left: raw copy, attachment (unlisted) and message file.
void CloseFetchFiles(Channel& ch);

// Hands what has been gathered for these files to the system.
void FlushFetchFiles(const Channel& ch);

// Adds what fits of the line in ReplyBuffer to the host's buffer; the rest of it is dropped.
void KeepInUserBuffer(Channel& ch, int32_t length);
