// Finds and decodes header lines. The library decodes some for rynGetHeader, one word to a line and
// in their own charset; a list of messages has the plain header lines only.
#include "header_text.h"

#include "ryn32.h"
#include "terminal_text.h"

#include <cctype>
#include <cstdint>

enum WordCharset { CHARSET_UNKNOWN, CHARSET_UTF8, CHARSET_LATIN1 };

struct CharsetRow {
    const char* Name;
    WordCharset Charset;
};

constexpr CharsetRow CharsetTable[] = {
    { "utf-8", CHARSET_UTF8 },
    { "us-ascii", CHARSET_UTF8 },
    { "iso-8859-1", CHARSET_LATIN1 },
    { "windows-1252", CHARSET_LATIN1 }, // but for 32 chars, which do not show then
};

static std::string LowerCase(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return text;
}

static bool IsBlank(char c)
{
    return c == ' ' || c == '\t';
}

static std::string Trimmed(const std::string& text)
{
    constexpr char blanks[] = " \t\r\n";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos)
        return "";
    return text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

// --- encoded words ---

static WordCharset CharsetOf(const std::string& name)
{
    // RFC 2231, 5.: a language may follow the name.
    const std::string wanted = LowerCase(name.substr(0, name.find('*')));
    for (const CharsetRow& row : CharsetTable)
        if (wanted == row.Name)
            return row.Charset;
    return CHARSET_UNKNOWN;
}

static std::string DecodeBase64(const std::string& text)
{
    std::string bytes(text.size() / 4 * 3 + 4, '\0');
    const int32_t count =
        rynDecodeBuffer(text.c_str(), bytes.data(), static_cast<int32_t>(text.size()));
    bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return bytes;
}

static std::string DecodeQuoted(std::string text)
{
    for (char& c : text)
        c = c == '_' ? ' ' : c; // of encoded words only (RFC 2047, 4.2)
    const int32_t count =
        rynUnQuoteBuffer(text.c_str(), text.data(), static_cast<int32_t>(text.size()));
    text.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return text;
}

static std::string Utf8OfLatin1(const std::string& bytes)
{
    std::string text;
    for (const char c : bytes) {
        char encoded[4];
        const int32_t count = rynEncodeUTF8(static_cast<uint8_t>(c), encoded);
        text.append(encoded, count > 0 ? static_cast<size_t>(count) : 0);
    }
    return text;
}

// Decodes the word "=?charset?coding?text?=" that begins at a place. False: there is none that can
// be decoded; otherwise endOut is the place behind it.
static bool DecodeWord(const std::string& value, size_t at, std::string& textOut, size_t& endOut)
{
    if (value.compare(at, 2, "=?") != 0)
        return false;
    const size_t coding = value.find('?', at + 2) + 1;
    if (coding == 0 || coding + 1 >= value.size() || value[coding + 1] != '?')
        return false;
    const size_t text = coding + 2;
    const size_t end = value.find("?=", text);
    const WordCharset charset = CharsetOf(value.substr(at + 2, coding - 1 - (at + 2)));
    const int kind = tolower(static_cast<unsigned char>(value[coding]));
    if (end == std::string::npos || charset == CHARSET_UNKNOWN || (kind != 'q' && kind != 'b'))
        return false;
    const std::string encoded = value.substr(text, end - text);
    textOut = kind == 'b' ? DecodeBase64(encoded) : DecodeQuoted(encoded);
    if (charset == CHARSET_LATIN1)
        textOut = Utf8OfLatin1(textOut);
    endOut = end + 2;
    return true;
}

static std::string DecodeWords(const std::string& value)
{
    std::string decoded, word;
    size_t at = 0;
    size_t behindWord = std::string::npos; // length of decoded behind the last word
    while (at < value.size()) {
        size_t end = 0;
        if (!DecodeWord(value, at, word, end)) {
            if (!IsBlank(value[at]))
                behindWord = std::string::npos;
            decoded += value[at++];
            continue;
        }
        // Blanks between two words belong to neither (RFC 2047, 6.2).
        if (behindWord != std::string::npos)
            decoded.resize(behindWord);
        decoded += word;
        behindWord = decoded.size();
        at = end;
    }
    return decoded;
}

// --- lines ---

// The place behind the name and the colon of the first such line, npos for none.
static size_t FindHeader(const std::string& head, const std::string& name)
{
    const std::string wanted = LowerCase(name) + ":";
    for (size_t at = 0; at < head.size();) {
        if (LowerCase(head.substr(at, wanted.size())) == wanted)
            return at + wanted.size();
        if (head[at] == '\r' || head[at] == '\n')
            break; // the header ends here
        const size_t end = head.find('\n', at);
        if (end == std::string::npos)
            break;
        at = end + 1;
    }
    return std::string::npos;
}

std::string ShownHeader(const std::string& head, const std::string& name)
{
    size_t at = FindHeader(head, name);
    std::string value;
    while (at < head.size()) {
        const size_t end = head.find('\n', at);
        const size_t next = end == std::string::npos ? head.size() : end + 1;
        value.append(value.empty() ? "" : " ").append(Trimmed(head.substr(at, next - at)));
        at = next < head.size() && IsBlank(head[next]) ? next : std::string::npos;
    }
    return ForTerminal(DecodeWords(value));
}
