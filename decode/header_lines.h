// The header lines whose values a host can ask for: Subject, To, Cc, From, Reply-To, Date and
// Content-Type of the message as a whole.
#pragma once

#include <cstdint>

struct Channel;

enum HeaderOutcome : uint8_t {
    HEADER_OTHER, // none of the seven
    HEADER_TAKEN, // its value is kept, and nothing of it is left to be copied
    HEADER_COPY,  // the line that now stands in ReplyBuffer is for the message file
};

// Keeps the value of the line in ReplyBuffer and of its continuations.
HeaderOutcome ProcessHeaderLine(Channel& ch);
