// Programs that the library has started for a host, and the tunnels among them.
#pragma once

#include <cstdint>

constexpr int32_t MostPrograms = 64;

// Forgets all entries; programs that still run are left alone.
void ClearProcessTable();

// rynStartProgram and rynKillProgram behind their guards.
int32_t StartProgram(const char* commandLine);
int32_t KillProgram(int32_t entry, int32_t exitCode);

// 1 while the program of an entry runs. One that has ended by itself gives its entry up.
int32_t ProgramIsRunning(int32_t entry);
