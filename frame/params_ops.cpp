// rynIntegerParam and rynStringParam: each code is a row of a table. A number that is simply
// stored is told by place and width; what does more has a routine of its own.
#include "codec/text.h"
#include "frame/channel.h"
#include "frame/log.h"
#include "frame/memory.h"
#include "frame/settings.h"
#include "frame/ticks.h"
#include "transport/vfile.h"
#include "transport/vsock.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

// --- numbers ---

enum NumberKind : uint8_t {
    CHANNEL_BYTE,  // low 8 bits to a field of the channel
    CHANNEL_PORT,  // low 16 bits
    CHANNEL_WORD,  // 32 bits
    PROCESS_BYTE,  // low 8 bits to a setting of the process
    PROCESS_WORD,  // 32 bits
    NUMBER_ROUTINE // does its own work; its result is the operation's
};

struct NumberRow {
    int32_t Code;
    NumberKind Kind;
    size_t Field;  // offset in the channel
    void* Setting; // of the process
    int32_t (*Apply)(Channel& ch, uint32_t value);
};

static uint32_t InertSettings[3]; // stored, read by nothing

static int32_t SetCommandGap(Channel&, uint32_t value)
{
    CommandGap = DataGap = std::min(value, LongestTimeout);
    return 1;
}

static int32_t SetReplyTimeout(Channel&, uint32_t value)
{
    ReplyTimeout = DataTimeout = FetchTimeout = std::min(value, LongestTimeout);
    return 1;
}

static int32_t SetMessageType(Channel& ch, uint32_t value)
{
    ch.MessageType = static_cast<int32_t>(value & 31);
    return 1;
}

static int32_t SetAutoCallDriver(Channel& ch, uint32_t value)
{
    ch.AutoCallDriver = static_cast<int32_t>(value & 1);
    ch.NotBeforeTick = 0;
    ch.DeadlineTick = 0;
    return 1;
}

static int32_t SetAttachNumbering(Channel& ch, uint32_t value)
{
    ch.AttachNumbering = static_cast<int32_t>(value);
    if (ch.AttachNumbering >= 0)
        ch.AttachNumberBase = ch.AttachNumbering;
    return 1;
}

static int32_t SetMaxLineLength(Channel&, uint32_t value)
{
    MaxLineLength = value;
    WrapLineLength = static_cast<int32_t>(value - 25);
    return 1;
}

static int32_t SetBlockingConnect(Channel& ch, uint32_t value)
{
    ch.NonBlockingConnect = value == 0 ? 1 : 0;
    return 1;
}

static int32_t SetExpungeOnClose(Channel& ch, uint32_t value)
{
    ch.NoExpunge = value == 0 ? 1 : 0;
    return 1;
}

static int32_t SetShowSecrets(Channel& ch, uint32_t value)
{
    ShowConnectSecrets = value;
    vsSetOption(ch.VSock, VS_OPT_SHOW_SECRETS, static_cast<int32_t>(value));
    return 1;
}

static int32_t SetMailerHeader(Channel& ch, uint32_t value)
{
    ch.SendXMailer = static_cast<uint8_t>(value & 1);
    ch.SendXMailAgent = static_cast<uint8_t>(~value & 1);
    return 1;
}

static int32_t SetBothMailerHeaders(Channel& ch, uint32_t value)
{
    ch.SendXMailer = ch.SendXMailAgent = static_cast<uint8_t>(value);
    return 1;
}

static int32_t SetWriteHeaders(Channel& ch, uint32_t value)
{
    SendStandardHeaders = value;
    SuppressToHeader = value == 0 ? 1 : 0;
    return SetBothMailerHeaders(ch, value);
}

static int32_t SetConnectAttempts(Channel&, uint32_t value)
{
    if (value >= 1 && value <= 20)
        ConnectAttempts = value;
    return 1;
}

static int32_t SetUnderscoreToSpace(Channel&, uint32_t value)
{
    UnderscoreToSpace = value;
    return static_cast<int32_t>(UnderscoreCount.load(std::memory_order_relaxed));
}

static int32_t SetInert1002(Channel&, uint32_t)
{
    InertSettings[1] = 1;
    return 1;
}

static int32_t SetDriverDelay(Channel&, uint32_t value)
{
    DriverDelay = value & 255;
    return 1;
}

#define IN_CHANNEL(code, kind, field)                                                              \
    {                                                                                              \
        code, kind, offsetof(Channel, field), nullptr, nullptr                                     \
    }
#define IN_PROCESS(code, kind, setting)                                                            \
    {                                                                                              \
        code, kind, 0, &(setting), nullptr                                                         \
    }
#define BY_ROUTINE(code, routine)                                                                  \
    {                                                                                              \
        code, NUMBER_ROUTINE, 0, nullptr, routine                                                  \
    }

static const NumberRow NumberTable[] = {
    BY_ROUTINE(RYN_COMMAND_GAP, SetCommandGap),
    BY_ROUTINE(RYN_REPLY_TIMEOUT, SetReplyTimeout),
    IN_PROCESS(RYN_CONNECT_TIMEOUT, PROCESS_WORD, ConnectTimeout),
    BY_ROUTINE(RYN_MESSAGE_TYPE, SetMessageType),
    BY_ROUTINE(RYN_AUTO_CALL_DRIVER, SetAutoCallDriver),
    BY_ROUTINE(RYN_ATTACH_NUMBERING, SetAttachNumbering),
    IN_PROCESS(RYN_POLL_DELAY, PROCESS_WORD, PollDelay),
    IN_CHANNEL(RYN_SAVE_UNNAMED_BASE64, CHANNEL_WORD, SaveUnnamedBase64),
    IN_CHANNEL(RYN_SMTP_PORT, CHANNEL_PORT, SmtpPort),
    IN_CHANNEL(RYN_POP3_PORT, CHANNEL_PORT, Pop3Port),
    BY_ROUTINE(RYN_MAX_LINE_LENGTH, SetMaxLineLength),
    BY_ROUTINE(RYN_BLOCKING_CONNECT, SetBlockingConnect),
    IN_PROCESS(RYN_KEEP_RAW_CHARS, PROCESS_WORD, KeepRawChars),
    IN_PROCESS(RYN_NO_ATTACH_NOTE, PROCESS_WORD, NoAttachNote),
    IN_PROCESS(RYN_NO_TO_HEADER, PROCESS_WORD, SuppressToHeader),
    IN_PROCESS(RYN_RECIPIENT_DELIMITER, PROCESS_BYTE, RecipientDelimiter),
    IN_PROCESS(RYN_INERT_24, PROCESS_WORD, InertSettings[0]),
    IN_PROCESS(RYN_ATTACH_DELIMITER, PROCESS_BYTE, AttachDelimiter),
    IN_PROCESS(RYN_NAME_SEPARATOR, PROCESS_BYTE, AttachNameDelimiter),
    IN_CHANNEL(RYN_DETECT_IMAGES, CHANNEL_BYTE, DetectImages),
    IN_CHANNEL(RYN_DECODE_MODE, CHANNEL_BYTE, DecodeState),
    IN_CHANNEL(RYN_USE_EHLO, CHANNEL_BYTE, UseEhlo),
    IN_CHANNEL(RYN_USE_APOP, CHANNEL_BYTE, UseApop),
    IN_CHANNEL(RYN_ATTACH_COUNTER, CHANNEL_WORD, AttCounter),
    IN_CHANNEL(RYN_IGNORE_RCPT_REFUSAL, CHANNEL_BYTE, IgnoreRcptRefusal),
    IN_CHANNEL(RYN_TAG_TEXT_PARTS, CHANNEL_BYTE, TagTextParts),
    IN_PROCESS(RYN_INDIRECTION_CHAR, PROCESS_BYTE, FileMarker),
    IN_CHANNEL(RYN_HTML_CHARSET, CHANNEL_BYTE, HtmlCharset),
    IN_PROCESS(RYN_NO_HEADER_COPY, PROCESS_WORD, NoHeaderCopy),
    IN_CHANNEL(RYN_KEEP_RFC822, CHANNEL_BYTE, Rfc822Keep),
    IN_CHANNEL(RYN_IMAP_PORT, CHANNEL_PORT, ImapPort),
    BY_ROUTINE(RYN_EXPUNGE_ON_CLOSE, SetExpungeOnClose),
    IN_CHANNEL(RYN_SKIP_ATTACH_DATA, CHANNEL_BYTE, SkipAttachData),
    IN_PROCESS(RYN_IMAP_PARTIAL, PROCESS_WORD, ImapPartialFetch),
    IN_CHANNEL(RYN_FILENAME_PAGE_CODE, CHANNEL_BYTE, FilenamePageCode),
    BY_ROUTINE(RYN_SHOW_SECRETS, SetShowSecrets),
    IN_CHANNEL(RYN_QUOTE_ATTACHMENTS, CHANNEL_BYTE, QuoteAttachments),
    IN_CHANNEL(RYN_AUTH_METHODS, CHANNEL_BYTE, AuthMethods),
    BY_ROUTINE(RYN_MAILER_HEADER, SetMailerHeader),
    IN_PROCESS(RYN_COMMAS_IN_ADDRESS_HEADERS, PROCESS_BYTE, CommaInHeaderLists),
    IN_CHANNEL(RYN_MULTIPART_KIND, CHANNEL_BYTE, MultipartKind),
    IN_CHANNEL(RYN_RAW_PREFIX, CHANNEL_BYTE, RawPrefix),
    BY_ROUTINE(RYN_CONNECT_ATTEMPTS, SetConnectAttempts),
    BY_ROUTINE(RYN_UNDERSCORE_TO_SPACE, SetUnderscoreToSpace),
    IN_PROCESS(RYN_INERT_1000, PROCESS_WORD, InertSettings[0]),
    BY_ROUTINE(RYN_INERT_1002, SetInert1002),
    BY_ROUTINE(RYN_BOTH_MAILER_HEADERS, SetBothMailerHeaders),
    BY_ROUTINE(RYN_WRITE_HEADERS, SetWriteHeaders),
    IN_PROCESS(RYN_INERT_1005, PROCESS_WORD, InertSettings[2]),
    IN_PROCESS(RYN_IMAP_TRACE, PROCESS_WORD, ImapTrace),
    BY_ROUTINE(RYN_DRIVER_DELAY, SetDriverDelay),
    IN_CHANNEL(RYN_NO_RELATED_PART, CHANNEL_BYTE, NoRelatedPart),
    IN_PROCESS(RYN_ZONE_TRACE, PROCESS_WORD, LogZone),
    IN_PROCESS(RYN_IMAP_PARTIAL_ALIAS, PROCESS_WORD, ImapPartialFetch),
    IN_CHANNEL(RYN_FILENAME_PAGE_CODE_ALIAS, CHANNEL_BYTE, FilenamePageCode),
};

#undef IN_CHANNEL
#undef IN_PROCESS
#undef BY_ROUTINE

static void StoreNumber(void* place, NumberKind kind, uint32_t value)
{
    const uint8_t byte = static_cast<uint8_t>(value);
    const uint16_t port = static_cast<uint16_t>(value);
    if (kind == CHANNEL_BYTE || kind == PROCESS_BYTE)
        memcpy(place, &byte, sizeof byte);
    else if (kind == CHANNEL_PORT)
        memcpy(place, &port, sizeof port);
    else
        memcpy(place, &value, sizeof value);
}

int32_t rynIntegerParam(uint32_t channel, int32_t code, uint32_t value)
{
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    LogFormat(ch, "*** rynIntegerParam(%u,%d,%d)\r\n", channel, code, static_cast<int32_t>(value));
    for (const NumberRow& row : NumberTable) {
        if (row.Code != code)
            continue;
        if (row.Kind == NUMBER_ROUTINE)
            return row.Apply(ch, value);
        void* field = reinterpret_cast<char*>(&ch) + row.Field;
        StoreNumber(row.Setting != nullptr ? row.Setting : field, row.Kind, value);
        return 1;
    }
    return -1;
}

// --- texts ---

// Makes text the channel's extra header lines: 1 to 4, or 0 without memory, or
// RYN_ERR_SYSTEM_HEADER.
static int32_t SetExtraHeaders(Channel& ch, const char* text)
{
    constexpr int32_t TailChars = 3; // a line end is looked for among these
    FreeMemory(ch.ChannelNumber, SLOT_EXTRA_HEADERS, SLOT_EXTRA_HEADERS);
    if (*text == 0)
        return 0;
    ch.ExtraHeaders = AllocAndCopy(ch.ChannelNumber, SLOT_EXTRA_HEADERS, text);
    if (ch.ExtraHeaders == nullptr)
        return 0;
    const int32_t length = TextLength(ch.ExtraHeaders);
    char* tail = ch.ExtraHeaders + (length > TailChars ? length - TailChars : 0);
    CutAtLineEnd(tail);
    const int32_t kept = TextLength(tail);
    CleanHeaderText(ch.ExtraHeaders, false);
    if (SameTextNoCase(ch.ExtraHeaders, "X-Mailer:", 9) != 0 ||
        SameTextNoCase(ch.ExtraHeaders, "X-Mail-Agent:", 13) != 0) {
        FreeMemory(ch.ChannelNumber, SLOT_EXTRA_HEADERS, SLOT_EXTRA_HEADERS);
        return RYN_ERR_SYSTEM_HEADER;
    }
    return kept + 1;
}

static int32_t AddExtraHeader(Channel& ch, const char* text)
{
    constexpr int32_t ExtraHeaderChars = 16384; // all lines together
    ch.ScratchBuffer[0] = 0;
    if (ch.ExtraHeaders != nullptr && ch.ExtraHeaders[0] != 0) {
        CopyText(ch.ScratchBuffer, ch.ExtraHeaders, ExtraHeaderChars);
        AppendText(ch.ScratchBuffer, "\r\n", ExtraHeaderChars);
    }
    AppendText(ch.ScratchBuffer, text, ExtraHeaderChars);
    return SetExtraHeaders(ch, ch.ScratchBuffer);
}

static int32_t SetLogFile(Channel& ch, const char* text)
{
    if (*text != 0)
        return OpenLog(ch, text);
    CloseLog(ch);
    return 0;
}

static int32_t SetReplyTo(Channel& ch, const char* text)
{
    return CopyField(ch.ReplyToAddress, text);
}

static int32_t SetFrom(Channel& ch, const char* text)
{
    return CopyField(ch.FromAddress, text);
}

static int32_t WriteLogText(Channel& ch, const char* text)
{
    LogText(&ch, text);
    LogText(&ch, "\r\n");
    return ch.LogHandle;
}

static int32_t SetContentTypeLine(Channel&, const char* text)
{
    return CopyField(UserContentType, text);
}

static int32_t SetTransferEncodingLine(Channel&, const char* text)
{
    return CopyField(UserTransferEncoding, text);
}

static int32_t SetAuthPassword(Channel& ch, const char* text)
{
    if (strlen(text) >= sizeof ch.AuthPassword)
        return RYN_ERR_PASSWORD_TOO_LONG;
    return CopyField(ch.AuthPassword, text);
}

static int32_t SetAuthUser(Channel& ch, const char* text)
{
    return CopyField(ch.UserName, text);
}

static int32_t SetHeaderPrefix(Channel& ch, const char* text)
{
    return ch.AltText != nullptr ? 0 : CopyField(HeaderPrefix, text);
}

static int32_t SetZoneString(Channel&, const char* text)
{
    return StoreShared(ZoneString, text, sizeof ZoneString - 1);
}

static int32_t SetListArguments(Channel& ch, const char* text)
{
    return CopyField(ch.ListArguments, text);
}

static int32_t SetExtraLine(Channel& ch, const char* text)
{
    return CopyField(ch.ExtraLine, text);
}

static int32_t SetLocalAddress(Channel& ch, const char* text)
{
    ch.LocalBindAddress = ParseDottedQuad(text);
    return static_cast<int32_t>(ch.LocalBindAddress);
}

static int32_t SetLocalHostName(Channel& ch, const char* text)
{
    if (*text == 0)
        return RefuseNull(114);
    return CopyField(ch.LocalHostName, strcmp(text, "*") == 0 ? ComputerName : text);
}

// Writes what rynGetEmailLines kept to a new file.
static int32_t WriteLinesFile(Channel& ch, const char* text)
{
    const uint32_t row =
        static_cast<uint32_t>(ch.ChannelNumber * SlotsPerChannel + SLOT_EMAIL_LINES);
    const char* lines = static_cast<const char*>(BlockPointer(row));
    if (lines == nullptr)
        return RefuseNull(101);
    const int32_t handle = u_Create(text, 0, false);
    if (handle < 1)
        return RYN_ERR_CANNOT_CREATE_FILE;
    const int32_t written = u_Write(handle, lines, TextLength(lines));
    u_Close(handle);
    return written;
}

static int32_t TestPath(Channel& ch, const char* text)
{
    if (TestDirWritable(&ch, text) != 0)
        return 1;
    CopyField(ch.ErrorFileName, text); // an empty text, too
    return RYN_ERR_NO_SUCH_PATH;
}

static int32_t DoNothing(Channel&, const char*)
{
    return 0;
}

struct TextRow {
    uint32_t Code;
    int32_t EmptySite; // an empty text is refused with this site; 0 = it is not refused
    int32_t (*Apply)(Channel& ch, const char* text);
};

static const TextRow TextTable[] = {
    { RYN_LOG_FILE, 0, SetLogFile },
    { RYN_WRITE_LINES_FILE, 208, WriteLinesFile },
    { RYN_REPLY_TO, 204, SetReplyTo },
    { RYN_EXTRA_HEADERS, 0, SetExtraHeaders },
    { RYN_LOG_TEXT, 203, WriteLogText },
    { RYN_FROM, 205, SetFrom },
    { RYN_CONTENT_TYPE_LINE, 206, SetContentTypeLine },
    { RYN_TRANSFER_ENCODING_LINE, 207, SetTransferEncodingLine },
    { RYN_ADD_EXTRA_HEADER, 206, AddExtraHeader },
    { RYN_AUTH_PASSWORD, 209, SetAuthPassword },
    { RYN_AUTH_USER, 210, SetAuthUser },
    { RYN_INERT_TEXT_61, 0, DoNothing },
    { RYN_HEADER_PREFIX, 211, SetHeaderPrefix },
    { RYN_ZONE_STRING, 0, SetZoneString },
    { RYN_INERT_TEXT_66, 0, DoNothing },
    { RYN_ZONE_STRING_ALIAS, 0, SetZoneString },
    { RYN_LIST_ARGUMENTS, 0, SetListArguments },
    { RYN_EXTRA_LINE, 0, SetExtraLine },
    { RYN_LOCAL_ADDRESS, 0, SetLocalAddress },
    { RYN_LOCAL_HOST_NAME, 0, SetLocalHostName },
    { RYN_RCPT_TRACE_FILE, 0, OpenRecipientTrace },
    { RYN_TEST_PATH, 0, TestPath },
};

static void LogStringParam(const Channel& ch, uint32_t channel, uint32_t code, const char* text)
{
    if (code == RYN_AUTH_PASSWORD)
        LogFormat(ch, "*** rynStringParam(%u,%u,*)\r\n", channel, code);
    else
        LogFormat(ch, "*** rynStringParam(%u,%u,'%s')\r\n", channel, code, text);
}

int32_t rynStringParam(uint32_t channel, uint32_t code, const char* text)
{
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    if (text == nullptr)
        return RefuseNull(103);
    Channel& ch = *ChannelTable[channel];
    LogStringParam(ch, channel, code, text);
    for (const TextRow& row : TextTable) {
        if (row.Code != code)
            continue;
        if (*text == 0 && row.EmptySite != 0)
            return RefuseEmpty(row.EmptySite);
        return row.Apply(ch, text);
    }
    return -1;
}

int32_t rynSetFileBuffer(uint32_t channel, int32_t index, const void* pointer, uint32_t size)
{
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    const Channel& ch = *ChannelTable[channel];
    LogFormat(ch, "*** rynFileBuffer(%u,%x,%d)\r\n", channel,
              static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer)),
              static_cast<int32_t>(size));
    if (index < 0 || index >= MemoryFileCount)
        return RYN_ERR_INDEX_RANGE;
    SetMemoryFile(index, pointer, size);
    return static_cast<int32_t>(size);
}
