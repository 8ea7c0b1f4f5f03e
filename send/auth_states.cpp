// States 150 to 173. Secrets are sent with a mask, so that the log shows stars, and wiped from the
// buffers in which they were encoded.
#include "send/auth_states.h"

#include "codec/base64.h"
#include "codec/md5.h"
#include "codec/text.h"
#include "frame/log.h"
#include "frame/settings.h"
#include "platform/platform.h"
#include "transport/channel_io.h"
#include "transport/replies.h"
#include "transport/vstream.h"

#include <cstring>

constexpr int32_t LoginHalfWidth = 57; // lines of 152 chars
constexpr int32_t TokenHalfWidth = 24; // lines of 64 chars
constexpr uint32_t VerdictPause = 200; // ms in front of the verdict, beside the usual gap

// --- common steps ---

// The mask start of a secret: the whole line, or none once the host wants to see secrets.
static int32_t MaskStart()
{
    return static_cast<int32_t>(ShowSecrets);
}

// Encodes a text into CommandBuffer from index on: chars written, with the line ends.
static int32_t EncodeToCommand(Channel& ch, int32_t index, const char* text, int32_t length,
                               int32_t halfWidth)
{
    const int32_t count = EncodeBase64Lines(text, ch.CommandBuffer + index, length, halfWidth);
    ch.CommandBuffer[index + count] = 0;
    return count;
}

// Sends the first count bytes of CommandBuffer masked and wipes them: 0, or what FailState returned.
static int32_t SendSecret(Channel& ch, int32_t count)
{
    const int32_t result = SendDataMasked(ch, ch.CommandBuffer, count, MaskStart());
    WipeBytes(ch.CommandBuffer, static_cast<size_t>(count));
    return result < 0 ? FailSend(ch, result) : 0;
}

// Reads the verdict on a login and ends the connect.
static int32_t ReadLoginVerdict(Channel& ch, const char* logLine)
{
    int32_t leave = 0;
    if (!ReadReplyOrLeave(ch, leave))
        return leave;
    LogText(&ch, logLine);
    return Finish(ch);
}

// --- CRAM-MD5 (RFC 2195) ---

int32_t AuthCramStart(Channel& ch, uint32_t now)
{
    if (const int32_t status = SendOrFail(ch, "AUTH CRAM-MD5"); status < 0)
        return status;
    Arm(ch, 2 * CommandGap, ReplyTimeout);
    ch.NextState = ST_AUTH_CRAM_CHALLENGE;
    return AuthCramChallenge(ch, now);
}

// The challenge is Base64 behind "334 "; what AuthScratch can't hold is cut off before decoding.
int32_t AuthCramChallenge(Channel& ch, uint32_t)
{
    constexpr int32_t CodeChars = 4;
    constexpr int32_t SpareBytes = 4; // the decoder ends its work in zeros
    constexpr int32_t ScratchChars = static_cast<int32_t>(sizeof ch.AuthScratch) - SpareBytes;
    int32_t leave = 0;
    if (!ReadReplyOrLeave(ch, leave))
        return leave;
    const int32_t length = TextLength(ch.ReplyBuffer) - CodeChars;
    constexpr int32_t most = ScratchChars / 3 * 4;
    memset(ch.AuthScratch, 0, sizeof ch.AuthScratch);
    if (length > 0)
        DecodeBase64Text(ch.ReplyBuffer + CodeChars, ch.AuthScratch, length < most ? length : most);
    LogFormat(ch, "Challenge '%s'\r\n", ch.AuthScratch);
    return Go(ch, ST_AUTH_CRAM_RESPONSE);
}

// Answers the challenge in AuthScratch by the user's name and the digest keyed with the password.
static void MakeCramAnswer(Channel& ch)
{
    uint8_t digest[Md5DigestBytes];
    char digits[2 * Md5DigestBytes + 1];
    HmacMd5Text(ch.AuthScratch, ch.AuthPassword, digest);
    DigestToHex(digest, digits);
    FormatText(ch.AuthScratch, sizeof ch.AuthScratch, "%s %s", ch.UserName, digits);
}

int32_t AuthCramResponse(Channel& ch, uint32_t)
{
    MakeCramAnswer(ch);
    const int32_t count =
        EncodeToCommand(ch, 0, ch.AuthScratch, TextLength(ch.AuthScratch), LoginHalfWidth);
    if (const int32_t status = SendSecret(ch, count); status < 0)
        return status;
    Arm(ch, CommandGap + VerdictPause, ReplyTimeout);
    return Go(ch, ST_AUTH_CRAM_REPLY);
}

int32_t AuthCramReply(Channel& ch, uint32_t)
{
    return ReadLoginVerdict(ch, "AUTH CRAM-MD5 ok\r\n");
}

// --- LOGIN ---

int32_t AuthLoginStart(Channel& ch, uint32_t)
{
    if (const int32_t status = SendOrFail(ch, "AUTH LOGIN"); status < 0)
        return status;
    Arm(ch, 2 * CommandGap + VerdictPause, ReplyTimeout);
    return Go(ch, ST_AUTH_LOGIN_USER);
}

int32_t AuthLoginUser(Channel& ch, uint32_t)
{
    int32_t leave = 0;
    if (!ReadReplyOrLeave(ch, leave))
        return leave;
    EncodeToCommand(ch, 0, ch.UserName, TextLength(ch.UserName), LoginHalfWidth);
    if (const int32_t result = SendText(ch, ch.CommandBuffer); result < 0)
        return FailSend(ch, result);
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, ST_AUTH_LOGIN_PASSWORD);
}

int32_t AuthLoginPassword(Channel& ch, uint32_t)
{
    int32_t leave = 0;
    if (!ReadReplyOrLeave(ch, leave))
        return leave;
    const int32_t count =
        EncodeToCommand(ch, 0, ch.AuthPassword, TextLength(ch.AuthPassword), LoginHalfWidth);
    if (const int32_t status = SendSecret(ch, count); status < 0)
        return status;
    Arm(ch, CommandGap + VerdictPause, ReplyTimeout);
    return Go(ch, ST_AUTH_LOGIN_REPLY);
}

int32_t AuthLoginReply(Channel& ch, uint32_t)
{
    return ReadLoginVerdict(ch, "AUTH LOGIN ok\r\n");
}

// --- PLAIN (RFC 4616) ---

// Name, zero, name, zero, password: the name is authorisation and authentication identity.
static int32_t MakePlainBlock(const Channel& ch, char* block)
{
    const size_t name = strlen(ch.UserName) + 1;
    const size_t password = strlen(ch.AuthPassword);
    memcpy(block, ch.UserName, name);
    memcpy(block + name, ch.UserName, name);
    memcpy(block + 2 * name, ch.AuthPassword, password);
    return static_cast<int32_t>(2 * name + password);
}

int32_t AuthPlainSend(Channel& ch, uint32_t)
{
    char block[2 * sizeof ch.UserName + sizeof ch.AuthPassword];
    const int32_t length = MakePlainBlock(ch, block);
    const int32_t head = CopyText(ch.CommandBuffer, "AUTH PLAIN ", CommandCapacity - 1);
    const int32_t count = head + EncodeToCommand(ch, head, block, length, LoginHalfWidth);
    WipeBytes(block, sizeof block);
    if (const int32_t status = SendSecret(ch, count); status < 0)
        return status;
    Arm(ch, 2 * CommandGap, ReplyTimeout);
    return Go(ch, ST_AUTH_PLAIN_REPLY);
}

int32_t AuthPlainReply(Channel& ch, uint32_t)
{
    return ReadLoginVerdict(ch, "AUTH PLAIN ok\r\n");
}

// --- XOAUTH2 ---

int32_t AuthXOAuth2Send(Channel& ch, uint32_t)
{
    const int32_t head = CopyText(ch.CommandBuffer, "AUTH XOAUTH2 ", CommandCapacity - 1);
    const int32_t count = head + EncodeToCommand(ch, head, ch.AuthPassword,
                                                 TextLength(ch.AuthPassword), TokenHalfWidth);
    LogFormat(ch, "(%d chars in XOAUTH2 string)\n", count);
    if (const int32_t status = SendSecret(ch, count); status < 0)
        return status;
    Arm(ch, 2 * CommandGap, ReplyTimeout);
    return Go(ch, ST_AUTH_XOAUTH2_REPLY);
}

int32_t AuthXOAuth2Reply(Channel& ch, uint32_t)
{
    vsFlush(ch.VSock);
    osSleep(PollDelay);
    int32_t leave = 0;
    if (!ReadReplyOrLeave(ch, leave))
        return leave;
    LogFormat(ch, "AUTH XOAUTH2 returns %d\r\n", 0);
    return Finish(ch);
}
