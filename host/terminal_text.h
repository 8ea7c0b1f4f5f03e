// Texts of others, made fit for a terminal: what a server or a message brings may hold chars that
// move the cursor, hide text or answer in the user's place.
#pragma once

#include <string>

// The text with '?' in the place of every control char, of every char that turns the direction of
// writing, and of bytes that are no UTF-8.
std::string ForTerminal(const std::string& text);

bool HasControlChar(const std::string& text);
