// Virtual sockets: addresses, records, connecting, and the questions to a socket.
#include "transport/vsock.h"

#include "frame/settings.h"
#include "tests/codec/guarded.h"
#include "tests/support/fault.h"
#include "tests/support/host.h"
#include "tests/support/temp_folder.h"
#include "tests/support/virtual_clock.h"
#include "tests/support/virtual_socket.h"
#include "transport/vfile.h"
#include "transport/vstream.h"

#include <cstring>
#include <memory>

using std::string;

static constexpr uint16_t Port = 25;

struct VSockTest : HostTest {
    void SetUp() override
    {
        HostTest::SetUp();
        ASSERT_EQ(vsInit(3, 100), VS_OK);
        VirtualListen(Port);
    }
    void TearDown() override
    {
        for (int32_t vs = 0; vs < 3; ++vs) {
            vsCloseSource(vs);
            vsCloseTarget(vs);
            vsClose(vs);
        }
        HostTest::TearDown();
    }
};

TEST_F(VSockTest, DottedQuadsHaveFourPartsBelow256)
{
    const struct {
        const char* Text;
        bool IsQuad;
        uint32_t Address;
    } rows[] = { { "1.2.3.4", true, 0x01020304 },
                 { "255.255.255.255", true, 0xFFFFFFFF },
                 { "1..2.3", true, 0x01000203 },
                 { "...", true, 0 },
                 { "1.2.3.", true, 0x01020300 },
                 { "001.02.0003.4", true, 0x01020304 },
                 { "1.2.3.4.5", true, 0x01020304 },
                 { "1.2.3.4.x", true, 0x01020304 },
                 { "", false, 0 },
                 { "1.2.3", false, 0 },
                 { "256.1.1.1", false, 0 },
                 { "1.1.1.256", false, 0 },
                 { "1.2.3.x", false, 0 },
                 { "1.2.3.4 ", false, 0 },
                 { "-1.2.3.4", false, 0 },
                 { "4294967297.2.3.4", false, 0 },
                 { "1.2.3.18446744073709551617", false, 0 },
                 { "mail.example", false, 0 } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Text);
        const std::unique_ptr<char[]> text(new char[strlen(row.Text) + 1]);
        memcpy(text.get(), row.Text, strlen(row.Text) + 1);
        EXPECT_EQ(IsDottedQuad(text.get()), row.IsQuad);
        if (row.IsQuad) {
            EXPECT_EQ(ParseDottedQuad(text.get()), row.Address);
        } else {
            ParseDottedQuad(text.get()); // reads nothing behind the text
        }
    }
    Guarded text(17);
    EXPECT_EQ(FormatDottedQuad(0x010200FF, text.Data(), 17), 9);
    EXPECT_EQ(text.Text(), "1.2.0.255");
    EXPECT_EQ(FormatDottedQuad(0xFFFFFFFF, text.Data(), 17), 15);
    EXPECT_EQ(text.Text(), "255.255.255.255");
    EXPECT_EQ(FormatDottedQuad(0, text.Data(), 16), 0);
    EXPECT_EQ(FormatDottedQuad(0, text.Data(), -1), 0);
}

TEST_F(VSockTest, NumbersOutOfRangeAreRefused)
{
    char text[300];
    for (const int32_t vs : { -1, 3, 65, 1000 }) {
        SCOPED_TRACE(vs);
        const int32_t results[] = { vsBind(vs, 0, 0),
                                    vsSetHost(vs, "1.2.3.4"),
                                    vsConnect(vs, "1.2.3.4", Port),
                                    vsSetBlocking(vs, true),
                                    vsSelect(vs, VS_WAIT_READ),
                                    vsSelect(vs, 9),
                                    vsIsConnected(vs),
                                    vsClose(vs),
                                    vsGetInfo(vs, 9),
                                    vsOpenSource(vs, "x*1"),
                                    vsOpenTarget(vs, Path("x").c_str()),
                                    vsCloseSource(vs),
                                    vsCloseTarget(vs),
                                    vsLocalAddress(vs, text, 300),
                                    vsRemoteAddress(vs, text, 300),
                                    vsResetRing(vs),
                                    vsPeek(vs, text, 9),
                                    vsRead(vs, text, 9),
                                    vsGetChunk(vs, text, 9),
                                    vsReadLine(vs, text, 9, 0, 0),
                                    vsWaitData(vs, 0),
                                    vsDrain(vs),
                                    vsWrite(vs, "x", 1, NoMask),
                                    vsWriteText(vs, "x"),
                                    vsWriteLine(vs, "x"),
                                    vsWriteLineMasked(vs, "x", 0) };
        for (size_t i = 0; i < std::size(results); ++i)
            EXPECT_EQ(results[i], RYN_ERR_NO_SUCH_VSOCK) << i;
        if (vs > 0) {
            EXPECT_EQ(vsSetOption(vs, VS_OPT_WRITE_WAIT, 1), RYN_ERR_NO_SUCH_VSOCK);
        }
        EXPECT_EQ(vsGetInfo(vs, VS_INFO_IS_OPEN), 0);
        EXPECT_EQ(vsGetInfo(vs, VS_INFO_VERSION), 0x0841);
        EXPECT_EQ(vsGetInfo(vs, VS_INFO_BUILD), 7);
        EXPECT_EQ(vsRecord(vs), nullptr);
        vsLog(vs, "unheard");
    }
    EXPECT_EQ(VirtualNetworkCounts().Creates, 0);
}

TEST_F(VSockTest, TheLowestFreeRecordIsTaken)
{
    EXPECT_EQ(vsCreate(0), 0);
    EXPECT_EQ(vsOpenSource(1, "x*1"), VS_OK); // claims its record
    EXPECT_EQ(vsCreate(0), 2);
    EXPECT_EQ(vsCreate(0), VS_ERR_NO_SLOT);
    EXPECT_EQ(vsClose(1), VS_ERR_NOT_OPEN); // a file is no connection
    EXPECT_EQ(vsSelect(1, VS_WAIT_READ), 1);
    EXPECT_EQ(vsClose(0), VS_OK);
    EXPECT_EQ(vsClose(0), VS_ERR_NOT_OPEN);
    EXPECT_EQ(vsCloseSource(1), VS_OK);
    EXPECT_EQ(vsCreate(0), 0);
    EXPECT_EQ(vsCreate(0), 1);
    FaultArm(FAULT_SOCKET, 1);
    EXPECT_EQ(vsClose(2), VS_OK);
    EXPECT_EQ(vsCreate(0), VS_ERR_NO_SOCKET);
    FaultDisarm();
    EXPECT_EQ(vsCreate(0), 2); // the failure gave the record back
}

TEST_F(VSockTest, HasAtMost65Records)
{
    EXPECT_EQ(vsInit(70, 5), VS_OK);
    EXPECT_NE(vsRecord(64), nullptr);
    EXPECT_EQ(vsRecord(65), nullptr);
    EXPECT_EQ(vsRecord(64)->Number, 64);
    EXPECT_EQ(vsRecord(64)->PollDelay, 5u);
}

TEST_F(VSockTest, FilesStandForAPeer)
{
    WriteWholeFile(Path("in"), "x");
    const struct {
        int32_t (*Open)(int32_t, const char*);
        int32_t (*Close)(int32_t);
        const char* Name;
        int32_t Connected;
    } rows[] = { { vsOpenSource, vsCloseSource, "in", 0 },
                 { vsOpenTarget, vsCloseTarget, "out", 1 } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Name);
        EXPECT_EQ(row.Open(0, Path("none/x").c_str()), VS_ERR_NO_FILE);
        EXPECT_EQ(row.Open(0, Path(row.Name).c_str()), VS_OK);
        for (const int32_t kind : { VS_WAIT_READ, VS_WAIT_WRITE, VS_WAIT_EXCEPT })
            EXPECT_EQ(vsSelect(0, kind), 1);
        EXPECT_EQ(vsIsConnected(0), row.Connected);
        EXPECT_EQ(vsGetInfo(0, VS_INFO_IS_OPEN), 0);
        EXPECT_EQ(row.Open(0, Path(string(row.Name) + "2").c_str()),
                  row.Open == vsOpenSource ? VS_ERR_NO_FILE : VS_OK); // the old one is closed
        EXPECT_EQ(row.Close(0), VS_OK);
        EXPECT_EQ(row.Close(0), VS_OK);
        EXPECT_EQ(vsSelect(0, VS_WAIT_READ), 0);
        EXPECT_EQ(vsCreate(0), 0);
        EXPECT_EQ(row.Open(0, Path(row.Name).c_str()), VS_ERR_NO_SLOT);
        EXPECT_EQ(vsClose(0), VS_OK);
    }
    EXPECT_EQ(OpenDescriptors(), DescriptorsBefore);
}

TEST_F(VSockTest, NamesHaveUpTo255Chars)
{
    const int32_t vs = vsCreate(0);
    const string longest(255, 'n');
    VirtualAddName(longest.c_str(), 0x0A000001);
    VirtualAddName((longest + "n").c_str(), 0x0A000002);
    VirtualAddName("zero.test", 0);
    const struct {
        string Name;
        int32_t Result;
        uint32_t Address; // afterwards
        int Lookups;
    } rows[] = { { "1.2.3.4.5", VS_OK, 0x01020304, 0 },
                 { longest, VS_OK, 0x0A000001, 1 },
                 { longest + "n", VS_ERR_NAME_TOO_LONG, 0x0A000001, 0 },
                 { "server.test", VS_OK, VirtualServerAddress, 1 },
                 { "zero.test", RYN_ERR_SERVER_NOT_FOUND, VirtualServerAddress, 1 },
                 { "unknown.test", RYN_ERR_SERVER_NOT_FOUND, VirtualServerAddress, 1 },
                 { "256.1.1.1", RYN_ERR_SERVER_NOT_FOUND, VirtualServerAddress, 1 } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Name);
        const int before = VirtualNetworkCounts().Resolves;
        EXPECT_EQ(vsSetHost(vs, row.Name.c_str()), row.Result);
        EXPECT_EQ(vsRecord(vs)->RemoteIP, row.Address);
        EXPECT_EQ(VirtualNetworkCounts().Resolves - before, row.Lookups);
        if (row.Result != VS_ERR_NAME_TOO_LONG) {
            EXPECT_EQ(vsRecord(vs)->HostName, row.Name);
        }
    }
}

TEST_F(VSockTest, ConnectsAndLogsIt)
{
    const int32_t vs = vsCreate(0x7F000009);
    const int32_t log = u_Create(Path("log").c_str(), 0, false);
    EXPECT_EQ(vsSetOption(vs, VS_OPT_LOG_HANDLE, log), VS_OK);
    const int32_t handle = vsRecord(vs)->Socket;
    EXPECT_EQ(vsConnect(vs, "server.test", 26), RYN_WSAECONNREFUSED);
    EXPECT_EQ(vsConnect(vs, "server.test", Port), VS_OK);
    const string lines = ReadWholeFile(Path("log"));
    const string number = std::to_string(handle);
    EXPECT_EQ(lines, "vs: LogHandle = " + std::to_string(log) + "\r\nSocket=" + number +
                         ", RemoteIP=a000019, RemotePort=26\r\nconnect(" + number +
                         ") returns -1\r\nSocket=" + number +
                         ", RemoteIP=a000019, RemotePort=25\r\nconnect(" + number +
                         ") returns 0\r\n");
    EXPECT_EQ(vsIsConnected(vs), 1);
    EXPECT_EQ(vsGetInfo(vs, VS_INFO_IS_OPEN), 1);
    Guarded text(17);
    EXPECT_EQ(vsRemoteAddress(vs, text.Data(), 17), 9);
    EXPECT_EQ(text.Text(), "10.0.0.25");
    EXPECT_EQ(vsLocalAddress(vs, text.Data(), 17), 9);
    EXPECT_EQ(text.Text(), "127.0.0.9");
    EXPECT_EQ(vsLocalAddress(vs, text.Data(), 16), 0);
    u_Close(log);
}

TEST_F(VSockTest, NonBlockingConnectIsWaitedFor)
{
    const struct {
        int32_t Status;
        uint32_t Delay, Wait;
        int32_t Result;
    } rows[] = { { 0, 300, 1000, 1 },
                 { 0, 300, 100, 0 },
                 { RYN_WSAECONNREFUSED, 200, 1000, 0 },
                 { 0, VirtualNever, 2000, 0 } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Delay);
        VirtualSetConnect(Port, row.Status, row.Delay);
        const int32_t vs = vsCreate(0);
        vsSetBlocking(vs, false);
        EXPECT_EQ(vsConnect(vs, "10.0.0.25", Port), VS_OK);
        EXPECT_EQ(vsIsConnected(vs), 0);
        const uint64_t start = VirtualClockSpent();
        EXPECT_EQ(vsWaitConnected(vs, row.Wait), row.Result);
        const uint64_t spent = VirtualClockSpent() - start;
        EXPECT_GE(spent, row.Result ? row.Delay - 10 : row.Wait);
        EXPECT_LE(spent, (row.Result ? row.Delay : row.Wait) + 100);
        if (row.Status != 0) {
            EXPECT_EQ(vsSelect(vs, VS_WAIT_EXCEPT), 1);
        }
        EXPECT_EQ(vsClose(vs), VS_OK);
    }
}

TEST_F(VSockTest, IsConnectedUntilThePeerHasClosedAndAllIsRead)
{
    const int32_t vs = vsCreate(0);
    EXPECT_EQ(vsSelect(vs, 0), VS_ERR_BAD_WAIT_KIND);
    EXPECT_EQ(vsSelect(vs, 4), VS_ERR_BAD_WAIT_KIND);
    ASSERT_EQ(vsConnect(vs, "server.test", Port), VS_OK);
    const int link = VirtualAccept(Port);
    EXPECT_EQ(vsSelect(vs, VS_WAIT_WRITE), 1);
    EXPECT_EQ(vsSelect(vs, VS_WAIT_EXCEPT), 0);
    EXPECT_EQ(vsIsConnected(vs), 1);
    VirtualPut(link, "bye\r\n");
    VirtualClose(link);
    EXPECT_EQ(vsWaitData(vs, 100), 1);
    EXPECT_EQ(vsIsConnected(vs), 1);
    char line[16];
    EXPECT_EQ(vsReadLine(vs, line, 16, 100, 100), 5);
    VirtualClockAdvance(1);
    EXPECT_EQ(vsWaitData(vs, 0), 1);
    EXPECT_EQ(vsIsConnected(vs), 0);
    EXPECT_EQ(vsReadLine(vs, line, 16, 100, 100), RYN_ERR_SOCK_CLOSED);
    EXPECT_EQ(vsWrite(vs, "x", 1, NoMask), RYN_ERR_SOCK_CLOSED);
}

TEST_F(VSockTest, ClosingTakesHalfASecondAndFreesTheRecordInAnyCase)
{
    EXPECT_EQ(vsClose(0), VS_ERR_NOT_OPEN);
    const int32_t vs = vsCreate(0);
    const uint64_t start = VirtualClockSpent();
    FaultArm(FAULT_CLOSE, 1);
    EXPECT_EQ(vsClose(vs), RYN_WSAEINVAL);
    FaultDisarm();
    EXPECT_GE(VirtualClockSpent() - start, 500u);
    EXPECT_EQ(vsRecord(vs)->Socket, SOCKET_FREE);
    EXPECT_EQ(vsGetInfo(vs, VS_INFO_IS_OPEN), 1);
    EXPECT_EQ(vsSelect(vs, VS_WAIT_WRITE), 0);
    EXPECT_EQ(vsClose(vs), VS_OK);
}

TEST_F(VSockTest, OptionsAndQueries)
{
    EXPECT_EQ(vsSetOption(-1, VS_OPT_SHOW_SECRETS, 1), VS_OK);
    EXPECT_EQ(ShowSecrets, 1u);
    EXPECT_EQ(vsSetOption(0, VS_OPT_SHOW_SECRETS, 0), VS_ERR_BAD_OPTION);
    EXPECT_EQ(ShowSecrets, 1u);
    EXPECT_EQ(vsSetOption(-1, VS_OPT_LOG_HANDLE, 0), VS_OK);
    EXPECT_EQ(vsSetOption(0, VS_OPT_WRITE_WAIT, 700), VS_OK);
    EXPECT_EQ(vsRecord(0)->WriteWait, 700u);
    EXPECT_EQ(vsSetOption(0, 999, 1), VS_ERR_BAD_OPTION);
    EXPECT_EQ(vsGetInfo(0, 999), VS_ERR_BAD_OPTION);
    Guarded name(12);
    EXPECT_EQ(vsGetHostName(name.Data(), 12), 1);
    EXPECT_EQ(name.Text(), "tester.test");
    EXPECT_TRUE(name.MarginsWhole());
}
