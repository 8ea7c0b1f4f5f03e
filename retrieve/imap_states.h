// The IMAP dialogue (RFC 2060) in its older style: one tag for all commands of a session, one command
// at a time.
#pragma once

#include "frame/driver.h"

int32_t ImapStart(Channel& ch, uint32_t now);
int32_t ImapGreeting(Channel& ch, uint32_t now);
int32_t ImapLogin(Channel& ch, uint32_t now);
int32_t ImapLoginReply(Channel& ch, uint32_t now);
int32_t ImapSelect(Channel& ch, uint32_t now);
int32_t ImapSelectReply(Channel& ch, uint32_t now);
int32_t ImapSendCommand(Channel& ch, uint32_t now); // expunge, and questions about one message
int32_t ImapExpungeReply(Channel& ch, uint32_t now);
int32_t ImapFlagsReply(Channel& ch, uint32_t now);
int32_t ImapStoreFlags(Channel& ch, uint32_t now); // adds or removes
int32_t ImapSearch(Channel& ch, uint32_t now);
int32_t ImapSearchReply(Channel& ch, uint32_t now);
int32_t ImapGetSizeReply(Channel& ch, uint32_t now);
int32_t ImapGetUidReply(Channel& ch, uint32_t now);
