// The checks of addresses and the storing of the sender.
#include "send/address.h"

#include "codec/text.h"
#include "frame/channel.h"
#include "frame/driver.h"
#include "frame/log.h"
#include "frame/settings.h"

#include <cstring>

const char* FindInEntry(const char* text, char wanted)
{
    for (;; text++) {
        if (*text == wanted)
            return text;
        if (*text == 0 || *text == RecipientDelimiter)
            return nullptr;
    }
}

char* FindInEntry(char* text, char wanted)
{
    return const_cast<char*>(FindInEntry(const_cast<const char*>(text), wanted));
}

void LogAddressProblem(const Channel* ch, const char* address, const char* label)
{
    char line[FormatCapacity];
    if (address == nullptr)
        FormatText(line, sizeof line, "%s is NULL\n", label);
    else
        FormatText(line, sizeof line, "%s '%s'\n", label, address);
    LogText(ch, line);
}

int32_t CheckAddressBrackets(Channel& ch, const char* address, const char* label, bool isList)
{
    if (address == nullptr)
        return RefuseNull(118);
    if (*address == 0)
        return RefuseEmpty(201);
    const char* left = isList ? FindInEntry(address, '<') : FindChar(address, '<');
    const char* right = isList ? FindInEntry(address, '>') : FindChar(address, '>');
    if (left != nullptr && right != nullptr && right > left)
        return 0;
    LogAddressProblem(&ch, address, label);
    return FailState(ch, 0,
                     left == nullptr ? RYN_ERR_MISSING_LEFT_ANGLE : RYN_ERR_MISSING_RIGHT_ANGLE);
}

int32_t SetSender(Channel& ch, const char* from, const char* replyTo)
{
    CopyField(ch.ReplyToAddress, replyTo == nullptr ? "" : replyTo);
    if (from == nullptr)
        return RYN_ERR_FROM_IS_NULL;
    if (const int32_t status = CheckAddressBrackets(ch, from, "From: ", false); status < 0)
        return status;
    CopyField(ch.FromAddress, from);
    ch.WaitWritable = 0;
    ch.AttachCount = 0;
    ch.AttachNumberBase = 1;
    return 1;
}

static bool IsAddressChar(char c)
{
    const bool isLetter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    const bool isDigit = c >= '0' && c <= '9';
    return isLetter || isDigit || (c != 0 && strchr("_-/+.@$&?'", c) != nullptr);
}

// The chars between the brackets, one '@' among them: 1 or a status.
static int32_t ScanMailbox(const char* begin, const char* end)
{
    int32_t atSigns = 0;
    for (const char* place = begin; place < end; place++) {
        if (*place == '@' && ++atSigns > 1)
            return RYN_ERR_TOO_MANY_AT;
        if (!IsAddressChar(*place))
            return RYN_ERR_BAD_ADDRESS_CHAR;
    }
    return atSigns == 0 ? RYN_ERR_MISSING_AT : 1;
}

int32_t rynVerifyFormat(const char* address)
{
    if (address == nullptr)
        return RefuseNull(115);
    if (*address == 0)
        return RefuseEmpty(212);
    const char* left = FindInEntry(address, '<');
    const char* right = FindInEntry(address, '>');
    if (left == nullptr || right == nullptr || right < left) {
        LogAddressProblem(nullptr, address, "");
        return left == nullptr ? RYN_ERR_MISSING_LEFT_ANGLE : RYN_ERR_MISSING_RIGHT_ANGLE;
    }
    if (right == left + 1)
        return RefuseEmpty(213);
    if (left[1] == '@' || right[-1] == '@')
        return RYN_ERR_EMPTY_STRING;
    return ScanMailbox(left + 1, right);
}

static bool IsNameChar(char c)
{
    const uint8_t byte = static_cast<uint8_t>(c);
    const bool isBracket = c == '<' || c == '>' || c == '@';
    return !isBracket && (IsPrintable(c) != 0 || byte >= 192);
}

int32_t ServerNameIsValid(const char* text)
{
    for (; *text != 0; text++)
        if (!IsNameChar(*text))
            return 0;
    return 1;
}
