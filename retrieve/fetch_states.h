// Fetching and deleting a message, for POP3 and IMAP alike: the states pick their words by the
// channel's protocol.
#pragma once

#include "frame/driver.h"

int32_t FetchRaw(Channel& ch, uint32_t now);
int32_t FetchStart(Channel& ch, uint32_t now);
int32_t FetchLinesStart(Channel& ch, uint32_t now);
int32_t FetchDecode(Channel& ch, uint32_t now);
int32_t FetchEnd(Channel& ch, uint32_t now);
int32_t FetchLines(Channel& ch, uint32_t now);
int32_t DeleteMessage(Channel& ch, uint32_t now);
int32_t DeleteReply(Channel& ch, uint32_t now);
