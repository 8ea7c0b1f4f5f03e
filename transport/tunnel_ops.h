// The tunnel of a secure channel: a stunnel process that listens on a local port and speaks TLS to
// the real server. The library holds no TLS code.
#pragma once

#include <cstdint>

struct Channel;

// Forgets all settings of tunnels.
void ClearTunnelSettings();

// The folder of configurations; empty before rynSetProxySSL.
const char* TunnelFolder();

// True once a configuration has been written.
bool TunnelConfigWritten();

enum TunnelProtocol : int32_t { TUNNEL_SMTP, TUNNEL_POP3, TUNNEL_IMAP };

// Writes the channel's configuration for one service: 1 or RYN_ERR_CANNOT_CREATE_FILE.
int32_t WriteStunnelConfig(const Channel& ch, TunnelProtocol protocol, const char* server,
                           uint16_t acceptPort, uint16_t connectPort);

// Starts the channel's process unless it runs: 1 or RYN_ERR_PROXY_START.
int32_t StartStunnel(Channel& ch, TunnelProtocol protocol);

// Ends the channel's process, if there is one.
void KillStunnel(Channel& ch);
