// Reading the answers of an IMAP server, all but the lines of a fetched message: one line after the
// other until the tagged one, with the value that a command asked for picked out of the untagged ones.
#pragma once

#include <cstdint>

struct Channel;

// What a command expects.
enum ImapAnswer : char {
    IMAP_GREETING = 'G',   // one line, tagged or not
    IMAP_LOGIN = 'N',      // nothing
    IMAP_ANY = 'n',        // nothing, and whether the server agrees does not matter
    IMAP_FLAGS = 'F',      // flag words: their bits
    IMAP_AFTER_KEY = 'K',  // the number behind the key
    IMAP_BEFORE_KEY = 'V', // the number in front of the key
    IMAP_SEARCH = 'S',     // the list of numbers, which goes to the host's search buffer: 1
};

// Flag bits, as rynImapFlags takes and gives them.
constexpr uint8_t WritableFlags = 31; // all but \Recent

constexpr int32_t CollectorChars = 65535;
extern char
    ImapCollector[CollectorChars + 1]; // the last answer on channel 0; others have LastReply

// Reads an answer: the value found, 0 without one or when the server has closed,
// RYN_ERR_IMAP_REPLY, RYN_ERR_TIMED_OUT, or a status of the read. ReplyCode is 100 or 500.
int32_t ImapResponse(Channel& ch, ImapAnswer type, const char* key);

// "(\Seen \Draft)" for some of the writable bits; at least one must be given.
void BuildFlagList(char* text, int32_t capacity, uint8_t bits);
