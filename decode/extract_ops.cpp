// What a host reads of a fetched message: header values, and pieces of the raw lines.
#include "codec/text.h"
#include "decode/encoded_words.h"
#include "frame/channel.h"
#include "frame/log.h"

// --- header values ---

static int32_t CopyStore(const HeaderStore& store, char* target, int32_t size)
{
    CopyText(target, store.Text, size);
    return TrimLineEnd(target);
}

static int32_t CopyHeader(const Channel& ch, int32_t code, char* target, int32_t size)
{
    switch (code) {
    case RYN_HEADER_DATE:
        return CopyText(target, ch.HeaderDate, size);
    case RYN_HEADER_FROM:
        return CopyText(target, ch.FromAddress, size);
    case RYN_HEADER_REPLY_TO:
        return CopyText(target, ch.ReplyToAddress, size);
    case RYN_HEADER_SUBJECT:
        return CopyStore(ch.SubjectStore, target, size);
    case RYN_HEADER_TO:
        return CopyStore(ch.ToStore, target, size);
    case RYN_HEADER_CC:
        return CopyStore(ch.CcStore, target, size);
    case RYN_HEADER_CONTENT_TYPE:
        return CopyText(target, ch.HeaderContentType, size);
    default:
        return -1;
    }
}

int32_t rynGetHeader(uint32_t channel, int32_t code, char* target, int32_t size)
{
    if (target == nullptr)
        return 0;
    char nothing[1] = "";
    char* const place = size < 0 ? nothing : target;
    place[0] = 0;
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    const Channel& ch = *ChannelTable[channel];
    LogText(&ch, "*** rynGetHeader\r\n");
    return CopyHeader(ch, code, place, size < 0 ? 0 : size);
}

// --- lines of a text ---

// Copies a line up to and with its LF: chars copied, or 0 for one that needs more than size bytes with
// the zero behind it.
static int32_t CopyLine(const char* source, char* target, int32_t size)
{
    for (int32_t count = 0; count + 1 < size; count++) {
        target[count] = source[count];
        if (source[count] == 0)
            return count;
        if (source[count] == '\n') {
            target[count + 1] = 0;
            return count + 1;
        }
    }
    if (size > 0)
        target[0] = 0;
    return 0;
}

int32_t rynExtractText(const char* text, const char* find, char* target, int32_t size)
{
    if (text == nullptr || find == nullptr || target == nullptr)
        return 0;
    const char* const place = FindTextNoCase(text, find);
    return place == nullptr ? 0 : CopyLine(place, target, size);
}

int32_t rynExtractLine(const char* text, int32_t line, char* target, int32_t size)
{
    if (text == nullptr || target == nullptr)
        return 0;
    for (int32_t i = 1; i < line; i++) {
        text = FindChar(text, '\n');
        if (text == nullptr)
            return 0;
        text++;
    }
    return CopyLine(text, target, size);
}
