// A folder of the test's own below TMPDIR, and whole files as texts.
#pragma once

#include <string>

// Makes a new empty folder; its path ends without a separator.
std::string TempFolderMake();

// Removes a folder with all that it holds.
void TempFolderRemove(const std::string& path);

// "<no file>" if there is none.
std::string ReadWholeFile(const std::string& path);

void WriteWholeFile(const std::string& path, const std::string& bytes);
