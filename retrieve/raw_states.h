// A command of the host's own and its reply.
#pragma once

#include "frame/driver.h"

int32_t SmtpRaw(Channel& ch, uint32_t now);
int32_t SmtpRawReply(Channel& ch, uint32_t now);
int32_t Pop3Raw(Channel& ch, uint32_t now);
int32_t Pop3RawReply(Channel& ch, uint32_t now);
int32_t ImapRaw(Channel& ch, uint32_t now);
int32_t ImapRawReply(Channel& ch, uint32_t now);
