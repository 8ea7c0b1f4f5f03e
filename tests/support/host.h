// What tests do as a host of the library, and the frame of every wire test: a fresh network, a
// folder of its own, and at the end nothing left open.
#pragma once

#include "include/ryn32.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

constexpr uint16_t HostPort = 2525; // where scripts of SMTP listen

// Before each case: clock, network, peers and faults as new. Behind it: the scripts were played to
// their end, rynRelease has closed every socket and file and freed every block.
struct HostTest : ::testing::Test {
    void SetUp() override;
    void TearDown() override;
    void Renew(); // ends one round of a case and begins the next, by the same rules
    std::string Path(const std::string& name) const; // in Folder
    std::string Folder;
    int DescriptorsBefore = 0;
};

// Attaches channels and sets their SMTP port to HostPort.
void HostAttach(uint32_t channels = 1);

void HostSet(uint32_t channel, int32_t code, uint32_t value); // rynIntegerParam, expects 1
int32_t HostSetText(uint32_t channel, uint32_t code, const std::string& text);

// Ends everything and tells what is left, "" for nothing: sockets, blocks, descriptors.
std::string HostReleaseLeaves(int descriptorsBefore);

// The root of all boundaries of the attached library.
std::string HostSeed();

// A log with '#' for each tick number, for the seed of boundaries and for the process's number.
std::string HostLog(const std::string& path);

// Calls rynDriver until the result is 0 or negative, a virtual ms apart; all the results.
std::vector<int32_t> HostDrive(uint32_t channel);

// Results as one text, without DRIVER_NOT_YET and without repetitions: "101 102 0".
std::string HostPathOf(const std::vector<int32_t>& results);

// Drives if the channel is in manual driving: the final result, or the operation's own.
int32_t HostFinish(uint32_t channel, int32_t result, bool manual);

std::string HostDebug(uint32_t channel, int32_t code);
std::string HostErrorText(uint32_t channel, int32_t status);

// n times the text.
std::string Repeat(const std::string& text, size_t n);
