// Mailboxes of a real POP3 server: logins, questions, fetches, deletions, and messages that are not
// what they should be. Each case starts a server of its own.
#include "tests/real/dovecot_fixture.h"

#include <cstring>

namespace {

constexpr char Plain[] = "Subject: x\nFrom: <a@b.test>\n\none\n.\n..two\nthree\nfour\n";

struct RealPop3 : RealMailbox {
    void Start()
    {
        ASSERT_EQ(StartDovecot(Box), "");
        Attach();
    }

    // A mailbox with messages of alice's, and her session.
    void Open(const std::vector<std::string>& messages)
    {
        Start();
        for (const std::string& message : messages)
            PutMail(Box, "alice", message);
        ASSERT_EQ(Login(), 0) << LastReply();
    }

    std::string Lines(int32_t message, int32_t lines, int32_t size)
    {
        std::string buffer(static_cast<size_t>(size) + 1, '#');
        const int32_t count =
            Number(rynGetEmailLines(0, message, lines, buffer.data(), size), RYN_STAT_BUFFER_USED);
        if (count < 0)
            return "status " + std::to_string(count);
        EXPECT_EQ(buffer.substr(static_cast<size_t>(count)),
                  std::string(buffer.size() - static_cast<size_t>(count), '#'));
        return buffer.substr(0, static_cast<size_t>(count));
    }

    std::string Uid(int32_t message, int32_t size)
    {
        std::string buffer(static_cast<size_t>(size) + 1, '#');
        const int32_t length = rynGetEmailUID(0, message, buffer.data(), size);
        EXPECT_EQ(Ended(IsManual ? length : 0), 0);
        EXPECT_EQ(buffer.back(), '#');
        EXPECT_TRUE(IsManual || strlen(buffer.c_str()) == static_cast<size_t>(length));
        return buffer.c_str();
    }

    std::vector<std::string> Stored()
    {
        std::vector<std::string> messages;
        for (const std::string& path : ListMailbox(Box, "alice"))
            messages.push_back(ReadWholeFile(path));
        return messages;
    }
};

} // namespace

TEST_F(RealPop3, LogsInByPasswordAndByStamp)
{
    const std::string p64(64, 'p'), q15(15, 'q'), r24(24, 'r');
    Box.Users += "dave:{PLAIN}two words\nerin:{PLAIN}" + p64 + "\nfrank:{PLAIN}" + q15 +
                 "\ngrace:{PLAIN}" + r24 + "\n";
    Start();
    const std::string log = OpenLog();
    constexpr char Refused[] = "-ERR [AUTH] Authentication failed.\r\n";
    // A stamp has 40 to 49 chars, and with the password it is cut at 64.
    const struct {
        uint32_t UsesStamp;
        std::string User, Password;
        bool IsRight;
    } rows[] = {
        { 0, "alice", "secret1", true },  { 0, "alice", "secret2", false },
        { 1, "alice", "secret1", true },  { 1, "alice", "secret2", false },
        { 0, "ghost", "secret1", false }, { 0, "dave", "two words", true },
        { 0, "erin", p64 + "p", true },   { 1, "frank", q15, true },
        { 1, "grace", r24, false },       { 0, "grace", r24, true },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.User + " " + row.Password + std::to_string(row.UsesStamp));
        DriveManually(row.User == "alice");
        rynIntegerParam(0, RYN_USE_APOP, row.UsesStamp);
        const int32_t status = Login(row.User.c_str(), row.Password.c_str());
        EXPECT_EQ(status, row.IsRight ? 0 : RYN_ERR_POP3_REPLY);
        EXPECT_EQ(LastReply(), row.IsRight ? "+OK Logged in.\r\n" : Refused);
        if (row.IsRight) {
            EXPECT_EQ(Count(), 0);
            EXPECT_EQ(Close(), 0);
            EXPECT_EQ(LastReply(), "+OK Logging out.\r\n");
        } else if (!IsManual) {
            char text[256];
            EXPECT_GT(rynErrorText(0, status, text, sizeof text), 0);
            EXPECT_NE(std::string(text).find("-ERR [AUTH] Authentication failed."),
                      std::string::npos)
                << text;
            EXPECT_EQ(rynIsConnected(0), RYN_ERR_NO_SUCH_VSOCK);
        } else {
            rynAbort(0);
        }
    }
    rynRelease();
    for (const char* secret : { "secret", "two words", "qqq" })
        EXPECT_EQ(ReadWholeFile(log).find(secret), std::string::npos) << secret;
}

TEST_F(RealPop3, CountsMeasuresAndNamesMessages)
{
    const std::vector<std::string> messages = { Plain, "", "Subject: x\n\nno last line end",
                                                "a: b\n\n" + std::string(100000, '\n') };
    const int32_t sizes[] = { 60, 0, 30, 200008 };
    Open(messages);
    for (const bool isManual : { false, true }) {
        DriveManually(isManual);
        EXPECT_EQ(Count(), 4);
        for (int32_t i = 0; i < 4; i++)
            EXPECT_EQ(Number(rynGetEmailSize(0, i + 1), RYN_STAT_MESSAGE_SIZE), sizes[i]) << i;
        EXPECT_EQ(Number(rynGetEmailSize(0, 5), RYN_STAT_MESSAGE_SIZE), 0);

        // Ids are the number of the message in the mailbox's life, and the mailbox's.
        const std::string first = Uid(1, 200);
        ASSERT_EQ(first.size(), strlen("+OK 1 00000001uuuuuuuu\r\n")) << first;
        EXPECT_EQ(first.substr(0, 14), "+OK 1 00000001");
        const std::string mailbox = first.substr(14), id = "0000000";
        EXPECT_EQ(Uid(4, 200), "+OK 4 00000004" + mailbox);
        std::string list = "+OK\r\n";
        for (const char* number : { "1", "2", "3", "4" })
            list += number + (" " + id + number + mailbox);
        EXPECT_EQ(Uid(-1, 200), list);
        EXPECT_EQ(Uid(-1, 128), list.substr(0, 127));
        EXPECT_EQ(Uid(9, 128), "-ERR There's no message 9.\r\n");
        EXPECT_EQ(Ended(rynCommand(0, "NOOP")), 0);
    }
}

TEST_F(RealPop3, HandsOutTheFirstLines)
{
    Open({ Plain, "Subject: x\n" });
    constexpr char Head[] = "+OK\r\nSubject: x\r\nFrom: <a@b.test>\r\n\r\n";
    const struct {
        int32_t Lines;
        const char* Body;
    } rows[] = { { 0, "" },
                 { -1, "" },
                 { 3, "one\r\n.\r\n..two\r\n" },
                 { 1000, "one\r\n.\r\n..two\r\nthree\r\nfour\r\n" } };
    for (const bool isManual : { false, true }) {
        DriveManually(isManual);
        for (const auto& row : rows) {
            SCOPED_TRACE(row.Lines);
            EXPECT_EQ(Lines(1, row.Lines, 1000), std::string(Head) + row.Body);
            ASSERT_EQ(
                Number(rynGetEmailLines(0, 1, row.Lines, nullptr, 1000), RYN_STAT_BUFFER_USED),
                static_cast<int32_t>(strlen(Head) + strlen(row.Body)));
            EXPECT_EQ(DebugText(RYN_DEBUG_EMAIL_LINES), std::string(Head) + row.Body);
        }
        EXPECT_EQ(Lines(2, 3, 128), "+OK\r\nSubject: x\r\n");
        EXPECT_EQ(Number(rynGetEmailLines(0, 1, 3, nullptr, 20), RYN_STAT_BUFFER_USED), 20);
        EXPECT_EQ(DebugText(RYN_DEBUG_EMAIL_LINES), std::string(Head).substr(0, 20));
    }
}

TEST_F(RealPop3, FetchesManyMessagesInASession)
{
    std::vector<std::string> messages;
    for (int i = 1; i <= 500; i++)
        messages.push_back("Subject: s" + std::to_string(i) + "\n\nbody " + std::to_string(i) +
                           "\n");
    Open(messages);
    EXPECT_EQ(Count(), 500);
    const std::string list = Uid(-1, 20000);
    EXPECT_EQ(std::count(list.begin(), list.end(), '\n'), 501);
    EXPECT_NE(list.find("\r\n500 000001f4"), std::string::npos);
    for (int i = 1; i <= 500; i++) {
        ASSERT_EQ(Fetch(i), 0);
        EXPECT_EQ(Saved(), OnTheWire(messages[static_cast<size_t>(i) - 1]));
        EXPECT_EQ(HeaderText(RYN_HEADER_SUBJECT), "s" + std::to_string(i));
    }
}

TEST_F(RealPop3, DeletesAtTheFarewellOnly)
{
    std::vector<std::string> left = { "a: 1\n\n", "a: 2\n\n", "a: 3\n\n", "a: 4\n\n" };
    Open(left);
    for (const bool isManual : { false, true }) {
        DriveManually(isManual);
        // Left without a word: nothing is gone.
        EXPECT_EQ(Ended(rynDeleteEmail(0, 2)), 0);
        EXPECT_EQ(LastReply(), "+OK Marked to be deleted.\r\n");
        EXPECT_EQ(rynStatistics(0, RYN_STAT_REPLY_CODE), 100);
        EXPECT_EQ(Count(), static_cast<int32_t>(left.size()) - 1);
        rynAbort(0);
        DriveManually(isManual);
        ASSERT_EQ(Login(), 0);
        EXPECT_EQ(Count(), static_cast<int32_t>(left.size()));
        // A refusal is no failure, and shows in the reply.
        EXPECT_EQ(Ended(rynDeleteEmail(0, 9)), 0);
        EXPECT_EQ(LastReply(), "-ERR There's no message 9.\r\n");
        EXPECT_EQ(rynStatistics(0, RYN_STAT_REPLY_CODE), 500);
        // With a farewell the message is gone.
        EXPECT_EQ(Ended(rynDeleteEmail(0, 2)), 0);
        EXPECT_EQ(Ended(rynDeleteEmail(0, 2)), 0);
        EXPECT_EQ(LastReply(), "-ERR Message is deleted.\r\n");
        EXPECT_EQ(Close(), 0);
        EXPECT_EQ(LastReply(), "+OK Logging out, messages deleted.\r\n");
        left.erase(left.begin() + 1);
        EXPECT_EQ(Stored(), left);
        ASSERT_EQ(Login(), 0);
        EXPECT_EQ(Count(), static_cast<int32_t>(left.size()));
    }
}

TEST_F(RealPop3, TimesOutOnAMissingMessageAndGoesOn)
{
    Open({ Plain });
    for (const bool isManual : { false, true }) {
        DriveManually(isManual);
        rynIntegerParam(0, RYN_REPLY_TIMEOUT, 300);
        EXPECT_EQ(Fetch(9), RYN_ERR_TIMED_OUT);
        EXPECT_EQ(Lines(9, 0, 128), "status " + std::to_string(RYN_ERR_TIMED_OUT));
        EXPECT_EQ(rynIsConnected(0), 1);
        rynIntegerParam(0, RYN_REPLY_TIMEOUT, 60000);
        EXPECT_EQ(Saved(), "");
        ASSERT_EQ(Fetch(1), 0);
        EXPECT_EQ(Saved(), OnTheWire(Plain));
    }
}

TEST_F(RealPop3, SendsCommandsOfTheHost)
{
    Open({ Plain, Plain });
    const struct {
        std::string Command;
        int32_t Status;
        std::string Reply;
    } rows[] = {
        { "NOOP", 0, "+OK\r\n" },
        { "STAT", 0, "+OK 2 120\r\n" },
        { "RETR 9", RYN_ERR_POP3_REPLY, "-ERR There's no message 9.\r\n" },
        { "XTRA " + std::string(40, 'x'), RYN_ERR_POP3_REPLY, "-ERR Unknown command: XTRA\r\n" },
        { "LIST " + std::string(26, '0') + "2333", 0, "+OK 2 60\r\n" }, // cut at 32 chars
        { "DELE 2", 0, "+OK Marked to be deleted.\r\n" },
        { "RSET", 0, "+OK\r\n" },
    };
    for (const bool isManual : { false, true }) {
        DriveManually(isManual);
        for (const auto& row : rows) {
            SCOPED_TRACE(row.Command);
            EXPECT_EQ(Ended(rynCommand(0, row.Command.c_str())), row.Status);
            EXPECT_EQ(LastReply(), row.Reply);
        }
        EXPECT_EQ(Count(), 2);
    }
}

// --- what came, as it came ---

TEST_F(RealPop3, KeepsRawCopiesOfOddMessages)
{
    const std::string x8189(8189, 'x');
    const struct {
        const char* Name;
        std::string Stored, Text; // the message file, where it differs from what came
    } rows[] = {
        { "dots", "Subject: x\n\n.\n..\n...x\n.y\n", "" },
        { "no text", "Subject: x\n", "" },
        { "no header", "\nbody\n", "" },
        { "no line end", "Subject: x\n\nbody", "" },
        { "8-bit and control chars", "Subject: \xE9\xFF\n\n\x01\x7F\xE9\x1A\t\n", "" },
        { "bare CR", "Subject: x\n\na\rb\r\rc\n\r", "" },
        { "long lines",
          "Subject: x\n\n" + x8189 + "\n" + x8189 + "x\n" + x8189 + "xx.\n" + x8189 + "xx.x\n",
          "" },
        { "like a reply", "Subject: x\n\n+OK lost\n-ERR kept\nb\n",
          "Subject: x\r\n\r\n-ERR kept\r\nb\r\n" },
        { "other headers", "X-Y: z\nSubject: x\nReceived: a\n b\n\nbody\n",
          "Subject: x\r\n\r\nbody\r\n" },
        { "a multipart without parts",
          "MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=b\n\nbody\n", "\r\n" },
        { "a multipart without an end",
          "MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=b\n\npreamble\n--b\n\nbody\n",
          "\r\nbody\r\n" },
        { "parts with and without an encoding",
          "MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=b\n\n--b\n"
          "Content-Transfer-Encoding: quoted-printable\n\na=41\n--b\n\na=41\n--b--\n",
          "\r\naA\r\na=41\r\n" },
        { "Base64 that is none",
          "MIME-Version: 1.0\nContent-Type: a/b; name=n\nContent-Transfer-Encoding: base64\n\n"
          "TWFu.\n=\n",
          "\r\n[Attachment saved to \"FOLDER/att\\n\"]\r\n" },
    };
    std::vector<std::string> messages;
    for (const auto& row : rows)
        messages.push_back(row.Stored);
    Open(messages);
    for (const uint32_t mode : { 0u, 1u }) {
        rynIntegerParam(0, RYN_DECODE_MODE, mode);
        rynIntegerParam(0, RYN_RAW_PREFIX, '_');
        int32_t message = 0;
        for (const auto& row : rows) {
            SCOPED_TRACE(row.Name);
            DriveManually(message % 2 == 1);
            ASSERT_EQ(Fetch(++message), 0);
            std::string sent = OnTheWire(row.Stored);
            EXPECT_EQ(Saved("_mail"), ReplaceAll("\n" + sent, "\n.", "\n..").substr(1));
            if (!row.Text.empty())
                sent = ReplaceAll(row.Text, "FOLDER", Folder);
            EXPECT_EQ(Saved(), mode == 0 ? sent : "");
        }
        EXPECT_EQ(TakeAttachments().size(), mode == 0 ? 1U : 0U);
    }
    rynIntegerParam(0, RYN_DECODE_MODE, 0);
    rynIntegerParam(0, RYN_RAW_PREFIX, 0);
    std::filesystem::remove(Folder + "/_mail");
    EXPECT_EQ(Fetch(1), 0);
    EXPECT_EQ(Saved(), OnTheWire(rows[0].Stored));
    EXPECT_EQ(Saved("_mail"), "<no file>");
}

TEST_F(RealPop3, ReadsTwoMailboxesAtOnce)
{
    ASSERT_EQ(StartDovecot(Box), "");
    Attach(2);
    std::string messages[2];
    for (int i = 0; i < 3000; i++) {
        messages[0] += "line " + std::to_string(i) + " of alice\n";
        messages[1] += ".stuffed " + std::to_string(i) + " of bob\n";
    }
    PutMail(Box, "alice", "Subject: a\n\n" + messages[0]);
    PutMail(Box, "bob", "Subject: b\n\n" + messages[1]);
    const char* const users[] = { "alice", "bob" };
    const char* const secrets[] = { "secret1", "secret2" };
    const auto driveBoth = [] {
        int32_t results[2] = { 1, 1 };
        uint32_t switches = 0;
        while (results[0] > 0 || results[1] > 0)
            for (const uint32_t channel : { 0u, 1u })
                if (results[channel] > 0)
                    results[channel] = rynDriver(channel), switches++;
        EXPECT_EQ(results[0], 0);
        EXPECT_EQ(results[1], 0);
        return switches;
    };
    for (const uint32_t channel : { 0u, 1u }) {
        rynIntegerParam(channel, RYN_AUTO_CALL_DRIVER, 0);
        rynIntegerParam(channel, RYN_USE_APOP, channel);
        ASSERT_EQ(rynPop3Connect(channel, "127.0.0.1", users[channel], secrets[channel]), 0);
    }
    driveBoth();
    for (const uint32_t channel : { 0u, 1u })
        ASSERT_EQ(rynGetEmailFile(channel, 1, users[channel], Folder.c_str(), Folder.c_str()), 0);
    EXPECT_GT(driveBoth(), 6000U); // a line for each call
    EXPECT_EQ(Saved("alice"), OnTheWire("Subject: a\n\n" + messages[0]));
    EXPECT_EQ(Saved("bob"), OnTheWire("Subject: b\n\n" + messages[1]));
    for (const uint32_t channel : { 0u, 1u })
        ASSERT_EQ(rynClose(channel), 0);
    driveBoth();
}
