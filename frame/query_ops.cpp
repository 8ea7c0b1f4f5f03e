// rynStatistics and rynDebug: what a host may ask the library.
#include "codec/text.h"
#include "frame/channel.h"
#include "frame/log.h"
#include "frame/memory.h"
#include "frame/settings.h"
#include "platform/platform.h"
#include "retrieve/imap_response.h"
#include "send/header_lines.h"
#include "transport/channel_io.h"
#include "transport/vfile.h"
#include "transport/vsock.h"

// --- numbers ---

// The counters that are told without an attached library.
static bool ProcessNumber(uint32_t code, int32_t& valueOut)
{
    constexpr auto relaxed = std::memory_order_relaxed;
    switch (code) {
    case RYN_STAT_BLOCKS_ALLOCATED:
        valueOut = static_cast<int32_t>(BlocksAllocated.load(relaxed));
        return true;
    case RYN_STAT_BLOCKS_FREED:
        valueOut = static_cast<int32_t>(BlocksFreed.load(relaxed));
        return true;
    case RYN_STAT_BYTES_ALLOCATED:
        valueOut = static_cast<int32_t>(BytesAllocated.load(relaxed));
        return true;
    case RYN_STAT_LAST_FREED_SIZE:
        valueOut = static_cast<int32_t>(LastFreedSize.load(relaxed));
        return true;
    case RYN_STAT_NULL_SITE:
        valueOut = NullPointerSite.load(relaxed);
        return true;
    case RYN_STAT_EMPTY_SITE:
        valueOut = EmptyStringSite.load(relaxed);
        return true;
    default:
        return false;
    }
}

static int32_t SocketState(Channel& ch)
{
    // Any answer but 0 counts, also that there is no socket or that a file stands in its place.
    if (ChannelSelect(ch, VS_WAIT_EXCEPT) != 0)
        return RYN_ERR_CONNECT_FAILED;
    return ChannelSelect(ch, VS_WAIT_WRITE);
}

static int32_t ChannelNumberOf(Channel& ch, uint32_t code)
{
    switch (code) {
    case RYN_STAT_DRIVER_CALLS:
        return static_cast<int32_t>(ch.DriverCalls);
    case RYN_STAT_REPLY_CODE:
        return static_cast<int32_t>(ch.ReplyCode);
    case RYN_STAT_SOCK_CODE:
        return ch.LastSockCode;
    case RYN_STAT_MSG_BYTES_IN:
        return static_cast<int32_t>(ch.MsgBytesRead);
    case RYN_STAT_ATTACH_BYTES_IN:
        return static_cast<int32_t>(ch.AttachBytesRead);
    case RYN_STAT_BYTES_IN:
        return static_cast<int32_t>(ch.MsgBytesRead + ch.AttachBytesRead);
    case RYN_STAT_MSG_BYTES_OUT:
        return static_cast<int32_t>(ch.MsgBytesSent);
    case RYN_STAT_ATTACH_BYTES_OUT:
        return static_cast<int32_t>(ch.AttachBytesSent);
    case RYN_STAT_BYTES_OUT:
        return static_cast<int32_t>(ch.MsgBytesSent + ch.AttachBytesSent);
    case RYN_STAT_VERSION:
        return VersionNumber;
    case RYN_STAT_EMAIL_COUNT:
        return ch.EmailCount;
    case RYN_STAT_MESSAGE_SIZE:
        return ch.MessageSize;
    case RYN_STAT_BUFFER_USED:
        return ch.UserBufferUsed;
    case RYN_STAT_SOCKET_STATE:
        return SocketState(ch);
    case RYN_STAT_ATTACH_COUNT:
        return ch.AttachCount;
    case RYN_STAT_VERIFY_RESULT:
        return ch.VerifyResult;
    case RYN_STAT_BUILD:
        return BuildNumber;
    case RYN_STAT_VSOCK:
        return ch.VSock;
    case RYN_STAT_ACCEPTED_RECIPIENTS:
        return ch.AcceptedRecipients;
    case RYN_STAT_UID_VALIDITY:
        return ch.ImapUidValidity;
    case RYN_STAT_CID:
        return static_cast<int32_t>(CID);
    default:
        return -1;
    }
}

int32_t rynStatistics(uint32_t channel, uint32_t code)
{
    int32_t value = 0;
    if (channel == 0 && ProcessNumber(code, value))
        return value;
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    return ChannelNumberOf(*ChannelTable[channel], code);
}

// --- texts ---

// The last reply; the result leaves its line end out, the buffer keeps it.
static int32_t TellLastReply(const Channel& ch, char* buffer, int32_t size)
{
    const bool isCollected = ch.ChannelNumber == 0 && ch.Protocol == 'I';
    const int32_t stored = CopyText(buffer, isCollected ? ImapCollector : ch.LastReply, size);
    const bool hasLineEnd = stored >= 2 && buffer[stored - 2] == '\r' && buffer[stored - 1] == '\n';
    return hasLineEnd ? stored - 2 : stored;
}

static int32_t TellDate(const Channel& ch, char* buffer, int32_t size)
{
    char line[FormatCapacity];
    FormatDateLine(&ch, line);
    CopyText(buffer, line, size);
    return 0;
}

static int32_t TellWindowsError(char* buffer, int32_t size)
{
    char text[FormatCapacity];
    osErrorText(LastFileError(), text, sizeof text);
    return CopyText(buffer, text, size);
}

static int32_t TellEmailLines(const Channel& ch, char* buffer, int32_t size)
{
    const uint32_t row =
        static_cast<uint32_t>(ch.ChannelNumber * SlotsPerChannel + SLOT_EMAIL_LINES);
    const char* lines = static_cast<const char*>(BlockPointer(row));
    if (lines == nullptr)
        return RefuseNull(102);
    return BlockSize(row) == 0 ? 0 : CopyText(buffer, lines, size);
}

static int32_t TellText(Channel& ch, int32_t code, char* buffer, int32_t size)
{
    switch (code) {
    case RYN_DEBUG_DATE:
        return TellDate(ch, buffer, size);
    case RYN_DEBUG_LAST_REPLY:
        return TellLastReply(ch, buffer, size);
    case RYN_DEBUG_SERVER_ADDRESS:
        return vsRemoteAddress(ch.VSock, buffer, size);
    case RYN_DEBUG_LOCAL_ADDRESS:
        return vsLocalAddress(ch.VSock, buffer, size);
    case RYN_DEBUG_ATTACH_LIST:
        return CopyText(buffer, ch.AttachList, size);
    case RYN_DEBUG_LAST_RECIPIENT:
        return CopyText(buffer, ch.LastRecipient, size);
    case RYN_DEBUG_AUTH_LINES:
        return CopyText(buffer, ch.AuthLines, size);
    case RYN_DEBUG_TYPE_LIST:
        return CopyText(buffer, ch.TypeList, size);
    case RYN_DEBUG_ID_LIST:
        return CopyText(buffer, ch.IdList, size);
    case RYN_DEBUG_WINDOWS_ERROR:
        return TellWindowsError(buffer, size);
    case RYN_DEBUG_EMAIL_LINES:
        return TellEmailLines(ch, buffer, size);
    default:
        CopyText(buffer, "?", size);
        return 0;
    }
}

int32_t rynDebug(uint32_t channel, int32_t code, char* buffer, int32_t size)
{
    constexpr uint32_t CheckBlocks = static_cast<uint32_t>(-2);
    if (channel == CheckBlocks) {
        CheckAllBlocks("rynDebug");
        return 0;
    }
    if (buffer == nullptr)
        return 0;
    if (size >= 0)
        buffer[0] = 0;
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    LogText(&ch, "*** rynDebug\r\n");
    return size < 1 ? 0 : TellText(ch, code, buffer, size);
}
