// A random host: any operations in any order on any channel, with arguments as odd as the header
// allows, against a moody server (host_peer.h). The input: a line of moods, then the calls. Whatever
// the host does, each operation ends, no file is made outside the folders, nothing is left behind,
// and once the settings are put back all three protocols work.
//
// Left out: texts and rooms that the header calls undefined, files outside the folders, programs
// other than one that ends at once. With RYN_FUZZ_TRACE in the environment each call is told.
#include "frame/settings.h"
#include "include/ryn32.h"
#include "tests/fuzz/fuzz_fetch.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/fuzz/fuzz_world.h"
#include "tests/fuzz/host_calls.h"
#include "tests/fuzz/host_peer.h"
#include "tests/support/fault.h"
#include "tests/support/virtual_clock.h"
#include "tests/support/virtual_socket.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <list>
#include <memory>
#include <string>
#include <vector>

constexpr size_t MostCalls = 40;
constexpr uint32_t Channels = 4;

// --- memory and programs of an input ---

struct HostMemory {
    std::list<std::unique_ptr<char[]>> Rooms;
    int Starts;
};

static HostMemory Memory;

char* HostRoom(size_t size)
{
    Memory.Rooms.emplace_back(new char[size]);
    std::fill_n(Memory.Rooms.back().get(), size, '\xA5');
    return Memory.Rooms.back().get();
}

static const char* Keep(const std::string& text)
{
    char* const room = HostRoom(text.size() + 1);
    memcpy(room, text.c_str(), text.size() + 1);
    return room;
}

bool HostMayStart()
{
    constexpr int MostStarts = 3;
    return ++Memory.Starts <= MostStarts;
}

void HostKillPrograms()
{
    constexpr int32_t Entries = 64;
    for (int32_t entry = 0; entry < Entries; entry++)
        rynKillProgram(entry, 0);
}

// --- arguments ---

static std::string InStore(const std::string& name)
{
    return Folders().Store + "/" + name;
}

// Lists with '~' between the texts; '$' stands for the folder of the files.
static constexpr char Texts[] =
    "~server.test~localhost~10.0.0.25~256.1.1.1~no.such.host~a@b~<a@b.example>~"
    "Ann <a@b.example>~a@b.example~<a@b.example~<>~<a@b>;Bob <c@d>;~;;<a@b>~user~secret~"
    "InBox~a subject~=?utf-8?q?=C3=A9?=~caf\xE9~caf\xC3\xA9~\xFF\xFE\xC0\x80~"
    "a\r\n.\r\n..two\r\n~<img src=\"cid:x.1\">~@$text~@$missing~$text~$a.gif~$a.gif;$text~"
    "$a.gif|b.gif;$text|caf\xE9~$missing~x*3~x*0;y*7;$a.gif~ALL~UNSEEN FROM \"x\"~%s%n%d%x~"
    "Content-Type: text/csv~X-A: b\r\nX-C: d\r\n~X-Mailer: z~-0500~\"\" \"*\"~127.0.0.1~"
    "user=a\1auth=Bearer b\1\1~*~NOOP~QUJD~=41=4~message.eml~..~a/b~a\\b~verify = 2\r\n~"
    "ESMTP~word word word word word";
static constexpr char FilesToRead[] = "$stored~$text~$a.gif~$missing~~x*3~*~$";
static constexpr char FoldersToFill[] = "$../mail~$../attach~$~$missing~~$../mail\\~$text";
static constexpr char Programs[] = "/bin/true~\"/bin/true\" a \"b c\"~$missing~~\"~$text";

static const char* Choose(const std::string& list, size_t choice)
{
    size_t at = 0;
    for (choice %= static_cast<size_t>(std::count(list.begin(), list.end(), '~')) + 1; choice > 0;
         choice--)
        at = list.find('~', at) + 1;
    std::string text = list.substr(at, list.find('~', at) - at);
    for (at = text.find('$'); at != std::string::npos; at = text.find('$', at))
        text.replace(at, 1, Folders().Store + "/");
    return Keep(text);
}

static std::string InlineText(FuzzBytes& input, uint8_t kind)
{
    constexpr uint8_t Filled = 0xE0;
    if (kind >= Filled) { // a long one of one char
        const uint8_t c = TakeByte(input);
        return std::string(size_t{ 33 } * TakeByte(input), static_cast<char>(c == 0 ? 'x' : c));
    }
    std::string text;
    for (size_t left = kind % 32u; left > 0 && input.Left > 0; left--)
        text += static_cast<char>(TakeByte(input));
    text = text.c_str();
    std::replace(text.begin(), text.end(), '/', '_'); // no path of the input's own
    return text;
}

static const char* TakeText(FuzzBytes& input)
{
    constexpr uint8_t Null = 0xBF;
    const uint8_t kind = TakeByte(input);
    if (kind == Null)
        return nullptr;
    return kind < Null ? Choose(Texts, kind) : Keep(InlineText(input, kind));
}

// A file to write: by a name that nothing reads, since a file that is read while it grows has no end.
static const char* TakeTarget(FuzzBytes& input)
{
    const char* const text = TakeText(input);
    if (text == nullptr || *text == 0)
        return text;
    std::string name = text;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c == '/' || c == '\\'; }, '_');
    return Keep(InStore("w" + name));
}

static const char* TakeFile(FuzzBytes& input, char kind)
{
    constexpr uint8_t Null = 0xBF;
    const uint8_t choice = TakeByte(input);
    if (choice == Null)
        return nullptr;
    if (kind == 'r')
        return Choose(FilesToRead, choice);
    return kind == 'd' ? Choose(FoldersToFill, choice) : Choose(Programs, choice);
}

static int32_t TakeNumber(FuzzBytes& input)
{
    static constexpr int32_t odd[] = {
        -1,   -2,   -12,   -77,   INT_MIN, INT_MAX, 128,   143,  255,  256,  300,    465,
        512,  900,  993,   998,   1000,    1002,    1003,  1004, 1005, 1006, 1007,   1008,
        1010, 1011, 1012,  1013,  1024,    2000,    2001,  2048, 4096, 5000, 5025,   5110,
        5143, 8191, 16384, 32767, 32768,   65535,   65536, -36,  -46,  -49,  -10054, 100000
    };
    constexpr uint8_t Odd = 0x80;
    const uint8_t byte = TakeByte(input);
    return byte < Odd ? byte : odd[(byte - Odd) % std::size(odd)];
}

static uint32_t TakeChannel(FuzzBytes& input)
{
    static constexpr int32_t odd[] = { 4, 64, 65, -1, -2, INT_MAX, INT_MIN, 1000 };
    constexpr uint8_t Odd = 0xF0;
    const uint8_t byte = TakeByte(input);
    return byte < Odd ? byte % Channels : static_cast<uint32_t>(odd[byte % std::size(odd)]);
}

static void TakeRoom(FuzzBytes& input, HostCall& call, size_t more)
{
    constexpr uint8_t Null = 0xFF;
    constexpr int32_t Largest = 100000;
    const bool isNull = input.Left > 0 && *input.Next == Null;
    call.Size = std::min(TakeNumber(input), Largest);
    if (isNull) {
        call.Size = 500;
        return;
    }
    call.Room = HostRoom(static_cast<size_t>(std::max(call.Size, 0)) + more);
}

static HostCall TakeCall(FuzzBytes& input, const HostRow& row)
{
    HostCall call = {};
    size_t texts = 0, numbers = 0;
    for (const char* kind = row.Takes; *kind != 0; kind++) {
        if (*kind == 'c')
            call.Channel = TakeChannel(input);
        else if (*kind == 'n')
            call.Number[numbers++] = TakeNumber(input);
        else if (*kind == 't')
            call.Text[texts++] = TakeText(input);
        else if (*kind == 'w')
            call.Text[texts++] = TakeTarget(input);
        else if (strchr("rdx", *kind) != nullptr)
            call.Text[texts++] = TakeFile(input, *kind);
        else if (*kind == 'b' || *kind == 'B')
            TakeRoom(input, call, *kind == 'B' ? 1 : 0);
    }
    return call;
}

// --- settings of the process ---

static uint32_t* const NumberSettings[] = {
    &CommandGap,       &DataGap,      &ReplyTimeout,      &DataTimeout,
    &FetchTimeout,     &PollDelay,    &ConnectTimeout,    &DriverDelay,
    &ConnectAttempts,  &KeepRawChars, &MaxLineLength,     &SendStandardHeaders,
    &SuppressToHeader, &NoAttachNote, &NoHeaderCopy,      &ImapPartialFetch,
    &ImapTrace,        &ShowSecrets,  &UnderscoreToSpace, &ShowConnectSecrets,
    &LogZone,
};

struct StartSettings {
    std::vector<uint32_t> Numbers;
    std::vector<std::string> Statuses; // texts by negated status, empty for none
};

static StartSettings ReadSettings()
{
    constexpr int32_t LastStatus = 12000;
    StartSettings start;
    for (const uint32_t* number : NumberSettings)
        start.Numbers.push_back(*number);
    Require(rynAttach(1) == 999, "attach");
    for (int32_t status = 0; status < LastStatus; status++) {
        char text[128] = "";
        rynErrorText(0, -status, text, sizeof text);
        start.Statuses.push_back(text);
    }
    rynRelease();
    for (size_t i = 0; i < start.Numbers.size(); i++)
        *NumberSettings[i] = start.Numbers[i];
    return start;
}

static const StartSettings& Start()
{
    static const StartSettings start = ReadSettings();
    return start;
}

static void PutSettingsBack()
{
    for (size_t i = 0; i < std::size(NumberSettings); i++)
        *NumberSettings[i] = Start().Numbers[i];
    RecipientDelimiter = AttachDelimiter = ';';
    AttachNameDelimiter = '|';
    FileMarker = '@';
    WrapLineLength = 900;
    CommaInHeaderLists = 1;
    UserContentType[0] = UserTransferEncoding[0] = ZoneString[0] = 0;
    snprintf(HeaderPrefix, sizeof HeaderPrefix, "RYN:");
    for (size_t status = 0; status < Start().Statuses.size(); status++) {
        if (!Start().Statuses[status].empty())
            rynSetErrorText(-static_cast<int32_t>(status), Start().Statuses[status].c_str());
    }
}

// --- one input ---

static bool IsStatus(int32_t result)
{
    constexpr int32_t LastCode = -3; // of operations that answer -1, -2, -3 for small faults
    if (result >= LastCode || result == RYN_ERR_BAD_UTF8)
        return true;
    const size_t status = static_cast<size_t>(-int64_t{ result });
    return status < Start().Statuses.size() && !Start().Statuses[status].empty();
}

// From here on a call of the system fails, once or for good, or signals cut its calls short.
static void ArmFault(FuzzBytes& input, bool isTraced)
{
    constexpr uint8_t FromThereOn = 0x80;
    const int kind = TakeByte(input) % (FAULT_ALL_COUNT + 1);
    const uint8_t number = TakeByte(input);
    if (isTraced)
        fprintf(stderr, "fault %d, %d\n", kind, number);
    if (kind == FAULT_ALL_COUNT)
        return FaultInterrupt(number % 2 != 0);
    (number < FromThereOn ? FaultArm : FaultArmFrom)(static_cast<FaultKind>(kind),
                                                     number % FromThereOn);
}

static void RunCall(FuzzBytes& input, bool isTraced)
{
    constexpr uint8_t Fault = 0xF0;
    const uint8_t choice = TakeByte(input);
    if (choice >= Fault)
        return ArmFault(input, isTraced);
    const auto rows = HostRows();
    const HostRow& row = rows[choice % rows.size()];
    const HostCall call = TakeCall(input, row);
    if (isTraced)
        fprintf(stderr, "%s %d %d %d '%.60s' '%.60s' ", row.Name, static_cast<int>(call.Channel),
                call.Number[0], call.Number[1], call.Text[0] == nullptr ? "(null)" : call.Text[0],
                call.Text[1] == nullptr ? "(null)" : call.Text[1]);
    HostPeerBegin(row.Name);
    const int32_t result = row.Run(call);
    if (isTraced)
        fprintf(stderr, "= %d\n", result);
    if (strchr(row.Takes, '#') == nullptr && !IsStatus(result))
        Breach("a documented result", row.Name + (" " + std::to_string(result)));
}

static void RunHost(FuzzBytes& input)
{
    const bool isTraced = getenv("RYN_FUZZ_TRACE") != nullptr;
    WorldOpen(VirtualClockStart);
    HostPeerStart(TakeLine(input));
    WriteFile(InStore("stored"),
              "+OK\r\nSubject: s\r\nContent-Type: a/b; name=n.txt\r\n\r\nx\r\n.\r\n");
    WriteFile(InStore("text"), "a text\r\n.\r\nof some lines\n\nof\tany kind \xE9\r\n");
    WriteFile(InStore("a.gif"), std::string("GIF89a\0\n\r\n", 10) + std::string(5000, 'g'));
    Require(rynAttach(Channels) == 999, "attach");
    VirtualAddName(ComputerName, VirtualLoopback); // where a tunnel listens if nothing is told
    for (int32_t index = 0; index < 8; index++)
        rynSetFileBuffer(0, index, "", 0);
    for (size_t calls = 0; calls < MostCalls && input.Left > 0; calls++)
        RunCall(input, isTraced);
    HostPeerBegin("rynRelease");
    HostKillPrograms();
    rynRelease();
    FaultDisarm();
    FaultInterrupt(false);
    WorldClose();
}

static void CheckHonestSend()
{
    WorldOpen(VirtualClockStart);
    HostPeerStart("");
    Require(rynAttach(1) == 999, "attach");
    Require(rynSmtpConnect(0, "server.test", "<a@b.example>", nullptr) == 0,
            "an honest greeting works again");
    Require(rynSendEmail(0, "<c@d.example>", nullptr, nullptr, "s", "text", nullptr) == 0,
            "an honest send works again");
    if (!HostPeerMail().ends_with("Subject: s\r\n\r\ntext\r\n"))
        Breach("an honest message", HostPeerMail());
    Require(rynClose(0) == 0, "an honest farewell works again");
    rynRelease();
    WorldClose();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzBytes input = { data, size };
    Start();
    RunHost(input);
    PutSettingsBack();
    CheckHonestSend();
    WorldBegin(VirtualClockStart, 100);
    CheckHonestPop3();
    CheckHonestImap();
    WorldEnd();
    PutSettingsBack();
    Memory.Rooms.clear();
    Memory.Starts = 0;
    return 0;
}
