// The server of the host's target: SMTP, POP3 and IMAP, any number of connections at once. It
// answers as a server does, unless its mood is another.
#pragma once

#include <cstdint>
#include <string>

// The ports: of the protocols, and where a tunnel to each of them would listen.
constexpr uint16_t HostPeerPorts[] = { 25, 110, 143, 5025, 5110, 5143 };

// A fresh server. Each answer takes the next byte of the moods: below 128 an honest one, behind the
// end, too. From now on the clock runs faster the longer an operation waits.
void HostPeerStart(const std::string& moods);

// An operation begins: one that waits two million times is called endless.
void HostPeerBegin(const char* operation);

// The last message that SMTP has brought.
const std::string& HostPeerMail();
