// The socket operations when the system's calls fail, are cut short by signals or move few bytes.
#include "platform/platform.h"
#include "tests/support/cut_short.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr uint32_t Loopback = 0x7F000001; // 127.0.0.1
constexpr uint32_t LongWait = 60000;      // ms; only a hang takes as long

// A server's socket and, once connected, both ends.
struct Pair {
    int Listener = -1, Peer = -1;
    int32_t Client = -1;
    uint16_t Port = 0;
};

Pair Listen()
{
    Pair pair;
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    pair.Listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(pair.Listener, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(listen(pair.Listener, 8), 0);
    EXPECT_EQ(getsockname(pair.Listener, reinterpret_cast<sockaddr*>(&address), &size), 0);
    pair.Port = ntohs(address.sin_port);
    return pair;
}

Pair Connected()
{
    Pair pair = Listen();
    pair.Client = osSocketCreate();
    EXPECT_EQ(osSocketConnect(pair.Client, Loopback, pair.Port), 0);
    pair.Peer = accept4(pair.Listener, nullptr, nullptr, SOCK_CLOEXEC);
    EXPECT_GE(pair.Peer, 0);
    return pair;
}

void Close(const Pair& pair)
{
    EXPECT_EQ(osSocketClose(pair.Client), 0);
    close(pair.Peer);
    close(pair.Listener);
}

// Sends all to a peer that sends it back.
void Exchange(const Pair& pair, const std::string& bytes)
{
    std::thread echo([&] {
        char block[4096];
        for (size_t left = bytes.size(); left > 0;) {
            const ssize_t count = read(pair.Peer, block, std::min(left, sizeof(block)));
            if (count < 1 || write(pair.Peer, block, static_cast<size_t>(count)) != count)
                return;
            left -= static_cast<size_t>(count);
        }
    });
    std::string back;
    char block[5000];
    constexpr size_t mostUnderWay = 8192; // or both ends wait for room
    int32_t status = 0;
    for (size_t sent = 0; status >= 0 && back.size() < bytes.size();) {
        const size_t end = std::min(bytes.size(), back.size() + mostUnderWay);
        const auto left = static_cast<int32_t>(end - sent);
        if (left > 0)
            status = osSocketSend(pair.Client, bytes.data() + sent, left, LongWait);
        sent += left > 0 && status > 0 ? static_cast<size_t>(status) : 0;
        const int32_t came = osSocketReceive(pair.Client, block, sizeof(block));
        if (came > 0)
            back.append(block, static_cast<size_t>(came));
        else if (came != -10035)
            status = -1;
    }
    EXPECT_GE(status, 0);
    if (status < 0)
        shutdown(pair.Peer, SHUT_RD); // ends an echo that waits
    echo.join();
    EXPECT_TRUE(back == bytes) << back.size() << " bytes came back";
}

int OpenDescriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<int>(std::distance(begin(all), end(all)));
}

} // namespace

TEST(SocketFaults, SignalsAndSmallPiecesLoseNothing)
{
    std::string bytes(300000, 0);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i * i >> 5);
    CutShortAlways(true);
    uint32_t address = 0;
    for (int i = 0; i < 2; ++i) { // each is cut short at another call
        EXPECT_EQ(osResolve("localhost", address), 0);
        const Pair pair = Connected();
        for (int look = 0; look < 3; ++look)
            EXPECT_EQ(osSocketPoll(pair.Client), OS_POLL_WRITE);
        Exchange(pair, bytes);
        EXPECT_EQ(osSocketSetBlocking(pair.Client, false), 0);
        Exchange(pair, bytes);
        Close(pair);
    }
    CutShortAlways(false);
    EXPECT_GT(CutShortSignals(), 1000);
}

TEST(SocketFaults, AConnectThatASignalCutShortIsAwaited)
{
    Pair pair = Listen();
    for (const int interrupts : { 1, 5 }) { // of the wait behind it
        pair.Client = osSocketCreate();
        CutShortFail(CUT_CONNECT, EINTR, 1);
        CutShortFail(CUT_POLL, EINTR, interrupts);
        EXPECT_EQ(osSocketConnect(pair.Client, Loopback, pair.Port), 0);
        EXPECT_EQ(osSocketSend(pair.Client, "x", 1, LongWait), 1);
        EXPECT_EQ(osSocketClose(pair.Client), 0);
    }
    for (const CutCall call : { CUT_POLL, CUT_OPTION }) {
        pair.Client = osSocketCreate();
        CutShortFail(CUT_CONNECT, EINTR, 1);
        CutShortFail(call, ENOMEM, 1);
        EXPECT_EQ(osSocketConnect(pair.Client, Loopback, pair.Port), -10055);
        EXPECT_EQ(osSocketClose(pair.Client), 0);
    }
    close(pair.Listener);
}

TEST(SocketFaults, EachFailureIsToldOnceAndTheSocketWorksAgain)
{
    const Pair pair = Connected();
    const int descriptors = OpenDescriptors();
    char byte = 0;
    const struct {
        CutCall Call;
        int Error;
        int32_t Answer;
    } rows[] = {
        { CUT_SOCKET, EMFILE, -10024 },       { CUT_SOCKET, ENFILE, -10024 },
        { CUT_SOCKET, ENOBUFS, -10055 },      { CUT_SOCKET, EAFNOSUPPORT, -10047 },
        { CUT_CONNECT, ENETUNREACH, -10051 }, { CUT_CONNECT, EHOSTUNREACH, -10065 },
        { CUT_CONNECT, ETIMEDOUT, -10060 },   { CUT_CONNECT, EADDRNOTAVAIL, -10049 },
        { CUT_CONNECT, EPERM, -10013 },       { CUT_CONNECT, EINPROGRESS, -10035 },
        { CUT_CONNECT, EALREADY, -10037 },    { CUT_POLL, ENOMEM, -10055 },
        { CUT_POLL, EINVAL, -10022 },         { CUT_RECEIVE, ECONNRESET, -10054 },
        { CUT_RECEIVE, ETIMEDOUT, -10060 },   { CUT_RECEIVE, ENOMEM, -10055 },
        { CUT_RECEIVE, EIO, -10022 },         { CUT_SEND, EPIPE, -10054 },
        { CUT_SEND, ENETDOWN, -10050 },       { CUT_SEND, ECONNABORTED, -10053 },
        { CUT_SEND, EHOSTDOWN, -10064 },      { CUT_LOOKUP, EAI_NONAME, -11001 },
        { CUT_LOOKUP, EAI_AGAIN, -11002 },    { CUT_LOOKUP, EAI_FAIL, -11003 },
        { CUT_LOOKUP, EAI_NODATA, -11004 },   { CUT_LOOKUP, EAI_MEMORY, -11003 },
        { CUT_LOOKUP, EMFILE, -10024 },
    };
    for (const auto& row : rows) {
        uint32_t address = 42;
        const auto answer = [&]() -> int32_t {
            switch (row.Call) {
            case CUT_SOCKET:
                return osSocketCreate();
            case CUT_CONNECT:
                return osSocketConnect(pair.Client, Loopback, pair.Port);
            case CUT_POLL:
                return osSocketPoll(pair.Client);
            case CUT_RECEIVE:
                return osSocketReceive(pair.Client, &byte, 1);
            case CUT_SEND:
                return osSocketSend(pair.Client, "x", 1, LongWait);
            default:
                return osResolve("localhost", address);
            }
        };
        CutShortFail(row.Call, row.Error, 1);
        EXPECT_EQ(answer(), row.Answer) << row.Call << " " << row.Error;
        EXPECT_EQ(address, 42u);
    }
    EXPECT_EQ(OpenDescriptors(), descriptors);
    Exchange(pair, "all is well");
    Close(pair);
}

TEST(SocketFaults, AWaitForRoomIsNoLongerThanToldWhenItsPollFails)
{
    const Pair pair = Connected();
    const std::string block(65536, 'x');
    CutShortFail(CUT_SEND, EAGAIN, 3);
    CutShortFail(CUT_POLL, EINTR, 2);
    EXPECT_GT(osSocketSend(pair.Client, block.data(), 65536, LongWait), 0);
    CutShortFail(CUT_SEND, EAGAIN, 1 << 30);
    CutShortFail(CUT_POLL, ENOMEM, 1 << 30);
    EXPECT_EQ(osSocketSend(pair.Client, block.data(), 65536, 30), -10060);
    CutShortFail(CUT_SEND, 0, 0);
    CutShortFail(CUT_POLL, 0, 0);
    Close(pair);
}
