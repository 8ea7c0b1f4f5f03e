// What a mailbox of IMAP can do beyond one of POP3. The questions give EXIT_DONE or the code to leave
// with, after a message.
#pragma once

#include "session.h"

#include <cstdint>
#include <string>
#include <vector>

// A text as a word of a command: in quotes, if a char of it asks for them. Control chars it must not
// hold.
std::string ImapWord(const std::string& text);

// The library cuts a command of the host's own at 32 chars. True: this one fits; otherwise standard
// error tells that the name is too long.
bool FitsCommand(const std::string& command, const char* name);

// What is wrong with the options of the commands that only IMAP has; null: nothing.
const char* FindImapMisuse(const Options& options);

// As OpenMailbox in mailbox.h.
ExitCode OpenImapMailbox(Session& session, const Options& options, bool isOnlyLookedAt,
                         int32_t& countOut);

// The flags of a message, a sum of RYN_FLAG_ values.
ExitCode AskFlags(Session& session, int32_t message, int32_t& flagsOut);

// Adds or removes some, by RYN_FLAGS_ADD or RYN_FLAGS_REMOVE.
ExitCode ChangeFlags(Session& session, int32_t message, int32_t operation, int32_t flags);

// The numbers of the messages that match; count: how many there are.
ExitCode FindMessages(Session& session, const std::string& criteria, int32_t count,
                      std::vector<int32_t>& numbersOut);

// Lets the server remove what is marked for deletion. isLeftOut: something marked is still there.
ExitCode RemoveMarked(Session& session, bool& isLeftOut);
