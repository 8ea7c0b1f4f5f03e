// Questions to the mailbox of a session that has logged in. Each gives EXIT_DONE or the code to
// leave with, after a message.
#pragma once

#include "session.h"

#include <cstdint>
#include <string>

// What is wrong with the options of a mailbox, for the commands that both protocols have; null:
// nothing.
const char* FindMailboxMisuse(const Options& options);

// Connects and opens the mailbox; countOut messages are in it. An IMAP mailbox that is only looked at
// stays as it is, its marks of what has been read included.
ExitCode OpenMailbox(Session& session, const Options& options, bool isOnlyLookedAt,
                     int32_t& countOut);

// The size of a message in bytes. isThereOut false: the server has no such message, and
// session.Refusal is what it said.
ExitCode AskSize(Session& session, int32_t message, uint32_t& sizeOut, bool& isThereOut);

// The header lines of a message, as they are; behind the empty line may stand more of it.
ExitCode AskHead(Session& session, int32_t message, std::string& headOut);

// What tells each message from all others for ever, as lines "number id" between line ends; empty:
// the server doesn't know such a thing.
ExitCode AskIds(Session& session, int32_t count, std::string& linesOut);

// Marks a message for deletion. isMarkedOut false: the server has refused, as above.
ExitCode MarkDeleted(Session& session, int32_t message, bool& isMarkedOut);
