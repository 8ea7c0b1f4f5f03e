// The body of a message: boundaries of the nested multiparts (RFC 2046, 5.1), the plain alternative,
// the text line by line, the end of the message.
#pragma once

#include "frame/driver.h"

int32_t HdrEnd(Channel& ch, uint32_t now);
int32_t BodyOpen(Channel& ch, uint32_t now);
int32_t AltHeader(Channel& ch, uint32_t now);
int32_t AltSendText(Channel& ch, uint32_t now);
int32_t AltFileOpen(Channel& ch, uint32_t now);
int32_t AltFileRead(Channel& ch, uint32_t now);
int32_t AltNext(Channel& ch, uint32_t now);
int32_t BodyContentType(Channel& ch, uint32_t now);
int32_t BodyEncoding(Channel& ch, uint32_t now);
int32_t BodySource(Channel& ch, uint32_t now);
int32_t BodyTextStart(Channel& ch, uint32_t now);
int32_t BodyTextLine(Channel& ch, uint32_t now);
int32_t BodyFileOpen(Channel& ch, uint32_t now);
int32_t BodyFileLine(Channel& ch, uint32_t now);
int32_t MsgEnd(Channel& ch, uint32_t now);
int32_t MsgEndReply(Channel& ch, uint32_t now);
