// The generators behind header lines: date, Message-ID, encoded words.
#pragma once

#include <cstdint>

struct Channel;

// The Date line of this moment (RFC 5322, 3.3) without its line end; line holds FormatCapacity
// bytes. The channel, which may be null, gets the trace of the zone.
void FormatDateLine(const Channel* ch, char* line);

// A zone as hours and minutes, "+0100" for 100; text holds 6 bytes.
void FormatZone(int32_t zone, char* text);

// A Message-ID line without its line end; line holds FormatCapacity bytes.
void FormatMessageId(const Channel& ch, char* line);
