// What a tunnel and a login ask of the system: folders, ports, programs, signals, the environment.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The value of an environment variable, which is removed: no program that is started later gets it.
// False: there is none.
bool TakeFromEnvironment(const char* name, std::string& valueOut);

// A new folder that only this user can read. False: none can be made.
bool MakeTemporaryFolder(std::string& folderOut);

// Removes a folder with all that is in it.
void RemoveFolder(const std::string& folder);

// The folder of this program; empty: not known.
std::string ProgramFolder();

// A port on which nobody listens at this moment; 0: none.
uint16_t FreePort();

// Runs a program without a shell and without output, and waits for its end. True: it ended with 0.
bool RunQuietly(const std::vector<std::string>& words);

// From here on a signal that asks the program to end only makes StopIsAsked answer true.
void CatchStopSignals();
bool StopIsAsked();
