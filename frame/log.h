// The session log: one text file per channel into which every layer writes what it does. A text
// brings its own line end. Without a log a call costs one test of a handle.
#pragma once

#include "frame/channel.h"

// Writes a text to the channel's log, or with a null channel to the log opened last.
void LogText(const Channel* ch, const char* text);

// Writes to the log opened last, by whichever channel.
void LogGlobal(const char* text);

// Formats a line and writes it, 1023 chars at most; without a log nothing is formatted.
void LogFormat(const Channel& ch, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Shows the system's words for the last file error, if there was one.
void LogWindowsError(const Channel& ch);

// Opens the log of that name and closes an old one: the handle, or -1.
int32_t OpenLog(Channel& ch, const char* name);
void CloseLog(Channel& ch);

// Forgets the log opened last; used where all logs are closed one by one.
void ForgetGlobalLog();

// Opens the recipient trace of that name: the handle, or a status.
int32_t OpenRecipientTrace(Channel& ch, const char* name);
