// Where fetched messages go: a folder for each message inside the folder of --into. Its name is the
// first free number, so nothing that is there already can be replaced; until all of the message is
// in it, ".part" stands behind the number.
#pragma once

#include "options.h"

#include <cstdint>
#include <string>

constexpr char TextFileName[] = "message.txt"; // the library's message file
constexpr char RawFileName[] = "message.eml";  // the message as it is
constexpr char RawPrefix = '.';                // of the library's raw copy, gone in the end

// Makes the folder of --into, if it isn't there, and tests that files can be made in it. EXIT_DONE
// or the code to leave with, after a message.
ExitCode PrepareInto(const char* typed, std::string& intoOut);

// Makes the folder for one message. False: standard error tells why.
bool ClaimFolder(const std::string& into, std::string& folderOut);

// Takes the ".part" from its name, which is the new one then. As ClaimFolder.
bool CommitFolder(const std::string& into, std::string& folder);

// What came of a message that can't be finished stays, and standard error tells where. If there is
// nothing, the folder goes.
void LeaveUnfinished(const std::string& folder);

// Is there room for so many bytes?
bool HasRoomFor(const std::string& folder, uint64_t bytes);

// A path of a file in it.
std::string PathIn(const std::string& folder, const std::string& name);
