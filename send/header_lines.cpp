// Date line, Message-ID line, encoded words.
#include "send/header_lines.h"

#include "codec/base64.h"
#include "codec/quoted.h"
#include "codec/text.h"
#include "frame/channel.h"
#include "frame/log.h"
#include "frame/settings.h"
#include "platform/platform.h"

#include <cstdlib>
#include <cstring>

// --- date ---

void FormatZone(int32_t zone, char* text)
{
    const char sign = zone < 0 ? '-' : '+';
    const int32_t digits = zone < 0 ? -zone : zone;
    FormatText(text, 6, "%c%04d", sign, digits % 10000);
}

// The zone of this moment; worked out once for the process unless the host has set it.
static void ReadZone(const Channel* ch, const OsLocalTime& time, char* zone, int32_t chars)
{
    constexpr int32_t DaylightCode = 2;
    if (LoadShared(zone, ZoneString, chars) > 0)
        return;
    const int32_t east = -time.Bias + (time.IsDaylight != 0 ? 60 : 0); // minutes
    const int32_t minutes = east % 60;
    const int32_t value = east / 60 * 100 + minutes;
    FormatZone(value, zone);
    StoreShared(ZoneString, zone, chars);
    if (LogZone != 0 && ch != nullptr)
        LogFormat(*ch, "ZoneCode=%d, Bias=%d, Zone=%d, ZoneMin=%d,  ZoneString='%s'\r\n",
                  time.IsDaylight != 0 ? DaylightCode : 1, time.Bias, value, minutes, zone);
}

void FormatDateLine(const Channel* ch, char* line)
{
    static const char* const dayNames[] = { "Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat" };
    static const char* const monthNames[] = { "Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec" };
    OsLocalTime time;
    osLocalTime(time);
    char zone[sizeof ZoneString];
    ReadZone(ch, time, zone, sizeof zone - 1);
    FormatText(line, FormatCapacity, "Date: %s, %d %s %d %02d:%02d:%02d %s", dayNames[time.Weekday],
               time.Day, monthNames[time.Month - 1], time.Year, time.Hour, time.Minute, time.Second,
               zone);
}

// --- Message-ID ---

static void RandomBytes(uint8_t* bytes, size_t count)
{
    static std::atomic<uint32_t> randomSeed = 0;
    uint32_t none = 0;
    const uint32_t seed = osTickCount() + 0x10000000;
    if (randomSeed.compare_exchange_strong(none, seed, std::memory_order_relaxed))
        srand(seed);
    // It only has to be unlike other messages' ids, and glibc locks it.
    for (size_t i = 0; i < count; i++)
        bytes[i] = static_cast<uint8_t>(
            rand()); // NOLINT(cert-msc30-c,cert-msc50-cpp,concurrency-mt-unsafe)
}

// Two lower-case digits a byte; text holds 2 * count + 1 bytes.
static void HexBytes(const uint8_t* bytes, size_t count, char* text)
{
    static constexpr char Digits[] = "0123456789abcdef";
    for (size_t i = 0; i < count; i++) {
        *text++ = Digits[bytes[i] >> 4];
        *text++ = Digits[bytes[i] & 15];
    }
    *text = 0;
}

void FormatMessageId(const Channel& ch, char* line)
{
    constexpr size_t IdBytes = 4;
    constexpr size_t RandomCount = 12;
    const uint32_t id = osProcessId();
    const uint8_t idBytes[IdBytes] = { static_cast<uint8_t>(id), static_cast<uint8_t>(id >> 8),
                                       static_cast<uint8_t>(id >> 16),
                                       static_cast<uint8_t>(id >> 24) };
    uint8_t random[RandomCount];
    RandomBytes(random, RandomCount);
    char idText[2 * IdBytes + 1];
    char randomText[2 * RandomCount + 1];
    HexBytes(idBytes, IdBytes, idText);
    HexBytes(random, RandomCount, randomText);
    char domain[sizeof ch.FromAddress + 1];
    if (const char* at = FindChar(ch.FromAddress, '@'); at != nullptr)
        CopyField(domain, at + 1); // with the '>' that ends the line, too
    else
        FormatText(domain, sizeof domain, "%s>",
                   ch.LocalHostName[0] != 0 ? ch.LocalHostName : "localhost");
    FormatText(line, FormatCapacity, "Message-ID: <%s.%s.%d.%d@%s", idText, randomText,
               ch.ChannelNumber, 0, domain);
}

// --- encoded words (RFC 2047) ---

constexpr int32_t WordChars = 1023; // longest word

struct WordRow {
    int32_t PageCode;
    const char* Prefix;
    bool IsBase64;
};
static const WordRow WordTable[] = {
    { 4, "=?ISO-8859-1?Q?", false },  { 5, "=?ISO-8859-8?Q?", false },
    { 6, "=?WIN-1252?Q?", false },    { 7, "=?WIN-1255?Q?", false },
    { 10, "=?ISO-8859-2?Q?", false }, { 11, "=?ISO-8859-7?Q?", false },
    { 12, "=?WIN-1250?Q?", false },   { 13, "=?ISO-8859-3?Q?", false },
    { 14, "=?ISO-8859-4?Q?", false }, { 15, "=?UTF-8?Q?", false },
    { 30, "=?UTF-8?B?", true },
};

static const WordRow* FindPageCode(int32_t pageCode)
{
    for (const WordRow& row : WordTable)
        if (row.PageCode == pageCode)
            return &row;
    return nullptr;
}

// Encodes the text by the row: its length, or RYN_ERR_BUFFER_OVERFLOW. encoded holds WordChars + 4.
static int32_t EncodeWord(const WordRow& row, const char* text, char* encoded)
{
    const int32_t length = TextLength(text);
    encoded[0] = 0;
    if (length == 0)
        return 0;
    if (!row.IsBase64)
        return QuoteText(text, encoded, WordChars);
    if (length > WordChars || Base64Length(length) > WordChars)
        return RYN_ERR_BUFFER_OVERFLOW;
    return EncodeBase64Block(text, encoded, length, false);
}

int32_t rynMakeSubject(const char* text, int32_t pageCode, char* buffer, int32_t size)
{
    if (text == nullptr)
        return RYN_ERR_NULL_POINTER;
    if (buffer == nullptr)
        return RYN_ERR_NULL_BUFFER;
    const WordRow* row = FindPageCode(pageCode);
    if (row == nullptr)
        return RYN_ERR_NO_SUCH_PAGE_CODE;
    char encoded[WordChars + 4];
    const int32_t encodedChars = EncodeWord(*row, text, encoded);
    const int32_t length = TextLength(row->Prefix) + encodedChars + 2;
    if (encodedChars < 0 || length > WordChars || length >= size)
        return RYN_ERR_BUFFER_OVERFLOW;
    return FormatText(buffer, static_cast<size_t>(size), "%s%s?=", row->Prefix, encoded);
}
