// The same fetch by libcurl, for comparison: one handle and one session for all messages, each into
// memory.
#pragma once

#include <cstdint>
#include <curl/curl.h>
#include <glib.h>
#include <string>

// Once in a process, before the first session.
void CurlPrepare();

CURL* CurlOpen();
void CurlClose(CURL* curl);

// The address of a message: by POP3 "pop3://127.0.0.1:PORT/NUMBER".
std::string Pop3Address(uint16_t port, size_t number);
std::string ImapAddress(uint16_t port, size_t number);

// Replaces the content of target; true if the whole message is there.
bool CurlFetch(CURL* curl, const std::string& address, GByteArray* target);
