// Whole replies of a server, read into ReplyBuffer with their head in LastReply.
#pragma once

#include <cstdint>

struct Channel;

// The number at the head of a text, ten digits at most; 0 if there is none.
uint32_t ParseReplyNumber(const char* text);

// The same as a count that no status can be mistaken for: INT32_MAX at most.
int32_t ParseReplyCount(const char* text);

// An SMTP reply of one or more lines (RFC 5321, 4.2). 0: a reply below 400, or the time was over,
// or the server has closed; RYN_ERR_SMTP_REPLY for 400 and above, with the reply's further lines
// left unread; RYN_ERR_RESPONSE_OVERFLOW. ReplyCode has the number.
int32_t ReadSmtpReply(Channel& ch);

// Reads and drops what is left of a refusal, for ReplyTimeout at most: called where the dialogue
// goes on behind one.
void DropReplyRest(Channel& ch);

// A POP3 reply of one line: 0, also when the server has closed; RYN_ERR_POP3_REPLY,
// RYN_ERR_TIMED_OUT. ReplyCode is 100 or 500.
int32_t ReadPop3Reply(Channel& ch);

// Keeps the time stamp of the greeting in ReplyBuffer (RFC 1939, 7) in AuthScratch, its brackets
// included; empty if there is none.
void KeepTimeStamp(Channel& ch);
