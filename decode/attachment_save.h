// The files into which the parts of a fetched message go, and the lists of them that the host reads.
#pragma once

#include <cstdint>

struct Channel;

// Gives a part that has not named itself a name.
void SetDefaultFilename(Channel& ch, const char* name);

// Makes the file for the part that calls itself Filename: 1 = AttachHandle is open, 0 = it could not
// be made, and the part's body goes to the message file.
int32_t CreateAttachment(Channel& ch);

// Makes a file for a Base64 part without a name, if the host wants such parts saved.
void StartDefaultAttachment(Channel& ch);

// Closes the file and no more.
void CloseAttachmentFile(Channel& ch);

// Ends an attachment: file, note in the message file, lists. 1 = there was one.
int32_t CloseAttachment(Channel& ch);
