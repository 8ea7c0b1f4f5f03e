// DecodeLine: one routine for each state of the decoder.
#include "decode/decoder.h"

#include "codec/base64.h"
#include "codec/text.h"
#include "decode/attachment_save.h"
#include "decode/boundaries.h"
#include "decode/encoded_words.h"
#include "decode/header_lines.h"
#include "decode/header_store.h"
#include "decode/line_joins.h"
#include "decode/part_headers.h"
#include "frame/channel.h"
#include "frame/log.h"
#include "frame/settings.h"
#include "transport/channel_io.h"
#include "transport/vfile.h"

#include <cstring>

// What becomes of a line.
constexpr int32_t CopyIt = 1;
constexpr int32_t DealtWith = 0;

static bool IsBlankLine(const Channel& ch)
{
    return ch.ReplyBuffer[0] == '\r';
}

// Of a header line that was recognised.
static int32_t HeaderVerdict()
{
    return NoHeaderCopy != 0 ? DealtWith : CopyIt;
}

void ResetDecoder(Channel& ch)
{
    for (char* text : { ch.AttachList, ch.TypeList, ch.IdList, ch.PartId, ch.PartType, ch.Filename,
                        ch.HeaderDate, ch.HeaderContentType, ch.FromAddress, ch.ReplyToAddress })
        text[0] = 0;
    EmptyHeaderStores(ch);
    ch.TextContent = 0;
    ch.AttachCount = 0;
    ch.TransferEncoding = TE_NONE;
    ch.MimeSeen = 0;
    ch.PartInline = 0;
    ch.HeadersDone = 0;
    ch.Rfc822Seen = 0;
    ch.Rfc822Decoding = 0;
    ch.RFC822WriteFlag = 0;
    ch.Rfc822HasDisposition = 0;
    ch.UtfFilename = 0;
    ch.Carry.Count = 0;
    ResetBoundaries(ch);
    if (ch.DecodeState != DS_RAW)
        ch.DecodeState = DS_START;
}

int32_t WriteToDisk(Channel& ch, int32_t handle, const char* bytes, int32_t count)
{
    if (ch.Protocol == 'P' && BeginsWith(bytes, "+OK"))
        return 0;
    if (ch.Protocol == 'I' && HasEndTag(ch, bytes))
        return 0;
    return u_Write(handle, bytes, count);
}

// --- the head of the message ---

static int32_t EndPlainHeaders(Channel& ch, const char* note)
{
    ch.DecodeState = DS_PLAIN;
    LogText(&ch, note);
    return CopyIt;
}

static int32_t EndHeaders(Channel& ch)
{
    if (ch.MimeSeen == 0)
        return EndPlainHeaders(ch, "[EOH:Not doing MIME/2]\r\n");
    if (ch.TransferEncoding == TE_NONE)
        return EndPlainHeaders(ch, "[EOH:Not doing MIME]\r\n");
    ch.Carry.Count = 0;
    ch.DecodeState = DS_PART_BODY;
    LogText(&ch, "[EOH:MIME w/o boundary]\r\n");
    ch.HeadersDone = 1;
    StartDefaultAttachment(ch);
    return CopyIt;
}

static int32_t DecodeHeaders(Channel& ch, int32_t)
{
    if (IsBlankLine(ch))
        return EndHeaders(ch);
    if (BeginsWith(ch.ReplyBuffer, "MIME-Version: 1.0")) {
        ch.MimeSeen = 1;
        LogText(&ch, "[MIME version seen]\r\n");
        return DealtWith;
    }
    if (ProcessHeaderLine(ch) == HEADER_COPY)
        return HeaderVerdict();
    if (ProcessContentType(ch) != 0 || ProcessTransferEncoding(ch) != 0)
        return DealtWith;
    if (ProcessDisposition(ch) != 0 && ProcessFilename(ch) != 0)
        CreateAttachment(ch);
    if (SaveContentType(ch) != 0 && ProcessFilename(ch) != 0)
        CreateAttachment(ch);
    return DealtWith;
}

static int32_t DecodeStart(Channel& ch, int32_t length)
{
    ch.DecodeState = DS_HEADERS;
    return DecodeHeaders(ch, length);
}

// --- in front of the first boundary line ---

static int32_t DecodePreamble(Channel& ch, int32_t)
{
    switch (ProcessHeaderLine(ch)) {
    case HEADER_COPY:
        return HeaderVerdict();
    case HEADER_TAKEN:
        return DealtWith;
    case HEADER_OTHER:
        break;
    }
    const int32_t isBoundary = CheckBoundaryLine(ch);
    if (ch.HeadersDone == 0 && ch.ReplyBuffer[0] == '\r' && ch.ReplyBuffer[1] == '\n') {
        ch.HeadersDone = 1;
        return CopyIt;
    }
    if (isBoundary != 0)
        return DealtWith;
    return ch.MimeSeen != 0 ? DealtWith : CopyIt;
}

// --- the headers of a part ---

// The head of a nested message's part is over.
static void EndRfc822Headers(Channel& ch)
{
    ch.Rfc822Seen = 0;
    if (ch.Rfc822Keep == 0)
        return;
    if (ch.TransferEncoding == TE_NONE)
        ch.TransferEncoding = TE_7BIT;
    if (ch.Rfc822HasDisposition == 0) {
        SetDefaultFilename(ch, "rfc822.txt");
        CreateAttachment(ch);
    }
}

static int32_t EndPartHeaders(Channel& ch)
{
    LogText(&ch, "[Blank line; end of headers]\r\n");
    if (ch.Rfc822Seen != 0)
        EndRfc822Headers(ch);
    if (ch.Rfc822Decoding != 0) {
        ch.Rfc822Decoding = 0;
        ch.PartInline = 0;
        ch.RFC822WriteFlag = 1;
        LogText(&ch, "[RFC822: Decoding; ignoring blank line]\r\n");
        return CopyIt;
    }
    ch.Carry.Count = 0;
    ch.DecodeState = DS_PART_BODY;
    if (ch.PartInline == 0)
        StartDefaultAttachment(ch);
    return DealtWith;
}

static int32_t DecodeMultipartLine(Channel& ch)
{
    if (ch.RFC822WriteFlag != 0 && ch.AttachHandle != 0)
        WriteToDisk(ch, ch.AttachHandle, "\r\n", 2);
    ch.RFC822WriteFlag = 0;
    return DealtWith;
}

static int32_t PassNestedHeader(Channel& ch)
{
    if (ch.AttachHandle != 0)
        WriteToDisk(ch, ch.AttachHandle, ch.ReplyBuffer, TextLength(ch.ReplyBuffer));
    LogText(&ch, "[RFC822WriteFlag]\r\n");
    return DealtWith;
}

static void KeepContentId(Channel& ch)
{
    constexpr char Head[] = "Content-ID: ";
    constexpr int32_t MostChars = 244;
    if (!BeginsWith(ch.ReplyBuffer, Head))
        return;
    CopyText(ch.PartId, ch.ReplyBuffer + sizeof Head - 1, MostChars);
    CutAtLineEnd(ch.PartId);
}

// Notes the part of a nested message: true if that message is to be decoded.
static bool BeginRfc822(Channel& ch)
{
    if (!BeginsWith(ch.ReplyBuffer, "Content-Type: message/rfc822"))
        return false;
    ch.Rfc822Seen = 1;
    ch.Rfc822HasDisposition = 0;
    if (ch.Rfc822Keep != 0) {
        LogText(&ch, "[message/rfc822 seen (keep intact)]\r\n");
        return false;
    }
    LogText(&ch, "[message/rfc822 seen (decode)]\r\n");
    ch.PartInline = 1;
    ch.Rfc822Decoding = 1;
    return true;
}

// Marks a text part in the message file by its type line. The driver then copies an empty line.
static int32_t WriteTextTag(Channel& ch)
{
    JoinParameterLines(ch);
    WriteToDisk(ch, ch.EmailHandle, HeaderPrefix, TextLength(HeaderPrefix));
    WriteToDisk(ch, ch.EmailHandle, ch.ReplyBuffer, TextLength(ch.ReplyBuffer));
    ch.ReplyBuffer[0] = 0;
    return CopyIt;
}

// A line that may name the part.
static void DecodeNamingLine(Channel& ch)
{
    if (ProcessDisposition(ch) == 0) {
        if (!BeginsWith(ch.ReplyBuffer, "Content-Type:"))
            return;
        CopyField(ch.PartId, "nul");
    }
    if (ProcessFilename(ch) != 0)
        CreateAttachment(ch);
}

static int32_t DecodePartHeaders(Channel& ch, int32_t)
{
    LogText(&ch, "[Looking for headers]\r\n");
    if (IsBlankLine(ch))
        return EndPartHeaders(ch);
    if (ProcessMultipartLine(ch) != 0)
        return DecodeMultipartLine(ch);
    if (ch.RFC822WriteFlag != 0)
        return PassNestedHeader(ch);
    if (ProcessTransferEncoding(ch) != 0)
        return DealtWith;
    SaveContentType(ch);
    KeepContentId(ch);
    if (BeginRfc822(ch))
        return DealtWith;
    if (ch.TagTextParts != 0 && BeginsWith(ch.ReplyBuffer, "Content-Type: text"))
        return WriteTextTag(ch);
    DecodeNamingLine(ch);
    return DealtWith;
}

// --- the body of a part ---

// Takes the transfer encoding off the line in hand: the bytes, their count in countOut.
static const char* DecodeBody(Channel& ch, int32_t length, int32_t& countOut)
{
    switch (ch.TransferEncoding) {
    case TE_BASE64:
        countOut = DecodeBase64Stream(ch.Carry, ch.ReplyBuffer, ch.ScratchBuffer, length);
        return ch.ScratchBuffer;
    case TE_QUOTED:
        countOut = DecodeQuoted(ch.ReplyBuffer, ch.ScratchBuffer);
        return ch.ScratchBuffer;
    default:
        countOut = length;
        return ch.ReplyBuffer;
    }
}

static int32_t DecodePartBody(Channel& ch, int32_t length)
{
    if (CheckBoundaryLine(ch) != 0) {
        CloseAttachment(ch);
        return DealtWith;
    }
    if (ch.PartInline == 0 && ch.AttachHandle == 0)
        return CopyIt;
    ch.AttachBytesRead += static_cast<uint32_t>(length);
    int32_t count = 0;
    const char* const bytes = DecodeBody(ch, length, count);
    if (ch.AttachHandle != 0 && ch.SkipAttachData == 0)
        u_Write(ch.AttachHandle, bytes, count);
    if (ch.PartInline != 0)
        WriteToDisk(ch, ch.EmailHandle, bytes, count);
    return DealtWith;
}

using DecodeRoutine = int32_t (*)(Channel& ch, int32_t length);

static constexpr DecodeRoutine DecodeRoutines[] = {
    nullptr, nullptr, DecodeStart, DecodeHeaders, DecodePreamble, DecodePartHeaders, DecodePartBody
};

int32_t DecodeLine(Channel& ch, int32_t length)
{
    if (ch.DecodeState < DS_START || ch.DecodeState > DS_PART_BODY)
        return CopyIt;
    return DecodeRoutines[ch.DecodeState](ch, length);
}
