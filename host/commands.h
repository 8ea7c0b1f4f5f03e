// The commands of rynmail that use a channel. Each opens its own session and returns what the
// program ends with.
#pragma once

#include "options.h"

ExitCode RunSend(const Options& options);
ExitCode RunVerify(const Options& options);
ExitCode RunList(const Options& options);
ExitCode RunFetch(const Options& options);
ExitCode RunDecode(const Options& options);
ExitCode RunSearch(const Options& options);
ExitCode RunFlags(const Options& options);
ExitCode RunMailboxes(const Options& options);

// The charsets of --charset, for the help text.
void PrintCharsets();
