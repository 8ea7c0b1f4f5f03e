// The settings of the process and their start values.
#include "frame/settings.h"

#include "include/ryn32.h"

uint32_t CommandGap = 25;
uint32_t DataGap = 0;
uint32_t ReplyTimeout = 30000;
uint32_t DataTimeout = 60000;
uint32_t FetchTimeout = 60000;
uint32_t ConnectTimeout = 30000;
uint32_t PollDelay = 100;
uint32_t DriverDelay = 0;
uint32_t ConnectAttempts = 3;

char RecipientDelimiter = ';';
char AttachDelimiter = ';';
char AttachNameDelimiter = '|';
char FileMarker = '@';

uint32_t MaxLineLength = 1000;
int32_t WrapLineLength = 900;
uint32_t KeepRawChars = 0;
uint32_t SendStandardHeaders = 1;
uint32_t SuppressToHeader = 0;
int8_t CommaInHeaderLists = 1;
char UserContentType[256 + 1] = "";
char UserTransferEncoding[256 + 1] = "";
char ZoneString[32 + 1] = "";

uint32_t NoAttachNote = 0;
uint32_t NoHeaderCopy = 0;
uint32_t ImapPartialFetch = 0;
uint32_t ImapTrace = 0;
uint32_t UnderscoreToSpace = 1;
std::atomic<uint32_t> UnderscoreCount = 0;
char HeaderPrefix[64 + 1] = "RYN:";

uint32_t ShowConnectSecrets = 0;
uint32_t ShowSecrets = 0;
uint32_t LogZone = 0;

char VersionText[64] = "";
char BoundarySeed[64] = "===RYN000000000===";
char ComputerName[15 + 1] = "";

std::atomic<int32_t> NullPointerSite = 0;
std::atomic<int32_t> EmptyStringSite = 0;

int32_t RefuseNull(int32_t site)
{
    NullPointerSite.store(site, std::memory_order_relaxed);
    return RYN_ERR_NULL_POINTER;
}

int32_t RefuseEmpty(int32_t site)
{
    EmptyStringSite.store(site, std::memory_order_relaxed);
    return RYN_ERR_EMPTY_ARGUMENT;
}

int32_t StoreShared(char* target, const char* source, int32_t count)
{
    int32_t i = 0;
    for (; i < count && source[i] != 0; i++)
        std::atomic_ref<char>(target[i]).store(source[i], std::memory_order_relaxed);
    std::atomic_ref<char>(target[i]).store(0, std::memory_order_relaxed);
    return i;
}

int32_t LoadShared(char* target, const char* source, int32_t count)
{
    int32_t i = 0;
    for (; i < count; i++) {
        char& byte = const_cast<char&>(source[i]); // an atomic reference wants a plain one
        target[i] = std::atomic_ref<char>(byte).load(std::memory_order_relaxed);
        if (target[i] == 0)
            return i;
    }
    target[i] = 0;
    return i;
}

uint32_t RestOfLineWait()
{
    constexpr uint32_t LongestWait = INT32_MAX; // beyond it ticks can't be compared
    return FetchTimeout > LongestWait / 4 ? LongestWait : 4 * FetchTimeout;
}
