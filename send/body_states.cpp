// States 233 to 245, 251, 252 and 500 to 504. The outer multipart is MIX, an HTML message has REL
// within it for images, and ALT within that for the two forms of its text.
#include "send/body_states.h"

#include "codec/text.h"
#include "frame/log.h"
#include "frame/settings.h"
#include "frame/status.h"
#include "platform/platform.h"
#include "send/text_reader.h"
#include "transport/channel_io.h"
#include "transport/replies.h"
#include "transport/vfile.h"
#include "transport/vstream.h"

constexpr int32_t AltBlockBytes = 16384; // of the plain alternative: all of it, or one read

// Sends a line formed with the boundary seed: 0, or what FailState returned.
static int32_t SendSeedLine(Channel& ch, const char* before, const char* behind)
{
    FormatText(ch.CommandBuffer, CommandCapacity, "%s%s%s", before, BoundarySeed, behind);
    return SendOrFail(ch, ch.CommandBuffer);
}

// Opens a level: its Content-Type with an empty line, and its first boundary.
static int32_t SendLevel(Channel& ch, const char* kind, const char* suffix)
{
    FormatText(ch.CommandBuffer, CommandCapacity,
               "Content-Type: multipart/%s; boundary=\"%s%s\"\r\n", kind, BoundarySeed, suffix);
    if (const int32_t status = SendOrFail(ch, ch.CommandBuffer); status < 0)
        return status;
    return SendSeedLine(ch, "--", suffix);
}

int32_t HdrEnd(Channel& ch, uint32_t)
{
    if (SendStandardHeaders != 0)
        if (const int32_t result = SendData(ch, "\r\n", 2); result < 0)
            return FailSend(ch, result);
    if (ch.IsHtml != 0 || ch.MessageType != 0 || ch.MixedOpen != 0)
        return Go(ch, ST_BODY_OPEN);
    return Go(ch, ST_BODY_SOURCE);
}

int32_t BodyOpen(Channel& ch, uint32_t)
{
    if (const int32_t status = SendSeedLine(ch, "--", "MIX==="); status < 0)
        return status;
    ch.MixedOpen = 1;
    if (ch.IsHtml == 0)
        return Go(ch, ST_BODY_CONTENT_TYPE);
    if (ch.NoRelatedPart == 0)
        if (const int32_t status = SendLevel(ch, "related", "REL==="); status < 0)
            return status;
    if (const int32_t status = SendLevel(ch, "alternative", "ALT==="); status < 0)
        return status;
    return Go(ch, ST_ALT_HEADER);
}

// --- the plain alternative ---

int32_t AltHeader(Channel& ch, uint32_t)
{
    if (const int32_t status = SendOrFail(ch, "Content-Type: text/plain\r\n"); status < 0)
        return status;
    if (ch.AltText == nullptr)
        return Go(ch, ST_ALT_NEXT);
    if (ch.AltText[0] == FileMarker)
        return Go(ch, ST_ALT_FILE_OPEN);
    if (ch.AltText[0] == '.')
        InsertDot(ch.AltText, TextLength(ch.AltText)); // its memory block has the room
    return Go(ch, ST_ALT_TEXT);
}

int32_t AltSendText(Channel& ch, uint32_t)
{
    CopyText(ch.CommandBuffer, ch.AltText, AltBlockBytes);
    DoubleLineDots(ch.CommandBuffer, CommandCapacity);
    if (const int32_t status = SendOrFail(ch, ch.CommandBuffer); status < 0)
        return status;
    SendText(ch, "\r\n");
    return Go(ch, ST_ALT_NEXT);
}

int32_t AltFileOpen(Channel& ch, uint32_t)
{
    const int32_t handle = OpenAltFile(ch, ch.AltText + 1);
    if (handle < 1) {
        NoteOpenFailure(ch.AltText);
        return FailState(ch, handle, RYN_ERR_CANNOT_OPEN_FILE);
    }
    return Go(ch, ST_ALT_FILE_READ);
}

int32_t AltFileRead(Channel& ch, uint32_t)
{
    const int32_t count = u_Read(ch.AltHandle, ch.CommandBuffer, AltBlockBytes);
    if (count > 0) {
        ch.CommandBuffer[count] = 0;
        DoubleLineDots(ch.CommandBuffer, CommandCapacity);
        if (const int32_t status = SendOrFail(ch, ch.CommandBuffer); status < 0)
            return status;
        Arm(ch, DataGap, ReplyTimeout);
        ch.WaitWritable = 1;
        return Stay(ch);
    }
    CloseAltFile(ch);
    SendText(ch, "\r\n");
    return Go(ch, ST_ALT_NEXT);
}

int32_t AltNext(Channel& ch, uint32_t)
{
    if (const int32_t status = SendSeedLine(ch, "--", "ALT==="); status < 0)
        return status;
    return Go(ch, ST_BODY_CONTENT_TYPE);
}

// --- type and encoding of the text ---

// What stands behind "Content-Type: text/" for a charset, of HTML messages of type 2.
static const char* HtmlTypeOf(uint8_t charset)
{
    static const struct {
        uint8_t Charset;
        const char* Type;
    } rows[] = {
        { 1, "html;  charset=us-ascii" },     { 4, "html; charset=iso-8859-1" },
        { 5, "html; charset=iso-8859-8" },    { 6, "html; charset=windows-1252" },
        { 7, "html; charset=windows-1255" },  { 8, "html; charset=UTF-8" },
        { 10, "html; charset=iso-8859-2" },   { 11, "html; charset=iso-8859-7" },
        { 12, "html; charset=windows-1250" }, { 13, "html; charset=iso-8859-3" },
        { 14, "html; charset=iso-8859-4" },
    };
    for (const auto& row : rows)
        if (row.Charset == charset)
            return row.Type;
    return "html";
}

// The same for the text of other messages by its type; null: plain, without an encoding line.
static const char* TextTypeOf(int32_t messageType)
{
    static const char* const types[] = {
        nullptr,                       // 0
        "plain",                       // 1
        "html",                        // 2
        "enriched",                    // 3
        "plain; charset=iso-8859-1",   // 4
        "plain; charset=iso-8859-8",   // 5
        "plain; charset=windows-1252", // 6
        "plain; charset=windows-1255", // 7
        nullptr,                       // 8
        nullptr,                       // 9 is the host's own line
        "plain; charset=iso-8859-2",   // 10
        "plain; charset=iso-8859-7",   // 11
        nullptr,                       // 12
        "plain; charset=iso-8859-3",   // 13
        "plain; charset=iso-8859-4",   // 14
        "plain; charset=UTF-8",        // 15
    };
    constexpr int32_t typeCount = sizeof types / sizeof types[0];
    return messageType >= 0 && messageType < typeCount ? types[messageType] : nullptr;
}

// Sends the Content-Type line. A type without an encoding line brings the empty line with it.
static int32_t SendType(Channel& ch, const char* type, bool hasEncoding)
{
    FormatText(ch.CommandBuffer, CommandCapacity, "Content-Type: text/%s%s", type,
               hasEncoding ? "" : "\r\n");
    if (const int32_t status = SendOrFail(ch, ch.CommandBuffer); status < 0)
        return status;
    return hasEncoding ? Go(ch, ST_BODY_ENCODING) : Go(ch, ST_BODY_SOURCE);
}

int32_t BodyContentType(Channel& ch, uint32_t)
{
    constexpr int32_t HtmlWithCharset = 2;
    constexpr int32_t HostsOwnLine = 9;
    if (ch.IsHtml != 0) {
        const bool hasCharset = ch.MessageType == HtmlWithCharset;
        return SendType(ch, hasCharset ? HtmlTypeOf(ch.HtmlCharset) : "html", hasCharset);
    }
    if (ch.MessageType == HostsOwnLine) {
        if (const int32_t status = SendOrFail(ch, UserContentType); status < 0)
            return status;
        return Go(ch, ST_BODY_ENCODING);
    }
    const char* type = TextTypeOf(ch.MessageType);
    return SendType(ch, type == nullptr ? "plain" : type, type != nullptr);
}

int32_t BodyEncoding(Channel& ch, uint32_t)
{
    constexpr int32_t LongestOwnLine = 255;
    const int32_t length = TextLength(UserTransferEncoding);
    const bool hasOwnLine = length > 0 && length <= LongestOwnLine;
    FormatText(ch.CommandBuffer, CommandCapacity, "%s\r\n",
               hasOwnLine ? UserTransferEncoding : "Content-Transfer-Encoding: quoted-printable");
    if (const int32_t status = SendOrFail(ch, ch.CommandBuffer); status < 0)
        return status;
    return Go(ch, ST_BODY_SOURCE);
}

// --- the text ---

int32_t BodySource(Channel& ch, uint32_t)
{
    if (ch.MessageText[0] == FileMarker)
        return Go(ch, ST_BODY_FILE_OPEN);
    return Go(ch, ST_BODY_TEXT_START);
}

int32_t BodyTextStart(Channel& ch, uint32_t)
{
    StartMsgText(ch, true);
    return Go(ch, ST_BODY_TEXT_LINE);
}

// Ends the text: the host's extra line, and the levels of HTML that no image needs any more.
static int32_t FinishBody(Channel& ch)
{
    SendExtraLine(ch);
    if (ch.IsHtml != 0)
        if (const int32_t status = SendSeedLine(ch, "--", "ALT===--\r\n"); status < 0)
            return status;
    if (ch.IsHtml != 0 && ch.NoRelatedPart == 0 && ch.InlineText == nullptr)
        if (const int32_t status = SendSeedLine(ch, "--", "REL===--\r\n"); status < 0)
            return status;
    if (ch.AttachBegPtr != nullptr)
        return Go(ch, ST_ATT_BOUNDARY);
    return Go(ch, ST_MSG_END);
}

// Sends the line that stands in CommandBuffer and stays for the next.
static int32_t SendBodyLine(Channel& ch, int32_t length, uint32_t timeout)
{
    constexpr uint32_t LineEndBytes = 2;
    ch.MsgBytesSent += static_cast<uint32_t>(length) + LineEndBytes;
    if (const int32_t status = SendOrFail(ch, ch.CommandBuffer); status < 0)
        return status;
    Arm(ch, DataGap, timeout);
    ch.WaitWritable = 1;
    return Stay(ch);
}

int32_t BodyTextLine(Channel& ch, uint32_t)
{
    const int32_t length = ReadMsgLine(ch);
    return length >= 0 ? SendBodyLine(ch, length, DataTimeout) : FinishBody(ch);
}

int32_t BodyFileOpen(Channel& ch, uint32_t)
{
    const char* name = FileMarker == 0 ? ch.MessageText : ch.MessageText + 1;
    LogFormat(ch, "Opening message file [%s]\r\n", name);
    const int32_t handle = OpenAttachFile(ch, name, false);
    if (handle < 1) {
        NoteOpenFailure(name);
        return FailState(ch, handle, RYN_ERR_CANNOT_OPEN_FILE);
    }
    StartMsgText(ch, false);
    return Go(ch, ST_BODY_FILE_LINE);
}

int32_t BodyFileLine(Channel& ch, uint32_t)
{
    const int32_t length = ReadMsgLine(ch);
    if (length >= 0)
        return SendBodyLine(ch, length, ReplyTimeout);
    CloseAttachFile(ch);
    return FinishBody(ch);
}

// --- the end of the message ---

// The closing lines. A target file has no final dot.
static int32_t SendEnd(Channel& ch)
{
    const bool isPlain = ch.MessageType == 0 && ch.IsHtml == 0 && ch.MixedOpen == 0;
    const bool isFile = ch.TargetMode != 0;
    if (isPlain)
        return SendOrFail(ch, isFile ? "" : ".");
    return SendSeedLine(ch, "\r\n--", isFile ? "MIX===--\r\n" : "MIX===--\r\n\r\n.");
}

int32_t MsgEnd(Channel& ch, uint32_t)
{
    constexpr uint32_t VerdictPause = 1000; // ms in front of the first look for the verdict
    if (const int32_t status = SendEnd(ch); status < 0)
        return status;
    vsFlush(ch.VSock); // the wait for the verdict begins when all is out
    Arm(ch, CommandGap + VerdictPause, ReplyTimeout + CommandGap + VerdictPause);
    return Go(ch, ST_MSG_END_REPLY);
}

int32_t MsgEndReply(Channel& ch, uint32_t)
{
    constexpr uint32_t VerdictWait = 1000;
    constexpr uint32_t LeastVerdict = 200; // below it a code is not whole
    osYield();
    if (ChannelDataReady(ch, VerdictWait) == 0)
        return Wait(ch);
    const int32_t result = ReadSmtpReply(ch);
    if (result < 0)
        return FailState(ch, 0, result);
    // Elsewhere a server that has closed is found out by the next send. None follows here, and a
    // message without a verdict, or with half of one, must not pass for one that was taken.
    if (ch.ReplyCode < LeastVerdict && ch.TargetMode == 0)
        return FailState(ch, RYN_ERR_SOCK_CLOSED, RYN_ERR_SOCK_WRITE);
    return Finish(ch);
}
