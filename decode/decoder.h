// The decoder of fetched messages: a small machine that is called once for each line of a message and
// says whether the line goes to the message file. It keeps no picture of the message and tracks no
// nesting: all boundaries known so far are tried on every line of a body.
#pragma once

#include <cstdint>

struct Channel;

// Values of Channel.DecodeState.
enum DecodeStateValue : uint8_t {
    DS_PLAIN = 0,        // no MIME, or nothing to decode: the rest goes to the message file
    DS_RAW = 1,          // the host wants no decoding
    DS_START = 2,        // no line yet
    DS_HEADERS = 3,      // in the head of the message
    DS_PREAMBLE = 4,     // behind the line that defined the main boundary
    DS_PART_HEADERS = 5, // behind a boundary line
    DS_PART_BODY = 6,
};

// Values of Channel.TransferEncoding.
enum TransferEncodingValue : int32_t { TE_NONE = 0, TE_7BIT = 1, TE_BASE64 = 2, TE_QUOTED = 3 };

// Forgets the message before: all that the decoder keeps of one message.
void ResetDecoder(Channel& ch);

// Takes the line of length bytes in ReplyBuffer: 1 = what then stands in ReplyBuffer goes to the
// message file, 0 = the line is dealt with. May read further lines, and rewrites the line in hand.
int32_t DecodeLine(Channel& ch, int32_t length);

// Writes to a virtual file, but for a server's status lines: what u_Write gives, or 0. The bytes must
// be followed by a zero.
int32_t WriteToDisk(Channel& ch, int32_t handle, const char* bytes, int32_t count);
