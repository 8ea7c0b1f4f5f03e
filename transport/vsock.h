// Virtual sockets: a vSock is a small number that indexes a table of records, each owning one TCP
// connection (IPv4) and its receive ring, or standing for a file that is read or written in the
// place of a peer. This layer knows nothing of channels and mail. A number that is out of range
// answers RYN_ERR_NO_SUCH_VSOCK; network failures are negated Winsock numbers.
#pragma once

#include "include/ryn32.h"

#include <cstddef>
#include <cstdint>

// --- results of this layer; the negative ones stay inside, but for log lines ---
constexpr int32_t VS_OK = 1000;
constexpr int32_t VS_ERR_NO_SLOT = -1002; // every record taken
constexpr int32_t VS_ERR_BAD_WAIT_KIND = -1004;
constexpr int32_t VS_ERR_NO_SOCKET = -1005;
constexpr int32_t VS_ERR_BAD_OPTION = -1006;
constexpr int32_t VS_ERR_NOT_OPEN = -1007; // not in use; no usable address found
constexpr int32_t VS_ERR_NAME_TOO_LONG = -1008;
constexpr int32_t VS_ERR_BAD_LENGTH = -1010; // below 1
constexpr int32_t VS_ERR_NO_FILE = -1011;    // file to attach can't be had

enum WaitKind : int32_t { VS_WAIT_READ = 1, VS_WAIT_WRITE = 2, VS_WAIT_EXCEPT = 3 };

constexpr int32_t VS_OPT_LOG_HANDLE = 1001;
constexpr int32_t VS_OPT_WRITE_WAIT = 1002;
constexpr int32_t VS_OPT_SHOW_SECRETS = 1003; // without a record only
constexpr int32_t VS_INFO_VERSION = 1100;
constexpr int32_t VS_INFO_BUILD = 1101;
constexpr int32_t VS_INFO_IS_OPEN = 1102;

constexpr int32_t RingCapacity = 8190; // bytes held; one receive never brings more
constexpr size_t HostNameCapacity = 256;

// Values of Socket that are no handle of the system's, which are above 2.
constexpr int32_t SOCKET_FREE = 0;
constexpr int32_t SOCKET_CLAIMED = 1; // record taken, for a file or for a socket about to be made

constexpr int32_t GatherCapacity = 65536; // bytes that wait to be sent together

struct VSockRecord {
    int32_t Number;
    int32_t SourceFile; // virtual file that is read in the place of a peer; 0 = none
    int32_t TargetFile; // likewise written
    int32_t Socket;     // SOCKET_FREE, SOCKET_CLAIMED or a handle
    int32_t NonBlocking;
    int32_t InUse;         // 1 from vsCreate to a clean vsClose
    int32_t RingHead;      // next byte to hand out; both 0 when the ring is empty
    int32_t RingTail;      // behind the last byte
    uint8_t KnownWritable; // 1 = found writable, and nothing was sent since
    uint8_t KnownReadable; // 1 = found readable, and nothing was received since
    uint8_t KnownSilent;   // 1 = the last look, with nothing sent since, found nothing to read
    uint8_t HasFailed;     // 1 = a look has met the error of a failed connect or a reset
    uint8_t Gathers;       // 1 = writes are gathered; set while the library drives by itself
    int32_t SendFailure;   // status of a send of gathered bytes that failed; 0 = none
    int32_t GatheredBytes; // in Gathered
    int32_t LogHandle;     // of the session log, not owned; 0 = no log
    uint32_t PollDelay;    // ms between two looks at a silent socket
    uint32_t WriteWait;    // ms that a write may wait for the socket to be usable
    uint32_t RemoteIP;     // host order
    uint32_t LocalIP;
    uint16_t RemotePort;
    uint16_t LocalPort;
    char HostName[HostNameCapacity]; // 255 chars
    char Ring[RingCapacity + 1];     // received bytes, zeros turned to blanks
    char Gathered[GatherCapacity];
};

// Readies count records, 65 at most, and the network: VS_OK or a negated Winsock number.
int32_t vsInit(uint32_t count, uint32_t pollDelay);

// Closes whatever connection no channel holds any more.
void vsShutdown();

// The record of a number, or null for one out of range.
VSockRecord* vsRecord(int32_t vs);

// A new blocking socket with an empty ring: its number (the lowest free one), VS_ERR_NO_SLOT,
// VS_ERR_NO_SOCKET. localIP in host order, 0 = not bound.
int32_t vsCreate(uint32_t localIP);

int32_t vsBind(int32_t vs, uint32_t localIP, uint16_t localPort);

// Notes a name of up to 255 chars and finds its address: VS_OK, VS_ERR_NAME_TOO_LONG,
// RYN_ERR_SERVER_NOT_FOUND.
int32_t vsSetHost(int32_t vs, const char* name);

// Looks the name up again and connects: VS_OK, also when a non-blocking connect has begun.
int32_t vsConnect(int32_t vs, const char* name, uint16_t port);

int32_t vsSetBlocking(int32_t vs, bool blocking);

// One look without waiting: 1 ready, 0 not. A record with a file is ready for every kind. What an
// earlier look has told and nothing has changed is not asked again.
int32_t vsSelect(int32_t vs, int32_t kind);

// 1 if the connection can be used: it takes data, and the peer has not closed, or unread data is
// left. Turns the socket to blocking mode when it is.
int32_t vsIsConnected(int32_t vs);

// Lets the next write ask the system again whether the peer is still there: what an earlier look has
// told of that ages.
void vsForgetSilence(int32_t vs);

// vsIsConnected, tried for some ms: 1 or 0.
int32_t vsWaitConnected(int32_t vs, uint32_t ms);

// Closes the socket and frees the record; takes 500 ms. VS_OK, VS_ERR_NOT_OPEN.
int32_t vsClose(int32_t vs);

// The dotted quad of either end: its length, 0 on failure.
int32_t vsLocalAddress(int32_t vs, char* text, int32_t capacity);
int32_t vsRemoteAddress(int32_t vs, char* text, int32_t capacity);

int32_t vsSetOption(int32_t vs, int32_t option, int32_t value);
int32_t vsGetInfo(int32_t vs, int32_t query);

// Attaches a file to a record and claims the record for it: VS_OK, VS_ERR_NO_FILE, or
// VS_ERR_NO_SLOT while a connection has the record. Closing gives the record up.
int32_t vsOpenSource(int32_t vs, const char* name);
int32_t vsOpenTarget(int32_t vs, const char* name);
int32_t vsCloseSource(int32_t vs);
int32_t vsCloseTarget(int32_t vs);

// The machine's name: 1, RYN_ERR_NO_HOST_NAME, or a negated Winsock number.
int32_t vsGetHostName(char* text, int32_t capacity);

// Writes a text to the record's session log, if it has one.
void vsLog(int32_t vs, const char* text);

// Formats a line of at most 1023 chars and writes it there; without a log nothing is formatted.
void vsLogFormat(const VSockRecord& record, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

// The four parts of a dotted quad in host order. What stands behind the fourth is not looked at,
// and an empty part is 0.
bool IsDottedQuad(const char* text);
uint32_t ParseDottedQuad(const char* text);
int32_t FormatDottedQuad(uint32_t address, char* text, int32_t capacity);
