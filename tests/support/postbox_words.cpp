// The language of IMAP commands: words, lists, and sets of messages.
#include "postbox_imap.h"

#include <algorithm>
#include <cctype>

// --- words ---

// The place behind the word that begins at a place; npos: it has no end. A list and what stands in
// brackets belong to the word as they are.
static size_t EndOfWord(std::string_view text, size_t at)
{
    int depth = 0;
    bool isQuoted = false;
    for (; at < text.size(); ++at) {
        const char c = text[at];
        if (c == '"')
            isQuoted = !isQuoted;
        else if (isQuoted && c == '\\')
            ++at;
        else if (!isQuoted && c == ' ' && depth == 0)
            return at;
        else if (!isQuoted)
            depth += c == '(' || c == '[' ? 1 : c == ')' || c == ']' ? -1 : 0;
    }
    return isQuoted || depth != 0 || at > text.size() ? std::string_view::npos : at;
}

static std::string WithoutQuotes(std::string_view word)
{
    if (!word.starts_with('"'))
        return std::string(word);
    std::string text;
    for (size_t i = 1; i + 1 < word.size(); ++i) {
        if (word[i] == '\\')
            ++i;
        text += word[i];
    }
    return text;
}

bool SplitWords(std::string_view text, Words& wordsOut)
{
    size_t at = 0;
    while (at < text.size()) {
        const size_t end = EndOfWord(text, at);
        if (end == std::string_view::npos || end == at || end + 1 == text.size())
            return false;
        wordsOut.push_back(WithoutQuotes(text.substr(at, end - at)));
        at = end + 1;
    }
    return true;
}

bool SplitList(std::string_view word, Words& wordsOut)
{
    if (word.starts_with('(') && word.ends_with(')'))
        word = word.substr(1, word.size() - 2);
    return SplitWords(word, wordsOut);
}

bool ParseNumber(std::string_view text, size_t& numberOut)
{
    numberOut = 0;
    for (const char c : text) {
        if (c < '0' || c > '9')
            return false;
        numberOut = numberOut * 10 + static_cast<size_t>(c - '0');
    }
    return !text.empty() && text.size() <= 9;
}

std::string LowerCase(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return text;
}

// --- sets of messages ---

static size_t NumberOf(const Client& client, size_t index, bool byUid)
{
    return byUid ? client.Mailbox[index].Uid : index + 1;
}

// "7", or "*" for the highest number.
static bool ParseEnd(const Client& client, std::string_view text, bool byUid, size_t& numberOut)
{
    const size_t count = client.Mailbox.size();
    numberOut = count == 0 ? 0 : NumberOf(client, count - 1, byUid);
    return text == "*" || ParseNumber(text, numberOut);
}

// "3", "2:4", "7:*".
static bool ParseRange(const Client& client, std::string_view text, bool byUid, size_t& firstOut,
                       size_t& lastOut)
{
    const size_t colon = text.find(':');
    const std::string_view last = colon == std::string_view::npos ? text : text.substr(colon + 1);
    if (!ParseEnd(client, text.substr(0, colon), byUid, firstOut) ||
        !ParseEnd(client, last, byUid, lastOut))
        return false;
    if (firstOut > lastOut)
        std::swap(firstOut, lastOut);
    return byUid || (firstOut >= 1 && lastOut <= client.Mailbox.size());
}

bool PickMessages(Client& client, std::string_view set, bool byUid, std::vector<size_t>& picked)
{
    std::vector<bool> isPicked(client.Mailbox.size());
    for (size_t at = 0; at <= set.size();) {
        const size_t end = std::min(set.find(',', at), set.size());
        size_t first = 0;
        size_t last = 0;
        if (!ParseRange(client, set.substr(at, end - at), byUid, first, last)) {
            End(client, "BAD no such messages");
            return false;
        }
        for (size_t i = 0; i < isPicked.size(); ++i)
            if (const size_t number = NumberOf(client, i, byUid); number >= first && number <= last)
                isPicked[i] = true;
        at = end + 1;
    }
    for (size_t i = 0; i < isPicked.size(); ++i)
        if (isPicked[i])
            picked.push_back(i);
    return true;
}
