// The commands of rynmail that talk to a server. Each opens its own session and returns what the
// program ends with.
#pragma once

#include "options.h"

ExitCode RunSend(const Options& options);
ExitCode RunVerify(const Options& options);

// The charsets of --charset, for the help text.
void PrintCharsets();
