// States 260 to 268. The walk cuts the lists in place: AttachBegPtr is the entry in hand, AttachEndPtr
// the next one, an empty text behind the last.
#include "send/attach_states.h"

#include "codec/base64.h"
#include "codec/text.h"
#include "frame/log.h"
#include "frame/settings.h"
#include "frame/status.h"
#include "send/attach_params.h"
#include "send/header_lines.h"
#include "send/text_reader.h"
#include "transport/channel_io.h"
#include "transport/vfile.h"

#include <cstring>

// The line of the set that is in force for the entry in hand; null if there is none.
static const char* ParamInForce(const Channel& ch, AttachParamKind kind)
{
    return ch.AttachParamCount > ch.AttachParamIndex ? GetAttachParam(kind, ch.AttachParamIndex)
                                                     : nullptr;
}

int32_t AttBoundary(Channel& ch, uint32_t)
{
    const char* level = ch.InlinePending != 0 && ch.NoRelatedPart == 0 ? "REL===" : "MIX===";
    if (ch.InlinePending == 0)
        ch.MixedOpen = 1;
    FormatText(ch.CommandBuffer, CommandCapacity, "\r\n\r\n--%s%s", BoundarySeed, level);
    if (const int32_t status = SendOrFail(ch, ch.CommandBuffer); status < 0)
        return status;
    return Go(ch, ST_ATT_CONTENT_TYPE);
}

// Cuts the entry in hand out of its list.
static void SplitAttachEntry(Channel& ch)
{
    char* const end = ch.AttachBegPtr + strlen(ch.AttachBegPtr);
    char* const delimiter = FindChar(ch.AttachBegPtr, AttachDelimiter);
    ch.AttachEndPtr = end;
    if (delimiter != nullptr && delimiter != end) {
        *delimiter = 0;
        ch.AttachEndPtr = delimiter + 1;
    }
    LogFormat(ch, "$$$ AttachBegPtr = [%s]\r\n", ch.AttachBegPtr);
    LogFormat(ch, "$$$ AttachEndPtr = [%s]\r\n", ch.AttachEndPtr);
}

// The name that the message shows for the entry in hand, up to its first line end and encoded if the
// channel has a page code: 0, or RYN_ERR_NO_SUCH_PAGE_CODE.
static int32_t FindShownName(const Channel& ch, char (&nameOut)[FormatCapacity])
{
    constexpr int32_t EncodedCapacity = 256; // of an encoded name, with its terminating zero
    CopyField(nameOut, ShownFileName(BaseFileName(ch.AttachBegPtr), AttachNameDelimiter));
    CutAtLineEnd(nameOut); // else a name could bring header lines, or end the message
    if (ch.FilenamePageCode == 0)
        return 0;
    char encoded[EncodedCapacity];
    if (rynMakeSubject(nameOut, ch.FilenamePageCode, encoded, sizeof encoded) < 0)
        return RYN_ERR_NO_SUCH_PAGE_CODE;
    LogFormat(ch, "QuoteFilename: Ptr='%s', PtrQ='%s'\r\n", nameOut, encoded);
    CopyField(nameOut, encoded);
    return 0;
}

// --- the head of the part ---

enum FileKind : uint8_t { FILE_IMAGE, FILE_PDF, FILE_WAV };

struct FileTypeRow {
    const char* Extension;
    FileKind Kind;
    const char* Type; // behind "Content-Type: "
};
static const FileTypeRow FileTypes[] = {
    { ".pdf", FILE_PDF, "application/pdf" }, { ".wav", FILE_WAV, "audio/x-wav" },
    { ".gif", FILE_IMAGE, "Image/GIF" },     { ".bmp", FILE_IMAGE, "Image/BMP" },
    { ".tif", FILE_IMAGE, "Image/TIFF" },    { ".jpg", FILE_IMAGE, "Image/JPEG" },
    { ".png", FILE_IMAGE, "Image/PNG" },
};

static bool IsDetected(const Channel& ch, FileKind kind)
{
    switch (kind) {
    case FILE_PDF:
        return ch.DetectPdf != 0;
    case FILE_WAV:
        return ch.DetectWav != 0;
    default:
        return ch.DetectImages != 0;
    }
}

// The row of a file by the end of its entry; null for a plain file.
static const FileTypeRow* FindFileType(const Channel& ch, const char* fileName)
{
    constexpr size_t ExtensionChars = 4;
    const size_t length = strlen(fileName);
    if (length <= ExtensionChars)
        return nullptr;
    const char* extension = fileName + length - ExtensionChars;
    for (const FileTypeRow& row : FileTypes)
        if (SameTextNoCase(extension, row.Extension, ExtensionChars) != 0 &&
            IsDetected(ch, row.Kind))
            return &row;
    return nullptr;
}

// Chars of a name in front of its memory-file mark.
static int NameCharsBeforeMark(const char* name)
{
    return static_cast<int>(strcspn(name, "*") < FormatCapacity ? strcspn(name, "*")
                                                                : FormatCapacity);
}

static void FormatPlainType(Channel& ch, const char* name)
{
    if (ch.QuoteAttachments != 0)
        FormatText(ch.CommandBuffer, CommandCapacity, "Content-Type: text/plain");
    else
        FormatText(ch.CommandBuffer, CommandCapacity,
                   "Content-Type: application/octet-stream; name=\"%.*s\"",
                   NameCharsBeforeMark(name), name);
}

// Images of an HTML message carry the number by which its text refers to them.
static void AddContentId(Channel& ch)
{
    constexpr int32_t HtmlText = 2;
    if (ch.IsHtml == 0 && ch.MessageType != HtmlText)
        return;
    ch.ContentIdCount++;
    const size_t length = strlen(ch.CommandBuffer);
    FormatText(ch.CommandBuffer + length, CommandCapacity - length,
               "\r\nContent-ID: <message-root.%d>", ch.ContentIdCount);
}

// The Content-Type line by the file's extension.
static void FormatType(Channel& ch, const char* shownName)
{
    const FileTypeRow* row = FindFileType(ch, BaseFileName(ch.AttachBegPtr));
    if (row == nullptr) {
        FormatPlainType(ch, shownName);
        return;
    }
    if (row->Kind == FILE_PDF)
        LogText(&ch, "[PDF]\n");
    if (row->Kind == FILE_WAV)
        LogText(&ch, "[WAV]\n");
    FormatText(ch.CommandBuffer, CommandCapacity, "Content-Type: %s; name=\"%s\"", row->Type,
               shownName);
    if (row->Kind != FILE_IMAGE)
        return;
    ch.IsImage = 1;
    AddContentId(ch);
}

int32_t AttContentType(Channel& ch, uint32_t)
{
    SplitAttachEntry(ch);
    char shownName[FormatCapacity];
    if (const int32_t status = FindShownName(ch, shownName); status < 0)
        return FailState(ch, status, RYN_ERR_NO_SUCH_PAGE_CODE);
    ch.IsImage = 0;
    const char* given = ParamInForce(ch, ATTACH_TYPE);
    if (given != nullptr)
        FormatText(ch.CommandBuffer, CommandCapacity, "%s", given);
    else
        FormatType(ch, shownName);
    if (const int32_t status = SendOrFail(ch, ch.CommandBuffer); status < 0)
        return status;
    return Go(ch, ST_ATT_ENCODING);
}

int32_t AttEncoding(Channel& ch, uint32_t)
{
    const char* line = ParamInForce(ch, ATTACH_ENCODING);
    if (line == nullptr)
        line = ch.QuoteAttachments != 0 ? "Content-Transfer-Encoding: quoted-printable"
                                        : "Content-Transfer-Encoding: base64";
    if (const int32_t status = SendOrFail(ch, line); status < 0)
        return status;
    return Go(ch, ST_ATT_DISPOSITION);
}

static void FormatDisposition(Channel& ch, const char* shownName)
{
    constexpr uint8_t QuotedInline = 1;
    const bool isInline = ch.IsImage != 0 || ch.QuoteAttachments == QuotedInline;
    if (isInline)
        FormatText(ch.CommandBuffer, CommandCapacity,
                   "Content-Disposition: inline; filename=\"%s\"", shownName);
    else
        FormatText(ch.CommandBuffer, CommandCapacity,
                   "Content-Disposition: attachment; filename=\"%.*s\"",
                   NameCharsBeforeMark(shownName), shownName);
}

int32_t AttDisposition(Channel& ch, uint32_t now)
{
    const char* given = ParamInForce(ch, ATTACH_DISPOSITION);
    if (given == nullptr) {
        char shownName[FormatCapacity];
        if (const int32_t status = FindShownName(ch, shownName); status < 0)
            return FailState(ch, status, RYN_ERR_NO_SUCH_PAGE_CODE);
        FormatDisposition(ch, shownName);
    } else {
        FormatText(ch.CommandBuffer, CommandCapacity, "%s", given);
    }
    if (const int32_t status = SendOrFail(ch, ch.CommandBuffer); status < 0)
        return status;
    ch.NotBeforeTick = now;
    return Go(ch, ST_ATT_BLANK);
}

int32_t AttBlank(Channel& ch, uint32_t now)
{
    const char* extra = ParamInForce(ch, ATTACH_EXTRA);
    FormatText(ch.CommandBuffer, CommandCapacity, "%s%s\r\n", extra == nullptr ? "" : extra,
               extra == nullptr ? "" : "\r\n");
    if (ch.AttachParamCount > ch.AttachParamIndex)
        ch.AttachParamIndex++;
    if (const int32_t result = SendText(ch, ch.CommandBuffer); result < 0)
        return FailSend(ch, result);
    ch.NotBeforeTick = now;
    return Go(ch, ST_ATT_OPEN);
}

// --- the content of the part ---

int32_t AttOpen(Channel& ch, uint32_t)
{
    constexpr uint8_t Utf8Names = 15;
    char* delimiter = FindChar(ch.AttachBegPtr, AttachNameDelimiter);
    if (delimiter != nullptr)
        *delimiter = 0;
    const int32_t handle = OpenAttachFile(ch, ch.AttachBegPtr, ch.FilenamePageCode == Utf8Names);
    if (delimiter != nullptr)
        *delimiter = AttachNameDelimiter;
    if (handle < 1) {
        NoteOpenFailure(ch.AttachBegPtr);
        return FailState(ch, handle, RYN_ERR_CANNOT_OPEN_FILE);
    }
    ch.WaitWritable = 1;
    StartMsgText(ch, false);
    if (ch.QuoteAttachments == 0 && ch.IsForward == 0)
        return Go(ch, ST_ATT_BASE64);
    return Go(ch, ST_ATT_LINES);
}

// Goes on to the next entry, from the images to the attachments, or to the end of the message.
static int32_t NextAttachEntry(Channel& ch)
{
    if (*ch.AttachEndPtr != 0) {
        ch.AttachBegPtr = ch.AttachEndPtr;
        return Go(ch, ST_ATT_BOUNDARY);
    }
    if (ch.InlinePending == 0)
        return Go(ch, ST_MSG_END);
    if (ch.NoRelatedPart == 0) {
        FormatText(ch.CommandBuffer, CommandCapacity, "\r\n\r\n--%sREL===--\r\n", BoundarySeed);
        if (const int32_t status = SendOrFail(ch, ch.CommandBuffer); status < 0)
            return status;
    }
    ch.InlinePending = 0;
    if (ch.AttachmentText == nullptr)
        return Go(ch, ST_MSG_END);
    ch.AttachBegPtr = ch.AttachmentText;
    return Go(ch, ST_ATT_BOUNDARY);
}

// The next bytes of the file, read ahead through the message window: their count, up to most.
static int32_t TakeAttachBytes(Channel& ch, int32_t most, const char*& bytesOut)
{
    if (ch.WindowEnd - ch.WindowPos < most && ch.WindowAtEof == 0) {
        const int32_t held = ch.WindowEnd - ch.WindowPos;
        memmove(ch.MessageWindow, ch.MessageWindow + ch.WindowPos, static_cast<size_t>(held));
        const int32_t count = u_Read(ch.AttachHandle, ch.MessageWindow + held,
                                     static_cast<int32_t>(WindowCapacity) - held);
        ch.WindowAtEof = count < 1 ? 1 : 0;
        ch.WindowPos = 0;
        ch.WindowEnd = held + (count < 1 ? 0 : count);
    }
    const int32_t held = ch.WindowEnd - ch.WindowPos;
    const int32_t taken = held < most ? held : most;
    bytesOut = ch.MessageWindow + ch.WindowPos;
    ch.WindowPos += taken;
    return taken;
}

int32_t AttBase64(Channel& ch, uint32_t)
{
    constexpr int32_t BlockBytes = 57; // 76 chars, the longest line of RFC 2045
    const char* block = nullptr;
    const int32_t count = TakeAttachBytes(ch, BlockBytes, block);
    if (count < 1) {
        CloseAttachFile(ch);
        LogFormat(ch, "### AttachBegPtr = [%s]\r\n", ch.AttachBegPtr);
        LogFormat(ch, "### AttachEndPtr = [%s]\r\n", ch.AttachEndPtr);
        return NextAttachEntry(ch);
    }
    const int32_t length = EncodeBase64Block(block, ch.CommandBuffer, count, true) + 2;
    ch.AttachBytesRead += static_cast<uint32_t>(count);
    ch.AttachBytesSent += static_cast<uint32_t>(length);
    if (const int32_t result = SendData(ch, ch.CommandBuffer, length); result < 0)
        return FailSend(ch, result);
    Arm(ch, DataGap, DataTimeout);
    ch.WaitWritable = 1;
    return Stay(ch);
}

int32_t AttLines(Channel& ch, uint32_t)
{
    const int32_t length = ReadMsgLine(ch);
    if (length < 0) {
        CloseAttachFile(ch);
        return NextAttachEntry(ch);
    }
    ch.AttachBytesRead += static_cast<uint32_t>(length);
    if (const int32_t status = SendOrFail(ch, ch.CommandBuffer); status < 0)
        return status;
    Arm(ch, DataGap, DataTimeout);
    ch.WaitWritable = 1;
    return Stay(ch);
}
