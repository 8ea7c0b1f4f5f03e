// Virtual sockets: addresses, records, connecting, and the questions to a socket.
#include "transport/vsock.h"

#include "frame/settings.h"
#include "tests/codec/guarded.h"
#include "tests/support/fault.h"
#include "tests/support/host.h"
#include "tests/support/virtual_clock.h"
#include "tests/support/virtual_socket.h"
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
    } rows[] = { { "1..2.3", true, 0x01000203 },
                 { "001.02.0003.4", true, 0x01020304 },
                 { "1.2.3.4.5", true, 0x01020304 },
                 { "", false, 0 },
                 { "1.2.3", false, 0 },
                 { "1.1.1.256", false, 0 },
                 { "1.2.3.x", false, 0 },
                 { "4294967297.2.3.4", false, 0 },
                 { "1.2.3.18446744073709551617", false, 0 } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Text);
        const std::unique_ptr<char[]> text(new char[strlen(row.Text) + 1]);
        memcpy(text.get(), row.Text, strlen(row.Text) + 1);
        EXPECT_EQ(IsDottedQuad(text.get()), row.IsQuad);
        const uint32_t address = ParseDottedQuad(text.get()); // reads nothing behind the text
        if (row.IsQuad) {
            EXPECT_EQ(address, row.Address);
        }
    }
    Guarded text(17);
    EXPECT_EQ(FormatDottedQuad(0xFFFFFFFF, text.Data(), 17), 15);
    EXPECT_EQ(text.Text(), "255.255.255.255");
    EXPECT_EQ(FormatDottedQuad(0, text.Data(), 16), 0);
}

TEST_F(VSockTest, NumbersOutOfRangeAreRefused)
{
    char text[300];
    for (const int32_t vs : { -1, 3, 65, 1000 }) {
        SCOPED_TRACE(vs);
        EXPECT_EQ(vsConnect(vs, "1.2.3.4", Port), RYN_ERR_NO_SUCH_VSOCK);
        EXPECT_EQ(vsClose(vs), RYN_ERR_NO_SUCH_VSOCK);
        EXPECT_EQ(vsOpenSource(vs, "x*1"), RYN_ERR_NO_SUCH_VSOCK);
        EXPECT_EQ(vsReadLine(vs, text, 9, 0, 0), RYN_ERR_NO_SUCH_VSOCK);
        EXPECT_EQ(vsWrite(vs, "x", 1, NoMask), RYN_ERR_NO_SUCH_VSOCK);
        EXPECT_EQ(vsRecord(vs), nullptr);
        vsLog(vs, "unheard");
    }
}

TEST_F(VSockTest, TheLowestFreeRecordIsTaken)
{
    EXPECT_EQ(vsCreate(0), 0);
    EXPECT_EQ(vsOpenSource(1, "x*1"), VS_OK); // claims its record
    EXPECT_EQ(vsCreate(0), 2);
    EXPECT_EQ(vsCreate(0), VS_ERR_NO_SLOT);
    EXPECT_EQ(vsClose(1), VS_ERR_NOT_OPEN); // a file is no connection
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
                 { "zero.test", RYN_ERR_SERVER_NOT_FOUND, VirtualServerAddress, 1 } };
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

TEST_F(VSockTest, TellsBothAddressesOfAConnection)
{
    const int32_t vs = vsCreate(0x7F000009);
    EXPECT_EQ(vsConnect(vs, "server.test", 26), RYN_WSAECONNREFUSED);
    EXPECT_EQ(vsConnect(vs, "server.test", Port), VS_OK);
    Guarded text(17);
    EXPECT_EQ(vsRemoteAddress(vs, text.Data(), 17), 9);
    EXPECT_EQ(text.Text(), "10.0.0.25");
    EXPECT_EQ(vsLocalAddress(vs, text.Data(), 17), 9);
    EXPECT_EQ(text.Text(), "127.0.0.9");
}

TEST_F(VSockTest, IsConnectedUntilThePeerHasClosedAndAllIsRead)
{
    const int32_t vs = vsCreate(0);
    ASSERT_EQ(vsConnect(vs, "server.test", Port), VS_OK);
    const int link = VirtualAccept(Port);
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
}
