// Names, files and lists of attachments.
#include "decode/attachment_save.h"

#include "codec/text.h"
#include "decode/decoder.h"
#include "frame/channel.h"
#include "frame/log.h"
#include "frame/settings.h"
#include "transport/vfile.h"

#include <cstring>

constexpr int32_t PathRoom = static_cast<int32_t>(FetchPathChars);

// --- name ---

// True for a byte that no file name may hold on some system.
static bool IsForbidden(char c)
{
    constexpr char Forbidden[] = "\"*/:<=>?\\|\x81\x8D\x8E\x8F\x90\x9D\x9E";
    return (c >= 1 && c <= 31) || FindChar(Forbidden, c) != nullptr;
}

static void SanitizeFilename(char* text)
{
    for (; *text != 0; text++)
        if (IsForbidden(*text))
            *text = '_';
}

// Leaves the name in ScratchBuffer.
static void MakeAttachmentName(Channel& ch)
{
    char* const name = ch.ScratchBuffer;
    if (ch.AttCounter > 0)
        FormatText(name, ScratchCapacity, "%d.att", ch.AttCounter);
    else if (ch.AttachNumbering != 0)
        FormatText(name, ScratchCapacity, "%d-%s",
                   static_cast<int32_t>(static_cast<uint32_t>(ch.AttachNumberBase) +
                                        static_cast<uint32_t>(ch.AttachTotal)),
                   ch.Filename);
    else
        CopyText(name, ch.Filename, PathRoom);
    SanitizeFilename(name);
}

void SetDefaultFilename(Channel& ch, const char* name)
{
    CopyField(ch.Filename, name);
    ch.UtfFilename = 0;
}

// --- file ---

int32_t CreateAttachment(Channel& ch)
{
    LogFormat(ch, "[AttachDir = '%s']\r\n", ch.AttachDir);
    LogFormat(ch, "[Filename = '%s']\r\n", ch.Filename);
    JoinPath(ch.AttachPath, ch.AttachDir, "", PathRoom);
    MakeAttachmentName(ch);
    AppendText(ch.AttachPath, ch.ScratchBuffer, PathRoom);
    CloseAttachmentFile(ch);
    LogFormat(ch, "[Creating '%s']\r\n", ch.AttachPath);
    ch.AttachHandle = u_Create(ch.AttachPath, FILE_OF_PEER, ch.UtfFilename != 0);
    if (ch.AttachHandle < 0) {
        LogFormat(ch, "[Cannot open '%s']\r\n", ch.AttachPath);
        ch.AttachHandle = 0;
        return 0;
    }
    u_GatherWrites(ch.AttachHandle);
    LogFormat(ch, "[File %d created]\r\n", ch.AttachHandle);
    return 1;
}

void StartDefaultAttachment(Channel& ch)
{
    if (ch.TransferEncoding != TE_BASE64 || ch.AttachHandle != 0 || ch.SaveUnnamedBase64 == 0)
        return;
    if (ch.Filename[0] == 0)
        SetDefaultFilename(ch, ch.TextContent != 0 ? "incoming.txt" : "noname.bin");
    CreateAttachment(ch);
}

void CloseAttachmentFile(Channel& ch)
{
    if (ch.AttachHandle == 0)
        return;
    LogFormat(ch, "[Closing file %d]\r\n", ch.AttachHandle);
    u_Close(ch.AttachHandle);
    ch.AttachHandle = 0;
}

// --- lists ---

// Adds an entry to a list of all attachments; one for which there is no room is left out.
template <size_t N>
static void AddEntry(char (&list)[N], const char* entry)
{
    constexpr int32_t Capacity = static_cast<int32_t>(N) - 1;
    const int32_t length = TextLength(list);
    if (length + TextLength(entry) > Capacity + 1)
        return;
    const char delimiter[] = { AttachDelimiter, 0 };
    if (length > 0)
        AppendText(list, delimiter, Capacity);
    AppendText(list, entry, Capacity);
}

static void ListAttachment(Channel& ch)
{
    AddEntry(ch.AttachList, BaseFileName(ch.AttachPath));
    AddEntry(ch.TypeList, ch.PartType);
    AddEntry(ch.IdList, ch.PartId);
}

// The note that stands in the message file in the place of the part.
static void FormatNote(Channel& ch)
{
    const bool hasId = ch.PartId[0] != 0 && SameTextNoCase(ch.PartId, "nul", 4) == 0;
    if (hasId)
        FormatText(ch.ScratchBuffer, ScratchCapacity, "[Attachment %s saved to \"%s\"]\r\n",
                   ch.PartId, ch.AttachPath);
    else
        FormatText(ch.ScratchBuffer, ScratchCapacity, "[Attachment saved to \"%s\"]\r\n",
                   ch.AttachPath);
}

int32_t CloseAttachment(Channel& ch)
{
    LogText(&ch, "[Closing attachment]\r\n");
    if (ch.AttachHandle == 0)
        return 0;
    CloseAttachmentFile(ch);
    FormatNote(ch);
    if (NoAttachNote == 0)
        WriteToDisk(ch, ch.EmailHandle, ch.ScratchBuffer, TextLength(ch.ScratchBuffer));
    LogText(&ch, ch.ScratchBuffer);
    ListAttachment(ch);
    ch.AttachCount++;
    ch.AttachTotal++;
    if (ch.AttCounter > 0 && ch.AttCounter < INT32_MAX)
        ch.AttCounter++;
    return 1;
}
