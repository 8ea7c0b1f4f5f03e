// The opening of an SMTP session: greeting and hello (RFC 5321, 3.1 and 3.2).
#pragma once

#include "frame/driver.h"

int32_t SmtpConnect(Channel& ch, uint32_t now);
int32_t SmtpGreeting(Channel& ch, uint32_t now);
int32_t SmtpSendHello(Channel& ch, uint32_t now);
int32_t SmtpHelloReply(Channel& ch, uint32_t now);
