// The operations on a channel as a whole: attach, release, close, abort, and the question whether
// it is connected.
#include "codec/text.h"
#include "decode/attachment_save.h"
#include "decode/header_store.h"
#include "frame/channel.h"
#include "frame/driver.h"
#include "frame/log.h"
#include "frame/memory.h"
#include "frame/settings.h"
#include "frame/ticks.h"
#include "platform/platform.h"
#include "retrieve/message_file.h"
#include "send/attach_params.h"
#include "transport/channel_io.h"
#include "transport/process_ops.h"
#include "transport/tunnel_ops.h"
#include "transport/vsock.h"

#include <algorithm>

constexpr uint32_t WaitPerChannel = 2000; // ms that each channel adds to the waits
constexpr int32_t Attached = 999;

static_assert(sizeof(Channel) + sizeof(VSockRecord) < size_t{ 300 } * 1024,
              "a channel is to be small");

// --- attach and release ---

static void FormVersionText()
{
    FormatText(VersionText, sizeof VersionText, "Win32 %u %u.%u.%u (%u)", CID,
               VersionNumber >> 8 & 15, VersionNumber >> 4 & 15, VersionNumber & 15, BuildNumber);
}

static void FreeChannels(uint32_t count)
{
    for (uint32_t i = count; i-- > 0;) {
        FreeMemory(static_cast<int32_t>(i), SLOT_CHANNEL, SLOT_CHANNEL);
        ChannelTable[i] = nullptr;
    }
}

// Makes the records: 1, or a status with nothing left behind.
static int32_t MakeChannels(uint32_t channels)
{
    for (uint32_t i = 0; i < channels; i++) {
        const int32_t status = CreateChannel(static_cast<int32_t>(i));
        if (status < 0) {
            FreeChannels(i);
            return status;
        }
    }
    return 1;
}

// What stands under the lock: 1, or a status.
static int32_t BuildChannels(uint32_t channels)
{
    for (uint32_t* timeout : { &ReplyTimeout, &DataTimeout, &FetchTimeout })
        *timeout = std::min(*timeout + channels * WaitPerChannel, LongestTimeout);
    if (const int32_t status = vsInit(channels, PollDelay); status < 0)
        return status;
    BlockTableReset();
    if (const int32_t status = MakeChannels(channels); status < 0) {
        vsShutdown();
        return status;
    }
    ClearAttachParams();
    ClearTunnelSettings();
    ClearProcessTable();
    FormatText(BoundarySeed, sizeof BoundarySeed, "===RYN%u99%d===", CID,
               static_cast<int32_t>(osTickCount()));
    return 1;
}

int32_t rynAttach(uint32_t channels)
{
    if (ChannelCount.load(std::memory_order_acquire) > 0)
        return RYN_ERR_ALREADY_ATTACHED;
    if (channels > RYN_MAX_CHANNELS)
        return RYN_ERR_CHANNEL_RANGE;
    FormVersionText();
    osLockEnter(OS_LOCK_ATTACH);
    const int32_t status = BuildChannels(channels);
    osLockLeave(OS_LOCK_ATTACH);
    if (status < 0)
        return status;
    osComputerName(ComputerName, sizeof ComputerName);
    ChannelCount.store(channels, std::memory_order_release); // from here on guards see the channels
    return Attached;
}

static void ReleaseChannel(Channel& ch)
{
    DetachFiles(ch);
    if (ch.VSock >= 0)
        CloseChannelSocket(ch);
    CloseFetchFiles(ch);
    CloseTransferFiles(ch);
    CloseRecipientTrace(ch);
    FreeHeaderStores(ch);
    if (ch.LogHandle != 0) {
        LogFormat(ch, "*** Releasing channel %d ***\r\n", ch.ChannelNumber);
        CloseLog(ch);
    }
    FreeMemory(ch.ChannelNumber, SLOT_TO, SLOT_SEARCH);
}

int32_t rynRelease(void)
{
    const uint32_t count = ChannelCount.load(std::memory_order_acquire);
    if (count == 0)
        return 1;
    char line[FormatCapacity];
    FormatText(line, sizeof line, "*** rynRelease: %s ***\r\n", VersionText);
    LogGlobal(line);
    if (TunnelConfigWritten()) {
        FormatText(line, sizeof line, "Stunnel log: %s\\*Log(*).txt\r\n", TunnelFolder());
        LogGlobal(line);
    }
    osLockEnter(OS_LOCK_ATTACH);
    osYield();
    for (uint32_t i = 0; i < count; i++) // before any socket that runs through them
        KillStunnel(*ChannelTable[i]);
    ForgetGlobalLog();
    for (uint32_t i = count; i-- > 0;)
        ReleaseChannel(*ChannelTable[i]);
    FreeChannels(count);
    ChannelCount.store(0, std::memory_order_release);
    vsShutdown();
    osLockLeave(OS_LOCK_ATTACH);
    return 1;
}

// --- close and abort ---

static void FreeMessage(Channel& ch)
{
    FreeMemory(ch.ChannelNumber, SLOT_TO, SLOT_SEARCH);
    ch.MessageText = nullptr; // may have led to the fixed empty text
}

// Ends what a fetch or a send that broke off has left open; an attachment being saved is ended as at
// the end of its message.
static void CloseLeftovers(Channel& ch, bool isConnected)
{
    if (ch.Protocol == 'S')
        CloseTransferFiles(ch);
    if (isConnected || ch.AttachHandle != 0)
        CloseAttachment(ch);
    CloseFetchFiles(ch);
    CloseTransferFiles(ch);
}

// The farewell to the server, and the end of the conversation whatever comes of it.
static int32_t EndConversation(Channel& ch)
{
    const bool expunges = ch.Protocol == 'I' && ch.NoExpunge == 0;
    if (ch.Protocol == 'I')
        LogFormat(ch, "ExpungeOnClose=%d\r\n", expunges ? 1 : 0);
    ch.WaitWritable = 1;
    StopDriver(ch); // of an operation that still runs
    ch.NextState = expunges ? ST_IMAP_EXPUNGE : ST_QUIT;
    if (ch.AutoCallDriver == 0)
        return 0;
    const int32_t result = RunDriver(ch);
    CloseChannelSocket(ch);
    FreeMessage(ch);
    ch.Protocol = 0;
    KillStunnel(ch);
    return result;
}

int32_t rynClose(uint32_t channel)
{
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    LogFormat(ch, "*** rynClose(%u)\r\n", channel);
    CloseRecipientTrace(ch);
    if (ch.ExtraHeaders != nullptr)
        ch.ExtraHeaders[0] = 0;
    FreeHeaderStores(ch);
    const VSockRecord* record = vsRecord(ch.VSock);
    const bool hasFile = record != nullptr && (record->SourceFile != 0 || record->TargetFile != 0);
    const bool isConnected = !hasFile && vsGetInfo(ch.VSock, VS_INFO_IS_OPEN) != 0;
    CloseLeftovers(ch, isConnected);
    if (hasFile) {
        if (record->TargetFile != 0)
            ch.ErrorFileName[0] = 0;
        DetachFiles(ch);
        Finish(ch); // whatever was read or written there is over
        return 1;
    }
    if (!isConnected) {
        KillStunnel(ch); // that of a connect that has failed
        return 0;
    }
    return EndConversation(ch);
}

int32_t rynAbort(uint32_t channel)
{
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    LogText(&ch, "*** rynAbort\r\n");
    CloseFetchFiles(ch);
    CloseTransferFiles(ch);
    ch.AfterConnectState = 0;
    ch.LastSockCode = 0;
    ch.AutoCallDriver = 1;
    ch.TestConnectOnly = 0;
    DetachFiles(ch);
    CloseChannelSocket(ch);
    StopDriver(ch);
    return 1;
}

int32_t rynIsConnected(uint32_t channel)
{
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    return ChannelConnected(*ChannelTable[channel], 0);
}
