// The head of a message (RFC 5322), one line per state, in the order of the wire.
#pragma once

#include "frame/driver.h"

int32_t HdrMailer(Channel& ch, uint32_t now);
int32_t HdrDate(Channel& ch, uint32_t now);
int32_t HdrTo(Channel& ch, uint32_t now);
int32_t HdrFrom(Channel& ch, uint32_t now);
int32_t HdrReplyTo(Channel& ch, uint32_t now);
int32_t HdrMessageId(Channel& ch, uint32_t now);
int32_t HdrSubject(Channel& ch, uint32_t now);
int32_t HdrExtra(Channel& ch, uint32_t now);
int32_t HdrCc(Channel& ch, uint32_t now);
int32_t HdrMimeVersion(Channel& ch, uint32_t now);
int32_t HdrMultipart(Channel& ch, uint32_t now);
