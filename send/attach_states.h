// Inline images and attachments: each entry of the two lists becomes a MIME part, its content
// streamed in Base64 lines or line by line.
#pragma once

#include "frame/driver.h"

int32_t AttBoundary(Channel& ch, uint32_t now);
int32_t AttContentType(Channel& ch, uint32_t now);
int32_t AttEncoding(Channel& ch, uint32_t now);
int32_t AttDisposition(Channel& ch, uint32_t now);
int32_t AttBlank(Channel& ch, uint32_t now);
int32_t AttOpen(Channel& ch, uint32_t now);
int32_t AttBase64(Channel& ch, uint32_t now);
int32_t AttLines(Channel& ch, uint32_t now);
