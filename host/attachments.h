// The files that go with a message: attachments, images of an HTML text, a message to forward.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct AttachedFile {
    std::string Path;
    std::string Name; // that the message shows
    uint64_t Size;    // bytes
};

// Takes FILE or FILE=NAME; a word that is the path of a file is that file, whatever '=' it holds.
// Without NAME the file's own name is shown. False: standard error tells what is wrong.
bool TakeFile(const char* typed, AttachedFile& fileOut);

// The same for an image that an HTML text shows: its name has to tell a type that the library knows
// as an image, for only those get an identification to refer to.
bool TakeImage(const char* typed, AttachedFile& fileOut);

// A stored message to pass on; it has no name to show. As TakeFile.
bool TakeMessageFile(const char* path, AttachedFile& fileOut);

// A list of files for a send operation.
std::string FileList(const std::vector<AttachedFile>& files);

// Sets how lists are written and names are shown, for the next send of these files.
void SetFileParams(const std::vector<AttachedFile>& files);
