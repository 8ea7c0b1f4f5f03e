// One handler for each header. Values begin at a fixed index: behind the name, the colon and one
// blank.
#include "decode/header_lines.h"

#include "codec/text.h"
#include "decode/decoder.h"
#include "decode/encoded_words.h"
#include "decode/header_store.h"
#include "decode/line_joins.h"
#include "frame/channel.h"
#include "frame/log.h"
#include "frame/settings.h"

static char* TextFrom(Channel& ch, int32_t index)
{
    return ch.ReplyBuffer + ClampIndex(ch.ReplyBuffer, index);
}

template <size_t N>
static void KeepValue(Channel& ch, int32_t index, char (&field)[N])
{
    CopyField(field, TextFrom(ch, index));
    CutAtLineEnd(field);
}

static void WriteHeaderLine(Channel& ch, int32_t length)
{
    if (NoHeaderCopy == 0)
        WriteToDisk(ch, ch.EmailHandle, ch.ReplyBuffer, length);
}

// Makes the continuation the line in hand: its length, or a status.
static int32_t TakeFold(Channel& ch)
{
    const int32_t count = ReadFold(ch);
    if (count > 0)
        ch.MsgBytesRead += static_cast<uint32_t>(count);
    return count;
}

// --- To and Cc ---

static HeaderOutcome ProcessAddresses(Channel& ch, HeaderStore& store)
{
    constexpr int32_t MostLines = 256;
    const uint32_t deadline = FoldDeadline();
    int32_t index = 4;
    for (int32_t lines = 0; lines < MostLines; lines++) {
        if (const WordCode code = FindEncodedWord(TextFrom(ch, index)); code != WORD_NONE)
            DecodeEncodedWord(ch, index, code);
        AppendHeaderStore(store, TextFrom(ch, index));
        if (!FoldIsNext(ch, deadline))
            return HEADER_COPY;
        WriteHeaderLine(ch, TextLength(ch.ReplyBuffer));
        if (TakeFold(ch) < 0)
            return HEADER_COPY; // what has come of the line
        index = 1;
    }
    return HEADER_COPY; // the line in hand has not been copied yet
}

static HeaderOutcome Process_To(Channel& ch)
{
    return ProcessAddresses(ch, ch.ToStore);
}

static HeaderOutcome Process_CC(Channel& ch)
{
    return ProcessAddresses(ch, ch.CcStore);
}

// --- Subject ---

// What the lines of a Subject have shown of encoded words.
struct SubjectWords {
    WordCode Code;  // of the line in hand, or of the line before where a word goes on
    bool IsPending; // a word has begun on an earlier line and not ended there
};

// Rewrites the word of a line. One that was begun before goes on, unless the line begins with a word
// of its own.
static void RewriteSubject(Channel& ch, int32_t index, SubjectWords& words)
{
    const char* text = TextFrom(ch, index);
    const bool goesOn = words.IsPending && text[0] != '=' && text[0] != 0 && text[1] != '?';
    if (!goesOn)
        words.Code = FindEncodedWord(text);
    if (DecodeEncodedWord(ch, index, words.Code) == 0 && (goesOn || words.Code != WORD_NONE))
        words.IsPending = words.Code != WORD_NONE;
}

static HeaderOutcome Process_Subject(Channel& ch)
{
    constexpr int32_t MostLines = 1023;
    const uint32_t deadline = FoldDeadline();
    SubjectWords words = {};
    int32_t index = 9;
    for (int32_t lines = 0; lines < MostLines; lines++) {
        RewriteSubject(ch, index, words);
        AppendHeaderStore(ch.SubjectStore, TextFrom(ch, index));
        WriteHeaderLine(ch, TrimEncodedTail(ch.ReplyBuffer));
        if (!FoldIsNext(ch, deadline))
            return HEADER_TAKEN;
        if (TakeFold(ch) < 0)
            return HEADER_COPY;
        index = 1;
    }
    return HEADER_TAKEN;
}

// --- the others ---

static HeaderOutcome Process_From(Channel& ch)
{
    CombineHeaderLines(ch);
    KeepValue(ch, 6, ch.FromAddress);
    return HEADER_COPY;
}

static HeaderOutcome Process_ReplyTo(Channel& ch)
{
    LogText(&ch, "[Process_ReplyTo]\n");
    KeepValue(ch, 10, ch.ReplyToAddress);
    return HEADER_TAKEN;
}

static HeaderOutcome Process_Date(Channel& ch)
{
    KeepValue(ch, 6, ch.HeaderDate);
    return HEADER_COPY;
}

static HeaderOutcome Process_ContentType(Channel& ch)
{
    KeepValue(ch, 14, ch.HeaderContentType);
    return HEADER_TAKEN;
}

struct HeaderRow {
    const char* Name;
    int32_t Chars;
    HeaderOutcome (*Process)(Channel& ch);
};

static constexpr HeaderRow Headers[] = {
    { "Subject:", 8, Process_Subject },
    { "To:", 3, Process_To },
    { "CC:", 3, Process_CC },
    { "From:", 5, Process_From },
    { "Reply-To:", 9, Process_ReplyTo },
    { "Date:", 5, Process_Date },
    { "Content-Type:", 13, Process_ContentType },
};

HeaderOutcome ProcessHeaderLine(Channel& ch)
{
    for (const HeaderRow& row : Headers)
        if (SameTextNoCase(ch.ReplyBuffer, row.Name, row.Chars) != 0)
            return row.Process(ch);
    return HEADER_OTHER;
}
