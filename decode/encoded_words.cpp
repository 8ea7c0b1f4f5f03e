// The list of charsets, and the rewriting of one word.
#include "decode/encoded_words.h"

#include "codec/base64.h"
#include "codec/quoted.h"
#include "codec/text.h"
#include "decode/line_joins.h"
#include "frame/channel.h"
#include "frame/log.h"
#include "frame/settings.h"

#include <cstring>

struct CharsetRow {
    const char* Head; // without the letter of the form and its '?'
    uint8_t IsUtf8;
    uint8_t IsSilent; // 1 = the quoted form is not noted in the log
};

// In the order of the search.
static constexpr CharsetRow Words[] = {
    { "=?iso-8859-1?", 0, 1 },   { "=?iso-8859-2?", 0, 0 },   { "=?iso-8859-3?", 0, 0 },
    { "=?iso-8859-4?", 0, 0 },   { "=?iso-8859-7?", 0, 0 },   { "=?iso-8859-8?", 0, 0 },
    { "=?iso-8859-15?", 0, 0 },  { "=?iso-2022-jp?", 0, 0 },  { "=?utf-8?", 1, 0 },
    { "=?windows-1250?", 0, 0 }, { "=?windows-1252?", 0, 0 }, { "=?windows-1255?", 0, 0 },
    { "=?big5?", 0, 0 },         { "=?us-ascii?", 0, 0 },
};

// Heads of the foreign charsets with the chars to take out: the letter of the form and its '?' too.
struct HeadRow {
    const char* Head;
    int32_t Chars;
};

static constexpr HeadRow Heads[] = {
    { "=?iso-8859-15", 16 },   { "=?iso-8859-", 15 },     { "=?windows-1250?", 17 },
    { "=?windows-1252?", 17 }, { "=?windows-1255?", 17 }, { "=?big5?", 9 },
    { "=?us-ascii?", 13 },     { "=?iso-2022-jp", 16 },
};

static constexpr char WordEnd[] = "?=";
constexpr int32_t WordEndChars = 2;
constexpr int32_t LineEndChars = 2;

// --- finding ---

static void NoteEncoding(WordCode code)
{
    static constexpr const char* Notes[] = { "", "[ISO 8859 Quoted]\n", "[ISO 8859 Base64]\n",
                                             "[UTF8 Quoted]\n", "[UTF8 Base64]\n" };
    LogGlobal(Notes[code]);
}

// True if the head stands in the text with this letter of the form behind it.
static bool HasWord(const char* text, const char* head, char form)
{
    const size_t length = strlen(head);
    for (const char* place = FindTextNoCase(text, head); place != nullptr;
         place = FindTextNoCase(place + 1, head))
        if ((place[length] | 0x20) == form && place[length + 1] == '?')
            return true;
    return false;
}

static WordCode FindInRow(const char* text, const CharsetRow& row)
{
    WordCode code = WORD_NONE;
    if (HasWord(text, row.Head, 'q'))
        code = row.IsUtf8 != 0 ? WORD_UTF8_Q : WORD_Q;
    else if (HasWord(text, row.Head, 'b'))
        code = row.IsUtf8 != 0 ? WORD_UTF8_B : WORD_B;
    if (code != WORD_NONE && (code != WORD_Q || row.IsSilent == 0))
        NoteEncoding(code);
    return code;
}

// Most lines hold no word at all, which one search tells.
static bool MayHoldWord(const char* text)
{
    return strstr(text, "=?") != nullptr;
}

WordCode FindEncodedWord(const char* text)
{
    if (!MayHoldWord(text))
        return WORD_NONE;
    for (const CharsetRow& row : Words)
        if (const WordCode code = FindInRow(text, row); code != WORD_NONE)
            return code;
    return WORD_NONE;
}

WordCode FindForeignWord(const char* text)
{
    if (!MayHoldWord(text))
        return WORD_NONE;
    for (const CharsetRow& row : Words)
        if (row.IsUtf8 == 0)
            if (const WordCode code = FindInRow(text, row); code != WORD_NONE)
                return code;
    return WORD_NONE;
}

WordCode FindUtf8Word(const char* text)
{
    for (const CharsetRow& row : Words)
        if (row.IsUtf8 != 0)
            return FindInRow(text, row);
    return WORD_NONE;
}

// --- rewriting ---

int32_t DecodeQuoted(const char* source, char* target)
{
    uint32_t spaces = 0;
    const int32_t count = UnquoteText(source, target, UnderscoreToSpace != 0, spaces);
    if (spaces != 0)
        UnderscoreCount.fetch_add(spaces, std::memory_order_relaxed);
    return count;
}

// Moves the rest of a text up over count chars, or over what it has of them.
static void RemoveChars(char* text, int32_t count)
{
    const size_t length = strlen(text);
    const size_t removed = strnlen(text, static_cast<size_t>(count));
    memmove(text, text + removed, length - removed + 1);
}

// Decodes quoted text in place up to the end of its line. The line end stays, and so does a word's
// end in front of it: to the decoder they would be a soft line break.
static void DecodeQuotedLine(Channel& ch, char* text)
{
    int32_t length = TextLength(text);
    while (length > 0 && (text[length - 1] == '\r' || text[length - 1] == '\n'))
        length--;
    if (length >= WordEndChars && memcmp(text + length - WordEndChars, WordEnd, WordEndChars) == 0)
        length -= WordEndChars;
    CopyText(ch.ScratchBuffer, text, length);
    char* const rest = text + length;
    char* const decoded = ch.ScratchBuffer;
    const int32_t count = DecodeQuoted(decoded, decoded);
    BlankZeros(decoded, count); // a header is a text: a zero byte is what it is on arrival
    memcpy(text, decoded, static_cast<size_t>(count));
    memmove(text + count, rest, strlen(rest) + 1);
}

// Puts the decoded Base64 word at place, whose "?=" stands at end, in the place of its encoded form
// with what follows it. The line keeps its length: blanks fill it.
static void DecodeBase64Tail(Channel& ch, char* place, char* end)
{
    constexpr int32_t MostChars = 256; // of the word and what follows it
    const int32_t total = TextLength(place);
    char* const scratch = ch.ScratchBuffer;
    *end = 0;
    int32_t count = DecodeBase64Line(place, scratch, static_cast<int32_t>(end - place));
    BlankZeros(scratch, count);
    scratch[count] = 0;
    if (end[WordEndChars] != 0) {
        AppendText(scratch, end + WordEndChars, MostChars);
        count = TextLength(scratch);
        if (count >= LineEndChars && scratch[count - 2] == '\r')
            count -= LineEndChars;
    }
    const int32_t room = total - LineEndChars;
    if (count > room)
        count = room;
    memcpy(place, scratch, static_cast<size_t>(count));
    memset(place + count, ' ', static_cast<size_t>(room - count));
    memcpy(place + room, "\r\n", LineEndChars);
}

// The word's text behind its head, which is taken out; the first char of the line if there is none.
static char* RemoveForeignHead(char* line)
{
    for (const HeadRow& row : Heads) {
        const char* found = FindTextNoCase(line, row.Head);
        if (found == nullptr)
            continue;
        char* const place = line + (found - line);
        RemoveChars(place, row.Chars);
        return place;
    }
    return line;
}

int32_t Remove_ISO_Encoding(Channel& ch, bool isBase64)
{
    char* const line = ch.ReplyBuffer + ClampIndex(ch.ReplyBuffer, 1);
    if (*line == 0)
        return 0;
    char* const place = RemoveForeignHead(line);
    char* const end = strstr(place, WordEnd);
    if (end == nullptr)
        return 0;
    if (isBase64)
        DecodeBase64Tail(ch, place, end);
    else
        RemoveChars(end, WordEndChars);
    return 1;
}

int32_t Remove_UTF_Encoding(Channel& ch, bool isBase64)
{
    constexpr char Head[] = "=?utf-8?";
    constexpr int32_t HeadChars = sizeof Head - 1 + 2; // with the letter of the form and its '?'
    LogFormat(ch, "[Remove_UTF_Encoding(*,%d)]\n", isBase64 ? 1 : 0);
    char* const line = ch.ReplyBuffer + ClampIndex(ch.ReplyBuffer, 1);
    const char* const found = FindTextNoCase(line, Head);
    if (found == nullptr)
        return 0;
    char* const place = line + (found - line);
    RemoveChars(place, HeadChars);
    char* const end = strstr(place, WordEnd);
    if (end == nullptr)
        return 0;
    if (isBase64) {
        DecodeBase64Tail(ch, place, end);
        return 1;
    }
    RemoveChars(end, WordEndChars);
    DecodeQuotedLine(ch, place);
    ch.UtfFilename = 1;
    LogText(&ch, "[is UTF-8 encoded]\r\n");
    return 1;
}

int32_t DecodeEncodedWord(Channel& ch, int32_t index, WordCode code)
{
    switch (code) {
    case WORD_Q: {
        const int32_t result = Remove_ISO_Encoding(ch, false);
        DecodeQuotedLine(ch, ch.ReplyBuffer + ClampIndex(ch.ReplyBuffer, index));
        return result;
    }
    case WORD_B:
        return Remove_ISO_Encoding(ch, true);
    case WORD_UTF8_Q:
        return Remove_UTF_Encoding(ch, false);
    case WORD_UTF8_B:
        return Remove_UTF_Encoding(ch, true);
    default:
        return 0;
    }
}

// --- ends of lines ---

int32_t TrimLineEnd(char* text)
{
    int32_t length = TextLength(text);
    if (length < 2)
        return length;
    for (int i = 0; i < 2 && length > 0 && (text[length - 1] == '\r' || text[length - 1] == '\n');
         i++)
        length--;
    while (length > 0 && (text[length - 1] == ' ' || text[length - 1] == '\t'))
        length--;
    text[length] = 0;
    return length;
}

int32_t TrimEncodedTail(char* text)
{
    if (strnlen(text, 2) < 2)
        return TextLength(text);
    int32_t length = TrimLineEnd(text);
    if (length < 3)
        return length;
    if (memcmp(text + length - WordEndChars, WordEnd, WordEndChars) == 0)
        length -= WordEndChars;
    memcpy(text + length, "\r\n", LineEndChars + 1);
    return length + LineEndChars;
}
