// States 309 to 316.
#include "retrieve/fetch_states.h"

#include "codec/text.h"
#include "decode/attachment_save.h"
#include "decode/decoder.h"
#include "decode/encoded_words.h"
#include "frame/log.h"
#include "frame/settings.h"
#include "frame/ticks.h"
#include "platform/platform.h"
#include "retrieve/imap_response.h"
#include "retrieve/message_file.h"
#include "transport/channel_io.h"
#include "transport/raw_copy.h"
#include "transport/replies.h"
#include "transport/vsock.h"
#include "transport/vstream.h"

#include <cstring>

// --- a line of a message ---

enum LineKind { LINE_NONE, LINE_TEXT, LINE_END, LINE_FAILED };

// 0 = an ordinary line, 1 = the end of the message, 2 = a line that has lost its stuffed dot.
static int32_t EndOfMessageTest(Channel& ch, char* line, int32_t length)
{
    if (ch.LineIsPiece != 0) // inside a long line a dot is a dot
        return 0;
    if (EndsMessage(ch, line)) {
        LogText(&ch, ch.Protocol == 'P' ? "['.' seen (EOF)]\n" : "['OK' or 'NO' seen (EOF)]\n");
        return 1;
    }
    if (ch.Protocol != 'P' || line[0] != '.')
        return 0;
    memmove(line, line + 1, static_cast<size_t>(length));
    return 2;
}

// Reads a line of the message into ReplyBuffer. lengthOut is its length, 0 when it did not come in
// time, or the failure.
static LineKind ReadMessageLine(Channel& ch, uint32_t nextWait, const char* endNote,
                                int32_t& lengthOut)
{
    if (ChannelDataReady(ch, FetchTimeout) == 0)
        return LINE_NONE;
    osYield();
    lengthOut = ReadServerLine(ch, ch.ReplyBuffer, ReplyReadCapacity, FetchTimeout, nextWait);
    if (lengthOut == RYN_ERR_SOCK_CLOSED) { // what has come so far counts as the message
        LogText(&ch, endNote);
        return LINE_END;
    }
    if (lengthOut < 0)
        return LINE_FAILED;
    switch (EndOfMessageTest(ch, ch.ReplyBuffer, lengthOut)) {
    case 1:
        return LINE_END;
    case 2:
        lengthOut--;
        return LINE_TEXT;
    default:
        return LINE_TEXT;
    }
}

// The next line gets its full time.
static int32_t StayForNextLine(Channel& ch)
{
    ch.DeadlineTick = TickAfter(osTickCount(), ReplyTimeout);
    return Stay(ch);
}

// --- to a file, decoded ---

int32_t FetchStart(Channel& ch, uint32_t)
{
    if (const int32_t status = BeginEmailFile(ch); status < 0)
        return FailState(ch, 0, status);
    if (ch.SourceMode != 0) {
        if (ch.LogHandle != 0)
            vsSetOption(ch.VSock, VS_OPT_LOG_HANDLE, ch.LogHandle);
        return Go(ch, ST_FETCH_DECODE);
    }
    if (ch.Protocol == 'I')
        FormatText(ch.CommandBuffer, CommandCapacity, "%s FETCH %d RFC822", ch.ImapTag,
                   ch.MessageNumber);
    else
        FormatText(ch.CommandBuffer, CommandCapacity, "RETR %d", ch.MessageNumber);
    if (const int32_t status = SendCommandOrFail(ch, RYN_ERR_SOCK_READ); status < 0)
        return status;
    if (ch.DecodeState == DS_RAW) {
        OpenRawFile(ch, false);
        Arm(ch, 0, ReplyTimeout);
        return Go(ch, ST_FETCH_RAW);
    }
    OpenRawFile(ch, true);
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, ST_FETCH_DECODE);
}

// Hands a line to the decoder: true if what then stands in ReplyBuffer is for the message file.
static bool DecodeFetchedLine(Channel& ch, int32_t length)
{
    if (ch.DecodeState < DS_START || ch.DecodeState > DS_PART_BODY)
        return true;
    osYield();
    const bool isKept = DecodeLine(ch, length) != 0;
    return isKept && (NoHeaderCopy == 0 || ch.HeadersDone != 0);
}

static void KeepLine(Channel& ch, int32_t length)
{
    ch.MsgBytesRead += static_cast<uint32_t>(length);
    const char* bytes = ch.ReplyBuffer;
    int32_t count = 0;
    if (ch.TransferEncoding == TE_QUOTED) {
        count = DecodeQuoted(ch.ReplyBuffer, ch.ScratchBuffer);
        bytes = ch.ScratchBuffer;
    } else {
        count = TextLength(ch.ReplyBuffer);
    }
    WriteToDisk(ch, ch.EmailHandle, bytes, count);
}

int32_t FetchDecode(Channel& ch, uint32_t)
{
    int32_t length = 0;
    switch (ReadMessageLine(ch, RestOfLineWait(), "[EOF1]\r\n", length)) {
    case LINE_NONE:
        return Stay(ch);
    case LINE_END:
        return Go(ch, ST_FETCH_END);
    case LINE_FAILED:
        return FailState(ch, 0, length);
    case LINE_TEXT:
        break;
    }
    if (DecodeFetchedLine(ch, length))
        KeepLine(ch, length);
    return StayForNextLine(ch);
}

// The raw copy takes each line as it is read.
int32_t FetchRaw(Channel& ch, uint32_t)
{
    if (ChannelDataReady(ch, FetchTimeout) == 0) {
        ch.DeadlineTick = TickAfter(osTickCount(), ReplyTimeout);
        return Go(ch, ST_FETCH_END);
    }
    const int32_t length =
        ReadServerLine(ch, ch.ReplyBuffer, ReplyReadCapacity, FetchTimeout, FetchTimeout);
    if (length < 0) {
        LogText(&ch, "[EOF2]\r\n");
        return Go(ch, ST_FETCH_END);
    }
    ch.MsgBytesRead += static_cast<uint32_t>(length);
    ch.MsgBytesSent += static_cast<uint32_t>(length);
    if (EndOfMessageTest(ch, ch.ReplyBuffer, length) == 1)
        return Go(ch, ST_FETCH_END);
    return StayForNextLine(ch);
}

// The attachment is closed in front of the message file, which takes the note of it.
int32_t FetchEnd(Channel& ch, uint32_t)
{
    CloseRawFile(ch);
    vsDrain(ch.VSock);
    ch.LineIsOpen = 0; // whatever was open is gone with the rest
    LogText(&ch, "[CLOSE]\r\n");
    CloseAttachment(ch);
    EndEmailFile(ch);
    return Finish(ch);
}

// --- to the host's buffer, as it comes ---

static void FormatLinesCommand(Channel& ch)
{
    if (ch.Protocol == 'P')
        FormatText(ch.CommandBuffer, CommandCapacity, "TOP %d %d", ch.MessageNumber,
                   ch.MessageLines);
    else if (ImapPartialFetch != 0)
        FormatText(ch.CommandBuffer, CommandCapacity,
                   "%s PARTIAL %d RFC822.HEADER RFC822.TEXT 1 %d", ch.ImapTag, ch.MessageNumber,
                   ch.MessageLines);
    else
        FormatText(ch.CommandBuffer, CommandCapacity, "%s FETCH %d RFC822", ch.ImapTag,
                   ch.MessageNumber);
}

int32_t FetchLinesStart(Channel& ch, uint32_t)
{
    LogText(&ch, "[Saving to buffer]\r\n");
    FormatLinesCommand(ch);
    if (const int32_t status = SendCommandOrFail(ch, RYN_ERR_SOCK_READ); status < 0)
        return status;
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, ST_FETCH_LINES);
}

int32_t FetchLines(Channel& ch, uint32_t)
{
    int32_t length = 0;
    switch (ReadMessageLine(ch, FetchTimeout, "[EOF]\r\n", length)) {
    case LINE_NONE:
        return Stay(ch);
    case LINE_END:
        return Go(ch, ST_FETCH_END);
    case LINE_FAILED:
        return FailState(ch, 0, length);
    case LINE_TEXT:
        break;
    }
    ch.MsgBytesRead += static_cast<uint32_t>(length);
    KeepInUserBuffer(ch, length);
    return StayForNextLine(ch);
}

// --- deleting ---

int32_t DeleteMessage(Channel& ch, uint32_t)
{
    if (ch.Protocol == 'I')
        FormatText(ch.CommandBuffer, CommandCapacity, "%s STORE %d +FLAGS (\\Deleted)", ch.ImapTag,
                   ch.MessageNumber);
    else
        FormatText(ch.CommandBuffer, CommandCapacity, "DELE %d", ch.MessageNumber);
    if (const int32_t status = SendCommandOrFail(ch, RYN_ERR_SOCK_READ); status < 0)
        return status;
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, ST_DELETE_REPLY);
}

// A refusal is no failure; LastReply and ReplyCode tell.
int32_t DeleteReply(Channel& ch, uint32_t)
{
    if (ChannelDataReady(ch, 0) == 0)
        return Wait(ch);
    if (ch.Protocol == 'I')
        ImapResponse(ch, IMAP_ANY, nullptr);
    else
        ReadPop3Reply(ch);
    return Finish(ch);
}
