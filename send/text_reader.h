// The one way in which message text is read for sending: a window over a text in memory or an open
// file, and lines made for the wire out of it.
#pragma once

#include <cstdint>

struct Channel;

// The longest line that ReadMsgLine makes: what CommandBuffer holds beside a line end and a dot.
constexpr uint32_t LongestTextLine = 65520;

// Begins to read: from MessageText (inMemory) or from AttachHandle.
void StartMsgText(Channel& ch, bool inMemory);

// The next line for the wire in CommandBuffer, quoted and folded as the message wants it, with a
// second dot at its head if it begins with one (RFC 5321, 4.5.2). Its length; -1 at the end.
int32_t ReadMsgLine(Channel& ch);

// Opens the message text or attachment: the handle, kept in AttachHandle, or a status. The name is
// read up to its first line end.
int32_t OpenAttachFile(Channel& ch, const char* name, bool utf8);
void CloseAttachFile(Channel& ch);

// The same for the plain alternative and AltHandle.
int32_t OpenAltFile(Channel& ch, const char* name);
void CloseAltFile(Channel& ch);
