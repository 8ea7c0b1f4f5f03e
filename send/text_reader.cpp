// Reading of message text: the window, the lines, the files behind it.
#include "send/text_reader.h"

#include "codec/quoted.h"
#include "codec/text.h"
#include "frame/channel.h"
#include "frame/log.h"
#include "frame/settings.h"
#include "frame/states.h"
#include "transport/vfile.h"
#include "transport/vstream.h"

#include <cstring>

// --- the window ---

void StartMsgText(Channel& ch, bool inMemory)
{
    ch.WindowPos = 0;
    ch.WindowEnd = 0;
    ch.WindowAtEof = 0;
    ch.PeekedChar = 0;
    ch.MessageInMemory = inMemory ? 1 : 0;
}

// Moves text from memory into the window, up to its terminator: the bytes moved.
static int32_t TakeFromMemory(Channel& ch, char* target, int32_t room)
{
    const size_t count = strnlen(ch.MessageText, static_cast<size_t>(room));
    memcpy(target, ch.MessageText, count);
    ch.MessageText += count;
    return static_cast<int32_t>(count);
}

// Moves the rest of the window to its head and fills what is free behind it by one read.
static void Refill(Channel& ch)
{
    const int32_t held = ch.WindowEnd - ch.WindowPos;
    const int32_t room = static_cast<int32_t>(WindowCapacity) - held;
    memmove(ch.MessageWindow, ch.MessageWindow + ch.WindowPos, static_cast<size_t>(held));
    ch.WindowPos = 0;
    ch.WindowEnd = held;
    int32_t count = 0;
    if (ch.MessageInMemory != 0) {
        count = TakeFromMemory(ch, ch.MessageWindow + held, room);
    } else {
        count = u_Read(ch.AttachHandle, ch.MessageWindow + held, room);
        LogFormat(ch, "GetMsgChar:Read %d bytes\r\n", count);
    }
    if (count < 1) {
        ch.WindowAtEof = 1;
        return;
    }
    ch.MsgBytesRead += static_cast<uint32_t>(count);
    ch.WindowEnd += count;
}

// Refills before the window runs dry, so that a whole line is in view as a rule; half the window is
// the most that is kept for that.
static void KeepWindowFilled(Channel& ch)
{
    constexpr uint32_t MostKept = WindowCapacity / 2;
    const uint32_t kept = MaxLineLength < MostKept ? MaxLineLength : MostKept;
    if (ch.WindowAtEof == 0 && static_cast<uint32_t>(ch.WindowEnd - ch.WindowPos) <= kept)
        Refill(ch);
}

// The next byte; 0 at the end of the text, and for a zero byte in it.
static char GetMsgChar(Channel& ch)
{
    KeepWindowFilled(ch);
    return ch.WindowPos == ch.WindowEnd ? char{ 0 } : ch.MessageWindow[ch.WindowPos++];
}

static bool AtTextEnd(const Channel& ch)
{
    return ch.WindowAtEof != 0 && ch.WindowPos == ch.WindowEnd;
}

// --- lines ---

// A line being made.
struct LineInHand {
    uint32_t Length; // chars in CommandBuffer
    bool HasBytes;   // something was taken from the text
    bool IsOver;
};

static uint32_t LongestLine()
{
    return MaxLineLength < LongestTextLine ? MaxLineLength : LongestTextLine;
}

// One char of a text that is not quoted. Where lines don't fold only the buffer bounds them.
static void AddPlainChar(Channel& ch, LineInHand& line, char c)
{
    const bool isRaw = KeepRawChars != 0 || ch.IsForward != 0;
    const bool folds = ch.QuoteAttachments != 0 || ch.IsForward != 0;
    ch.CommandBuffer[line.Length++] = isRaw || IsPrintable(c) != 0 ? c : '~';
    if (!folds) {
        line.IsOver = line.Length >= LongestTextLine;
        return;
    }
    const bool atBlank = c == ' ' && static_cast<int64_t>(line.Length) >= WrapLineLength;
    line.IsOver = atBlank || line.Length >= LongestLine();
}

// One char of a quoted text (RFC 2045, 6.7), with a look at the next one: a line that would grow
// too long ends in a soft break, but a dot is not left to begin the next line.
static void AddQuotedChar(Channel& ch, LineInHand& line, char c)
{
    if (c != '=' && IsPrintable(c) != 0)
        ch.CommandBuffer[line.Length++] = c;
    else
        line.Length += static_cast<uint32_t>(QuoteByte(c, ch.CommandBuffer + line.Length));
    ch.PeekedChar = GetMsgChar(ch);
    if (ch.PeekedChar == 0 && !AtTextEnd(ch)) { // a zero byte ends the line it is in
        line.IsOver = true;
        return;
    }
    const uint32_t longest = LongestLine();
    if (line.Length >= longest || (line.Length + 1 == longest && ch.PeekedChar != '.')) {
        ch.CommandBuffer[line.Length++] = '=';
        line.IsOver = true;
    }
}

// Copies the printable chars that stand next in the window, the usual case of a plain text.
static void AddPlainRun(Channel& ch, LineInHand& line)
{
    const char* from = ch.MessageWindow + ch.WindowPos;
    const char* const end = ch.MessageWindow + ch.WindowEnd;
    char* to = ch.CommandBuffer + line.Length;
    char* const full = ch.CommandBuffer + LongestTextLine - 1;
    while (from < end && to < full && IsPrintable(*from) != 0)
        *to++ = *from++;
    line.HasBytes = line.HasBytes || from != ch.MessageWindow + ch.WindowPos;
    ch.WindowPos = static_cast<int32_t>(from - ch.MessageWindow);
    line.Length = static_cast<uint32_t>(to - ch.CommandBuffer);
}

// Takes chars up to the end of a line; returns the last one taken.
static char TakeLine(Channel& ch, LineInHand& line)
{
    // A forwarded file goes out as it stands, whatever the text in front of it is.
    const bool isForwardedFile = ch.IsForward != 0 && ch.ThisState == ST_ATT_LINES;
    const bool isQuoted =
        KeepRawChars == 0 && !isForwardedFile && (ch.MessageType != 0 || ch.QuoteAttachments != 0);
    const bool hasRuns = !isQuoted && ch.QuoteAttachments == 0 && ch.IsForward == 0;
    for (;;) {
        if (hasRuns) {
            KeepWindowFilled(ch);
            AddPlainRun(ch, line);
        }
        const char c = ch.PeekedChar != 0 ? ch.PeekedChar : GetMsgChar(ch);
        ch.PeekedChar = 0;
        if (c == 0)
            return c;
        line.HasBytes = true;
        if (c == '\n')
            return c;
        if (c == '\r')
            continue;
        if (isQuoted)
            AddQuotedChar(ch, line, c);
        else
            AddPlainChar(ch, line, c);
        if (line.IsOver)
            return c;
    }
}

int32_t ReadMsgLine(Channel& ch)
{
    LineInHand line = { 0, false, false };
    const char last = TakeLine(ch, line);
    if (!line.HasBytes && last == 0)
        return -1;
    ch.CommandBuffer[line.Length] = 0;
    if (ch.CommandBuffer[0] != '.')
        return static_cast<int32_t>(line.Length);
    InsertDot(ch.CommandBuffer, static_cast<int32_t>(line.Length));
    return static_cast<int32_t>(line.Length) + 1;
}

// --- files ---

// Opens by the name up to its first line end; the name itself stays as it is.
static int32_t OpenNamed(const char* name, bool utf8)
{
    constexpr int32_t NameChars = 4096; // no system takes longer ones
    char path[NameChars + 1];
    if (strcspn(name, "\r\n") > NameChars)
        return RYN_ERR_CANNOT_OPEN_FILE;
    CopyField(path, name);
    CutAtLineEnd(path);
    return u_Open(path, 0, utf8);
}

int32_t OpenAttachFile(Channel& ch, const char* name, bool utf8)
{
    const int32_t shown = static_cast<int32_t>(strcspn(name, "\r\n"));
    CloseAttachFile(ch);
    if (utf8)
        LogFormat(ch, "Opening UTF8 file '%.*s' (%d chars)\r\n", shown, name, shown);
    else
        LogFormat(ch, "Opening file '%.*s'\r\n", shown, name);
    const int32_t handle = OpenNamed(name, utf8);
    ch.AttachHandle = handle > 0 ? handle : 0;
    LogFormat(ch, "Handle = %d\r\n", handle);
    return handle;
}

void CloseAttachFile(Channel& ch)
{
    if (ch.AttachHandle == 0)
        return;
    LogFormat(ch, "[Closing file %d]\r\n", ch.AttachHandle);
    u_Close(ch.AttachHandle);
    ch.AttachHandle = 0;
}

int32_t OpenAltFile(Channel& ch, const char* name)
{
    CloseAltFile(ch);
    LogFormat(ch, "Opening ALT file [%.*s]. ", static_cast<int>(strcspn(name, "\r\n")), name);
    const int32_t handle = OpenNamed(name, false);
    ch.AltHandle = handle > 0 ? handle : 0;
    LogFormat(ch, "ALT Handle = %d\r\n", handle);
    return handle;
}

void CloseAltFile(Channel& ch)
{
    if (ch.AltHandle == 0)
        return;
    LogFormat(ch, "Closing ALT file %d\r\n", ch.AltHandle);
    u_Close(ch.AltHandle);
    ch.AltHandle = 0;
}
