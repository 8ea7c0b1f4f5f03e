// The support of the wire tests tested by itself: a fault here would make every other test lie.
#include "tests/support/fault.h"
#include "tests/support/scripted_peer.h"
#include "tests/support/temp_folder.h"
#include "tests/support/virtual_clock.h"
#include "tests/support/virtual_socket.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <unistd.h>

static constexpr uint16_t Port = 25;

static void Fresh()
{
    VirtualClockReset();
    VirtualNetworkReset();
    PeersReset();
}

static int32_t Connected()
{
    const int32_t handle = osSocketCreate();
    EXPECT_GT(handle, 2);
    EXPECT_EQ(osSocketConnect(handle, VirtualLoopback, Port), 0);
    return handle;
}

static void Say(int32_t handle, const std::string& bytes)
{
    const int32_t count = static_cast<int32_t>(bytes.size());
    if (count == 0)
        return;
    EXPECT_EQ(osSocketSend(handle, bytes.data(), count, 0), count);
    osYield();
}

// All that comes until nothing comes for a while; "|END" or "|RESET" behind it.
static std::string Hear(int32_t handle)
{
    std::string heard;
    for (int idle = 0; idle < 50; osYield(), ++idle) {
        if ((osSocketPoll(handle) & OS_POLL_READ) == 0)
            continue;
        char bytes[4096];
        const int32_t count = osSocketReceive(handle, bytes, sizeof(bytes));
        if (count <= 0)
            return heard + (count == 0 ? "|END" : "|RESET");
        heard.append(bytes, static_cast<size_t>(count));
        idle = 0;
    }
    return heard;
}

TEST(VirtualClock, MovesByWaitingOnly)
{
    VirtualClockReset(0xFFFFFFF0);
    EXPECT_EQ(osTickCount(), 0xFFFFFFF0);
    EXPECT_EQ(osTickCount(), 0xFFFFFFF0);
    osSleep(0);
    osYield();
    EXPECT_EQ(osTickCount(), 0xFFFFFFF2);
    osSleep(30000);
    EXPECT_EQ(osTickCount(), 0xFFFFFFF2 + 30000);
    EXPECT_EQ(VirtualClockSpent(), 30002u);
}

TEST(VirtualClock, EndsATestThatWaitsForEver)
{
    VirtualClockReset();
    VirtualClockSetLimit(5000);
    EXPECT_DEATH(osSleep(5001), "waited more than 5000 ms");
}

TEST(VirtualSocket, ConnectsAsItWasToldTo)
{
    const struct {
        uint32_t Address;
        uint16_t ToPort;
        int32_t RuleStatus;
        uint32_t Delay;
        int32_t Expected;
        uint32_t Ticks;
    } rows[] = {
        { VirtualLoopback, Port, 0, 0, 0, 0 },
        { VirtualServerAddress, Port, 0, 700, 0, 700 },
        { VirtualLoopback, 26, 0, 0, -10061, 0 },
        { 0x0A090909, Port, 0, 0, -10051, 0 },
        { VirtualLoopback, Port, -10065, 5, -10065, 5 },
        { VirtualLoopback, Port, 0, VirtualNever, -10060, 127000 },
    };
    for (const auto& row : rows) {
        Fresh();
        VirtualListen(Port);
        VirtualSetConnect(row.ToPort, row.RuleStatus, row.Delay);
        const int32_t handle = osSocketCreate();
        EXPECT_EQ(osSocketConnect(handle, row.Address, row.ToPort), row.Expected);
        EXPECT_EQ(VirtualClockSpent(), row.Ticks);
        EXPECT_EQ(osSocketClose(handle), 0);
        EXPECT_EQ(osSocketClose(handle), -10038);

        const int32_t later = osSocketCreate();
        EXPECT_EQ(osSocketSetBlocking(later, false), 0);
        EXPECT_EQ(osSocketConnect(later, row.Address, row.ToPort), -10035);
        EXPECT_EQ(osSocketPoll(later), 0);
        EXPECT_EQ(VirtualOpenSockets(), 1);
        osSleep(row.Delay == VirtualNever ? 60000 : 701);
        const int32_t ready = row.Delay == VirtualNever ? 0 : row.Expected == 0 ? 2 : 7;
        EXPECT_EQ(osSocketPoll(later), ready);
    }
}

TEST(VirtualSocket, BoundsBothWindowsAndShortSends)
{
    Fresh();
    VirtualListen(Port);
    VirtualSetWindows(10, 4);
    VirtualSetSendLimit(7);
    const int32_t handle = Connected();
    EXPECT_EQ(osSocketSend(handle, "0123456789", 10, 0), 7);
    EXPECT_EQ(osSocketSend(handle, "789ABC", 6, 0), 3);
    EXPECT_EQ(osSocketPoll(handle), 0);
    EXPECT_EQ(osSocketSend(handle, "A", 1, 250), -10060);
    EXPECT_EQ(VirtualClockSpent(), 250u);
    const int link = VirtualAccept(Port);
    EXPECT_EQ(VirtualTake(link), "0123456789");
    EXPECT_EQ(osSocketPoll(handle), OS_POLL_WRITE);
    EXPECT_EQ(VirtualPut(link, "abcdef"), 4u);
    char bytes[8] = "";
    EXPECT_EQ(osSocketPeek(handle, bytes, 8), 4);
    EXPECT_EQ(osSocketReceive(handle, bytes, 3), 3);
    VirtualReset(link);
    EXPECT_EQ(osSocketReceive(handle, bytes, 8), 1);
    EXPECT_EQ(bytes[0], 'd');
    EXPECT_EQ(osSocketReceive(handle, bytes, 8), -10054);
    EXPECT_EQ(osSocketSend(handle, "x", 1, 0), -10054);
}

static const char* const Dialogue = R"(
    # a short one
    S: 220-one
    S: 220 two
    C: HELO x
    S- 250 \\ \x01\r\n
    C~ [A-Z]+ \d+
    C...
    C: end
    ! wait 20
    ! flood ab\n 3
    C- \x00\xFF
    ! close
)";

TEST(ScriptedPeer, PlaysBothSidesInAnyPiece)
{
    for (const bool byteByByte : { false, true }) {
        Fresh();
        PeerScript(Port, Dialogue, { byteByByte });
        const int32_t handle = Connected();
        EXPECT_EQ(Hear(handle), "220-one\r\n220 two\r\n");
        Say(handle, "HELO");
        Say(handle, " x\r\n");
        EXPECT_EQ(Hear(handle), "250 \\ \x01\r\n");
        Say(handle, "ABC 12\r\nany\r\n\r\nend\r\n");
        EXPECT_EQ(Hear(handle), "ab\nab\nab\n");
        Say(handle, std::string("\0\xFF", 2));
        EXPECT_EQ(Hear(handle), "|END");
        PeersCheck();
        EXPECT_TRUE(PeerWasPlayed(0));
        EXPECT_EQ(PeerReceived(0), std::string("HELO x\r\nABC 12\r\nany\r\n\r\nend\r\n\0\xFF", 30));
        EXPECT_EQ(PeerSent(0), "220-one\r\n220 two\r\n250 \\ \x01\r\nab\nab\nab\n");
    }
}

TEST(ScriptedPeer, CutsAtEveryByte)
{
    const struct {
        PeerCut Cut;
        const char* End;
    } rows[] = { { PEER_CUT_CLOSE, "|END" },
                 { PEER_CUT_RESET, "|RESET" },
                 { PEER_CUT_SILENCE, "" } };
    const std::string greeting = "220-one\r\n220 two\r\n";
    for (const auto& row : rows) {
        for (int64_t at = 0; at <= static_cast<int64_t>(greeting.size()); ++at) {
            Fresh();
            PeerScript(Port, Dialogue, { false, at, row.Cut });
            const int32_t handle = Connected();
            EXPECT_EQ(Hear(handle), greeting.substr(0, static_cast<size_t>(at)) + row.End);
            EXPECT_TRUE(PeerWasCut(0));
            PeersCheck();
        }
    }
}

// Plays a client's words against "S: 220 hi / C: HELO x / S: 250 ok" and looks at the end.
static void Misplay(const char* first, const char* second, bool closes)
{
    Fresh();
    PeerScript(Port, "S: 220 hi\nC: HELO x\nS: 250 ok\nC: QUIT");
    const int32_t handle = Connected();
    osYield();
    Say(handle, first);
    Say(handle, second);
    if (closes)
        osSocketClose(handle);
    osYield();
    PeersCheck();
}

TEST(ScriptedPeer, ReportsWhatIsNotAsWritten)
{
    EXPECT_NONFATAL_FAILURE(Misplay("HELO y\r\n", "", false), "got      [HELO y]");
    EXPECT_NONFATAL_FAILURE(Misplay("HELO x\n", "QUIT\r\n", false), "HELO x\\nQUIT]");
    EXPECT_NONFATAL_FAILURE(Misplay("HELO x\r\nQUIT\r\n", "", false), "script line 3");
    EXPECT_NONFATAL_FAILURE(Misplay("HELO x\r\n", "", false), "<the test has ended>");
    EXPECT_NONFATAL_FAILURE(Misplay("HELO x\r\n", "QU", true), "QU<the client has closed>");
    EXPECT_NONFATAL_FAILURE(Misplay("HELO x\r\n", "QUIT\r\nX", true), "behind the end");
    Misplay("HELO x\r\n", "QUIT\r\n", true);
    Fresh();
    PeerScript(Port, "S: 220 hi");
    EXPECT_NONFATAL_FAILURE(PeersCheck(), "nobody has connected to port 25");
}

TEST(ScriptedPeer, SinkTakesMessagesAndUndoesDots)
{
    Fresh();
    SinkListen(Port);
    const int32_t handle = Connected();
    Say(handle, "HELO x\r\nMAIL FROM:<a@b>\r\nRCPT TO:<c@d>\r\nRCPT TO:<e@f>\r\nDATA\r\n");
    Say(handle, "..dot\r\n\r\nz\r\n.\r\nQUIT\r\n");
    EXPECT_NE(Hear(handle).find("250 taken\r\n221 bye\r\n|END"), std::string::npos);
    ASSERT_EQ(SinkMessages().size(), 1u);
    EXPECT_EQ(SinkMessages()[0].From, "MAIL FROM:<a@b>");
    EXPECT_EQ(SinkMessages()[0].To.size(), 2u);
    EXPECT_EQ(SinkMessages()[0].Data, ".dot\r\n\r\nz\r\n");
}

TEST(Fault, FailsTheNthCallAndNothingUnarmed)
{
    Fresh();
    const std::string folder = TempFolderMake();
    const std::string path = folder + "/f";
    const int before = OpenDescriptors();
    FaultArm(FAULT_WRITE, 2);
    const int fd = open(path.c_str(), O_CREAT | O_WRONLY, 0600);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(OpenDescriptors(), before + 1);
    EXPECT_EQ(write(fd, "abc", 3), 3);
    EXPECT_EQ(write(fd, "def", 3), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(write(fd, "ghi", 3), 3);
    EXPECT_EQ(FaultCalls(FAULT_WRITE), 3);
    EXPECT_EQ(FaultCalls(FAULT_CREATE), 1);
    EXPECT_TRUE(FaultDisarm());
    EXPECT_EQ(close(fd), 0);
    EXPECT_EQ(ReadWholeFile(path), "abcghi");
    FaultArmFrom(FAULT_ALLOCATE, 1);
    EXPECT_EQ(calloc(1, 8), nullptr);
    EXPECT_EQ(calloc(1, 8), nullptr);
    FaultArm(FAULT_OPEN, 1);
    EXPECT_EQ(open(path.c_str(), O_RDONLY), -1);
    FaultArm(FAULT_SOCKET, 1);
    EXPECT_EQ(osSocketCreate(), -10024);
    EXPECT_TRUE(FaultDisarm());
    TempFolderRemove(folder);
    EXPECT_EQ(ReadWholeFile(path), "<no file>");
}
