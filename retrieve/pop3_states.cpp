// States 300 to 308, 317, 318, 320 and 321.
#include "retrieve/pop3_states.h"

#include "codec/md5.h"
#include "codec/text.h"
#include "frame/log.h"
#include "frame/settings.h"
#include "frame/ticks.h"
#include "platform/platform.h"
#include "retrieve/message_file.h"
#include "transport/channel_io.h"
#include "transport/replies.h"

constexpr uint32_t ApopPause = 200; // ms behind APOP, beside the usual gap
constexpr uint32_t PassPause = 100;

// --- common steps ---

// What follows a line of a login.
static void ArmLogin(Channel& ch, uint32_t pause)
{
    osSleep(DriverDelay);
    Arm(ch, CommandGap + pause, ReplyTimeout);
}

// True if a reply of the login has come and is no refusal. Otherwise leaveOut is what the state
// returns.
static bool ReadLoginReply(Channel& ch, int32_t& leaveOut)
{
    if (ChannelDataReady(ch, 0) == 0) {
        osSleep(PollDelay);
        leaveOut = Stay(ch);
        return false;
    }
    const int32_t result = ReadPop3Reply(ch);
    if (result < 0)
        leaveOut = FailState(ch, 0, result);
    return result >= 0;
}

// --- login ---

int32_t Pop3Start(Channel& ch, uint32_t)
{
    ch.AfterConnectState = ST_POP3_GREETING;
    return Go(ch, ST_CREATE_SOCKET);
}

int32_t Pop3Greeting(Channel& ch, uint32_t)
{
    if (ChannelConnected(ch, 0) == 0) {
        osSleep(PollDelay);
        return Stay(ch);
    }
    if (ChannelDataReady(ch, 0) == 0)
        return Wait(ch);
    LogText(&ch, "POP3 greeting seen\r\n");
    const int32_t result = ReadPop3Reply(ch);
    if (result < 0)
        return FailState(ch, 0, result);
    KeepTimeStamp(ch);
    Arm(ch, CommandGap, ReplyTimeout);
    return ch.UseApop != 0 ? Go(ch, ST_POP3_APOP) : Go(ch, ST_POP3_USER);
}

// Puts the user's name and the digest of time stamp and password in the place of the time stamp.
static void MakeApopAnswer(Channel& ch)
{
    constexpr int32_t MostChars = 64; // of time stamp and password
    AppendText(ch.AuthScratch, ch.Password, MostChars);
    Md5Context context;
    Md5Init(context);
    Md5Update(context, ch.AuthScratch, static_cast<size_t>(TextLength(ch.AuthScratch)));
    uint8_t digest[Md5DigestBytes];
    Md5Final(digest, context);
    char hex[2 * Md5DigestBytes + 1];
    DigestToHex(digest, hex);
    WipeBytes(ch.AuthScratch, sizeof ch.AuthScratch);
    FormatText(ch.AuthScratch, sizeof ch.AuthScratch, "%s %s", ch.UserName, hex);
}

int32_t Pop3Apop(Channel& ch, uint32_t)
{
    if (ch.AuthScratch[0] == 0)
        return FailState(ch, 0, RYN_ERR_NO_APOP_TIMESTAMP);
    MakeApopAnswer(ch);
    FormatText(ch.CommandBuffer, CommandCapacity, "APOP %s", ch.AuthScratch);
    if (const int32_t status = SendCommandOrFail(ch, RYN_ERR_SOCK_READ); status < 0)
        return status;
    ArmLogin(ch, ApopPause);
    return Go(ch, ST_POP3_LOGIN_REPLY);
}

int32_t Pop3User(Channel& ch, uint32_t)
{
    FormatText(ch.CommandBuffer, CommandCapacity, "USER %s", ch.UserName);
    if (const int32_t status = SendCommandOrFail(ch, RYN_ERR_SOCK_READ); status < 0)
        return status;
    ArmLogin(ch, 0);
    return Go(ch, ST_POP3_USER_REPLY);
}

int32_t Pop3UserReply(Channel& ch, uint32_t)
{
    int32_t leave = 0;
    if (!ReadLoginReply(ch, leave))
        return leave;
    ch.WaitWritable = 1;
    return Go(ch, ST_POP3_PASS);
}

int32_t Pop3Pass(Channel& ch, uint32_t)
{
    constexpr int32_t SecretFrom = 5;
    FormatText(ch.CommandBuffer, CommandCapacity, "PASS %s", ch.Password);
    const int32_t result = SendLineMasked(ch, ch.CommandBuffer, SecretFrom);
    WipeBytes(ch.CommandBuffer, SecretFrom + sizeof ch.Password);
    if (result < 0)
        return FailState(ch, result, RYN_ERR_SOCK_READ);
    ArmLogin(ch, PassPause);
    return Go(ch, ST_POP3_LOGIN_REPLY);
}

int32_t Pop3LoginReply(Channel& ch, uint32_t)
{
    int32_t leave = 0;
    if (!ReadLoginReply(ch, leave))
        return leave;
    return Finish(ch);
}

// --- STAT and LIST: a refusal leaves 0 and is no failure ---

int32_t Pop3Stat(Channel& ch, uint32_t)
{
    ch.EmailCount = 0;
    CopyText(ch.CommandBuffer, "STAT", 4);
    if (const int32_t status = SendCommandOrFail(ch, RYN_ERR_SOCK_READ); status < 0)
        return status;
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, ST_POP3_STAT_REPLY);
}

int32_t Pop3StatReply(Channel& ch, uint32_t)
{
    constexpr int32_t CountAt = 4; // behind "+OK "
    if (ChannelDataReady(ch, 0) == 0)
        return Wait(ch);
    if (ReadPop3Reply(ch) >= 0 && TextLength(ch.ReplyBuffer) > CountAt)
        ch.EmailCount = ParseReplyCount(ch.ReplyBuffer + CountAt);
    return Finish(ch);
}

int32_t Pop3List(Channel& ch, uint32_t)
{
    ch.MessageSize = 0;
    FormatText(ch.CommandBuffer, CommandCapacity, "LIST %d", ch.MessageNumber);
    if (const int32_t status = SendCommandOrFail(ch, RYN_ERR_SOCK_READ); status < 0)
        return status;
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, ST_POP3_LIST_REPLY);
}

// "+OK number size".
int32_t Pop3ListReply(Channel& ch, uint32_t)
{
    if (ChannelDataReady(ch, 0) == 0)
        return Wait(ch);
    if (ReadPop3Reply(ch) < 0)
        return Finish(ch);
    const char* blank = FindChar(ch.ReplyBuffer, ' ');
    if (blank != nullptr)
        blank = FindChar(blank + 1, ' ');
    if (blank != nullptr)
        ch.MessageSize = ParseReplyCount(blank + 1);
    return Finish(ch);
}

// --- UIDL ---

int32_t Pop3Uidl(Channel& ch, uint32_t)
{
    if (ch.MessageNumber < 0)
        CopyText(ch.CommandBuffer, "UIDL", 4);
    else
        FormatText(ch.CommandBuffer, CommandCapacity, "UIDL %d", ch.MessageNumber);
    if (const int32_t status = SendCommandOrFail(ch, RYN_ERR_SOCK_WRITE); status < 0)
        return status;
    Arm(ch, CommandGap, ReplyTimeout);
    return Go(ch, ST_POP3_UIDL_REPLY);
}

// One line is the answer for one message; a list ends in a lone dot.
int32_t Pop3UidlReply(Channel& ch, uint32_t)
{
    if (ChannelDataReady(ch, FetchTimeout) == 0)
        return Stay(ch);
    const int32_t length =
        ReadServerLine(ch, ch.ReplyBuffer, ReplyReadCapacity, FetchTimeout, RestOfLineWait());
    if (length == RYN_ERR_SOCK_CLOSED)
        return Finish(ch);
    if (length < 0)
        return FailState(ch, 0, length);
    if (ch.LineIsPiece == 0 && ch.ReplyBuffer[0] == '.' && ch.ReplyBuffer[1] != '.')
        return Finish(ch);
    KeepInUserBuffer(ch, length);
    if (ch.UserBuffer != nullptr) // which has room for a zero behind its size
        ch.UserBuffer[ch.UserBufferUsed] = 0;
    if (ch.MessageNumber >= 1)
        return Finish(ch);
    ch.DeadlineTick = TickAfter(osTickCount(), ReplyTimeout);
    return Stay(ch);
}
