// The fetches and their rules.
#include "tests/fuzz/fuzz_fetch.h"

#include "include/ryn32.h"
#include "tests/fuzz/fuzz_peer.h"
#include "tests/support/virtual_clock.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

constexpr char ListDelimiter = '|'; // no name on the disk holds one
constexpr int32_t ListChars = 5121;
constexpr int32_t FieldChars = 300;

// --- settings ---

static void Default(int32_t code, bool isOn)
{
    Set(code, isOn ? 1 : 0);
}

FetchSettings ApplySettings(const FuzzSettings& settings)
{
    const uint8_t* bytes = settings.Bytes;
    FetchSettings result;
    result.Protocol = bytes[0] & 1 ? 'I' : 'P';
    result.IsManual = bytes[0] & 2;
    result.HasLog = (bytes[0] & 12) == 12;
    result.IsRaw = (bytes[0] & 48) == 48;
    result.NoHeaderCopy = bytes[1] & 1;
    result.HasRawPrefix = bytes[1] & 2;
    Default(RYN_AUTO_CALL_DRIVER, !result.IsManual);
    Default(RYN_DECODE_MODE, result.IsRaw);
    Default(RYN_NO_HEADER_COPY, result.NoHeaderCopy);
    Set(RYN_RAW_PREFIX, result.HasRawPrefix ? RawPrefixChar : 0u);
    Default(RYN_KEEP_RFC822, bytes[1] & 4);
    Default(RYN_TAG_TEXT_PARTS, bytes[1] & 8);
    Default(RYN_SAVE_UNNAMED_BASE64, bytes[1] & 16);
    Default(RYN_SKIP_ATTACH_DATA, bytes[1] & 32);
    Default(RYN_NO_ATTACH_NOTE, bytes[1] & 64);
    Default(RYN_UNDERSCORE_TO_SPACE, (bytes[2] & 1) == 0);
    Default(RYN_ATTACH_NUMBERING, bytes[2] & 2);
    Set(RYN_ATTACH_COUNTER, bytes[2] & 4 ? 100u : 0u);
    Default(RYN_USE_APOP, bytes[2] & 16);
    Default(RYN_BLOCKING_CONNECT, (bytes[2] & 32) == 0);
    Default(RYN_EXPUNGE_ON_CLOSE, true);
    Default(RYN_IMAP_PARTIAL, false);
    Default(RYN_IMAP_TRACE, false);
    Set(RYN_ATTACH_DELIMITER, ListDelimiter);
    Set(RYN_REPLY_TIMEOUT, FetchWait);
    Set(RYN_CONNECT_TIMEOUT, FetchWait);
    rynStringParam(0, RYN_LOG_FILE, result.HasLog ? (Folders().Store + "/log").c_str() : "");
    return result;
}

uint32_t FuzzTick(const FuzzSettings& settings)
{
    constexpr uint32_t SoonWraps = 0xFFFFFF00;
    return settings.Bytes[2] & 8 ? SoonWraps : VirtualClockStart;
}

// --- what came of it ---

using TellText = int32_t (*)(uint32_t channel, int32_t code, char* target, int32_t size);

// A text in a buffer of exactly the room that the header asks for.
static std::string Told(TellText tell, int32_t code, int32_t size)
{
    std::vector<char> buffer(static_cast<size_t>(size) + 1, '\xA5');
    const int32_t count = tell(0, code, buffer.data(), size);
    Require(count >= 0 && count <= size, "a text fits the size given");
    Require(memchr(buffer.data(), 0, buffer.size()) != nullptr, "a text is terminated");
    Require(strlen(buffer.data()) <= static_cast<size_t>(size), "a text fits the size given");
    return buffer.data();
}

static std::string ToldTwice(TellText tell, int32_t code, int32_t size)
{
    constexpr int32_t Little = 7;
    const std::string whole = Told(tell, code, size);
    const std::string head = Told(tell, code, Little);
    Require(whole.compare(0, head.size(), head) == 0, "a cut text is the head of the whole");
    return whole;
}

std::string ToldValues(size_t messageSize)
{
    std::string values;
    for (int32_t code = RYN_HEADER_DATE; code <= RYN_HEADER_CONTENT_TYPE; code++)
        values +=
            ToldTwice(rynGetHeader, code, static_cast<int32_t>(messageSize) + FieldChars) + '\n';
    for (const int32_t code : { RYN_DEBUG_ATTACH_LIST, RYN_DEBUG_TYPE_LIST, RYN_DEBUG_ID_LIST })
        values += ToldTwice(rynDebug, code, ListChars) + '\n';
    for (const int32_t code :
         { RYN_STAT_MSG_BYTES_IN, RYN_STAT_ATTACH_BYTES_IN, RYN_STAT_ATTACH_COUNT })
        values += std::to_string(rynStatistics(0, static_cast<uint32_t>(code))) + ' ';
    return values;
}

static bool IsPlainName(const std::string& name)
{
    return std::all_of(name.begin(), name.end(), [](char c) { return c >= ' ' && c < 127; });
}

// Every attachment that the host is told of lies in the folder. A list that is full leaves entries out
// or cuts them.
static void CheckAttachList(const Fetched& fetched)
{
    const std::string list = Told(rynDebug, RYN_DEBUG_ATTACH_LIST, ListChars);
    if (static_cast<int32_t>(list.size()) > ListChars - FieldChars)
        return;
    int32_t count = 0;
    for (size_t at = 0; at < list.size();) {
        const size_t end = std::min(list.find(ListDelimiter, at), list.size());
        const std::string name = list.substr(at, end - at);
        if (IsPlainName(name) && fetched.Attachments.count(name) == 0)
            Breach("a listed attachment is there", name);
        at = end + 1;
        ++count;
    }
    Require(rynStatistics(0, RYN_STAT_ATTACH_COUNT) == count, "the list holds each attachment");
}

static void CheckGrowth(const Fetched& fetched, size_t messageSize)
{
    constexpr size_t MostGrowth = 64; // times: many short parts make many notes
    size_t bytes = fetched.Message.size();
    for (const auto& [name, content] : fetched.Attachments)
        bytes += content.size();
    Require(bytes <= MostGrowth * messageSize + 4096,
            "files are not larger than the message gives");
}

static Fetched Collect(int32_t status, size_t messageSize, const std::string& attachFolder)
{
    Fetched fetched = { status, ReadFile(Folders().Mail + "/" + MessageName), FilesIn(attachFolder),
                        ToldValues(messageSize) };
    if (attachFolder == Folders().Attach)
        CheckGrowth(fetched, messageSize);
    CheckAttachList(fetched);
    return fetched;
}

// --- fetching ---

int32_t FinishDriving(int32_t result, bool isManual)
{
    constexpr int MostCalls = 1000000;
    if (!isManual || result < 0)
        return result;
    for (int calls = 0; calls < MostCalls; calls++) {
        result = rynDriver(0);
        if (result <= 0)
            return result;
        VirtualClockAdvance(1);
    }
    Breach("manual driving ends");
}

static int32_t FetchTo(const std::string& attachFolder, bool isManual)
{
    const int32_t result =
        rynGetEmailFile(0, 1, MessageName, Folders().Mail.c_str(), attachFolder.c_str());
    return FinishDriving(result, isManual);
}

Fetched FetchStored(const std::string& message, const FetchSettings& settings,
                    const std::string& attachFolder)
{
    const std::string path = Folders().Store + "/stored";
    WriteFile(path, message);
    const auto attach = settings.Protocol == 'P' ? rynPop3Source : rynImapSource;
    Require(attach(0, path.c_str()) == 1, "a stored message is taken");
    const int32_t status = FetchTo(attachFolder, settings.IsManual);
    Require(status == 0, "fetching a stored message does not fail");
    Fetched fetched = Collect(status, message.size(), attachFolder);
    if (attachFolder == Folders().Store)
        Require(ReadFile(path) == message, "the stored message is as it was");
    Require(rynClose(0) >= 0, "close");
    return fetched;
}

Fetched FetchServed(const std::string& message, const FetchSettings& settings, size_t piece)
{
    PeerServe(message, piece, true);
    const int32_t login = rynPop3Connect(0, PeerName, "user", "pass");
    Require(FinishDriving(login, settings.IsManual) == 0, "an honest server takes the login");
    const int32_t status = FetchTo(Folders().Attach, settings.IsManual);
    Fetched fetched = Collect(status, message.size(), Folders().Attach);
    Require(rynAbort(0) == 1, "abort");
    return fetched;
}

bool CanCompare(const FetchSettings& settings)
{
    return settings.Protocol == 'P' && !settings.IsRaw && !settings.HasRawPrefix;
}

void CompareWays(const std::string& message, const FuzzSettings& settings)
{
    const std::string stream = "+OK\r\n" + message;
    const Fetched stored = FetchStored(stream, ApplySettings(settings), Folders().Attach);
    WorldEnd();
    WorldBegin(FuzzTick(settings), 1);
    const Fetched served = FetchServed(stream, ApplySettings(settings), settings.Bytes[3]);
    Require(served.Status == 0, "a server that closes ends the message");
    if (stored == served)
        return;
    for (const Fetched* fetched : { &stored, &served }) {
        fprintf(stderr, "--- %s\n%s\n", fetched == &stored ? "stored" : "served",
                fetched->Values.c_str());
        fprintf(stderr, "%s\n", fetched->Message.c_str());
        for (const auto& [name, content] : fetched->Attachments)
            fprintf(stderr, "%s: %s\n", name.c_str(), content.c_str());
    }
    Breach("a message in pieces is the message as a whole");
}

// --- the honest message ---

constexpr char HonestMessage[] = "From: Ann <a@b.example>\r\n"
                                 "To: b@c.example,\r\n"
                                 " d@e.example\r\n"
                                 "Subject: =?utf-8?q?H=C3=A9?=\r\n"
                                 "MIME-Version: 1.0\r\n"
                                 "Content-Type: multipart/mixed; boundary=\"x1\"\r\n"
                                 "\r\n"
                                 "--x1\r\n"
                                 "Content-Type: text/plain\r\n"
                                 "Content-Transfer-Encoding: quoted-printable\r\n"
                                 "\r\n"
                                 "caf=C3=A9\r\n"
                                 "--x1\r\n"
                                 "Content-Type: image/gif; name=\"a.gif\"\r\n"
                                 "Content-Transfer-Encoding: base64\r\n"
                                 "\r\n"
                                 "R0lG\r\n"
                                 "ODlh\r\n"
                                 "--x1--\r\n";

static std::string HonestAnswer()
{
    return std::string("+OK\r\n") + HonestMessage + ".\r\n";
}

// The message file, but for the note that names the attachment's path.
constexpr char HonestText[] = "From: Ann <a@b.example>\r\n"
                              "To: b@c.example,\r\n"
                              " d@e.example\r\n"
                              "Subject: H\xC3\xA9\r\n"
                              "\r\n"
                              "caf\xC3\xA9\r\n"
                              "[Attachment saved to \"";

static void CheckHonestFiles()
{
    const std::string text = ReadFile(Folders().Mail + "/" + MessageName);
    if (text.compare(0, sizeof HonestText - 1, HonestText) != 0)
        Breach("an honest message file", text);
    Require(ReadFile(Folders().Attach + "/a.gif") == "GIF89a", "an honest attachment");
}

void CheckHonestFetch()
{
    ApplySettings({});
    const std::string path = Folders().Store + "/honest";
    WriteFile(path, HonestAnswer());
    Require(rynPop3Source(0, path.c_str()) == 1, "an honest message is taken");
    Require(FetchTo(Folders().Attach, false) == 0, "an honest fetch works again");
    CheckHonestFiles();
    Require(rynClose(0) == 1, "the honest message is let go");
}

static void CheckHonestMailbox()
{
    Require(rynGetEmailCount(0) == 2, "an honest count works again");
    Require(rynGetEmailSize(0, 1) == 160, "an honest size works again");
    Require(FetchTo(Folders().Attach, false) == 0, "an honest fetch works again");
    CheckHonestFiles();
    Require(rynClose(0) == 0, "an honest farewell works again");
}

void CheckHonestPop3()
{
    ApplySettings({});
    PeerServe(HonestAnswer(), 0, false);
    Require(rynPop3Connect(0, PeerName, "user", "pass") == 0, "an honest login works again");
    CheckHonestMailbox();
}

void CheckHonestImap()
{
    char found[16];
    ApplySettings({});
    PeerServe(std::string("* 1 FETCH (RFC822 {9}\r\n") + HonestMessage + ")\r\n", 0, false);
    Require(rynImapConnect(0, PeerName, "user", "pass") == 0, "an honest login works again");
    Require(rynImapSearch(0, "ALL", found, sizeof found) == 0 && strcmp(found, "SEARCH 1 2") == 0,
            "an honest search works again");
    CheckHonestMailbox();
}
