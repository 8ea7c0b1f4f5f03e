// The same decoding by GMime, for comparison: its parser over a stream, the text parts and the
// chosen header lines to a message file, every other part to a file under its own name.
#pragma once

#include <gmime/gmime.h>
#include <string>

// Once in a process, before the first message.
void GmimePrepare();

// Both put the message file and the attachments into the folder. True if all were written.
bool GmimeDecodeFile(const std::string& file, const std::string& folder, const std::string& name);
bool GmimeDecodeBytes(GByteArray* bytes, const std::string& folder, const std::string& name);
