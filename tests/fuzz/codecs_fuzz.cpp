// The transfer decoders and the text extraction, in buffers of exactly the size that the header asks
// of a host: the address sanitizer sees the first byte too many. The first byte of an input sets
// line lengths and sizes, the rest is the text.
#include "codec/base64.h"
#include "include/ryn32.h"
#include "tests/fuzz/fuzz_input.h"

#include <algorithm>
#include <cstring>
#include <vector>

constexpr char Untouched = '\xA5';
constexpr size_t LongestText = 1000; // none of these keeps more than a line in mind

static std::vector<char> Room(size_t bytes)
{
    return std::vector<char>(bytes, Untouched);
}

// A text as a host hands it over, its zero the last byte of the memory.
static std::vector<char> Text(const std::string& text)
{
    std::vector<char> bytes(text.begin(), text.end());
    bytes.push_back(0);
    return bytes;
}

static int32_t Length(const std::string& text)
{
    return static_cast<int32_t>(text.size());
}

static std::string Head(const std::vector<char>& room, int32_t count)
{
    Require(count >= 0 && static_cast<size_t>(count) <= room.size(), "count within the target");
    return std::string(room.data(), static_cast<size_t>(count));
}

// --- Base64 ---

static std::string DecodeBuffer(const std::string& text)
{
    std::vector<char> target = Room(text.size() / 4 * 3 + 4);
    const int32_t count = rynDecodeBuffer(Text(text).data(), target.data(), Length(text));
    Require(static_cast<size_t>(count) <= text.size() / 4 * 3, "Base64 shrinks");
    return Head(target, count);
}

// The text as a body that is cut into lines of so many chars.
static std::string DecodeStream(const std::string& text, size_t width)
{
    Base64Carry carry = {};
    std::string bytes;
    for (size_t at = 0; at < text.size(); at += width) {
        const std::string line = text.substr(at, width) + "\r\n";
        std::vector<char> source = Text(line);
        std::vector<char> target = Room((line.size() + 3) / 4 * 3 + 1);
        const int32_t count = DecodeBase64Stream(carry, source.data(), target.data(), Length(line));
        bytes += Head(target, count);
        Require(target[static_cast<size_t>(count)] == 0 || count > 0, "a zero behind nothing");
        Require(carry.Count < 4, "fewer than 4 chars carried");
    }
    return bytes;
}

static std::string Without(std::string text, const char* chars)
{
    std::erase_if(text, [=](char c) { return strchr(chars, c) != nullptr; });
    return text;
}

static void TryBase64(const std::string& text, size_t width)
{
    DecodeBuffer(text);
    DecodeStream(text, width);
    const std::string plain = Without(text, "=\r\n");
    Require(DecodeStream(plain, width) == DecodeStream(plain, plain.size() + 1),
            "Base64 does not care where lines are cut");
    std::vector<char> encoded = Room((text.size() + 56) / 57 * 78 + 1);
    const int32_t count = rynEncodeBuffer(text.data(), encoded.data(), Length(text));
    const std::string lines = Head(encoded, count);
    Require(DecodeBuffer(lines) == text, "Base64 there and back");
    Require(DecodeStream(Without(lines, "\r\n"), width) == text, "Base64 there and back by lines");
}

// --- quoted-printable ---

static std::string Unquote(const std::string& text)
{
    std::vector<char> target = Room(text.size() + 1);
    const std::vector<char> source = Text(text);
    const int32_t count = rynUnQuoteBuffer(source.data(), target.data(), Length(text));
    Require(target[static_cast<size_t>(count)] == 0, "a zero behind the decoded text");
    std::vector<char> same = Text(text);
    Require(rynUnQuoteBuffer(same.data(), same.data(), Length(text)) == count, "decoding in place");
    Require(Head(same, count) == Head(target, count), "decoding in place");
    return Head(target, count);
}

static void TryQuoted(const std::string& text, size_t size)
{
    Unquote(text);
    char refused = Untouched;
    const bool tooSmall =
        rynUnQuoteBuffer(Text(text).data(), &refused, Length(text) - 1) == RYN_ERR_BUFFER_TOO_SMALL;
    Require(tooSmall && refused == Untouched, "a size below the source's is refused");
    std::vector<char> cut = Room(std::max<size_t>(size, 1));
    rynQuoteBuffer(Text(text).data(), cut.data(), static_cast<int32_t>(size));
    std::vector<char> quoted = Room(text.size() * 3 + 4);
    const int32_t count =
        rynQuoteBuffer(Text(text).data(), quoted.data(), static_cast<int32_t>(quoted.size()));
    std::string expected = text;
    std::replace(expected.begin(), expected.end(), '_', ' ');
    Require(Unquote(Head(quoted, count)) == expected, "quoted-printable there and back");
}

// --- UU, UTF-8, lines ---

static void TryUuAndUtf8(const std::string& text)
{
    const std::vector<char> source = Text(text);
    std::vector<char> target = Room(text.size() / 4 * 3 + 4);
    Require(rynDecodeUU(source.data(), target.data()) % 3 == 0, "UU gives whole groups");
    std::vector<uint16_t> wide(text.size() + 2);
    const int32_t count = rynDecodeUTF8String(source.data(), wide.data());
    if (count < 0) {
        Require(count == RYN_ERR_BAD_UTF8, "status of UTF-8");
        return;
    }
    const size_t chars = static_cast<size_t>(count);
    Require(chars < wide.size() && wide[chars - 1] == 0 && wide[chars] == 0, "two terminators");
    std::vector<char> narrow = Room((chars - 1) * 3 + 1);
    rynEncodeUTF8String(wide.data(), narrow.data());
    std::vector<uint16_t> again(strlen(narrow.data()) + 2);
    Require(rynDecodeUTF8String(narrow.data(), again.data()) == count, "UTF-8 there and back");
    Require(std::equal(again.begin(), again.begin() + count, wide.begin()), "UTF-8 there and back");
}

static void TryWidths(const std::string& text)
{
    std::vector<char> both = Room(std::max<size_t>(text.size() * 2, 1));
    std::copy_n(Text(text).data(), std::min(text.size() + 1, both.size()), both.data());
    if (text.size() < 2)
        return;
    Require(rynByteToShort(both.data()) == Length(text), "chars widened");
    both.push_back(0);
    both.push_back(0);
    Require(rynShortToByte(both.data()) == Length(text), "chars narrowed");
    Require(Head(both, Length(text)) == text, "16-bit chars there and back");
}

// --- lines of a fetched text ---

static void TryLines(const std::string& text, size_t size)
{
    const std::vector<char> source = Text(text);
    const std::string wanted = text.substr(text.size() / 2, 3);
    std::vector<char> target = Room(size);
    const int32_t capacity = static_cast<int32_t>(size);
    const int32_t found = rynExtractText(source.data(), wanted.c_str(), target.data(), capacity);
    Require(found == 0 || (Head(target, found + 1).back() == 0 &&
                           text.find(Head(target, found)) != std::string::npos),
            "what is found stands in the text");
    for (int32_t line = -1; line < 4; line++) {
        const int32_t count = rynExtractLine(source.data(), line, target.data(), capacity);
        Require(count == 0 || text.find(Head(target, count)) != std::string::npos,
                "a line stands in the text");
    }
    rynExtractLine(source.data(), 1, target.data(), 0);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzBytes input = { data, size };
    const size_t width = size_t{ 1 } + TakeByte(input) % 90;
    const std::string bytes = TakeText(input, LongestText);
    const std::string text = bytes.c_str(); // up to the first zero
    TryBase64(text, width);
    TryQuoted(text, width);
    TryUuAndUtf8(text);
    TryWidths(text);
    TryLines(text, width);
    return 0;
}
