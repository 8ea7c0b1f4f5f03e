// The header of a message, as somebody wants to read it.
#pragma once

#include <string>

// The value of a header in the head of a message, fit for a terminal: folds joined, encoded words
// (RFC 2047) of the usual charsets decoded. Empty: there is none. Of several the first counts.
std::string ShownHeader(const std::string& head, const std::string& name);
