// The raw copy of a message: a file that gets the lines of a fetch as they come from the server, their
// stuffed dots included.
#pragma once

#include <cstdint>

struct Channel;

// Makes the file beside the message file: its handle, or a negative value. With needsPrefix nothing is
// done while the host has set no prefix.
int32_t OpenRawFile(Channel& ch, bool needsPrefix);

int32_t CloseRawFile(Channel& ch); // 1 = there was one

// Takes a line that ReadServerLine has read: bytes written. The server's first line and the line that
// ends the message stay out.
int32_t SaveRawLine(Channel& ch, const char* line, int32_t count);
