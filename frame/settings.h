// The settings of the process: plain variables with their start values, written by rynIntegerParam
// and rynStringParam while no channel runs, read by every channel. They keep their values through
// rynRelease.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

// --- waits, in ms ---
extern uint32_t CommandGap;     // behind a command
extern uint32_t DataGap;        // behind a line of message data
extern uint32_t ReplyTimeout;   // for a reply; rynAttach adds 2000 a channel to these three
extern uint32_t DataTimeout;    // for room to send message data
extern uint32_t FetchTimeout;   // for a line of a fetched message
extern uint32_t ConnectTimeout; // for a connection to stand
extern uint32_t PollDelay;      // between two looks at a silent socket
extern uint32_t DriverDelay;    // at the head of every rynDriver
extern uint32_t ConnectAttempts;

// The wait for the rest of a line whose beginning has come, and for all folds of a header together.
uint32_t RestOfLineWait();

// --- lists and names ---
extern char RecipientDelimiter;
extern char AttachDelimiter;
extern char AttachNameDelimiter;
extern char FileMarker;

// --- shape of generated messages ---
extern uint32_t MaxLineLength; // longest line where lines fold
extern int32_t WrapLineLength; // from here on a blank ends a line; may be below 0
extern uint32_t KeepRawChars;
extern uint32_t SendStandardHeaders;
extern uint32_t SuppressToHeader;
extern int8_t CommaInHeaderLists;
extern char UserContentType[256 + 1];
extern char UserTransferEncoding[256 + 1];
extern char ZoneString[32 + 1]; // empty = to be worked out; filled by any channel's thread

// --- fetching and decoding ---
extern uint32_t NoAttachNote;
extern uint32_t NoHeaderCopy;
extern uint32_t ImapPartialFetch;
extern uint32_t ImapTrace;
extern uint32_t UnderscoreToSpace;
extern std::atomic<uint32_t> UnderscoreCount;
extern char HeaderPrefix[64 + 1];

// --- log ---
extern uint32_t ShowConnectSecrets; // secrets in the log lines of operations
extern uint32_t ShowSecrets;        // secrets in the log lines of what is sent
extern uint32_t LogZone;

// --- identity of the build ---
constexpr uint32_t CID = 0;
inline constexpr char VersionStamp[] = "$VER 0841 BLD 0007 JAN23 RYN$";

// Four hexadecimal digits of the stamp.
constexpr uint32_t StampNumber(size_t index)
{
    uint32_t value = 0;
    for (size_t i = index; i < index + 4; i++)
        value = value * 16 + static_cast<uint32_t>(VersionStamp[i] - '0');
    return value;
}
constexpr uint32_t VersionNumber = StampNumber(5); // one digit a place: 0x0841 is 8.4.1
constexpr uint32_t BuildNumber = StampNumber(14);

extern char VersionText[64];
extern char BoundarySeed[64]; // root of all MIME boundaries, formed by rynAttach
extern char ComputerName[15 + 1];

// --- sites: which guard last refused a null pointer or an empty text ---
extern std::atomic<int32_t> NullPointerSite;
extern std::atomic<int32_t> EmptyStringSite;

// Notes the site and returns RYN_ERR_NULL_POINTER or RYN_ERR_EMPTY_ARGUMENT.
int32_t RefuseNull(int32_t site);
int32_t RefuseEmpty(int32_t site);

// Copies into and out of a text that several threads may touch at once: no byte is torn, the result
// is terminated, and two writers may mix. At most count chars; the chars copied are returned.
int32_t StoreShared(char* target, const char* source, int32_t count);
int32_t LoadShared(char* target, const char* source, int32_t count);
