// The host of a fuzzed session, and what must hold for each of its operations.
#include "tests/fuzz/fuzz_session.h"

#include "include/ryn32.h"
#include "tests/fuzz/fuzz_fetch.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/fuzz/fuzz_peer.h"
#include "tests/fuzz/fuzz_world.h"
#include "tests/support/fault.h"
#include "tests/support/virtual_clock.h"
#include "tests/support/virtual_socket.h"

#include <algorithm>

constexpr size_t MostOperations = 16;
constexpr uint32_t LookDelay = 100; // ms between two looks at a silent socket

char* SessionBuffer(SessionHost& host, size_t size)
{
    host.Buffers.emplace_back(size);
    return host.Buffers.back().data();
}

// --- what a host does ---

int32_t SessionAbort(SessionHost& host)
{
    const int32_t result = rynAbort(0); // ends manual driving
    Set(RYN_AUTO_CALL_DRIVER, host.IsManual ? 0 : 1);
    return result;
}

static int32_t Count(SessionHost&)
{
    return rynGetEmailCount(0);
}

static int32_t Size(SessionHost&)
{
    return rynGetEmailSize(0, 2);
}

static int32_t OneUid(SessionHost& host)
{
    return rynGetEmailUID(0, 1, SessionBuffer(host, 128), 128);
}

static int32_t AllUids(SessionHost& host)
{
    return rynGetEmailUID(0, -1, SessionBuffer(host, 300), 300);
}

static int32_t SomeLines(SessionHost& host)
{
    const int32_t count = rynGetEmailLines(0, 1, 3, SessionBuffer(host, 128), 128);
    Require(count <= 128, "lines fit the buffer");
    return count;
}

static int32_t KeptLines(SessionHost&)
{
    const int32_t count = rynGetEmailLines(0, 1, 1000, nullptr, 4000);
    Require(count <= 4000, "lines fit the library's buffer");
    return count;
}

static int32_t File(SessionHost&)
{
    return rynGetEmailFile(0, 1, MessageName, Folders().Mail.c_str(), Folders().Attach.c_str());
}

static int32_t Delete(SessionHost&)
{
    return rynDeleteEmail(0, 1);
}

static int32_t Command(SessionHost&)
{
    return rynCommand(0, "XTND a command that is longer than the limit");
}

static int32_t Close(SessionHost&)
{
    return rynClose(0);
}

static int32_t Hurry(SessionHost& host)
{
    host.IsHasty = host.IsManual;
    return 0;
}

static int32_t LetFaultsLast(SessionHost& host)
{
    host.FaultsLast = true;
    return 0;
}

static int32_t LookAround(SessionHost&)
{
    char text[128];
    rynDebug(0, RYN_DEBUG_LAST_REPLY, text, sizeof text - 1);
    rynDebug(0, RYN_DEBUG_EMAIL_LINES, text, sizeof text - 1);
    ToldValues(LongestMessage);
    return rynIsConnected(0);
}

static constexpr SessionLetter Letters[] = {
    { 'c', Count },      { 's', Size },          { 'u', OneUid },       { 'U', AllUids },
    { 'l', SomeLines },  { 'L', KeptLines },     { 'f', File },         { 'd', Delete },
    { 'r', Command },    { 'q', Close },         { 'a', SessionAbort }, { 'h', Hurry },
    { 'e', LookAround }, { 'F', LetFaultsLast },
};

// Which calls of the system's a letter lets fail; a digit in front of it tells the how many-th.
static constexpr struct {
    char Letter;
    FaultKind Kind;
} Faults[] = {
    { 'C', FAULT_CREATE },  { 'M', FAULT_ALLOCATE }, { 'P', FAULT_POLL },
    { 'R', FAULT_RECEIVE }, { 'S', FAULT_SEND },     { 'W', FAULT_WRITE },
};

// --- what holds for each of them ---

static void CheckResult(int32_t result, int32_t refusal)
{
    static constexpr int32_t allowed[] = { RYN_ERR_TIMED_OUT,          RYN_ERR_SOCK_READ,
                                           RYN_ERR_SOCK_WRITE,         RYN_ERR_CONNECT_FAILED,
                                           RYN_ERR_NO_APOP_TIMESTAMP,  RYN_ERR_NO_SUCH_VSOCK,
                                           RYN_ERR_CANNOT_CREATE_FILE, RYN_ERR_NO_SUCH_PATH,
                                           RYN_ERR_NO_MEMORY,          RYN_ERR_BAD_SERVER_NAME,
                                           RYN_ERR_IMAP_ONLY };
    if (result < 0 && result != refusal &&
        std::find(std::begin(allowed), std::end(allowed), result) == std::end(allowed))
        Breach("a documented result", std::to_string(result));
    char text[300] = "";
    Require(result >= 0 || rynErrorText(0, result, text, sizeof text) > 0, "a status has a text");
    for (const int32_t code :
         { RYN_STAT_EMAIL_COUNT, RYN_STAT_MESSAGE_SIZE, RYN_STAT_BUFFER_USED, RYN_STAT_REPLY_CODE })
        Require(rynStatistics(0, static_cast<uint32_t>(code)) >= 0, "a number is no status");
}

static int32_t DriveALittle(int32_t result)
{
    constexpr int FewSteps = 3;
    for (int step = 0; step < FewSteps && result >= 0; step++)
        result = rynDriver(0);
    return result > 0 ? 0 : result;
}

struct Session {
    const SessionProtocol& Protocol;
    uint64_t AllowedMs; // for an operation
    SessionHost Host;
};

static void Run(Session& session, int32_t (*operation)(SessionHost&))
{
    SessionHost& host = session.Host;
    const uint64_t begin = VirtualClockSpent();
    const bool isHasty = host.IsHasty;
    host.IsHasty = false;
    const int32_t result = operation(host);
    CheckResult(isHasty ? DriveALittle(result) : FinishDriving(result, host.IsManual),
                session.Protocol.Refusal);
    const uint64_t spent = VirtualClockSpent() - begin;
    if (spent > session.AllowedMs)
        Breach("an operation ends in time", std::to_string(spent) + " ms");
}

static void RunLetter(Session& session, char letter)
{
    SessionHost& host = session.Host;
    if (letter >= '1' && letter <= '9')
        host.FaultNumber = letter - '0';
    for (const auto& row : Faults) {
        if (row.Letter == letter)
            (host.FaultsLast ? FaultArmFrom : FaultArm)(row.Kind, host.FaultNumber);
    }
    for (const auto letters :
         { std::span<const SessionLetter>(Letters), session.Protocol.Letters }) {
        for (const SessionLetter& row : letters) {
            if (row.Letter == letter)
                Run(session, row.Run);
        }
    }
}

static void RunSession(Session& session, const std::string& letters)
{
    RunLetter(session, 'n');
    for (const char letter : letters.substr(0, MostOperations))
        RunLetter(session, letter);
    RunLetter(session, 'q');
    FaultDisarm();
    RunLetter(session, 'a');
}

void FuzzSession(const SessionProtocol& protocol, const uint8_t* data, size_t size)
{
    FuzzBytes input = { data, size };
    const FuzzSettings bytes = TakeSettings(input);
    const std::string letters = TakeLine(input);
    const std::string script = TakeMessage(input, bytes);
    const size_t piece = bytes.Bytes[3];
    WorldBegin(FuzzTick(bytes), LookDelay);
    if (bytes.Bytes[2] & 128)
        VirtualSetWindows(16, 16);
    PeerPlay(script, piece);
    // Ten waits, and the time that the server takes for its bytes.
    const uint64_t slowness = piece == 0 ? 10 : 2 * LookDelay;
    Session session = { protocol,
                        10 * FetchWait + PeerWaits(script, 2 * LookDelay) +
                            script.size() * slowness,
                        { ApplySettings(bytes).IsManual, false, 1, false, {} } };
    RunSession(session, letters);
    for (const auto& [name, content] : FilesIn(Folders().Mail))
        Require(name == MessageName || name == RawPrefixChar + std::string(MessageName),
                "its name");
    VirtualSetWindows(65536, 65536);
    protocol.CheckHonest();
    WorldEnd();
}
