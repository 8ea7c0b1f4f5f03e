// The scripted peer tested by itself: a fault here would make every other wire test lie.
#include "tests/support/scripted_peer.h"
#include "tests/support/virtual_clock.h"
#include "tests/support/virtual_socket.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

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

// All that comes until nothing comes for a while; "|END" behind it if the peer has closed.
static std::string Hear(int32_t handle)
{
    std::string heard;
    for (int idle = 0; idle < 50; osYield(), ++idle) {
        if ((osSocketPoll(handle) & OS_POLL_READ) == 0)
            continue;
        char bytes[4096];
        const int32_t count = osSocketReceive(handle, bytes, sizeof(bytes));
        if (count <= 0)
            return heard + "|END";
        heard.append(bytes, static_cast<size_t>(count));
        idle = 0;
    }
    return heard;
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
