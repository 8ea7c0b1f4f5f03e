// The same message by libcurl, for comparison: an SMTP upload whose read function makes the MIME text
// and the Base64 lines of one attachment.
#pragma once

#include <cstdint>

// True if the server has taken the message.
bool CurlSendAttachment(uint16_t port, const char* file);
