// Takes the texts of a message from the command line, standard input or a file and examines them.
#include "message_text.h"

#include "ryn32.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

constexpr size_t LineLimit = 998; // RFC 5322, 2.1.1, without the line end

// --- traits ---

size_t LengthOfChar(const std::string& text, size_t at)
{
    struct Row {
        uint8_t First, Last; // first byte
        uint8_t SecondFirst,
            SecondLast; // second byte: no longer forms, surrogates, or above 10FFFF
        size_t Length;
    };
    constexpr Row rows[] = {
        { 0x00, 0x7F, 0x00, 0x00, 1 }, { 0xC2, 0xDF, 0x80, 0xBF, 2 }, { 0xE0, 0xE0, 0xA0, 0xBF, 3 },
        { 0xE1, 0xEC, 0x80, 0xBF, 3 }, { 0xED, 0xED, 0x80, 0x9F, 3 }, { 0xEE, 0xEF, 0x80, 0xBF, 3 },
        { 0xF0, 0xF0, 0x90, 0xBF, 4 }, { 0xF1, 0xF3, 0x80, 0xBF, 4 }, { 0xF4, 0xF4, 0x80, 0x8F, 4 },
    };
    const auto byteAt = [&text](size_t i) {
        return i < text.size() ? static_cast<uint8_t>(text[i]) : uint8_t{ 0 };
    };
    for (const Row& row : rows) {
        if (byteAt(at) < row.First || byteAt(at) > row.Last)
            continue;
        if (row.Length > 1 && (byteAt(at + 1) < row.SecondFirst || byteAt(at + 1) > row.SecondLast))
            return 0;
        for (size_t i = 2; i < row.Length; ++i)
            if ((byteAt(at + i) & 0xC0) != 0x80)
                return 0;
        return row.Length;
    }
    return 0;
}

static bool IsUtf8(const std::string& text)
{
    size_t at = 0;
    while (at < text.size()) {
        const size_t length = LengthOfChar(text, at);
        if (length == 0)
            return false;
        at += length;
    }
    return true;
}

TextTraits ExamineText(const std::string& text)
{
    TextTraits traits = { false, true, true, IsUtf8(text) };
    size_t lineLength = 0;
    for (const char c : text) {
        lineLength = c == '\n' ? 0 : lineLength + (c == '\r' ? 0 : 1);
        const bool isControl = (c & 0xE0) == 0 || c == 0x7F;
        if (c == 0)
            traits.HasZero = true;
        if ((c & 0x80) != 0 || lineLength > LineLimit)
            traits.IsPlain = traits.IsSevenBit = false;
        if (isControl && c != '\r' && c != '\n')
            traits.IsPlain = false;
    }
    return traits;
}

// --- sources ---

static bool ReadToEnd(FILE* file, std::string& bytesOut)
{
    char block[65536];
    size_t count;
    while ((count = fread(block, 1, sizeof block, file)) > 0)
        bytesOut.append(block, count);
    return ferror(file) == 0;
}

static bool CannotRead(const char* name, const char* why)
{
    fprintf(stderr, "rynmail: can't read '%s': %s\n", name, why);
    return false;
}

static bool Finish(const char* name, MessageText& text)
{
    text.IsGiven = true;
    text.Traits = ExamineText(text.Bytes);
    // The library takes a zero byte for the end of a text.
    return !text.Traits.HasZero || CannotRead(name, "it holds a zero byte and is no text");
}

bool TakeText(const char* text, MessageText& textOut)
{
    if (strcmp(text, "-") != 0) {
        textOut.Bytes = text;
        return Finish("--text", textOut);
    }
    if (!ReadToEnd(stdin, textOut.Bytes))
        return CannotRead("standard input", strerror(errno));
    return Finish("standard input", textOut);
}

bool TakeTextFile(const char* fileName, MessageText& textOut)
{
    FILE* file = fopen(fileName, "rb");
    if (!file)
        return CannotRead(fileName, strerror(errno));
    const bool isRead = ReadToEnd(file, textOut.Bytes);
    const int error = errno;
    fclose(file);
    if (!isRead)
        return CannotRead(fileName, strerror(error));
    // In a file name of the library '\' separates folders, '*' marks a file in memory, and a line
    // end ends it: files with such names go by memory.
    if (!strpbrk(fileName, "\\*\r\n"))
        textOut.FileName = fileName;
    return Finish(fileName, textOut);
}

// --- arguments ---

static bool BeginsWith(const MessageText& text, char mark)
{
    return text.IsGiven && text.FileName.empty() && text.Bytes.starts_with(mark);
}

char PickFileMark(const MessageText& first, const MessageText& second)
{
    for (const char mark : { '@', '|' })
        if (!BeginsWith(first, mark) && !BeginsWith(second, mark))
            return mark;
    return '^'; // the two texts begin with the other two
}

std::string TextArgument(const MessageText& text, char fileMark)
{
    return text.FileName.empty() ? text.Bytes : fileMark + text.FileName;
}

std::string WithNetworkLineEnds(const std::string& text)
{
    std::string result;
    result.reserve(text.size() + text.size() / 16);
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r'))
            result += '\r';
        result += text[i];
    }
    return result;
}

// --- quoted lines ---

// Quotes one line without its line end. A blank or tab at its end would be lost on the way.
static std::string QuoteLine(std::string line)
{
    const bool endsBlank = line.ends_with(' ') || line.ends_with('\t');
    const char last = endsBlank ? line.back() : '\0';
    if (endsBlank)
        line.pop_back();
    constexpr size_t quotedChars = 3; // "=XX"
    std::string quoted(line.size() * quotedChars + 2, '\0');
    const int32_t length =
        rynQuoteBuffer(line.c_str(), quoted.data(), static_cast<int32_t>(quoted.size()));
    quoted.resize(length > 0 ? static_cast<size_t>(length) : 0);
    if (endsBlank)
        quoted += last == ' ' ? "=20" : "=09";
    return quoted;
}

static void AppendInPieces(const std::string& quoted, std::string& target)
{
    constexpr size_t mostChars = 75; // and the '=' of a soft line end
    size_t start = 0;
    while (quoted.size() - start > mostChars + 1) {
        size_t end = start + mostChars;
        while (quoted[end - 1] == '=' || quoted[end - 2] == '=')
            --end; // not inside "=XX"
        target.append(quoted, start, end - start).append("=\r\n");
        start = end;
    }
    target.append(quoted, start).append("\r\n");
}

std::string WithQuotedLines(const std::string& text)
{
    std::string result;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        const size_t next = end == std::string::npos ? text.size() : end + 1;
        end = end == std::string::npos ? text.size() : end;
        if (end > start && text[end - 1] == '\r')
            --end;
        AppendInPieces(QuoteLine(text.substr(start, end - start)), result);
        start = next;
    }
    return result;
}

size_t LongestLine(const std::string& text)
{
    size_t longest = 0;
    size_t length = 0;
    for (const char c : text) {
        length = c == '\n' ? 0 : length + (c == '\r' ? 0 : 1);
        longest = length > longest ? length : longest;
    }
    return longest;
}
