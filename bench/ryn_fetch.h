// Fetching and decoding by the library, as a host does it.
#pragma once

#include "bench/messages.h"

#include <cstdint>
#include <string>
#include <vector>

// Stored messages, one after the other, into the folder.
bool RynDecode(const std::vector<BenchMessage>& messages, const std::string& folder);

// The same messages from a server on 127.0.0.1, where the first one has the number given, in one
// session.
bool RynFetchByPop3(const std::vector<BenchMessage>& messages, uint16_t port, int32_t firstNumber,
                    const std::string& folder);
bool RynFetchByImap(const std::vector<BenchMessage>& messages, uint16_t port, int32_t firstNumber,
                    const std::string& folder);
