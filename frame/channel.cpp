// The channel table, the making of a channel, and the closing of what one holds open.
#include "frame/channel.h"

#include "codec/text.h"
#include "frame/log.h"
#include "frame/memory.h"
#include "send/text_reader.h"
#include "transport/vfile.h"
#include "transport/vsock.h"

std::atomic<uint32_t> ChannelCount = 0;
Channel* ChannelTable[RYN_MAX_CHANNELS];

int32_t GuardChannel(uint32_t channel)
{
    const uint32_t count = ChannelCount.load(std::memory_order_acquire);
    if (count == 0)
        return RYN_ERR_NOT_ATTACHED;
    return channel < count ? 0 : RYN_ERR_CHANNEL_RANGE;
}

int32_t CreateChannel(int32_t index)
{
    void* memory = AllocateMemory(index, SLOT_CHANNEL, sizeof(Channel));
    if (memory == nullptr)
        return RYN_ERR_NO_MEMORY;
    Channel& ch = *static_cast<Channel*>(memory);
    ChannelTable[index] = &ch;
    ch.ChannelNumber = index;
    ch.VSock = -1;
    ch.PrevState = -2;
    ch.ThisState = -1;
    ch.AutoCallDriver = 1;
    ch.SmtpPort = 25;
    ch.Pop3Port = 110;
    ch.ImapPort = 143;
    ch.DetectImages = 1;
    ch.DetectPdf = 1;
    ch.DetectWav = 1;
    ch.AuthMethods = 7;
    ch.SendXMailer = 1;
    ch.StunnelSlot = -1;
    CopyField(ch.ListArguments, "\"\" \"*\"");
    ClearMemoryFiles();
    return 1;
}

int32_t CloseChannelSocket(Channel& ch)
{
    constexpr int32_t NoSocket = 999;
    if (ch.VSock < 0)
        return NoSocket;
    const int32_t result = vsClose(ch.VSock);
    LogFormat(ch, "vSocket: %d closed\r\n", ch.VSock);
    ch.VSock = -1;
    return result;
}

void DetachFiles(Channel& ch)
{
    const VSockRecord* record = vsRecord(ch.VSock);
    if (record == nullptr || (record->SourceFile == 0 && record->TargetFile == 0))
        return;
    vsCloseSource(ch.VSock);
    vsCloseTarget(ch.VSock);
    ch.VSock = -1;
    ch.SourceMode = 0;
    ch.TargetMode = 0;
}

void CloseTransferFiles(Channel& ch)
{
    CloseAttachFile(ch);
    CloseAltFile(ch);
}

void CloseRecipientTrace(Channel& ch)
{
    if (ch.RcptTraceFile == 0)
        return;
    LogText(&ch, "Closing rcpt trace file\r\n");
    u_Close(ch.RcptTraceFile);
    ch.RcptTraceFile = 0;
}
