// The POP3 dialogue (RFC 1939): greeting, login, STAT, LIST and UIDL.
#pragma once

#include "frame/driver.h"

int32_t Pop3Start(Channel& ch, uint32_t now);
int32_t Pop3Greeting(Channel& ch, uint32_t now);
int32_t Pop3Apop(Channel& ch, uint32_t now);
int32_t Pop3User(Channel& ch, uint32_t now);
int32_t Pop3UserReply(Channel& ch, uint32_t now);
int32_t Pop3Pass(Channel& ch, uint32_t now);
int32_t Pop3LoginReply(Channel& ch, uint32_t now);
int32_t Pop3Stat(Channel& ch, uint32_t now);
int32_t Pop3StatReply(Channel& ch, uint32_t now);
int32_t Pop3List(Channel& ch, uint32_t now);
int32_t Pop3ListReply(Channel& ch, uint32_t now);
int32_t Pop3Uidl(Channel& ch, uint32_t now);
int32_t Pop3UidlReply(Channel& ch, uint32_t now);
