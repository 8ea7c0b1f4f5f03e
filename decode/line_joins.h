// Folded header lines made one (RFC 5322, 2.2.3): the line in hand stands in ReplyBuffer, and the
// lines behind it are read ahead of the driver. A line that has not come yet is waited for, up to
// FetchTimeout; the line that ends the message is never taken.
#pragma once

#include <cstdint>

struct Channel;

// True if the next line is a continuation: it begins with a blank or a TAB. It is waited for up to
// FetchTimeout, but not beyond deadline.
bool FoldIsNext(Channel& ch, uint32_t deadline);

// When all folds of a header that begins now must be there: a drip can't stretch it for ever.
uint32_t FoldDeadline();

// Reads the continuation in the place of the line in hand: its length, or a status.
int32_t ReadFold(Channel& ch);

// Puts the next line in the place of the line end and drops the blanks at its head, if the line in
// hand ends in a char; 0 stands for any. 1 = a line was joined.
int32_t JoinIfEndsWith(Channel& ch, char endChar);

// Joins the second line of a parameter list, and a third one.
void JoinParameterLines(Channel& ch);

// Joins up to 10 continuations, their first blanks kept.
void CombineHeaderLines(Channel& ch);

// index, or the length of a text that is shorter.
int32_t ClampIndex(const char* text, int32_t index);
