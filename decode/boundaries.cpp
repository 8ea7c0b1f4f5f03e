// Boundary parameters, and the lines that carry them.
#include "decode/boundaries.h"

#include "codec/text.h"
#include "decode/attachment_save.h"
#include "decode/decoder.h"
#include "decode/line_joins.h"
#include "frame/channel.h"
#include "frame/log.h"

#include <cstring>

static bool IsBoundary(const char* line, const char* boundary, int32_t length)
{
    return length > 0 && SameTextNoCase(line, boundary, length) != 0;
}

static bool IsBoundaryLine(const Channel& ch)
{
    const char* line = ch.ReplyBuffer;
    if (line[0] != '-' || line[1] != '-')
        return false;
    if (IsBoundary(line, ch.MainBoundary, ch.MainBoundaryLength))
        return true;
    for (const MimeBoundary& boundary : ch.AltBoundary)
        if (IsBoundary(line, boundary.Text, boundary.Length))
            return true;
    return false;
}

int32_t CheckBoundaryLine(Channel& ch)
{
    if (!IsBoundaryLine(ch))
        return 0;
    if (ch.BoundaryCount < INT32_MAX)
        ch.BoundaryCount++;
    ch.DecodeState = DS_PART_HEADERS;
    ch.RFC822WriteFlag = 0;
    ch.TransferEncoding = TE_NONE;
    ch.PartInline = 0;
    SetDefaultFilename(ch, "incoming.txt");
    LogFormat(ch, "[Boundary line #%d found]\r\n", ch.BoundaryCount);
    return 1;
}

static void ClearAltBoundaries(Channel& ch)
{
    for (MimeBoundary& boundary : ch.AltBoundary) {
        boundary.Length = 0;
        boundary.Text[0] = 0;
    }
}

void ResetBoundaries(Channel& ch)
{
    ch.MainBoundaryLength = 0;
    ch.BoundaryCount = 0;
    ClearAltBoundaries(ch);
}

// The boundary in a parameter's text, which may stand in quotes: its end, or null for none.
static char* FindValue(char* text, bool hasSemicolon, char*& valueOut)
{
    if (char* quote = FindChar(text, '"'); quote != nullptr) {
        valueOut = quote + 1;
        return *valueOut == 0 ? nullptr : FindChar(valueOut + 1, '"');
    }
    valueOut = text;
    char* const end = hasSemicolon ? text + strlen(text) : FindChar(text, '\r');
    return end == text ? nullptr : end;
}

// Takes the boundary from the line in ReplyBuffer, looked for from an index on: its length with the
// two hyphens, or 0 for none.
static int32_t ParseBoundary(Channel& ch, int32_t index, char (&target)[BoundaryChars + 1])
{
    constexpr char Parameter[] = "Boundary=";
    JoinIfEndsWith(ch, ';');
    JoinIfEndsWith(ch, ';');
    char* const text = ch.ReplyBuffer + ClampIndex(ch.ReplyBuffer, index);
    const char* found = FindTextNoCase(text, Parameter);
    if (found == nullptr)
        return 0;
    char* const parameter = text + (found - text) + strlen(Parameter);
    char* const semicolon = FindChar(parameter, ';');
    if (semicolon != nullptr)
        *semicolon = 0;
    char* value = nullptr;
    const char* const end = FindValue(parameter, semicolon != nullptr, value);
    if (end == nullptr)
        return 0;
    constexpr ptrdiff_t MostChars = BoundaryChars - 2;
    const ptrdiff_t chars = end - value < MostChars ? end - value : MostChars;
    memcpy(target, "--", 3);
    CopyText(target + 2, value, static_cast<int32_t>(chars));
    return TextLength(target);
}

int32_t ProcessContentType(Channel& ch)
{
    constexpr int32_t NameChars = 13;
    const char* line = ch.ReplyBuffer;
    if (!BeginsWith(line, "Content-Type:"))
        return 0;
    if (BeginsWith(line + ClampIndex(line, NameChars + 1), "text"))
        ch.TextContent = 1;
    char boundary[BoundaryChars + 1] = "";
    const int32_t length = ParseBoundary(ch, NameChars, boundary);
    if (length < 1)
        return 0;
    CopyField(ch.MainBoundary, boundary);
    ch.MainBoundaryLength = length;
    ClearAltBoundaries(ch);
    ch.DecodeState = DS_PREAMBLE;
    CloseAttachmentFile(ch);
    LogFormat(ch, "[MIME boundary defined %d (", length);
    LogText(&ch, ch.MainBoundary);
    LogText(&ch, ")]\r\n");
    return 1;
}

static int32_t FindFreeSlot(const Channel& ch)
{
    for (int32_t slot = 0; slot < static_cast<int32_t>(AltBoundaryCount); slot++)
        if (ch.AltBoundary[slot].Length == 0)
            return slot;
    return -1;
}

static int32_t ProcessOtherBoundary(Channel& ch, int32_t slot)
{
    constexpr int32_t ShortestType = 29; // chars of "Content-Type: multipart/mixed"
    MimeBoundary& boundary = ch.AltBoundary[slot];
    LogFormat(ch, "[ProcessOtherBoundary %d]\n", slot);
    const int32_t length = ParseBoundary(ch, ShortestType, boundary.Text);
    if (length < 1)
        return 0;
    boundary.Length = length;
    LogFormat(ch, "[alternate MIME boundary #%d defined %d (", slot, length);
    LogText(&ch, boundary.Text);
    LogText(&ch, ")]\r\n");
    return 1;
}

int32_t ProcessMultipartLine(Channel& ch)
{
    if (!BeginsWith(ch.ReplyBuffer, "Content-Type: Multipart"))
        return 0;
    const int32_t slot = FindFreeSlot(ch);
    if (slot < 0) {
        LogText(&ch, "[WARNING: Boundary definition not saved!]\r\n");
        return 0;
    }
    return ProcessOtherBoundary(ch, slot);
}
