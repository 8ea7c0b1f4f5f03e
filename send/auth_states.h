// Logging in to an SMTP server (RFC 4954): the dialogue of each method.
#pragma once

#include "frame/driver.h"

int32_t AuthCramStart(Channel& ch, uint32_t now);
int32_t AuthCramChallenge(Channel& ch, uint32_t now);
int32_t AuthCramResponse(Channel& ch, uint32_t now);
int32_t AuthCramReply(Channel& ch, uint32_t now);
int32_t AuthLoginStart(Channel& ch, uint32_t now);
int32_t AuthLoginUser(Channel& ch, uint32_t now);
int32_t AuthLoginPassword(Channel& ch, uint32_t now);
int32_t AuthLoginReply(Channel& ch, uint32_t now);
int32_t AuthPlainSend(Channel& ch, uint32_t now);
int32_t AuthPlainReply(Channel& ch, uint32_t now);
int32_t AuthXOAuth2Send(Channel& ch, uint32_t now);
int32_t AuthXOAuth2Reply(Channel& ch, uint32_t now);
