// The MIME header lines of a message and of its parts (RFC 2045, RFC 2183): encoding, disposition,
// type and name. All of them read the line in ReplyBuffer, without a tokeniser: a parameter is found
// by its text, anywhere in the line.
#pragma once

#include <cstdint>

struct Channel;

int32_t ProcessTransferEncoding(Channel& ch); // 1 = a known encoding was set
int32_t ProcessDisposition(Channel& ch);      // 1 = it is a Content-Disposition line
int32_t SaveContentType(Channel& ch);         // 1 = it is a Content-Type line; its type is kept
int32_t ProcessFilename(Channel& ch);         // 1 = it has a name, now in Filename
