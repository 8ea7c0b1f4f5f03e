// Reading cases of tests/messages and writing results in their form.
#include "tests/decode/corpus.h"

#include "include/ryn32.h"
#include "tests/support/scripted_peer.h"
#include "tests/support/temp_folder.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

static constexpr size_t LongestValue = 1000;   // bytes of a value that are written out
static constexpr size_t LongestContent = 1500; // of a file
static constexpr int32_t AnyLength = 256 * 1024;

static std::string MessagePath(const std::string& file)
{
    return std::string(RYN_MESSAGES "/") + file;
}

std::vector<std::string> CorpusNames()
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(RYN_MESSAGES))
        if (entry.path().extension() == ".eml")
            names.push_back(entry.path().stem().string());
    std::sort(names.begin(), names.end());
    return names;
}

// --- reading ---

static void ReadSetting(CorpusCase& c, const std::string& line)
{
    unsigned code = 0;
    unsigned long long value = 0;
    if (line[0] == '#' || line.rfind("python = ", 0) == 0)
        return;
    if (sscanf(line.c_str(), "set %u = %llu", &code, &value) == 2)
        c.Numbers.emplace_back(static_cast<int32_t>(code), static_cast<uint32_t>(value));
    else if (sscanf(line.c_str(), "text %u = ", &code) == 1)
        c.Texts.emplace_back(code, PeerUnescape(line.substr(line.find(" = ") + 3)));
    else if (line.rfind("folder = ", 0) == 0)
        c.AttachFolder = line.substr(9);
    else if (line == "ways = source")
        c.SourceOnly = true;
    else if (line == "end = close")
        c.PeerCloses = true;
    else
        ADD_FAILURE() << "not understood: " << line;
}

CorpusCase CorpusRead(const std::string& name)
{
    CorpusCase c;
    const std::string expect = ReadWholeFile(MessagePath(name + ".expect"));
    const size_t end = expect.find("\n\n");
    c.Message = ReadWholeFile(MessagePath(name + ".eml"));
    c.Result = end == std::string::npos ? expect : expect.substr(end + 2);
    std::istringstream settings(expect.substr(0, end));
    for (std::string line; std::getline(settings, line);)
        ReadSetting(c, line);
    return c;
}

// --- writing ---

static std::string Summary(const std::string& bytes)
{
    uint64_t hash = 0xCBF29CE484222325; // FNV-1a
    for (const char c : bytes)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    char text[64];
    snprintf(text, sizeof(text), "#%zu %016llx", bytes.size(),
             static_cast<unsigned long long>(hash));
    return text;
}

// A blank at the end is written as a code: an editor might take it away.
static std::string Escape(const std::string& bytes)
{
    std::string text;
    for (size_t i = 0; i < bytes.size(); ++i) {
        const bool asItIs =
            (bytes[i] > ' ' && bytes[i] < 127) || (bytes[i] == ' ' && i + 1 < bytes.size());
        char code[8];
        snprintf(code, sizeof(code), "\\x%02X", static_cast<unsigned>(bytes[i]) & 255);
        if (bytes[i] == '\\')
            text += "\\\\";
        else
            text += asItIs ? std::string(1, bytes[i]) : std::string(code);
    }
    return text;
}

static std::string ValueLine(const char* name, const std::string& bytes)
{
    std::string text = bytes.size() > LongestValue ? Summary(bytes) : Escape(bytes);
    if (!bytes.empty() && bytes[0] == '#' && bytes.size() <= LongestValue)
        text.replace(0, 1, "\\x23");
    return name + std::string(text.empty() ? ":" : ": ") + text + "\n";
}

static std::string FileLines(const std::string& bytes)
{
    if (bytes.size() > LongestContent)
        return Summary(bytes) + "\n";
    std::string text;
    for (size_t at = 0; at < bytes.size();) {
        const size_t end = std::min(bytes.find('\n', at), bytes.size() - 1) + 1;
        const bool whole = end - at >= 2 && bytes.compare(end - 2, 2, "\r\n") == 0;
        const std::string line = bytes.substr(at, end - at - (whole ? 2 : 0));
        text += (whole ? '|' : '>') + Escape(line) + "\n";
        at = end;
    }
    return text;
}

static std::string Files()
{
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator("."))
        if (!entry.is_directory())
            files[entry.path().string().substr(2)] = ReadWholeFile(entry.path());
    std::string text;
    for (const auto& [path, bytes] : files)
        text += "file " + Escape(path) + "\n" + FileLines(bytes);
    return text;
}

// What an operation has stored, of which it tells the length.
template <class Operation>
static std::string Stored(Operation operation, uint32_t channel, int32_t code)
{
    std::vector<char> buffer(AnyLength + 1, '?');
    const int32_t length = operation(channel, code, buffer.data(), AnyLength);
    EXPECT_EQ(static_cast<size_t>(length), strlen(buffer.data())) << "code " << code;
    return buffer.data();
}

std::string CorpusResult(uint32_t channel)
{
    static const std::pair<const char*, int32_t> lists[] = { { "names", RYN_DEBUG_ATTACH_LIST },
                                                             { "types", RYN_DEBUG_TYPE_LIST },
                                                             { "ids", RYN_DEBUG_ID_LIST } };
    static const std::pair<const char*, int32_t> headers[] = { { "date", RYN_HEADER_DATE },
                                                               { "from", RYN_HEADER_FROM },
                                                               { "reply-to", RYN_HEADER_REPLY_TO },
                                                               { "subject", RYN_HEADER_SUBJECT },
                                                               { "to", RYN_HEADER_TO },
                                                               { "cc", RYN_HEADER_CC },
                                                               { "content-type",
                                                                 RYN_HEADER_CONTENT_TYPE } };
    std::string text =
        "attachments: " + std::to_string(rynStatistics(channel, RYN_STAT_ATTACH_COUNT)) + "\n";
    for (const auto& [name, code] : lists)
        text += ValueLine(name, Stored(rynDebug, channel, code));
    for (const auto& [name, code] : headers)
        text += ValueLine(name, Stored(rynGetHeader, channel, code));
    return text + Files();
}
