// States 200 to 203.
#include "send/hello_states.h"

#include "codec/text.h"
#include "frame/log.h"
#include "frame/settings.h"
#include "platform/platform.h"
#include "transport/channel_io.h"
#include "transport/replies.h"
#include "transport/vsock.h"

constexpr uint32_t GreetingPause = 200; // ms in front of reading the greeting
constexpr uint32_t HelloPause = 250;    // ms behind the hello, beside the usual waits

int32_t SmtpConnect(Channel& ch, uint32_t)
{
    ch.AfterConnectState = ST_SMTP_GREETING;
    return Go(ch, ST_CREATE_SOCKET);
}

// Waits for the greeting; nothing is sent before it has come.
int32_t SmtpGreeting(Channel& ch, uint32_t)
{
    if (ChannelDataReady(ch, 0) == 0)
        return Wait(ch);
    osSleep(GreetingPause);
    const int32_t result = ReadSmtpReply(ch);
    if (result < 0)
        return FailState(ch, 0, result);
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, ST_SMTP_SEND_HELLO);
}

// The name to announce: the host's own, else the sender's domain, else this end's address.
static void PickHelloName(const Channel& ch, char* name, int32_t chars)
{
    if (ch.LocalHostName[0] != 0) {
        CopyText(name, ch.LocalHostName, chars);
        return;
    }
    if (const char* at = FindChar(ch.FromAddress, '@'); at != nullptr) {
        CopyText(name, at + 1, chars);
        if (char* right = FindChar(name, '>'); right != nullptr)
            *right = 0;
        return;
    }
    if (vsLocalAddress(ch.VSock, name, chars + 1) < 1)
        CopyText(name, "localhost", chars);
}

int32_t SmtpSendHello(Channel& ch, uint32_t)
{
    constexpr int32_t HelloNameChars = 128;
    constexpr uint32_t ConnectedWait = 1000;
    if (ch.TestConnectOnly != 0) {
        ch.TestConnectOnly = 0;
        return Finish(ch);
    }
    ch.MsgBytesRead = ch.AttachBytesRead = ch.MsgBytesSent = ch.AttachBytesSent = 0;
    char name[HelloNameChars + 1];
    PickHelloName(ch, name, HelloNameChars);
    FormatText(ch.CommandBuffer, CommandCapacity, "%s %s", ch.UseEhlo != 0 ? "EHLO" : "HELO", name);
    ChannelConnected(ch, ConnectedWait);
    if (const int32_t status = SendOrFail(ch, ch.CommandBuffer); status < 0)
        return status;
    const uint32_t delay = PollDelay + CommandGap + HelloPause;
    LogFormat(ch, "Delay %d ms\r\n", static_cast<int32_t>(delay));
    Arm(ch, delay, ReplyTimeout);
    return Go(ch, ST_SMTP_HELLO_REPLY);
}

// Keeps what the AUTH lines of the reply offer, each behind the word and the char that follows it.
static void CollectAuthLines(Channel& ch, const char* reply)
{
    constexpr int32_t WordChars = 5;
    int32_t used = 0;
    ch.AuthLines[0] = 0;
    for (const char* word = FindTextNoCase(reply, "AUTH"); word != nullptr;) {
        const int32_t room = static_cast<int32_t>(sizeof ch.AuthLines) - 2 - used;
        const char* methods = word + (TextLength(word) < WordChars ? 4 : WordChars);
        const char* lineFeed = FindChar(methods, '\n');
        const int32_t length = lineFeed == nullptr ? TextLength(methods)
                                                   : static_cast<int32_t>(lineFeed - methods) + 1;
        const int32_t copied =
            CopyText(ch.AuthLines + used, methods, length < room ? length : room);
        used += copied;
        if (copied == 0 || copied == room)
            return;
        word = FindTextNoCase(word + copied, "AUTH");
    }
}

// Bits of AuthMethods.
constexpr uint8_t AUTH_CRAM_MD5 = 1;
constexpr uint8_t AUTH_LOGIN = 2;
constexpr uint8_t AUTH_PLAIN = 4;
constexpr uint8_t AUTH_XOAUTH2 = 8;

static bool Offers(const Channel& ch, uint8_t method, const char* offer, const char* word)
{
    return (ch.AuthMethods & method) != 0 && FindTextNoCase(offer, word) != nullptr;
}

// Goes on to the login by the first method of ours that the server offers and the channel allows, or
// ends the connect without one. offer is the reply from its first "AUTH" on.
static int32_t ChooseAuth(Channel& ch, const char* offer)
{
    if (Offers(ch, AUTH_CRAM_MD5, offer, " CRAM-MD5")) {
        LogText(&ch, "Using CRAM-MD5\r\n");
        return Go(ch, ST_AUTH_CRAM_START);
    }
    if (Offers(ch, AUTH_LOGIN, offer, " LOGIN")) {
        LogText(&ch, "Using LOGIN\r\n");
        return Go(ch, ST_AUTH_LOGIN_START);
    }
    if (FindTextNoCase(offer, "=LOGIN") != nullptr) { // an old form, with no bit of its own
        LogText(&ch, "Using =LOGIN\r\n");
        return Go(ch, ST_AUTH_LOGIN_START);
    }
    if (Offers(ch, AUTH_PLAIN, offer, " PLAIN")) {
        LogText(&ch, "Using PLAIN\r\n");
        return Go(ch, ST_AUTH_PLAIN_SEND);
    }
    if (Offers(ch, AUTH_XOAUTH2, offer, " XOAUTH2")) {
        LogText(&ch, "Using XOAUTH2\r\n");
        return Go(ch, ST_AUTH_XOAUTH2_SEND);
    }
    LogText(&ch, "No protocols!\r\n");
    return Finish(ch);
}

int32_t SmtpHelloReply(Channel& ch, uint32_t)
{
    int32_t leave = 0;
    if (!ReadReplyOrLeave(ch, leave))
        return leave;
    if (ch.UseEhlo == 0)
        return Finish(ch);
    CollectAuthLines(ch, ch.ReplyBuffer);
    const char* offer = FindTextNoCase(ch.ReplyBuffer, "AUTH");
    return offer == nullptr ? Finish(ch) : ChooseAuth(ch, offer);
}
