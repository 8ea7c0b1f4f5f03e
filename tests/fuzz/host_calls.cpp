// The table of all operations.
#include "tests/fuzz/host_calls.h"

#include "include/ryn32.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/support/virtual_clock.h"

#include <algorithm>
#include <cstring>

using Call = const HostCall&;

static size_t Length(const char* text)
{
    return text == nullptr ? 0 : strlen(text);
}

static uint32_t Unsigned(int32_t number)
{
    return static_cast<uint32_t>(number);
}

// --- operations that want more than their arguments ---

static int32_t Release()
{
    HostKillPrograms();
    return rynRelease();
}

static int32_t Drive(Call c)
{
    constexpr int32_t MostCalls = 1000;
    int32_t result = 1;
    for (int32_t calls = std::min(c.Number[0], MostCalls); calls >= 0 && result > 0; calls--) {
        result = rynDriver(c.Channel);
        VirtualClockAdvance(1);
    }
    return result;
}

// Odd waits, but none that real time can't stand (each is polled) and none near half of the tick's
// range, beyond which the leaps of the clock (host_peer.h) would lead astray.
static int32_t IntegerParam(Call c)
{
    constexpr uint32_t ShortestPause = 10, LongestWait = 1u << 29; // ms
    const int32_t code = c.Number[0];
    uint32_t value = Unsigned(c.Number[1]);
    if (code == RYN_POLL_DELAY)
        value = std::max(value, ShortestPause);
    if (code == RYN_REPLY_TIMEOUT || code == RYN_CONNECT_TIMEOUT)
        value = std::min(value, LongestWait);
    return rynIntegerParam(c.Channel, code, value);
}

static int32_t StringParam(Call c)
{
    const auto code = Unsigned(c.Number[0]);
    switch (code) {
    case RYN_LOG_FILE:
    case RYN_WRITE_LINES_FILE:
    case RYN_RCPT_TRACE_FILE:
        return rynStringParam(c.Channel, code, c.Text[1]);
    case RYN_TEST_PATH:
        return rynStringParam(c.Channel, code, c.Text[2]);
    default:
        return rynStringParam(c.Channel, code, c.Text[0]);
    }
}

static int32_t SetFileBuffer(Call c)
{
    const char* const text = c.Text[0] == nullptr ? "" : c.Text[0];
    return rynSetFileBuffer(c.Channel, c.Number[0], text, static_cast<uint32_t>(strlen(text)));
}

// A tunnel: a program that ends at once, for a server that listens all the same.
static int32_t SmtpConnectSsl(Call c)
{
    return HostMayStart()
               ? rynSmtpConnectSSL(c.Channel, Unsigned(c.Number[0]), Unsigned(c.Number[1]),
                                   c.Text[0], c.Text[1], c.Text[2], c.Text[3], c.Text[4], c.Text[5])
               : 0;
}

template <typename Operation>
static int32_t ConnectSsl(Call c, Operation operation)
{
    return HostMayStart() ? operation(c.Channel, Unsigned(c.Number[0]), Unsigned(c.Number[1]),
                                      c.Text[0], c.Text[1], c.Text[2], c.Text[3])
                          : 0;
}

static int32_t StartProgram(Call c)
{
    return HostMayStart() ? rynStartProgram(c.Text[0]) : 0;
}

// --- codecs: rooms that the header measures by the text ---

static const uint16_t* Wide(const char* text)
{
    const size_t chars = Length(text);
    auto* const wide = reinterpret_cast<uint16_t*>(HostRoom(2 * chars + 2));
    for (size_t i = 0; i < chars; i++)
        wide[i] = static_cast<uint16_t>(static_cast<uint8_t>(text[i]) * 0x101);
    wide[chars] = 0;
    return wide;
}

static uint16_t* WideRoom(size_t chars)
{
    return reinterpret_cast<uint16_t*>(HostRoom(2 * chars));
}

static char* Copy(const char* text, size_t room)
{
    char* const copy = HostRoom(room);
    std::fill_n(copy, room, char{});
    std::copy_n(text, std::min(Length(text), room), copy);
    return copy;
}

static int32_t EncodeBuffer(Call c)
{
    const size_t length = Length(c.Text[0]);
    const int32_t wanted = std::min(c.Number[0], static_cast<int32_t>(length));
    return rynEncodeBuffer(c.Text[0], HostRoom((length + 56) / 57 * 78 + 1), wanted);
}

static char* DecodeRoom(const char* text)
{
    return HostRoom(Length(text) / 4 * 3 + 4);
}

static int32_t ShortToByte(Call c)
{
    const size_t length = Length(c.Text[0]);
    return rynShortToByte(c.Text[0] == nullptr ? nullptr
                                               : Copy(c.Text[0], (length + 1) / 2 * 2 + 2));
}

static int32_t ByteToShort(Call c)
{
    const size_t length = Length(c.Text[0]);
    return rynByteToShort(c.Text[0] == nullptr ? nullptr
                                               : Copy(c.Text[0], std::max<size_t>(2 * length, 1)));
}

static int32_t MakeXOAuth2(Call c)
{
    char* const room = HostRoom(Length(c.Text[0]) + Length(c.Text[1]) + 21 + 1);
    return rynMakeXOAuth2(c.Text[0], c.Text[1], room);
}

// --- the table, in the order of the header ---

static constexpr HostRow Rows[] = {
    { "rynAttach", "n", [](Call c) { return rynAttach(Unsigned(c.Number[0])); } },
    { "rynRelease", "", [](Call) { return Release(); } },
    { "rynClose", "c", [](Call c) { return rynClose(c.Channel); } },
    { "rynAbort", "c", [](Call c) { return rynAbort(c.Channel); } },
    { "rynIsConnected", "c", [](Call c) { return rynIsConnected(c.Channel); } },
    { "rynDriver", "cn", Drive },
    { "rynErrorText", "cnb",
      [](Call c) { return rynErrorText(c.Channel, c.Number[0], c.Room, c.Size); } },
    { "rynSetErrorText", "nt", [](Call c) { return rynSetErrorText(c.Number[0], c.Text[0]); } },
    { "rynIntegerParam", "#cnn", IntegerParam },
    { "rynStringParam", "#cntwd", StringParam },
    { "rynSetFileBuffer", "cnt", SetFileBuffer },
    { "rynStatistics", "#cn",
      [](Call c) { return rynStatistics(c.Channel, Unsigned(c.Number[0])); } },
    { "rynDebug", "cnB", [](Call c) { return rynDebug(c.Channel, c.Number[0], c.Room, c.Size); } },
    { "rynSmtpConnect", "cttt",
      [](Call c) { return rynSmtpConnect(c.Channel, c.Text[0], c.Text[1], c.Text[2]); } },
    { "rynSmtpConnectSSL", "cnntttttt", SmtpConnectSsl },
    { "rynPop3Connect", "cttt",
      [](Call c) { return rynPop3Connect(c.Channel, c.Text[0], c.Text[1], c.Text[2]); } },
    { "rynPop3ConnectSSL", "cnntttt", [](Call c) { return ConnectSsl(c, rynPop3ConnectSSL); } },
    { "rynImapConnect", "cttt",
      [](Call c) { return rynImapConnect(c.Channel, c.Text[0], c.Text[1], c.Text[2]); } },
    { "rynImapConnectSSL", "cnntttt", [](Call c) { return ConnectSsl(c, rynImapConnectSSL); } },
    { "rynTestConnect", "#ctnB",
      [](Call c) {
          return rynTestConnect(c.Channel, c.Text[0], Unsigned(c.Number[0]), c.Room, c.Size);
      } },
    { "rynSetProxySSL", "nndtx",
      [](Call c) {
          return rynSetProxySSL(c.Number[0], Unsigned(c.Number[1]), c.Text[0], c.Text[1],
                                c.Text[2]);
      } },
    { "rynSetCertAuth", "tt", [](Call c) { return rynSetCertAuth(c.Text[0], c.Text[1]); } },
    { "rynConfigSSL", "nt", [](Call c) { return rynConfigSSL(c.Number[0], c.Text[0]); } },
    { "rynStartProgram", "x", StartProgram },
    { "rynKillProgram", "nn", [](Call c) { return rynKillProgram(c.Number[0], c.Number[1]); } },
    { "rynSendEmail", "ctttttt",
      [](Call c) {
          return rynSendEmail(c.Channel, c.Text[0], c.Text[1], c.Text[2], c.Text[3], c.Text[4],
                              c.Text[5]);
      } },
    { "rynSendHTML", "ctttttttt",
      [](Call c) {
          return rynSendHTML(c.Channel, c.Text[0], c.Text[1], c.Text[2], c.Text[3], c.Text[4],
                             c.Text[5], c.Text[6], c.Text[7]);
      } },
    { "rynForwardEmail", "ctttttt",
      [](Call c) {
          return rynForwardEmail(c.Channel, c.Text[0], c.Text[1], c.Text[2], c.Text[3], c.Text[4],
                                 c.Text[5]);
      } },
    { "rynAttachmentParams", "tttt",
      [](Call c) { return rynAttachmentParams(c.Text[0], c.Text[1], c.Text[2], c.Text[3]); } },
    { "rynSmtpTarget", "cwtt",
      [](Call c) { return rynSmtpTarget(c.Channel, c.Text[0], c.Text[1], c.Text[2]); } },
    { "rynVerifyUser", "ct", [](Call c) { return rynVerifyUser(c.Channel, c.Text[0]); } },
    { "rynVerifyFormat", "t", [](Call c) { return rynVerifyFormat(c.Text[0]); } },
    { "rynMakeSubject", "tnb",
      [](Call c) { return rynMakeSubject(c.Text[0], c.Number[0], c.Room, c.Size); } },
    { "rynMakeXOAuth2", "tt", MakeXOAuth2 },
    { "rynGetEmailCount", "c", [](Call c) { return rynGetEmailCount(c.Channel); } },
    { "rynGetEmailSize", "cn", [](Call c) { return rynGetEmailSize(c.Channel, c.Number[0]); } },
    { "rynGetEmailLines", "cnnb",
      [](Call c) {
          return rynGetEmailLines(c.Channel, c.Number[0], c.Number[1], c.Room, c.Size);
      } },
    { "rynGetEmailFile", "cntdd",
      [](Call c) {
          return rynGetEmailFile(c.Channel, c.Number[0], c.Text[0], c.Text[1], c.Text[2]);
      } },
    { "rynGetEmailUID", "cnb",
      [](Call c) { return rynGetEmailUID(c.Channel, c.Number[0], c.Room, c.Size); } },
    { "rynDeleteEmail", "cn", [](Call c) { return rynDeleteEmail(c.Channel, c.Number[0]); } },
    { "rynCommand", "ct", [](Call c) { return rynCommand(c.Channel, c.Text[0]); } },
    { "rynPop3Source", "cr", [](Call c) { return rynPop3Source(c.Channel, c.Text[0]); } },
    { "rynImapSource", "cr", [](Call c) { return rynImapSource(c.Channel, c.Text[0]); } },
    { "rynGetHeader", "cnB",
      [](Call c) { return rynGetHeader(c.Channel, c.Number[0], c.Room, c.Size); } },
    { "rynExtractText", "ttb",
      [](Call c) { return rynExtractText(c.Text[0], c.Text[1], c.Room, c.Size); } },
    { "rynExtractLine", "tnb",
      [](Call c) { return rynExtractLine(c.Text[0], c.Number[0], c.Room, c.Size); } },
    { "rynImapFlags", "cnnn",
      [](Call c) { return rynImapFlags(c.Channel, c.Number[0], c.Number[1], c.Number[2]); } },
    { "rynImapSearch", "ctb",
      [](Call c) { return rynImapSearch(c.Channel, c.Text[0], c.Room, c.Size); } },
    { "rynImapMsgNumber", "cn", [](Call c) { return rynImapMsgNumber(c.Channel, c.Number[0]); } },
    { "rynImapSelectMB", "ct", [](Call c) { return rynImapSelectMB(c.Channel, c.Text[0]); } },
    { "rynImapDeleteMB", "ct", [](Call c) { return rynImapDeleteMB(c.Channel, c.Text[0]); } },
    { "rynImapCreateMB", "ct", [](Call c) { return rynImapCreateMB(c.Channel, c.Text[0]); } },
    { "rynImapRenameMB", "ctt",
      [](Call c) { return rynImapRenameMB(c.Channel, c.Text[0], c.Text[1]); } },
    { "rynImapCopyMBmail", "cnt",
      [](Call c) { return rynImapCopyMBmail(c.Channel, c.Number[0], c.Text[0]); } },
    { "rynImapListMB", "cB", [](Call c) { return rynImapListMB(c.Channel, c.Room, c.Size); } },
    { "rynQuoteBuffer", "tb", [](Call c) { return rynQuoteBuffer(c.Text[0], c.Room, c.Size); } },
    { "rynUnQuoteBuffer", "tB",
      [](Call c) { return rynUnQuoteBuffer(c.Text[0], c.Room, c.Size); } },
    { "rynReadQuoted", "rbn",
      [](Call c) { return rynReadQuoted(c.Text[0], c.Room, c.Size, c.Number[0]); } },
    { "rynEncodeBuffer", "tn", EncodeBuffer },
    { "rynDecodeBuffer", "tn",
      [](Call c) { return rynDecodeBuffer(c.Text[0], DecodeRoom(c.Text[0]), c.Number[0]); } },
    { "rynDecodeUU", "t", [](Call c) { return rynDecodeUU(c.Text[0], DecodeRoom(c.Text[0])); } },
    { "rynEncodeUTF8", "n", [](Call c) { return rynEncodeUTF8(c.Number[0], HostRoom(4)); } },
    { "rynDecodeUTF8", "t", [](Call c) { return rynDecodeUTF8(c.Text[0], WideRoom(1)); } },
    { "rynEncodeUTF8String", "t",
      [](Call c) {
          return rynEncodeUTF8String(Wide(c.Text[0]), HostRoom(3 * Length(c.Text[0]) + 1));
      } },
    { "rynDecodeUTF8String", "t",
      [](Call c) { return rynDecodeUTF8String(c.Text[0], WideRoom(Length(c.Text[0]) + 2)); } },
    { "rynShortToByte", "t", ShortToByte },
    { "rynByteToShort", "t", ByteToShort },
    { "rynTestFileSet", "ctb",
      [](Call c) { return rynTestFileSet(c.Channel, c.Text[0], c.Room, c.Size); } },
    { "rynSleep", "n", [](Call c) { return rynSleep(c.Number[0]); } },
    { "rynGetTicks", "#n", [](Call c) { return rynGetTicks(c.Number[0]); } },
};

static_assert(std::size(Rows) == 70, "a row for each operation");

std::span<const HostRow> HostRows()
{
    return Rows;
}
