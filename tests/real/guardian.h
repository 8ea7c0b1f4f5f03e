// What the real servers of the tests have in common: a folder, free ports, and a guardian process.
//
// The guardian stands between the test and the server. It stops the server and removes its folder
// when the test says so, or when the test's process is gone for whatever reason.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

// Another process may take a port between its choice and the server's start.
constexpr int StartAttempts = 5;

// The account that servers work under: the test's own, but never root, for no server delivers or
// serves mail as root.
struct ServerAccount {
    std::string User, Group; // User empty: there is none
    uid_t Uid = 0;
    gid_t Gid = 0;
};

ServerAccount FindServerAccount();

// Gives a file or folder to the account, where that takes a change. False if that fails.
bool GiveToServer(const std::string& path, const ServerAccount& account);

// Makes /tmp/NAME-XXXXXX and folders in it, open to all and owned by the account. Returns an empty
// text, or why it failed.
std::string MakeServerFolder(const std::string& name, const std::vector<std::string>& folders,
                             const ServerAccount& account, std::string& folderOut);

// Writes a file from a template, every first word of a pair replaced by its second.
void WriteFromTemplate(const std::string& path, const std::string& templatePath,
                       const std::vector<std::pair<std::string, std::string>>& words);

// Loopback ports that nobody has, all different.
std::vector<uint32_t> FreePorts(size_t count);

// Starts a guardian, and under it a command that keeps its state in the folder. Call it while the
// process has one thread. The guardian's number and the handle by which it is stopped come out.
bool StartGuardian(const std::string& folder, const std::vector<std::string>& command,
                   pid_t& guardianOut, int& lifeHandleOut);

// Stops the server with all its sessions and removes the folder.
void StopGuardian(pid_t& guardian, int& lifeHandle);

// Waits until the server itself says in its log that it has started (a stranger on the same port
// would answer just as well) and listens on each of the ports; a port 0 counts for nothing. False
// if the guardian has ended instead; its number is 0 then.
bool WaitUntilListening(pid_t& guardian, const std::string& log, const std::string& saying,
                        const std::vector<uint32_t>& ports);

// How to wait for what comes by itself: until the time is over that no working server needs.
bool PatienceIsOver(std::chrono::steady_clock::time_point begin);
void Pause();

// The files of some folders of a Maildir in order of arrival, each with its path.
std::vector<std::string> ListMaildir(const std::vector<std::string>& folders);
