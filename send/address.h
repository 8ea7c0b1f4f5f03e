// Addresses: a mailbox stands between '<' and '>', what is in front of it is a name for header
// lines. The checks look at the first entry of a list and change nothing.
#pragma once

#include <cstdint>

struct Channel;

// The first place of a char before the first delimiter of addresses, or null.
char* FindInEntry(char* text, char wanted);
const char* FindInEntry(const char* text, char wanted);

// Logs "LABEL 'ADDRESS'", or that it is null; with a null channel to the log opened last.
void LogAddressProblem(const Channel* ch, const char* address, const char* label);

// 0 if a '<' and behind it a '>' are there, in the first entry if the text is a list; otherwise a
// status, for missing brackets by way of FailState.
int32_t CheckAddressBrackets(Channel& ch, const char* address, const char* label, bool isList);

// 1 if a server's name holds neither brackets, '@' nor what no header may hold; an empty one passes.
int32_t ServerNameIsValid(const char* text);

// Notes the sender of the session and the reply address: 1 or a status.
int32_t SetSender(Channel& ch, const char* from, const char* replyTo);
