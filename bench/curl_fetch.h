// The same fetch by libcurl, for comparison: one handle and one session for all messages, each into
// memory.
#pragma once

#include <cstdint>
#include <curl/curl.h>
#include <glib.h>

// Once in a process, before the first session.
void CurlPrepare();

CURL* CurlOpen();
void CurlClose(CURL* curl);

// Replaces the content of target; true if the whole message is there.
bool CurlFetch(CURL* curl, uint16_t port, size_t number, GByteArray* target);
