// Messages written to a file instead of a server.
#include "tests/wire/dialogue.h"

#include <regex>

struct TargetTest : WireTest {};

static std::string Target(const std::string& path)
{
    static const std::regex id("Message-ID: <[0-9a-f]{8}\\.[0-9a-f]{24}\\.0\\.0@x\\.example>");
    return std::regex_replace(ReadWholeFile(path), id, "ID");
}

TEST_F(TargetTest, HoldsEachMessageFromItsIdOn)
{
    const std::string plain = "ID\r\nSubject: Hello\r\nCC: <c@d>\r\n\r\none\r\n..\r\n\r\n";
    for (const bool manual : { false, true }) {
        Renew();
        HostAttach();
        HostSet(0, RYN_AUTO_CALL_DRIVER, manual ? 0 : 1);
        EXPECT_EQ(rynSmtpTarget(0, Path("out").c_str(), Sender, "<r@r>"), 1);
        EXPECT_EQ(rynIsConnected(0), 2);
        EXPECT_EQ(Send({ .Cc = "<c@d>", .Message = "one\n." }, manual), 0);
        EXPECT_EQ(Target(Path("out")), plain);
        HostSet(0, RYN_MESSAGE_TYPE, 4);
        EXPECT_EQ(Send({ .Message = "caf\xE9" }, manual), 0);
        const std::string seed = HostSeed();
        EXPECT_EQ(Target(Path("out")),
                  plain +
                      "ID\r\nSubject: Hello\r\nMIME-Version: 1.0\r\n"
                      "Content-Type: multipart/mixed; boundary=\"" +
                      seed + "MIX===\"\r\n\r\n--" + seed +
                      "MIX===\r\nContent-Type: text/plain; charset=iso-8859-1\r\n"
                      "Content-Transfer-Encoding: quoted-printable\r\n\r\ncaf=E9\r\n\r\n--" +
                      seed + "MIX===--\r\n\r\n");
        EXPECT_EQ(rynClose(0), 1);
        EXPECT_EQ(rynClose(0), 0);
        EXPECT_EQ(VirtualNetworkCounts().Creates, 0);
    }
}

TEST_F(TargetTest, EndsByAnEmptyNameOrABadOne)
{
    const std::string bad = Path("no/such/out");
    const struct {
        const char* Name;
        int32_t Result;
    } rows[] = { { nullptr, 1 }, { "", 1 }, { bad.c_str(), RYN_ERR_NO_SUCH_FILE } };
    for (const auto& row : rows) {
        Begin(OpenScript() + ByeScript());
        EXPECT_EQ(rynSmtpTarget(0, Path("out").c_str(), Sender, nullptr), 1);
        EXPECT_EQ(rynSmtpTarget(0, row.Name, nullptr, nullptr), row.Result);
        EXPECT_EQ(Send({}), RYN_ERR_NOT_CONNECTED);
        EXPECT_EQ(ReadWholeFile(Path("out")), "");
        EXPECT_EQ(Connect(), 0);
        EXPECT_EQ(Close(), 0);
    }
}

TEST_F(TargetTest, NeedsASenderForTheMessage)
{
    HostAttach();
    const struct {
        const char* From;
        int32_t Status;
    } rows[] = { { nullptr, RYN_ERR_MISSING_FROM },
                 { "no bracket", RYN_ERR_MISSING_FROM },
                 { "<abc>", 0 } };
    for (const auto& row : rows) {
        EXPECT_EQ(rynSmtpTarget(0, Path("out").c_str(), row.From, nullptr), 1);
        EXPECT_EQ(Send({}), row.Status);
        EXPECT_EQ(rynClose(0), 1);
    }
}

TEST_F(TargetTest, DropsAConnectionAndKeepsOffAnothers)
{
    HostAttach(2);
    SinkListen(HostPort);
    EXPECT_EQ(Connect(false, 1), 0); // takes socket number 0
    EXPECT_EQ(rynSmtpTarget(0, Path("out").c_str(), Sender, nullptr), RYN_ERR_CANNOT_CREATE_SOCKET);
    EXPECT_EQ(Send({}, false, 1), 0);
    EXPECT_EQ(Close(false, 1), 0);
    EXPECT_EQ(Connect(false, 0), 0);
    EXPECT_EQ(rynSmtpTarget(0, Path("out").c_str(), Sender, nullptr), 1);
    EXPECT_EQ(VirtualOpenSockets(), 0);
    EXPECT_EQ(Send({}), 0);
    EXPECT_EQ(Target(Path("out")), "ID\r\nSubject: Hello\r\n\r\none\r\ntwo\r\n\r\n");
    EXPECT_EQ(Connect(false, 0), 0); // a connect ends the mode
    EXPECT_EQ(rynIsConnected(0), 1);
    EXPECT_EQ(Close(false, 0), 0);
}

TEST_F(TargetTest, EndsByATestConnectAsAStoredMessageDoes)
{
    const std::string out = Path("out"), mail = Path("mail");
    WriteWholeFile(mail, "Subject: s\r\n\r\nbody\r\n");
    for (const bool isSource : { false, true }) {
        for (const bool hasServer : { true, false }) {
            SCOPED_TRACE(std::to_string(isSource) + std::to_string(hasServer));
            Renew();
            HostAttach(2); // the socket of the test connect stays open
            const auto attach = [&] {
                return isSource ? rynPop3Source(0, mail.c_str())
                                : rynSmtpTarget(0, out.c_str(), Sender, nullptr);
            };
            const uint32_t port = hasServer ? 2526 : 1;
            const int32_t outcome = hasServer ? 9 : RYN_WSAECONNREFUSED;
            char greeting[64] = "";
            if (hasServer)
                PeerScript(2526, std::string("S: 220 ready\n") + (isSource ? "C: RETR 1\n" : ""));
            PeerScript(HostPort, Conversation(HeadScript() + "C: one\nC: two\n"));
            EXPECT_EQ(attach(), 1);
            EXPECT_EQ(rynTestConnect(0, "server.test", port, greeting, 63), outcome);
            EXPECT_EQ(rynIsConnected(0), hasServer ? 1 : RYN_ERR_NO_SUCH_VSOCK);
            if (isSource) { // the file is gone, and it is a server that is asked
                EXPECT_EQ(rynGetEmailFile(0, 1, "got", Folder.c_str(), Folder.c_str()),
                          hasServer ? RYN_ERR_TIMED_OUT : RYN_ERR_SOCK_READ);
                EXPECT_EQ(ReadWholeFile(Path("got")), "");
            }
            EXPECT_EQ(Connect(), 0);
            EXPECT_EQ(rynIsConnected(0), 1);
            EXPECT_EQ(Send({}), 0);
            EXPECT_EQ(Close(), 0);
            EXPECT_EQ(rynIsConnected(0), RYN_ERR_NO_SUCH_VSOCK);
            EXPECT_EQ(ReadWholeFile(out), "");
        }
    }
}
