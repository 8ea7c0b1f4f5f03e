// The SMTP envelope (RFC 5321, 3.3): sender, recipients, DATA; RSET, VRFY, and the end of a session.
#pragma once

#include "frame/driver.h"

int32_t SendCommand(Channel& ch, uint32_t now); // DATA, RSET, QUIT
int32_t SmtpMailFrom(Channel& ch, uint32_t now);
int32_t SmtpMailReply(Channel& ch, uint32_t now);
int32_t SmtpNextRecipient(Channel& ch, uint32_t now);
int32_t SmtpRcptTo(Channel& ch, uint32_t now);
int32_t SmtpRcptReply(Channel& ch, uint32_t now);
int32_t SmtpDataReply(Channel& ch, uint32_t now);
int32_t SmtpRsetReply(Channel& ch, uint32_t now);
int32_t SendQuit(Channel& ch, uint32_t now); // of every protocol
int32_t QuitReply(Channel& ch, uint32_t now);
int32_t VrfyNext(Channel& ch, uint32_t now);
int32_t VrfySend(Channel& ch, uint32_t now);
int32_t VrfyReply(Channel& ch, uint32_t now);
