// The boundaries of a message's multiparts (RFC 2046, 5.1): one of the message as a whole and up to
// eight of nested ones, all of them known at a time and none given up before the message ends.
#pragma once

#include <cstdint>

struct Channel;

// 1 if the line in ReplyBuffer begins with a known boundary, whatever stands behind it: the headers
// of a part come next then.
int32_t CheckBoundaryLine(Channel& ch);

void ResetBoundaries(Channel& ch);

// The Content-Type line of the message in ReplyBuffer: 1 if it defines the main boundary.
int32_t ProcessContentType(Channel& ch);

// The Content-Type line of a part: 1 if it defines one more boundary.
int32_t ProcessMultipartLine(Channel& ch);
