// The byte stream: lines out of the ring, texts and lines to the wire, masks, dots, and what a line
// costs in calls to the system.
#include "transport/vstream.h"

#include "frame/settings.h"
#include "tests/codec/guarded.h"
#include "tests/support/fault.h"
#include "tests/support/host.h"
#include "tests/support/temp_folder.h"
#include "tests/support/virtual_clock.h"
#include "tests/support/virtual_socket.h"
#include "transport/vfile.h"
#include "transport/vsock.h"

#include <cstring>

using std::string;

static constexpr uint16_t Port = 25;

// What the server will send at a time.
struct Later {
    uint64_t Time; // virtual ms since the reset
    string Bytes;
};
static std::vector<Later> Schedule;
static int Link;

static void SendWhatIsDue()
{
    while (!Schedule.empty() && VirtualClockSpent() >= Schedule.front().Time) {
        VirtualPut(Link, Schedule.front().Bytes);
        Schedule.erase(Schedule.begin());
    }
}

struct VStreamTest : HostTest {
    void SetUp() override
    {
        HostTest::SetUp();
        ASSERT_EQ(vsInit(1, 100), VS_OK);
        VirtualListen(Port);
        ASSERT_EQ(vsCreate(0), 0);
        ASSERT_EQ(vsConnect(0, "server.test", Port), VS_OK);
        Link = VirtualAccept(Port);
        Schedule.clear();
        VirtualClockOnTurn(SendWhatIsDue);
    }
    void TearDown() override
    {
        if (Log != 0)
            u_Close(Log);
        vsCloseSource(0);
        vsCloseTarget(0);
        vsClose(0);
        HostTest::TearDown();
    }
    void OpenLog()
    {
        Log = u_Create(Path("log").c_str(), 0, false);
        vsRecord(0)->LogHandle = Log;
    }
    string LogText() const
    {
        return ReadWholeFile(Path("log"));
    }
    int32_t Log = 0;
};

// The next line, or its status as "<-1>".
static string Line(int32_t capacity = 8192, uint32_t firstWait = 0, uint32_t nextWait = 1000)
{
    Guarded buffer(static_cast<size_t>(capacity));
    const int32_t count = vsReadLine(0, buffer.Data(), capacity, firstWait, nextWait);
    EXPECT_TRUE(buffer.MarginsWhole());
    if (count < 1)
        return "<" + std::to_string(count) + ">";
    EXPECT_EQ(buffer.Data()[count], 0);
    return buffer.Head(static_cast<size_t>(count));
}

TEST_F(VStreamTest, ALineCostsOnePoll)
{
    vsResetRing(0);
    for (int i = 0; i < 2; ++i) {
        const VirtualCounts before = VirtualNetworkCounts();
        EXPECT_EQ(vsWriteLine(0, "NOOP"), 6);
        const VirtualCounts sent = VirtualNetworkCounts();
        EXPECT_EQ(sent.Sends - before.Sends, 1);
        EXPECT_LE(sent.Polls - before.Polls, 1);
        VirtualPut(Link, "250 ok\r\n");
        EXPECT_EQ(Line(), "250 ok\r\n");
        const VirtualCounts read = VirtualNetworkCounts();
        EXPECT_EQ(read.Polls - sent.Polls, 1);
        EXPECT_EQ(read.Receives - sent.Receives, 1);
        EXPECT_EQ(read.Peeks, before.Peeks);
    }
    string many;
    for (int i = 0; i < 500; ++i)
        many += "a line of 18 char\n"; // 9000 bytes: more than a ring holds
    const VirtualCounts before = VirtualNetworkCounts();
    VirtualPut(Link, many);
    for (int i = 0; i < 500; ++i)
        ASSERT_EQ(Line(), "a line of 18 char\n") << i;
    EXPECT_EQ(VirtualNetworkCounts().Receives - before.Receives, 2);
    EXPECT_LE(VirtualNetworkCounts().Polls - before.Polls, 2);
}

TEST_F(VStreamTest, SplitLinesAreJoinedWithinTheWait)
{
    const uint64_t now = VirtualClockSpent();
    Schedule = { { now + 300, "fir" },
                 { now + 700, "st\r" },
                 { now + 900, "\nsec" },
                 { now + 5000, "ond\r\n" } };
    EXPECT_EQ(Line(8192, 200), "<0>");
    EXPECT_EQ(Line(8192, 1000), "first\r\n");
    EXPECT_EQ(Line(8192, 1000), "sec"); // the rest came too late
    EXPECT_EQ(Line(8192, 9000), "ond\r\n");
}

TEST_F(VStreamTest, LinesOfUpTo8191BytesComeWhole)
{
    for (const size_t length : { 8190u, 8191u, 8192u, 16382u, 20000u }) {
        SCOPED_TRACE(length);
        const string line = string(length - 2, 'x') + "\r\n";
        VirtualPut(Link, line + "next\r\n");
        for (size_t place = 0; place < length; place += 8191)
            EXPECT_EQ(Line(), line.substr(place, 8191));
        EXPECT_EQ(Line(), "next\r\n");
    }
}

TEST_F(VStreamTest, ZeroBytesBecomeBlanks)
{
    VirtualPut(Link, string("\0a\0\0b\0\r\n", 8));
    EXPECT_EQ(Line(), " a  b \r\n");
    VirtualPut(Link, string("\0x\0", 3));
    Guarded buffer(4);
    EXPECT_EQ(vsRead(0, buffer.Data(), 3), 3); // past the ring
    EXPECT_EQ(buffer.Head(3), " x ");
    EXPECT_TRUE(buffer.MarginsWhole());
}

TEST_F(VStreamTest, PeeksLeaveTheBytesAndFetchNoMoreThanAsked)
{
    Guarded buffer(9000);
    EXPECT_EQ(vsPeek(0, buffer.Data(), 5), 0);
    EXPECT_EQ(vsRead(0, buffer.Data(), -1), VS_ERR_BAD_LENGTH);
    VirtualPut(Link, "0123456789\r\n");
    EXPECT_EQ(vsPeek(0, buffer.Data(), 5), 5);
    EXPECT_EQ(buffer.Head(5), "01234");
    EXPECT_TRUE(buffer.UntouchedFrom(6));
    EXPECT_EQ(vsPeek(0, buffer.Data(), 9), 5); // what the ring holds
    EXPECT_EQ(vsGetChunk(0, buffer.Data(), 5), 4);
    EXPECT_EQ(buffer.Head(5), string("0123\0", 5));
    EXPECT_EQ(vsPeek(0, buffer.Data(), 2), 2); // one byte in the ring, topped up
    EXPECT_EQ(buffer.Head(2), "45");
    EXPECT_EQ(Line(), "456789\r\n");
    VirtualPut(Link, string(9000, 'x'));
    for (const int32_t count : { 9000, 8191 })
        EXPECT_EQ(vsPeek(0, buffer.Data(), count), 8190);
    EXPECT_EQ(vsResetRing(0), VS_OK);
    EXPECT_EQ(vsPeek(0, buffer.Data(), 9000), 810);
}

TEST_F(VStreamTest, WhatCameBeforeTheEndIsDelivered)
{
    for (const bool reset : { false, true }) {
        vsClose(0);
        ASSERT_EQ(vsCreate(0), 0);
        ASSERT_EQ(vsConnect(0, "server.test", Port), VS_OK);
        Link = VirtualAccept(Port);
        VirtualPut(Link, "one\r\ntwo\r\n");
        reset ? VirtualReset(Link) : VirtualClose(Link);
        EXPECT_EQ(Line(), "one\r\n");
        EXPECT_EQ(Line(), "two\r\n");
        EXPECT_EQ(Line(8192, 1000), "<-1>");
    }
}

TEST_F(VStreamTest, SourceFilesAreReadLikeAPeer)
{
    vsClose(0);
    WriteWholeFile(Path("in"), string("one\r\n\r\n") + string(8200, 'y') + "\nlast");
    ASSERT_EQ(vsOpenSource(0, Path("in").c_str()), VS_OK);
    EXPECT_EQ(vsWaitData(0, 0), 1);
    EXPECT_EQ(Line(), "one\r\n");
    EXPECT_EQ(Line(), "\r\n");
    EXPECT_EQ(Line(), string(8191, 'y'));
    EXPECT_EQ(Line(), string(9, 'y') + "\n");
    EXPECT_EQ(Line(), "<-1>"); // a last line without its end is not delivered
    EXPECT_EQ(Line(), "<-1>");
}

TEST_F(VStreamTest, LinesOfUpTo511CharsAreOneBlock)
{
    OpenLog();
    for (const size_t length : { 0u, 511u, 512u, 2000u }) {
        SCOPED_TRACE(length);
        const string text(length, 'x');
        const int sends = VirtualNetworkCounts().Sends;
        const size_t seen = LogText().size();
        EXPECT_EQ(vsWriteLine(0, text.c_str()), static_cast<int32_t>(length + 2));
        EXPECT_EQ(VirtualTake(Link), text + "\r\n");
        EXPECT_EQ(VirtualNetworkCounts().Sends - sends, length < 512 ? 1 : 2);
        EXPECT_EQ(LogText().substr(seen), "S: " + text + (length < 512 ? "\r\n" : "S: \r\n"));
    }
}

TEST_F(VStreamTest, ShortSendsAreGoneOnWith)
{
    OpenLog();
    VirtualSetSendLimit(7);
    EXPECT_EQ(vsWrite(0, "x", -1, NoMask), VS_ERR_BAD_LENGTH);
    const string text = Repeat("0123456789", 40);
    EXPECT_EQ(vsWrite(0, text.c_str(), 400, NoMask), 400);
    EXPECT_EQ(VirtualTake(Link), text);
    EXPECT_EQ(LogText(), "S: " + text);
    FaultArm(FAULT_SEND, 2);
    EXPECT_EQ(vsWrite(0, text.c_str(), 400, NoMask), RYN_WSAECONNRESET);
    FaultDisarm();
    EXPECT_EQ(VirtualTake(Link), text.substr(0, 7));
    EXPECT_EQ(LogText(), "S: " + text); // nothing of what failed half way
}

TEST_F(VStreamTest, SecretsAreStarsInTheLogAndWholeOnTheWire)
{
    OpenLog();
    const string secret(249, 's'); // "PASS " and CR LF make 256
    const struct {
        string Text;
        int32_t MaskStart;
        string Logged;
    } rows[] = { { "PASS secret", 5, "PASS ******" },
                 { "c2VjcmV0", 0, "********" },
                 { "abc", 3, "abc" },
                 { "a\r\nbc", 0, "*\r\nbc" },
                 { "%s%n", 0, "****" },
                 { "PASS " + secret.substr(1), 5, "PASS " + string(248, '*') },
                 { "PASS " + secret, 5, "PASS " + secret } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Text);
        const size_t seen = LogText().size();
        const auto count = static_cast<int32_t>(row.Text.size()) + 2;
        EXPECT_EQ(vsWriteLineMasked(0, row.Text.c_str(), row.MaskStart), count);
        EXPECT_EQ(LogText().substr(seen), "S: " + row.Logged + "\r\n");
        EXPECT_EQ(VirtualTake(Link), row.Text + "\r\n");
    }
    ShowSecrets = 1;
    const size_t before = LogText().size();
    EXPECT_EQ(vsWriteLineMasked(0, "%s%n", 0), 6);
    EXPECT_EQ(LogText().substr(before), "S: %s%n\r\n");
    EXPECT_EQ(VirtualTake(Link), "%s%n\r\n");
    EXPECT_EQ(vsWriteLineMasked(0, string(513, 'x').c_str(), 0), 514);
    EXPECT_EQ(VirtualTake(Link), string(512, 'x') + "\r\n");
}

TEST(Dots, AreDoubledBehindLineEnds)
{
    const struct {
        const char *Text, *Result;
    } rows[] = { { "a\r\n.\r\n.\r\n", "a\r\n..\r\n..\r\n" },
                 { "a\n.b\r.c", "a\n.b\r.c" },
                 { "\r\r\n.", "\r\r\n.." },
                 { "", "" } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Text);
        const size_t size = strlen(row.Result) + 1;
        Guarded exact(size, row.Text);
        DoubleLineDots(exact.Data(), static_cast<int32_t>(size));
        EXPECT_EQ(exact.Text(), row.Result);
        EXPECT_TRUE(exact.MarginsWhole());
        Guarded tight(strlen(row.Text) + 1, row.Text); // without room
        DoubleLineDots(tight.Data(), static_cast<int32_t>(strlen(row.Text)) + 1);
        EXPECT_TRUE(tight.MarginsWhole());
        EXPECT_LE(tight.Text().size(), strlen(row.Text));
    }
}
