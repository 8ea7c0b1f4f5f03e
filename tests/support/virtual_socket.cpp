// The network in memory. Handles are never used twice, so that a use behind the close is noticed.
#include "tests/support/virtual_socket.h"

#include "tests/support/fault.h"
#include "tests/support/virtual_clock.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <utility>

// Winsock's numbers, negated.
static constexpr int32_t Invalid = -10022;
static constexpr int32_t NoHandles = -10024;
static constexpr int32_t WouldBlock = -10035;
static constexpr int32_t AlreadyTrying = -10037;
static constexpr int32_t NotSocket = -10038;
static constexpr int32_t AddressNotAvailable = -10049;
static constexpr int32_t Unreachable = -10051;
static constexpr int32_t Reset = -10054;
static constexpr int32_t AlreadyConnected = -10056;
static constexpr int32_t NotConnected = -10057;
static constexpr int32_t TimedOut = -10060;
static constexpr int32_t Refused = -10061;
static constexpr int32_t HostNotFound = -11001;

static constexpr size_t WindowSize = 64 * 1024;
static constexpr int FirstHandle = 500;             // far from any descriptor of the process
static constexpr uint32_t ConnectPatience = 127000; // ms, how long a blocking connect tries

enum LinkState { LINK_NEW, LINK_CONNECTING, LINK_CONNECTED, LINK_FAILED, LINK_FAILURE_TOLD };

struct Link {
    LinkState State = LINK_NEW;
    bool Blocking = true;
    bool Accepted = false, ClientClosed = false, ServerClosed = false, WasReset = false;
    uint16_t Port = 0;
    uint32_t BoundAddress = 0; // 0 = none
    int32_t ConnectStatus = 0; // how the attempt will end
    uint32_t ConnectTick = 0;  // when it began
    uint32_t ConnectDelay = 0; // ms
    std::string ToServer, ToClient;
};

struct ConnectRule {
    int32_t Status;
    uint32_t Delay; // ms
};

struct Network {
    std::map<int, Link> Links;
    std::set<uint16_t> Listeners;
    std::map<std::string, uint32_t> Names;
    std::map<uint16_t, ConnectRule> Rules;
    size_t WindowToServer = WindowSize, WindowToClient = WindowSize;
    size_t SendLimit = 0;
    uint32_t LocalAddress = VirtualLoopback;
    int NextHandle = FirstHandle;
    VirtualCounts Counts = {};
};

static Network Net;

// --- set-up ---

void VirtualNetworkReset()
{
    Net = Network();
    Net.Names["localhost"] = VirtualLoopback;
    Net.Names["server.test"] = VirtualServerAddress;
}

void VirtualSetWindows(size_t toServer, size_t toClient)
{
    Net.WindowToServer = toServer;
    Net.WindowToClient = toClient;
}

void VirtualSetSendLimit(size_t bytes)
{
    Net.SendLimit = bytes;
}

void VirtualAddName(const char* name, uint32_t address)
{
    Net.Names[name] = address;
}

void VirtualSetLocalAddress(uint32_t address)
{
    Net.LocalAddress = address;
}

void VirtualSetConnect(uint16_t port, int32_t status, uint32_t delayMs)
{
    Net.Rules[port] = { status, delayMs };
}

const VirtualCounts& VirtualNetworkCounts()
{
    return Net.Counts;
}

int VirtualOpenSockets()
{
    return static_cast<int>(std::count_if(Net.Links.begin(), Net.Links.end(),
                                          [](const auto& e) { return !e.second.ClientClosed; }));
}

// --- the server's side ---

void VirtualListen(uint16_t port)
{
    Net.Listeners.insert(port);
}

static void DecideConnect(Link& link)
{
    if (link.State != LINK_CONNECTING || link.ConnectDelay == VirtualNever)
        return;
    if (osTickCount() - link.ConnectTick >= link.ConnectDelay)
        link.State = link.ConnectStatus == 0 ? LINK_CONNECTED : LINK_FAILED;
}

int VirtualAccept(uint16_t port)
{
    for (auto& [handle, link] : Net.Links) {
        DecideConnect(link);
        if (link.State != LINK_CONNECTED || link.Port != port || link.Accepted)
            continue;
        link.Accepted = true;
        return handle;
    }
    return 0;
}

std::string VirtualTake(int link)
{
    return std::exchange(Net.Links.at(link).ToServer, std::string());
}

size_t VirtualPut(int link, std::string_view bytes)
{
    Link& l = Net.Links.at(link);
    if (l.ServerClosed || l.WasReset || l.ClientClosed)
        return bytes.size(); // into the void, as a network does it
    const size_t room = Net.WindowToClient - std::min(Net.WindowToClient, l.ToClient.size());
    const size_t count = std::min(room, bytes.size());
    l.ToClient.append(bytes.substr(0, count));
    return count;
}

void VirtualClose(int link)
{
    Net.Links.at(link).ServerClosed = true;
}

void VirtualReset(int link)
{
    Net.Links.at(link).WasReset = true;
}

bool VirtualClientClosed(int link)
{
    return Net.Links.at(link).ClientClosed;
}

// --- platform.h ---

static Link* FindLink(int32_t handle)
{
    const auto found = Net.Links.find(handle);
    if (found == Net.Links.end() || found->second.ClientClosed)
        return nullptr;
    DecideConnect(found->second);
    return &found->second;
}

int32_t osNetworkStart()
{
    return 0;
}

int32_t osSocketCreate()
{
    ++Net.Counts.Creates;
    if (FaultStrikes(FAULT_SOCKET))
        return NoHandles;
    Net.Links[Net.NextHandle];
    return Net.NextHandle++;
}

int32_t osSocketBind(int32_t handle, uint32_t address, uint16_t)
{
    Link* const link = FindLink(handle);
    if (link == nullptr)
        return NotSocket;
    if (address != 0 && address != Net.LocalAddress && address >> 24 != 127)
        return AddressNotAvailable;
    link->BoundAddress = address;
    return 0;
}

static bool KnownAddress(uint32_t address)
{
    return address >> 24 == 127 || std::any_of(Net.Names.begin(), Net.Names.end(),
                                               [=](auto& e) { return e.second == address; });
}

// How a connect will end, and when.
static ConnectRule ConnectOutcome(uint32_t address, uint16_t port)
{
    ConnectRule rule = { 0, 0 };
    if (const auto found = Net.Rules.find(port); found != Net.Rules.end())
        rule = found->second;
    if (rule.Status == 0 && !KnownAddress(address))
        rule.Status = Unreachable;
    if (rule.Status == 0 && Net.Listeners.count(port) == 0)
        rule.Status = Refused;
    return rule;
}

int32_t osSocketConnect(int32_t handle, uint32_t address, uint16_t port)
{
    ++Net.Counts.Connects;
    Link* const link = FindLink(handle);
    if (link == nullptr)
        return NotSocket;
    if (link->State == LINK_CONNECTED)
        return AlreadyConnected;
    if (link->State == LINK_CONNECTING)
        return AlreadyTrying; // after a failure, though, the same socket may try again
    if (FaultStrikes(FAULT_CONNECT))
        return Unreachable;
    const ConnectRule rule = ConnectOutcome(address, port);
    link->State = LINK_CONNECTING;
    link->Port = port;
    link->ConnectStatus = rule.Status;
    link->ConnectTick = osTickCount();
    link->ConnectDelay = rule.Delay;
    if (!link->Blocking) {
        link->ConnectDelay = std::max(rule.Delay, 1u); // never decided at once
        return WouldBlock;
    }
    for (uint32_t waited = 0; link->State == LINK_CONNECTING; ++waited) {
        DecideConnect(*link);
        if (link->State == LINK_CONNECTING && waited >= ConnectPatience) {
            link->State = LINK_NEW;
            return TimedOut;
        }
        if (link->State == LINK_CONNECTING)
            VirtualClockAdvance(1);
    }
    if (link->State == LINK_FAILED)
        link->State = LINK_NEW; // the failure is told here, and the socket is as new
    return rule.Status;
}

int32_t osSocketSetBlocking(int32_t handle, bool blocking)
{
    Link* const link = FindLink(handle);
    if (link == nullptr)
        return NotSocket;
    link->Blocking = blocking;
    return 0;
}

static size_t SendRoom(const Link& link)
{
    return Net.WindowToServer - std::min(Net.WindowToServer, link.ToServer.size());
}

int32_t osSocketPoll(int32_t handle)
{
    ++Net.Counts.Polls;
    VirtualClockLook();
    const Link* const link = FindLink(handle);
    if (link == nullptr)
        return NotSocket;
    if (FaultStrikes(FAULT_POLL))
        return Invalid;
    // What a system's poll says of a failed connect and of a connection that was dropped.
    if (link->State == LINK_FAILED || link->WasReset)
        return OS_POLL_READ | OS_POLL_WRITE | OS_POLL_EXCEPT;
    if (link->State != LINK_CONNECTED)
        return link->State == LINK_CONNECTING ? 0 : OS_POLL_READ | OS_POLL_WRITE;
    int32_t answers = 0;
    if (!link->ToClient.empty() || link->ServerClosed)
        answers |= OS_POLL_READ;
    if (SendRoom(*link) > 0)
        answers |= OS_POLL_WRITE;
    return answers;
}

// What a read of a connection without bytes tells: it never waits.
static int32_t StatusOfRead(const Link& link)
{
    if (!link.ToClient.empty() || link.ServerClosed)
        return 0;
    return link.WasReset ? Reset : WouldBlock;
}

static int32_t ReadBytes(int32_t handle, void* buffer, int32_t count, bool keep)
{
    Link* const link = FindLink(handle);
    if (link == nullptr)
        return NotSocket;
    if (buffer == nullptr || count < 0)
        return Invalid;
    if (link->State == LINK_FAILED) { // a system tells it to the first who reads, then only the end
        link->State = LINK_FAILURE_TOLD;
        return link->ConnectStatus;
    }
    if (link->State != LINK_CONNECTED)
        return link->State == LINK_FAILURE_TOLD ? 0 : NotConnected;
    if (FaultStrikes(FAULT_RECEIVE))
        return Reset;
    if (const int32_t status = StatusOfRead(*link); status < 0)
        return status;
    const size_t taken = std::min(static_cast<size_t>(count), link->ToClient.size());
    memcpy(buffer, link->ToClient.data(), taken);
    if (!keep)
        link->ToClient.erase(0, taken);
    return static_cast<int32_t>(taken);
}

int32_t osSocketReceive(int32_t handle, void* buffer, int32_t count)
{
    ++Net.Counts.Receives;
    return ReadBytes(handle, buffer, count, false);
}

int32_t osSocketPeek(int32_t handle, void* buffer, int32_t count)
{
    ++Net.Counts.Peeks;
    return ReadBytes(handle, buffer, count, true);
}

int32_t osSocketSend(int32_t handle, const void* bytes, int32_t count, uint32_t waitMs)
{
    ++Net.Counts.Sends;
    Link* const link = FindLink(handle);
    if (link == nullptr)
        return NotSocket;
    if (bytes == nullptr || count <= 0)
        return Invalid;
    if (link->State != LINK_CONNECTED)
        return NotConnected;
    if (FaultStrikes(FAULT_SEND))
        return Reset;
    for (uint32_t waited = 0; SendRoom(*link) == 0 && !link->WasReset; ++waited) {
        if (waited >= waitMs)
            return TimedOut;
        VirtualClockAdvance(1);
    }
    if (link->WasReset)
        return Reset;
    if (link->ServerClosed) {
        link->WasReset = true; // the first send is taken, the answer to it is the reset
        return count;
    }
    size_t taken = std::min(static_cast<size_t>(count), SendRoom(*link));
    if (Net.SendLimit != 0)
        taken = std::min(taken, Net.SendLimit);
    link->ToServer.append(static_cast<const char*>(bytes), taken);
    return static_cast<int32_t>(taken);
}

int32_t osSocketClose(int32_t handle)
{
    ++Net.Counts.Closes;
    Link* const link = FindLink(handle);
    if (link == nullptr)
        return NotSocket;
    link->ClientClosed = true;
    return FaultStrikes(FAULT_CLOSE) ? Invalid : 0;
}

int32_t osSocketLocalAddress(int32_t handle, uint32_t& addressOut)
{
    const Link* const link = FindLink(handle);
    if (link == nullptr)
        return NotSocket;
    addressOut = link->BoundAddress != 0 ? link->BoundAddress : Net.LocalAddress;
    return 0;
}

int32_t osResolve(const char* name, uint32_t& addressOut)
{
    ++Net.Counts.Resolves;
    unsigned a, b, c, d;
    char rest;
    if (sscanf(name, "%3u.%3u.%3u.%3u%c", &a, &b, &c, &d, &rest) == 4 && (a | b | c | d) < 256) {
        addressOut = a << 24 | b << 16 | c << 8 | d;
        return 0;
    }
    const auto found = Net.Names.find(name);
    if (found == Net.Names.end() || found->second == 0)
        return HostNotFound;
    addressOut = found->second;
    return 0;
}

int32_t osHostName(char* name, size_t capacity)
{
    if (name == nullptr || capacity == 0)
        return Invalid;
    snprintf(name, capacity, "%s", "tester.test");
    return 0;
}
