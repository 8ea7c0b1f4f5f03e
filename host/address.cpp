// Addresses and subjects: the checks that a host makes before it hands texts from outside over.
#include "address.h"

#include "message_text.h"
#include "ryn32.h"
#include "session.h"
#include "terminal_text.h"

#include <cstdio>
#include <cstring>

constexpr size_t AddressLimit = 256;     // chars that rynSmtpConnect keeps of a sender
constexpr size_t SubjectLimit = 998 - 9; // RFC 5322, 2.1.1: chars of a line, less "Subject: "
constexpr size_t WordBytes = 45;         // 60 chars of Base64: RFC 2047 allows 75 for a whole word
constexpr int32_t Utf8InBase64 = 30;     // page code of rynMakeSubject
constexpr char ListDelimiter = ';';      // would make two addresses of one
constexpr char NameSpecials[] = "()<>[]:,\\\".";

static bool IsAscii(const std::string& text)
{
    for (const char c : text)
        if (c & 0x80)
            return false;
    return true;
}

// Encoded words (RFC 2047) for a text in UTF-8, none of which ends inside a char.
static bool EncodeWords(const std::string& text, std::string& wordsOut)
{
    wordsOut.clear();
    size_t start = 0;
    while (start < text.size()) {
        size_t end = start + WordBytes < text.size() ? start + WordBytes : text.size();
        while (end < text.size() && (text[end] & 0xC0) == 0x80)
            --end;
        char word[80];
        const std::string piece = text.substr(start, end - start);
        if (rynMakeSubject(piece.c_str(), Utf8InBase64, word, sizeof word) < 0)
            return false;
        wordsOut.append(wordsOut.empty() ? "" : " ").append(word);
        start = end;
    }
    return true;
}

static bool Refuse(const char* what, const char* text, const char* why)
{
    fprintf(stderr, "rynmail: the %s '%s' can't be used: %s\n", what, text, why);
    return false;
}

// A name in front of '<': RFC 5322, 3.2.4 asks for quotes around special chars.
static std::string QuoteName(const std::string& name)
{
    std::string quoted = "\"";
    for (const char c : name) {
        if (c == '"' || c == '\\')
            quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

static bool MakeName(std::string name, std::string& nameOut)
{
    while (name.ends_with(' '))
        name.pop_back();
    const bool isQuoted = name.size() >= 2 && name.starts_with('"') && name.ends_with('"');
    // The library takes the sender's first '@' for the one of the mailbox.
    if (IsAscii(name) && name.find('@') == std::string::npos) {
        const bool isPlain = name.find_first_of(NameSpecials) == std::string::npos;
        nameOut = isPlain || isQuoted ? name : QuoteName(name);
        return true;
    }
    return EncodeWords(isQuoted ? name.substr(1, name.size() - 2) : name, nameOut);
}

bool MakeAddress(const char* typed, std::string& addressOut)
{
    if (HasControlChar(typed) || strchr(typed, ListDelimiter))
        return Refuse("address", typed, "one address without ';' or control chars is wanted");
    if (!ExamineText(typed).IsUtf8)
        return Refuse("address", typed, "it is no UTF-8");
    const char* bracket = strchr(typed, '<');
    std::string mailbox = bracket ? bracket : "<";
    if (!bracket)
        mailbox.append(typed).append(">");
    if (const int32_t status = rynVerifyFormat(mailbox.c_str()); status < 1) {
        char why[128];
        rynErrorText(Channel, status, why, sizeof why);
        why[strcspn(why, "\r\n")] = 0;
        return Refuse("address", typed, why);
    }
    // What stands behind the '>' would go out with the envelope.
    if (mailbox.find('>') != mailbox.size() - 1)
        return Refuse("address", typed, "something follows the '>'");
    std::string name;
    if (bracket && !MakeName(std::string(typed, bracket), name))
        return Refuse("address", typed, "its name is too long");
    addressOut = name.empty() ? mailbox : name + " " + mailbox;
    if (addressOut.size() > AddressLimit)
        return Refuse("address", typed, "it is too long");
    return true;
}

bool MakeSubject(const char* typed, std::string& subjectOut)
{
    std::string subject;
    for (const char* at = typed; *at; ++at)
        if (*at != '\n')
            subject += *at == '\r' ? ' ' : *at;
        else if (at == typed || at[-1] != '\r')
            subject += ' ';
    if (!ExamineText(subject).IsUtf8)
        return Refuse("subject", typed, "it is no UTF-8");
    if (IsAscii(subject))
        subjectOut = subject;
    else if (!EncodeWords(subject, subjectOut))
        return Refuse("subject", typed, "it can't be encoded");
    if (subjectOut.size() > SubjectLimit)
        return Refuse("subject", typed, "it is too long for a header line");
    return true;
}
