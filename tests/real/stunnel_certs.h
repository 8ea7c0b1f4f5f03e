// Certificates of a test's own, made by the openssl program: authorities, servers that they vouch
// for, and a responder that tells whether a certificate is still good.
#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>

// Makes FOLDER/NAME.pem and FOLDER/NAME.key. Returns an empty text, or why that failed.
std::string MakeAuthority(const std::string& folder, const std::string& name);

// Makes FOLDER/NAME.pem, key and certificate in one file, for a server of that host name. It names the
// responder at this loopback port; 0: none.
std::string MakeCertificate(const std::string& folder, const std::string& authority,
                            const std::string& name, const std::string& host,
                            uint32_t responderPort);

// Serves the certificate status protocol (RFC 6960) on a loopback port, in a process of its own, for
// all certificates of the authority: good, or revoked. Returns the process, for StopResponder.
pid_t StartResponder(const std::string& folder, const std::string& authority, uint32_t port,
                     bool isRevoked);
void StopResponder(pid_t responder);
