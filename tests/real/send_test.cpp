// Sessions with a real server, over the system's own clock and sockets: greetings, recipients and
// refusals, manual driving, and a server that goes away. Each case starts a server of its own.
#include "tests/real/real_send.h"

#include <arpa/inet.h>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// Keeps a port closed to everybody: a connect to it is refused, and nobody else can open it.
int OccupyPort(uint32_t port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int handle = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(handle, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    EXPECT_EQ(bind(handle, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    return handle;
}

TEST_F(RealSend, GreetsByTheNameThatIsSetOrTheSendersDomain)
{
    const struct {
        uint32_t UseEhlo;
        const char *LocalName, *Command, *Reply;
    } rows[] = {
        { 0, nullptr, "S: HELO client.test\r\n",
          "250 mail.test Hello client.test [127.0.0.1]\r\n" },
        { 1, nullptr, "S: EHLO client.test\r\n",
          "250-mail.test Hello client.test [127.0.0.1]\r\n" },
        { 1, "own.test", "S: EHLO own.test\r\n", "250-mail.test Hello own.test [127.0.0.1]\r\n" },
        { 0, "own.test", "S: HELO own.test\r\n", "250 mail.test Hello own.test [127.0.0.1]\r\n" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Command);
        const std::string log = OpenLog("greeting.log");
        rynIntegerParam(0, RYN_USE_EHLO, row.UseEhlo);
        if (row.LocalName != nullptr)
            rynStringParam(0, RYN_LOCAL_HOST_NAME, row.LocalName);
        ASSERT_EQ(Connect(), 0);
        EXPECT_EQ(LastReply().substr(0, strlen(row.Reply)), row.Reply);
        EXPECT_EQ(rynIsConnected(0), 1);
        EXPECT_EQ(rynClose(0), 0);
        EXPECT_EQ(LastReply(), "221 mail.test closing connection\r\n");
        EXPECT_EQ(rynIsConnected(0), RYN_ERR_NO_SUCH_VSOCK);
        EXPECT_EQ(rynStringParam(0, RYN_LOG_FILE, ""), 0);
        EXPECT_NE(ReadWholeFile(log).find(row.Command), std::string::npos);
    }
}

TEST_F(RealSend, ReportsARefusedGreetingAndConnectsAgain)
{
    rynStringParam(0, RYN_LOCAL_HOST_NAME, "a_b");
    EXPECT_EQ(Connect(), RYN_ERR_SMTP_REPLY);
    EXPECT_EQ(LastReply(), "501 Syntactically invalid HELO argument(s)\r\n");
    EXPECT_EQ(rynIsConnected(0), RYN_ERR_NO_SUCH_VSOCK);
    rynStringParam(0, RYN_LOCAL_HOST_NAME, "own.test");
    EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(Send(Alice, "hello"), 0);
    EXPECT_EQ(Stored("alice", 1).Body, "hello\n");
}

TEST_F(RealSend, TakesTheGreetingOfATestConnect)
{
    char greeting[256];
    const std::string log = OpenLog("test.log");
    const int32_t length = rynTestConnect(0, "127.0.0.1", Server.Port, greeting, 255);
    EXPECT_EQ(std::string(greeting).substr(0, 25), "220 mail.test ESMTP Exim ");
    EXPECT_EQ(std::string(greeting).substr(static_cast<size_t>(length)), "\r\n");
    EXPECT_EQ(rynAbort(0), 1);
    rynStringParam(0, RYN_LOG_FILE, "");
    EXPECT_EQ(ReadWholeFile(log).find("S: "), std::string::npos);
}

TEST_F(RealSend, DeliversToAllThreeListsAndShowsTwoOfThem)
{
    const std::string trace = Server.Folder + "/trace";
    ASSERT_GT(rynStringParam(0, RYN_RCPT_TRACE_FILE, trace.c_str()), 0);
    ASSERT_EQ(rynSmtpConnect(0, "127.0.0.1", Sender, "<reply@client.test>"), 0);
    char subject[256];
    ASSERT_GT(rynMakeSubject("caf\xE9", 4, subject, sizeof subject), 0);
    ASSERT_GT(rynStringParam(0, RYN_ADD_EXTRA_HEADER, "X-Own: yes"), 0);
    ASSERT_EQ(rynSendEmail(0, "Al <alice@example.test>;<bob@example.test>", "<carol@example.test>",
                           nullptr, subject, "to all", nullptr),
              0);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_ACCEPTED_RECIPIENTS), 3);
    ASSERT_EQ(rynSendEmail(0, nullptr, nullptr, "<carol@example.test>;<bob@example.test>", "x",
                           "hidden", nullptr),
              0);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_ACCEPTED_RECIPIENTS), 2);
    for (const char* user : { "alice", "bob", "carol" }) {
        SCOPED_TRACE(user);
        const StoredMail mail = Stored(user, 1);
        EXPECT_EQ(mail.Head, "X-Mailer: Brindlecroft Rynmark Version 8.4.1 \nDate: *\n"
                             "To: Al <alice@example.test>,<bob@example.test>\n"
                             "From: Ann <ann@client.test>\nReply-To: <reply@client.test>\n"
                             "Message-ID: *\nSubject: =?ISO-8859-1?Q?caf=E9?=\nX-Own: yes\n"
                             "CC: <carol@example.test>\n");
        EXPECT_EQ(mail.Body, "to all\n");
    }
    for (const char* user : { "bob", "carol" }) {
        SCOPED_TRACE(user);
        const StoredMail mail = Stored(user, 2);
        EXPECT_EQ(mail.Head, "X-Mailer: Brindlecroft Rynmark Version 8.4.1 \nDate: *\n"
                             "From: Ann <ann@client.test>\nReply-To: <reply@client.test>\n"
                             "Message-ID: *\nSubject: x\nX-Own: yes\n");
        EXPECT_EQ(mail.Body, "hidden\n");
    }
    EXPECT_EQ(rynClose(0), 0);
    EXPECT_EQ(CountMail(Server, "alice"), 1U);
    EXPECT_EQ(ReadWholeFile(trace + "_0.log"),
              "<alice@example.test>;250 Accepted\r\n<bob@example.test>;250 Accepted\r\n"
              "<carol@example.test>;250 Accepted\r\n<carol@example.test>;250 Accepted\r\n"
              "<bob@example.test>;250 Accepted\r\n");
}

TEST_F(RealSend, EndsTheSendAtARefusedRecipient)
{
    const struct {
        const char *To, *Reply;
        uint32_t Ignore;
        int32_t Accepted;
    } rows[] = {
        { "<ghost@example.test>", "550 unknown user\r\n", 0, 0 },
        { "<alice@example.test>;<ghost@example.test>;<bob@example.test>", "550 unknown user\r\n", 0,
          1 },
        { "<a@elsewhere.test>", "550 relay not permitted\r\n", 0, 0 },
        { "<alice@example.test>;<a@elsewhere.test>", "550 relay not permitted\r\n", 1, 1 },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.To);
        rynIntegerParam(0, RYN_IGNORE_RCPT_REFUSAL, row.Ignore);
        ASSERT_EQ(Connect(), 0);
        EXPECT_EQ(Send(row.To, "never"), RYN_ERR_SMTP_REPLY);
        EXPECT_EQ(LastReply(), row.Reply);
        EXPECT_EQ(rynStatistics(0, RYN_STAT_REPLY_CODE), 550);
        EXPECT_EQ(rynStatistics(0, RYN_STAT_ACCEPTED_RECIPIENTS), row.Accepted);
        EXPECT_EQ(rynIsConnected(0), 1);
        EXPECT_EQ(rynClose(0), 0);
    }
    ASSERT_EQ(Connect(), 0);
    EXPECT_EQ(Send("<alice@example.test>;<bob@example.test>", "last"), 0);
    EXPECT_EQ(Stored("alice", 1).Body, "last\n");
    EXPECT_EQ(Stored("bob", 1).Body, "last\n");
}

TEST_F(RealSend, GoesOnWithTheRecipientsBeforeAnIgnoredRefusal)
{
    rynIntegerParam(0, RYN_IGNORE_RCPT_REFUSAL, 1);
    ASSERT_EQ(Connect(), 0);
    EXPECT_EQ(Send("<ghost@example.test>;<alice@example.test>", "nobody accepted"), 0);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_ACCEPTED_RECIPIENTS), 0);
    EXPECT_EQ(LastReply(), "250 Reset OK\r\n");
    EXPECT_EQ(Send("<alice@example.test>;<ghost@example.test>;<bob@example.test>", "one accepted"),
              0);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_ACCEPTED_RECIPIENTS), 1);
    EXPECT_EQ(Send("<bob@example.test>", "after"), 0);
    const StoredMail mail = Stored("alice", 1);
    EXPECT_EQ(mail.Body, "one accepted\n");
    EXPECT_NE(mail.Head.find("\nTo: <alice@example.test>,<ghost@example.test>\n"),
              std::string::npos);
    EXPECT_EQ(Stored("bob", 1).Body, "after\n");
    EXPECT_EQ(CountMail(Server, "alice"), 1U);
}

TEST_F(RealSend, VerifiesTheLastOfSeveralUsers)
{
    const struct {
        const char* Addresses;
        int32_t Result;
    } rows[] = {
        { "alice", 1 },
        { "ghost", 0 },
        { "<bob@example.test>", 1 },
        { "<ghost@example.test>", 0 },
        { "ghost;alice", 1 },
        { "alice;ghost", 0 },
    };
    ASSERT_EQ(Connect(), 0);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Addresses);
        EXPECT_EQ(rynVerifyUser(0, row.Addresses), row.Result);
        EXPECT_EQ(rynStatistics(0, RYN_STAT_VERIFY_RESULT), row.Result);
    }
    EXPECT_EQ(Send(Alice, "after"), 0);
    EXPECT_EQ(Stored("alice", 1).Body, "after\n");
}

TEST_F(RealSend, StoresManuallyDrivenMessages)
{
    rynIntegerParam(0, RYN_AUTO_CALL_DRIVER, 0);
    ASSERT_EQ(Connect(), 0);
    std::string states;
    int32_t state = 0;
    for (int32_t last = 0; (state = rynDriver(0)) > 0; last = state)
        if (state != DRIVER_NOT_YET && state != last)
            states += std::to_string(state) + " ";
    ASSERT_EQ(state, 0);
    EXPECT_EQ(states, "101 102 104 105 106 201 202 203 ");
    for (const char* text : { "first", "second" }) {
        ASSERT_EQ(Send(Alice, text), 0);
        while ((state = rynDriver(0)) > 0)
            continue;
        ASSERT_EQ(state, 0);
    }
    EXPECT_EQ(Stored("alice", 1).Body, "first\n");
    EXPECT_EQ(Stored("alice", 2).Body, "second\n");
    EXPECT_EQ(rynClose(0), 0);
    while ((state = rynDriver(0)) > 0)
        continue;
    EXPECT_EQ(state, 0);
    EXPECT_EQ(LastReply(), "221 mail.test closing connection\r\n");
    EXPECT_EQ(rynAbort(0), 1);
}

TEST_F(RealSend, NoticesAServerThatStoppedBetweenMessages)
{
    ASSERT_EQ(Connect(), 0);
    ASSERT_EQ(Send(Alice, "before"), 0);
    EXPECT_EQ(Stored("alice", 1).Body, "before\n");
    StopExim(Server);
    const int32_t status = Send(Alice, "lost");
    EXPECT_TRUE(status == RYN_ERR_NOT_CONNECTED || status == RYN_ERR_SMTP_REPLY ||
                status == RYN_ERR_SOCK_WRITE)
        << status;
    rynAbort(0);

    const int occupied = OccupyPort(Server.Port);
    rynIntegerParam(0, RYN_CONNECT_ATTEMPTS, 1);
    EXPECT_EQ(Connect(), RYN_ERR_CONNECT_FAILED);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_SOCK_CODE), RYN_WSAECONNREFUSED);
    EXPECT_EQ(rynIsConnected(0), RYN_ERR_NO_SUCH_VSOCK);

    ASSERT_EQ(StartExim(Server), "");
    close(occupied);
    rynIntegerParam(0, RYN_SMTP_PORT, Server.Port);
    ASSERT_EQ(Connect(), 0);
    EXPECT_EQ(Send(Alice, "again"), 0);
    EXPECT_EQ(Stored("alice", 1).Body, "again\n");
}

TEST_F(RealSend, FailsWhereTheServerStopsInsideAMessage)
{
    ASSERT_EQ(Connect(), 0);
    rynIntegerParam(0, RYN_AUTO_CALL_DRIVER, 0);
    std::string text;
    for (int i = 0; i < 2000; i++)
        text += "line " + std::to_string(i) + "\r\n";
    ASSERT_EQ(Send(Alice, text.c_str()), 0);
    int32_t state = 1;
    while (state > 0 && rynStatistics(0, RYN_STAT_MSG_BYTES_OUT) < 1000)
        state = rynDriver(0);
    ASSERT_GT(state, 0);
    StopExim(Server);
    while ((state = rynDriver(0)) > 0)
        continue;
    EXPECT_EQ(state, RYN_ERR_SOCK_WRITE);
    EXPECT_LT(rynStatistics(0, RYN_STAT_SOCK_CODE), 0);
    EXPECT_EQ(rynDriver(0), 0);
    EXPECT_EQ(rynIsConnected(0), 0);
    EXPECT_EQ(rynAbort(0), 1);

    ASSERT_EQ(StartExim(Server), "");
    rynIntegerParam(0, RYN_SMTP_PORT, Server.Port);
    ASSERT_EQ(Connect(), 0);
    EXPECT_EQ(Send(Alice, "again"), 0);
    EXPECT_EQ(Stored("alice", 1).Body, "again\n");
}

} // namespace
