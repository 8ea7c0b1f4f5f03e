// The progress of a step: one line on a terminal, rewritten in place, with a bar once it is known
// how much there is to do.
#pragma once

#include <cstdint>
#include <string>

struct Progress {
    bool IsShown;      // somebody watches
    std::string Doing; // what is being done, in words
    uint64_t Total;    // bytes to go through; 0: not known
    uint64_t BeganAt;  // ms
    uint64_t ShownAt;  // ms; 0: not yet
};

// Begins a step and shows its name.
void BeginProgress(Progress& progress, const std::string& doing, uint64_t total);

// Shows how far it has come, but not more often than somebody can read.
void ShowProgress(Progress& progress, uint64_t bytes);

// Empties the line.
void ClearProgress(const Progress& progress);

// The line for so many bytes of total behind that many milliseconds.
std::string ProgressLine(const Progress& progress, uint64_t bytes, uint64_t elapsed);
