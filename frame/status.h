// Status texts, for the rest of the library. The codes themselves stand in ryn32.h.
#pragma once

#include <cstdint>

struct Channel;

// rynErrorText behind its guards.
int32_t ErrorText(Channel& ch, int32_t code, char* buffer, int32_t size);

// Put a file's name into the text of RYN_ERR_CANNOT_CREATE_FILE and RYN_ERR_CANNOT_OPEN_FILE, just
// before a state fails with it. The texts belong to the process: the last failure is shown.
void NoteCreateFailure(const char* name);
void NoteOpenFailure(const char* name);
