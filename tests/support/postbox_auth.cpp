// Logging in to the test mail server by AUTH PLAIN and AUTH LOGIN (RFC 4954, RFC 4616). A secret in
// more than one line is refused, as real servers do.
#include "postbox.h"

// The value of a Base64 digit, -1 for none.
static int DigitOf(char c)
{
    constexpr std::string_view digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const size_t place = digits.find(c);
    return place == std::string_view::npos ? -1 : static_cast<int>(place);
}

// False: the text is no Base64 of whole groups.
static bool DecodeBase64(std::string_view text, std::string& bytesOut)
{
    constexpr size_t groupChars = 4;
    if (text.size() % groupChars != 0)
        return false;
    const size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
    text.remove_suffix(padding);
    unsigned bits = 0;
    int bitCount = 0;
    for (const char c : text) {
        const int digit = DigitOf(c);
        if (digit < 0)
            return false;
        bits = bits << 6 | static_cast<unsigned>(digit);
        bitCount += 6;
        if (bitCount < 8)
            continue;
        bitCount -= 8;
        bytesOut += static_cast<char>(bits >> bitCount & 0xFF);
    }
    return true;
}

static void Judge(Client& client, const std::string& account)
{
    client.Auth = AuthNone;
    client.AuthName.clear();
    client.HasLoggedIn = account == client.User;
    Reply(client, client.HasLoggedIn ? "235 welcome" : "535 user or password is wrong");
}

static void BreakOff(Client& client)
{
    client.Auth = AuthNone;
    Reply(client, "501 one line of Base64 is wanted");
}

// Identity to act for, zero, name, zero, password. Acting for somebody else is not offered.
static void JudgePlain(Client& client, std::string_view base64)
{
    std::string block;
    if (!DecodeBase64(base64, block))
        return BreakOff(client);
    const size_t name = block.find('\0') + 1; // 0 without a zero
    const size_t password = block.find('\0', name) + 1;
    if (name == 0 || password == 0)
        return BreakOff(client);
    const std::string user = block.substr(name, password - 1 - name);
    const std::string actsFor = block.substr(0, name - 1);
    if (!actsFor.empty() && actsFor != user)
        return Judge(client, "");
    Judge(client, user + ":" + block.substr(password));
}

void StartAuth(Client& client, std::string_view argument)
{
    const std::string_view method = argument.substr(0, argument.find(' '));
    std::string_view initial = argument.substr(method.size());
    if (!initial.empty())
        initial.remove_prefix(1);
    if (EqualNoCase(method, "PLAIN")) {
        if (!initial.empty())
            return JudgePlain(client, initial);
        client.Auth = AuthPlainBlock;
        return Reply(client, "334 ");
    }
    if (!EqualNoCase(method, "LOGIN") || !initial.empty())
        return Reply(client, "504 PLAIN or LOGIN");
    client.Auth = AuthLoginName;
    Reply(client, "334 VXNlcm5hbWU6");
}

void TakeAuthLine(Client& client, std::string_view line)
{
    std::string text;
    if (client.Auth == AuthPlainBlock)
        return JudgePlain(client, line);
    if (!DecodeBase64(line, text))
        return BreakOff(client);
    if (client.Auth == AuthLoginPassword)
        return Judge(client, client.AuthName + ":" + text);
    client.AuthName = text;
    client.Auth = AuthLoginPassword;
    Reply(client, "334 UGFzc3dvcmQ6");
}
