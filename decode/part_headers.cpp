// What a part says of itself.
#include "decode/part_headers.h"

#include "codec/base64.h"
#include "codec/text.h"
#include "decode/decoder.h"
#include "decode/encoded_words.h"
#include "decode/line_joins.h"
#include "frame/channel.h"
#include "frame/log.h"

#include <cstring>

constexpr int32_t NamesFrom = 13; // where a parameter may begin, at the earliest

// --- encoding and disposition ---

struct EncodingRow {
    const char* Text;
    int32_t Encoding;
    const char* Note;
};

static constexpr EncodingRow Encodings[] = {
    { "base64", TE_BASE64, "[Encoding is BASE64]\r\n" },
    { "quoted-printable", TE_QUOTED, "[Encoding is QUOTED]\r\n" },
    { "7bit", TE_7BIT, "[Encoding is 7-bit]\r\n" },
};

int32_t ProcessTransferEncoding(Channel& ch)
{
    constexpr char Head[] = "Content-Transfer-Encoding:";
    if (!BeginsWith(ch.ReplyBuffer, Head))
        return 0;
    for (const EncodingRow& row : Encodings) {
        if (FindTextNoCase(ch.ReplyBuffer + sizeof Head - 1, row.Text) == nullptr)
            continue;
        ch.TransferEncoding = row.Encoding;
        LogText(&ch, row.Note);
        return 1;
    }
    return 0;
}

int32_t ProcessDisposition(Channel& ch)
{
    constexpr char Head[] = "Content-Disposition:";
    constexpr char Inline[] = "inline";
    if (!BeginsWith(ch.ReplyBuffer, Head))
        return 0;
    const char* found = FindTextNoCase(ch.ReplyBuffer + sizeof Head - 1, Inline);
    if (found != nullptr && found[sizeof Inline - 1] != ';') {
        ch.PartInline = 1;
        LogText(&ch, "[inline]\r\n");
    }
    if (ch.Rfc822Seen != 0)
        ch.Rfc822HasDisposition = 1;
    return 1;
}

// --- type ---

int32_t SaveContentType(Channel& ch)
{
    constexpr char Head[] = "Content-Type: ";
    constexpr int32_t TypeFrom = sizeof Head - 1;
    constexpr int32_t LookedAt = 256;
    if (!BeginsWith(ch.ReplyBuffer, Head))
        return 0;
    CombineHeaderLines(ch);
    int32_t end = IndexOfChar(ch.ReplyBuffer, ';', LookedAt);
    if (end < 0)
        end = IndexOfChar(ch.ReplyBuffer, '\r', LookedAt);
    if (end > TypeFrom)
        CopyText(ch.PartType, ch.ReplyBuffer + TypeFrom, end - TypeFrom);
    return 1;
}

// --- name ---

static void DecodeUtf8Parameter(Channel& ch)
{
    const WordCode code = FindUtf8Word(ch.ReplyBuffer + ClampIndex(ch.ReplyBuffer, NamesFrom));
    if (code == WORD_UTF8_Q) {
        LogText(&ch, "[UTF-8/Q]\r\n");
        Remove_UTF_Encoding(ch, false);
    } else if (code == WORD_UTF8_B) {
        LogText(&ch, "[UTF-8/B]\r\n");
        Remove_UTF_Encoding(ch, true);
    }
}

// Takes the frame of an encoded word off the name: how the name itself is still encoded.
static WordCode UnwrapName(Channel& ch)
{
    const WordCode code = FindForeignWord(ch.ReplyBuffer + ClampIndex(ch.ReplyBuffer, NamesFrom));
    if (code == WORD_NONE) {
        DecodeUtf8Parameter(ch);
        return WORD_NONE;
    }
    LogText(&ch, "[iso-8859/win1250/win1252/win1255/big5]\r\n");
    JoinIfEndsWith(ch, '=');
    LogFormat(ch, "[r:%s]\r\n", ch.ReplyBuffer);
    Remove_ISO_Encoding(ch, false);
    return code;
}

// The name in the text behind "name=": its end, or null, logged, for a name without one.
static char* FindNameEnd(const Channel& ch, char* text, char*& nameOut)
{
    const bool quoteFirst = text[0] == '"';
    if (quoteFirst || (text[0] != 0 && text[1] == '"')) {
        nameOut = text + (quoteFirst ? 1 : 2);
        if (*nameOut == ' ')
            nameOut++;
        char* const end = *nameOut == 0 ? nullptr : FindChar(nameOut + 1, '"');
        if (end == nullptr)
            LogText(&ch, "[Filename missing terminating quote]\n");
        return end;
    }
    nameOut = text;
    char* end = *text == 0 ? nullptr : FindChar(text + 1, ';');
    if (end == nullptr)
        end = FindChar(text, '\r');
    if (end == nullptr)
        LogText(&ch, "[Filename missing terminating semicolon or CR]\n");
    return end;
}

static void StoreFilename(Channel& ch, const char* name, WordCode code)
{
    char* const decoded = ch.ScratchBuffer; // room for all of a line
    switch (code) {
    case WORD_Q:
        DecodeQuoted(name, decoded);
        break;
    case WORD_B:
        decoded[DecodeBase64Line(name, decoded, TextLength(name))] = 0;
        break;
    default:
        CopyField(ch.Filename, name);
        return;
    }
    CopyField(ch.Filename, decoded);
}

int32_t ProcessFilename(Channel& ch)
{
    constexpr char Parameter[] = "name=";
    ch.UtfFilename = 0;
    JoinParameterLines(ch);
    const WordCode code = UnwrapName(ch);
    char* const line = ch.ReplyBuffer + ClampIndex(ch.ReplyBuffer, NamesFrom);
    const char* const found = FindTextNoCase(line, Parameter);
    if (found == nullptr)
        return 0;
    LogFormat(ch, "[%s]\n", found);
    char* name = nullptr;
    char* const end = FindNameEnd(ch, line + (found - line) + sizeof Parameter - 1, name);
    if (end == nullptr)
        return 0;
    const char kept = *end;
    *end = 0;
    StoreFilename(ch, BaseFileName(name), code);
    *end = kept;
    LogFormat(ch, "[Filename='%s']\r\n", ch.Filename);
    return 1;
}
