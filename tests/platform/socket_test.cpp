// The socket operations of the platform layer over the system's own loopback network.
#include "platform/platform.h"

#include <arpa/inet.h>
#include <climits>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr uint32_t Loopback = 0x7F000001; // 127.0.0.1
constexpr uint32_t LongWait = 60000;      // ms; only a hang takes as long

// A socket on a free port, apart from the operations under test. It listens, or with a backlog below
// 0 it only keeps the port from everybody.
struct Listener {
    int Descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    uint16_t Port = 0;

    explicit Listener(int backlog = 8)
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        auto* plain = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(bind(Descriptor, plain, size), 0);
        if (backlog >= 0) {
            EXPECT_EQ(listen(Descriptor, backlog), 0);
        }
        EXPECT_EQ(getsockname(Descriptor, plain, &size), 0);
        Port = ntohs(address.sin_port);
    }

    ~Listener()
    {
        close(Descriptor);
    }

    int Accept() const
    {
        return accept4(Descriptor, nullptr, nullptr, SOCK_CLOEXEC);
    }
};

// A client made by the operations under test and the server's end of its connection.
struct Connection {
    Listener Server;
    int32_t Client = osSocketCreate();
    int Peer = -1;

    Connection()
    {
        EXPECT_EQ(osSocketConnect(Client, Loopback, Server.Port), 0);
        Peer = Server.Accept();
        EXPECT_GE(Peer, 0);
    }

    ~Connection()
    {
        osSocketClose(Client);
        ClosePeer();
    }

    void ClosePeer()
    {
        if (Peer >= 0)
            close(Peer);
        Peer = -1;
    }

    void ResetByPeer()
    {
        const linger abortive = { 1, 0 };
        EXPECT_EQ(setsockopt(Peer, SOL_SOCKET, SO_LINGER, &abortive, sizeof(abortive)), 0);
        ClosePeer();
    }
};

// Waits until the poll's answers are the ones told, or hands out what they are in the end.
int32_t AwaitPoll(int32_t handle, int32_t wanted)
{
    int32_t answers = osSocketPoll(handle);
    for (uint32_t waited = 0; answers != wanted && waited < LongWait; waited++) {
        usleep(1000);
        answers = osSocketPoll(handle);
    }
    return answers;
}

int64_t MonotonicNs()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{ now.tv_sec } * 1000000000 + now.tv_nsec;
}

struct Refusal {
    int64_t Sent;   // bytes taken before it
    int64_t WaitNs; // how long the refused call took
};

// Sends to a peer that does not read until a call is refused. The system goes on moving bytes to
// the peer for a while, so that full buffers may have room again a little later.
Refusal SendUntilRefused(int32_t handle, uint32_t waitMs)
{
    const std::string block(65536, 'x');
    int64_t sent = 0;
    for (;;) {
        const int64_t start = MonotonicNs();
        const int32_t taken = osSocketSend(handle, block.data(), 65536, waitMs);
        if (taken <= 0) {
            EXPECT_EQ(taken, -10060);
            return { sent, MonotonicNs() - start };
        }
        sent += taken;
    }
}

// Fills the buffers until the poll gives the answers of a socket without room.
int32_t AwaitFull(int32_t handle, int32_t wanted)
{
    int32_t answers = 0;
    for (uint32_t round = 0; round < LongWait / 50; round++) {
        SendUntilRefused(handle, 50);
        if (answers = osSocketPoll(handle); answers == wanted)
            break;
    }
    return answers;
}

volatile sig_atomic_t SignalCount = 0;

void CountSignal(int)
{
    SignalCount = SignalCount + 1;
}

void Catch(int signal)
{
    struct sigaction action = {};
    action.sa_handler = CountSignal; // without SA_RESTART
    sigaction(signal, &action, nullptr);
}

// Sends SIGALRM every intervalUs microseconds; 0 ends it.
void InterruptEvery(int intervalUs)
{
    Catch(SIGALRM);
    itimerval timer = {};
    timer.it_interval.tv_usec = timer.it_value.tv_usec = intervalUs;
    setitimer(ITIMER_REAL, &timer, nullptr);
}

// Keeps SIGALRM from the calling thread, so that it cuts short only the calls of the main one.
void BlockAlarm()
{
    sigset_t alarms;
    sigemptyset(&alarms);
    sigaddset(&alarms, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarms, nullptr);
}

} // namespace

TEST(Socket, MovesBytesBothWays)
{
    EXPECT_EQ(osNetworkStart(), 0);
    const Connection connection;
    EXPECT_EQ(osSocketSend(connection.Client, "EHLO\r\n", 6, LongWait), 6);
    char buffer[16] = {};
    EXPECT_EQ(osSocketReceive(connection.Client, buffer, 4), -10035)
        << "a read without bytes waits";
    EXPECT_EQ(osSocketPeek(connection.Client, buffer, 4), -10035);
    EXPECT_EQ(recv(connection.Peer, buffer, 6, MSG_WAITALL), 6);
    EXPECT_STREQ(buffer, "EHLO\r\n");

    ASSERT_EQ(send(connection.Peer, "250 ok\0\r\n", 9, 0), 9);
    AwaitPoll(connection.Client, OS_POLL_READ | OS_POLL_WRITE);
    memset(buffer, '#', sizeof(buffer));
    EXPECT_EQ(osSocketPeek(connection.Client, buffer, 3), 3);
    EXPECT_EQ(std::string(buffer, 4), "250#");
    EXPECT_EQ(osSocketPeek(connection.Client, buffer, 16), 9) << "the peek has taken bytes away";
    EXPECT_EQ(osSocketReceive(connection.Client, buffer, 4), 4);
    EXPECT_EQ(osSocketReceive(connection.Client, buffer, 16), 5);
    EXPECT_EQ(std::string(buffer, 5), std::string("ok\0\r\n", 5));
    EXPECT_EQ(osSocketPoll(connection.Client), OS_POLL_WRITE);
}

TEST(Socket, PollAnswersInEverySituation)
{
    const int32_t fresh = osSocketCreate();
    EXPECT_EQ(osSocketPoll(fresh), OS_POLL_READ | OS_POLL_WRITE); // hung up, for it never was up
    EXPECT_EQ(osSocketClose(fresh), 0);

    Connection idle;
    EXPECT_EQ(osSocketPoll(idle.Client), OS_POLL_WRITE);
    ASSERT_EQ(send(idle.Peer, "x", 1, 0), 1);
    EXPECT_EQ(AwaitPoll(idle.Client, OS_POLL_READ | OS_POLL_WRITE), OS_POLL_READ | OS_POLL_WRITE);

    const Connection urgent;
    constexpr int32_t all = OS_POLL_READ | OS_POLL_WRITE | OS_POLL_EXCEPT;
    ASSERT_EQ(send(urgent.Peer, "ab", 2, MSG_OOB), 2);
    EXPECT_EQ(AwaitPoll(urgent.Client, all), all);

    Connection reset;
    reset.ResetByPeer();
    EXPECT_EQ(AwaitPoll(reset.Client, all), all);

    const Connection full;
    EXPECT_EQ(AwaitFull(full.Client, 0), 0);
    ASSERT_EQ(send(full.Peer, "x", 1, 0), 1);
    EXPECT_EQ(AwaitFull(full.Client, OS_POLL_READ), OS_POLL_READ);
}

TEST(Socket, AClosedPeerReadsAsZeroBehindItsLastBytes)
{
    Connection connection;
    ASSERT_EQ(send(connection.Peer, "bye", 3, 0), 3);
    connection.ClosePeer();
    std::string got;
    char buffer[16];
    int32_t count = 0;
    while ((count = osSocketReceive(connection.Client, buffer, 16)) > 0)
        got.append(buffer, static_cast<size_t>(count));
    EXPECT_EQ(count, 0);
    EXPECT_EQ(got, "bye");
    EXPECT_EQ(osSocketPeek(connection.Client, buffer, 16), 0);
}

TEST(Socket, AResetIsTold)
{
    char byte = 0;
    Connection reader;
    reader.ResetByPeer();
    EXPECT_EQ(osSocketReceive(reader.Client, &byte, 1), -10054);
    EXPECT_EQ(osSocketSend(reader.Client, "x", 1, LongWait), -10054);
}

TEST(Socket, SendingToAClosedPeerFailsWithoutASignal)
{
    Catch(SIGPIPE);
    Connection connection;
    connection.ClosePeer();
    int32_t result = 0;
    do
        result = osSocketSend(connection.Client, "x", 1, LongWait);
    while (result > 0);
    EXPECT_EQ(result, -10054);
    EXPECT_EQ(osSocketSend(connection.Client, "x", 1, LongWait), -10054);
    EXPECT_EQ(SignalCount, 0);
}

TEST(Socket, SendGivesUpAfterTheWaitAndNotBefore)
{
    const Connection connection;
    for (const bool blocking : { true, false }) {
        EXPECT_EQ(osSocketSetBlocking(connection.Client, blocking), 0);
        for (const uint32_t waitMs : { 0u, 1u, 120u })
            EXPECT_GE(SendUntilRefused(connection.Client, waitMs).WaitNs, waitMs * 1000000);
    }
    InterruptEvery(5000);
    const Refusal refusal = SendUntilRefused(connection.Client, 120);
    InterruptEvery(0);
    EXPECT_GE(refusal.WaitNs, 120 * 1000000) << "a signal has shortened the wait";
    EXPECT_GT(SignalCount, 0);
}

TEST(Socket, SendGoesOnWhenThePeerMakesRoomAndWhatIsQueuedArrivesAfterClose)
{
    const Listener server;
    const int32_t client = osSocketCreate();
    ASSERT_EQ(osSocketConnect(client, Loopback, server.Port), 0);
    const int peer = server.Accept();
    int64_t sent = SendUntilRefused(client, 50).Sent;
    int64_t received = 0;
    std::thread reader([&] {
        std::vector<char> buffer(65536);
        usleep(50000); // most likely the sender waits by now; it may also be late
        for (ssize_t count = 0; (count = recv(peer, buffer.data(), buffer.size(), 0)) > 0;)
            received += count;
    });
    const std::string block(65536, 'y');
    for (int i = 0; i < 16; i++) {
        const int32_t taken = osSocketSend(client, block.data(), 65536, LongWait);
        EXPECT_GT(taken, 0);
        sent += taken;
    }
    EXPECT_EQ(osSocketClose(client), 0);
    reader.join();
    EXPECT_EQ(received, sent);
    close(peer);
}

TEST(Socket, ARefusedConnectIsTold)
{
    const Listener silent(-1);
    const int32_t blocking = osSocketCreate();
    EXPECT_EQ(osSocketConnect(blocking, Loopback, silent.Port), -10061);
    EXPECT_EQ(osSocketClose(blocking), 0);

    const int32_t handle = osSocketCreate();
    ASSERT_EQ(osSocketSetBlocking(handle, false), 0);
    // Loopback may answer within the call.
    const int32_t result = osSocketConnect(handle, Loopback, silent.Port);
    EXPECT_TRUE(result == -10035 || result == -10061) << result;
    if (result == -10035) {
        constexpr int32_t all = OS_POLL_READ | OS_POLL_WRITE | OS_POLL_EXCEPT;
        EXPECT_EQ(AwaitPoll(handle, all), all);
        char byte = 0;
        EXPECT_EQ(osSocketReceive(handle, &byte, 1), -10061);
    }
    EXPECT_EQ(osSocketClose(handle), 0);
}

TEST(Socket, ANonBlockingConnectIsUnderWayThenWritable)
{
    const Listener server;
    const int32_t handle = osSocketCreate();
    ASSERT_EQ(osSocketSetBlocking(handle, false), 0);
    EXPECT_EQ(osSocketConnect(handle, Loopback, server.Port), -10035);
    EXPECT_EQ(AwaitPoll(handle, OS_POLL_WRITE), OS_POLL_WRITE);
    EXPECT_EQ(osSocketSetBlocking(handle, true), 0);
    EXPECT_EQ(osSocketSend(handle, "x", 1, LongWait), 1);
    EXPECT_EQ(osSocketClose(handle), 0);
}

TEST(Socket, SignalsDoNotCutABlockingConnectShort)
{
    // A full queue leaves further connects undecided until somebody accepts.
    const Listener server(0);
    int32_t fillers[4];
    for (int32_t& filler : fillers) {
        filler = osSocketCreate();
        osSocketSetBlocking(filler, false);
        osSocketConnect(filler, Loopback, server.Port);
    }
    std::thread acceptor([&] {
        BlockAlarm();
        usleep(200000);
        std::vector<int> peers;
        for (int peer = -1; (peer = server.Accept()) >= 0;)
            peers.push_back(peer);
        for (const int peer : peers)
            close(peer);
    });
    InterruptEvery(10000);
    const int32_t handle = osSocketCreate();
    EXPECT_EQ(osSocketConnect(handle, Loopback, server.Port), 0);
    InterruptEvery(0);
    EXPECT_GT(SignalCount, 0);
    EXPECT_EQ(osSocketSend(handle, "x", 1, LongWait), 1);
    shutdown(server.Descriptor, SHUT_RDWR); // ends the acceptor
    acceptor.join();
    osSocketClose(handle);
    for (const int32_t filler : fillers)
        osSocketClose(filler);
}

TEST(Socket, BindChoosesTheLocalAddress)
{
    const Listener server;
    const int32_t handle = osSocketCreate();
    constexpr uint32_t Other = 0x7F000002; // 127.0.0.2
    ASSERT_EQ(osSocketBind(handle, Other, 0), 0);
    ASSERT_EQ(osSocketConnect(handle, Loopback, server.Port), 0);
    sockaddr_in peer = {};
    socklen_t size = sizeof(peer);
    const int accepted = accept(server.Descriptor, reinterpret_cast<sockaddr*>(&peer), &size);
    EXPECT_EQ(ntohl(peer.sin_addr.s_addr), Other);
    uint32_t address = 0;
    EXPECT_EQ(osSocketLocalAddress(handle, address), 0);
    EXPECT_EQ(address, Other);
    close(accepted);
    EXPECT_EQ(osSocketClose(handle), 0);

    const int32_t second = osSocketCreate();
    EXPECT_EQ(osSocketBind(second, Loopback, server.Port), -10048);
    EXPECT_EQ(osSocketBind(second, 0xC0000201, 0), -10049); // 192.0.2.1, of no machine (RFC 5737)
    EXPECT_EQ(osSocketClose(second), 0);
}

TEST(Socket, MisuseAnswersByWinsockNumbers)
{
    const int32_t fresh = osSocketCreate();
    char buffer[4];
    EXPECT_EQ(osSocketReceive(fresh, buffer, 4), -10057);
    EXPECT_EQ(osSocketSend(fresh, "x", 1, LongWait), -10054);
    EXPECT_EQ(osSocketClose(fresh), 0);
    EXPECT_EQ(osSocketClose(fresh), -10009);
    EXPECT_EQ(osSocketPoll(fresh), -10009);
    EXPECT_EQ(osSocketSend(-1, "x", 1, LongWait), -10009);

    const Connection connection;
    EXPECT_EQ(osSocketConnect(connection.Client, Loopback, connection.Server.Port), -10056);
    for (const int32_t count : { 0, -1, INT_MIN }) {
        EXPECT_EQ(osSocketReceive(connection.Client, buffer, count), -10022);
        EXPECT_EQ(osSocketPeek(connection.Client, buffer, count), -10022);
        EXPECT_EQ(osSocketSend(connection.Client, "x", count, LongWait), -10022);
    }
    const int file = open("/dev/null", O_RDWR | O_CLOEXEC);
    EXPECT_EQ(osSocketReceive(file, buffer, 4), -10038);
    close(file);
}

TEST(Socket, HandlesStayAboveTheStandardStreamsAndDieWithAnExec)
{
    const pid_t child = fork();
    if (child == 0) {
        for (int i = 0; i < 3; i++)
            close(i);
        const int32_t handle = osSocketCreate();
        int bits = handle > 2 ? 0 : 1; // each bit is one promise broken
        bits |= fcntl(handle, F_GETFD) == FD_CLOEXEC ? 0 : 2;
        for (int i = 0; i < 3; i++)
            bits |= fcntl(i, F_GETFD) < 0 ? 0 : 4;
        _exit(bits);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(Resolve, FindsNamesAndNumbers)
{
    const struct {
        const char* Name;
        uint32_t Address;
    } rows[] = { { "localhost", Loopback },
                 { "127.0.0.1", Loopback },
                 { "192.0.2.200", 0xC00002C8 },
                 { "255.255.255.255", 0xFFFFFFFF } };
    for (const auto& row : rows) {
        uint32_t address = 0;
        EXPECT_EQ(osResolve(row.Name, address), 0) << row.Name;
        EXPECT_EQ(address, row.Address) << row.Name;
    }
}

TEST(Resolve, NamesThatCannotExistAreTold)
{
    // The top-level name is reserved for this (RFC 6761, 6.4); without any name server the answer
    // may be "try again".
    uint32_t address = 42;
    const int32_t result = osResolve("no-such-host.invalid", address);
    EXPECT_LE(result, -11001);
    EXPECT_GE(result, -11004);
    EXPECT_EQ(address, 42u);
    EXPECT_EQ(osResolve("::1", address), -11004) << "an address, but none of IPv4";
    EXPECT_EQ(address, 42u);
}

TEST(HostName, IsCutToTheCapacityAndAlwaysTerminated)
{
    char full[HOST_NAME_MAX + 1] = {};
    ASSERT_EQ(gethostname(full, sizeof(full) - 1), 0);
    const std::string expected = full;
    for (const size_t capacity : { size_t{ 1 }, expected.size(), expected.size() + 1 }) {
        char name[HOST_NAME_MAX + 2];
        memset(name, '#', sizeof(name));
        EXPECT_EQ(osHostName(name, capacity), 0);
        EXPECT_EQ(name, expected.substr(0, capacity - 1));
        EXPECT_EQ(name[capacity], '#');
    }
}
