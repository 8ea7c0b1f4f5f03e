// What every road to a mailbox does before it is taken.
#pragma once

struct Channel;

// Forgets the session before: header values, counts, boundaries, timers.
void ResetRetrieval(Channel& ch);
