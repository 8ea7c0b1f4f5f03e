// Mailboxes of a real IMAP server: logins, flags, searches, mailboxes, fetches compared with POP3,
// deletion, and IMAP through a tunnel. Each case starts a server of its own.
#include "tests/real/dovecot_tls_fixture.h"

#include <cstring>

namespace {

constexpr char Plain[] = "Subject: x\nFrom: <a@b.test>\n\none\n.\n..two\n";

// Every kind of part and header that the decoder handles, and the end without a line end.
const std::vector<std::string>& Samples()
{
    static const std::vector<std::string> samples = {
        Plain,
        "Subject: =?utf-8?Q?caf=C3=A9_x?=\nTo: <a@b.test>,\n\t<c@d.test>\n\nno last line end",
        "Subject: x\n",
        "Subject: m\nMIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=b\n\npre\n--b\n"
        "Content-Type: text/plain\nContent-Transfer-Encoding: quoted-printable\n\ncaf=E9 a=\nb\n"
        "--b\nContent-Type: application/octet-stream; name=\"n.bin\"\n"
        "Content-Transfer-Encoding: base64\n\nAAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIj\n"
        "/////w==\n--b\nContent-Type: text/plain; name=t.txt\nContent-Disposition: attachment;"
        " filename=t.txt\n\n.dot\n*\nlast\n--b--\n",
        "Subject: y\n\n" + std::string(20000, 'w') + "\n* 1 FETCH x\nRYN0 OK\n" +
            std::string(3000, '\n'),
        "Subject: 8-bit \xE9\n\n\x01\x7F\xE9\x1A\t\na\rb)\n",
        "Subject: f\nTo: <a@b.test>,\n <c@d.test>\n",
        "MIME-Version: 1.0\nContent-Type: a/b; name=n\n"
        "Content-Transfer-Encoding: base64\n\nTWFu\nTWFu",
        "MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=b\n\n--b\n\nx\n--b\n"
        "Content-Type: a/b; name=n\nContent-Transfer-Encoding: base64\n\nTWFu\n--b--",
    };
    return samples;
}

struct RealImap : RealMailbox {
    void Start(uint32_t channels = 1)
    {
        ASSERT_EQ(StartDovecot(Box), "");
        Attach(channels);
    }

    void Open(const std::vector<std::string>& messages)
    {
        Start();
        for (const std::string& message : messages)
            PutMail(Box, "alice", message);
        ASSERT_EQ(ImapLogin(), 0) << LastReply();
    }

    int32_t ImapLogin(const char* user = "alice", const char* password = "secret1")
    {
        return Ended(rynImapConnect(0, "127.0.0.1", user, password));
    }

    // The last answer, with T for the tag in front of its last line.
    static std::string Answer()
    {
        std::string text = LastReply();
        const size_t line = text.size() < 2 ? 0 : text.rfind('\n', text.size() - 2) + 1;
        const size_t blank = text.find(' ', line);
        if (text.compare(line, 3, "RYN") == 0 && blank != std::string::npos)
            text.replace(line, blank - line, "T");
        return text;
    }

    // A failure shows in manual driving only.
    std::string Uid(int32_t message, int32_t outcome = 0)
    {
        char buffer[129];
        const int32_t length = rynGetEmailUID(0, message, buffer, sizeof buffer - 1);
        EXPECT_EQ(Ended(IsManual ? length : outcome), outcome);
        return buffer;
    }

    // The numbers that a search finds, each with a blank in front.
    std::string Found(const char* criteria)
    {
        char buffer[256];
        EXPECT_EQ(Ended(rynImapSearch(0, criteria, buffer, sizeof buffer)), 0) << Answer();
        std::string walked = "SEARCH";
        int32_t count = 0;
        for (int32_t n = rynImapMsgNumber(0, RYN_SEARCH_FIRST); n > 0; count++) {
            walked += " " + std::to_string(n);
            n = rynImapMsgNumber(0, RYN_SEARCH_NEXT);
        }
        EXPECT_EQ(rynImapMsgNumber(0, RYN_SEARCH_COUNT), count);
        EXPECT_EQ(buffer, walked);
        return walked.substr(6);
    }

    std::string Mailboxes()
    {
        char buffer[2048 + 1];
        EXPECT_EQ(rynImapListMB(0, buffer, 2048), 0);
        std::string names;
        for (const char* line = buffer; *line == '*'; line = strchr(line, '\n') + 1) {
            const std::string text(line, strchr(line, '\r'));
            names += (names.empty() ? "" : " ") + text.substr(text.rfind(' ') + 1);
        }
        return names;
    }

    // A message that has been fetched, with all that a host gets to know of it.
    std::string Outcome(int32_t message)
    {
        EXPECT_EQ(Fetch(message), 0);
        std::string text = Saved();
        for (int32_t code = RYN_HEADER_DATE; code <= RYN_HEADER_CONTENT_TYPE; code++)
            text += "\n[" + HeaderText(code) + "]";
        for (const int32_t code : { RYN_DEBUG_ATTACH_LIST, RYN_DEBUG_TYPE_LIST, RYN_DEBUG_ID_LIST })
            text += "\n[" + DebugText(code) + "]";
        for (const auto& [name, bytes] : TakeAttachments())
            text += "\n[" + name + "=" + bytes + "]";
        return text + "\n" + std::to_string(rynStatistics(0, RYN_STAT_ATTACH_COUNT));
    }

    size_t Stored(const std::string& user = "alice")
    {
        return ListMailbox(Box, user).size();
    }
};

struct RealImapTls : RealTlsMailbox {
    int32_t ConnectSecure(uint32_t securePort, const char* password = "secret1")
    {
        return rynImapConnectSSL(0, TunnelPort, securePort, securePort == 0 ? nullptr : "localhost",
                                 "alice", password, "127.0.0.1");
    }
};

} // namespace

TEST_F(RealImap, LogsInAndSelectsTheInbox)
{
    const std::string p64(64, 'p'), odd = "a/+=%*]\\b";
    Box.Users += "erin:{PLAIN}" + p64 + "\nfrank:{PLAIN}" + odd + "\n";
    Start();
    PutMail(Box, "alice", Plain);
    const std::string log = OpenLog();
    const struct {
        std::string User, Password;
        int32_t Count; // below 0: refused
    } rows[] = { { "alice", "secret1", 1 },    { "alice", "secret2", -1 },
                 { "ghost", "secret1", -1 },   { "alice", "secret1", 1 },
                 { "erin", p64 + "p", 0 },     { "frank", odd, 0 },
                 { "alice", "two words", -1 }, { "alice", "", -1 } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.User + " " + row.Password);
        DriveManually(row.User == "frank" || &row == &rows[3]);
        const int32_t status = ImapLogin(row.User.c_str(), row.Password.c_str());
        EXPECT_EQ(status, row.Count < 0 ? RYN_ERR_IMAP_REPLY : 0);
        if (row.Count < 0) {
            EXPECT_EQ(rynIsConnected(0), RYN_ERR_NO_SUCH_VSOCK);
            EXPECT_EQ(Answer().substr(0, 4), row.Password.size() == 7 ? "T NO" : "T BA");
            continue;
        }
        EXPECT_EQ(rynGetEmailCount(0), row.Count);
        EXPECT_NE(Answer().find("\r\nT OK [READ-WRITE] Select completed"), std::string::npos);
        EXPECT_EQ(Close(), 0);
    }
    rynRelease();
    for (const char* secret : { "secret", "ppp", "%*]" })
        EXPECT_EQ(ReadWholeFile(log).find(secret), std::string::npos) << secret;
}

TEST_F(RealImap, AnswersQuestionsAboutMessages)
{
    Open(Samples());
    const auto count = static_cast<int32_t>(Samples().size());
    for (const bool isManual : { false, true }) {
        DriveManually(isManual);
        EXPECT_EQ(rynGetEmailCount(0), count);
        for (int32_t i = 1; i <= count; i++) {
            std::string sent = OnTheWire(Samples()[static_cast<size_t>(i) - 1]);
            if (!Samples()[static_cast<size_t>(i) - 1].ends_with('\n'))
                sent.resize(sent.size() - 2);
            EXPECT_EQ(Number(rynGetEmailSize(0, i), RYN_STAT_MESSAGE_SIZE),
                      static_cast<int32_t>(sent.size()));
            EXPECT_EQ(Uid(i), std::to_string(i) + "\r\n");
        }
        EXPECT_EQ(Number(rynGetEmailSize(0, 99), RYN_STAT_MESSAGE_SIZE), 0);
        EXPECT_EQ(Uid(99, RYN_ERR_IMAP_REPLY), "");
        EXPECT_EQ(Answer().substr(0, 5), "T BAD");
    }
}

TEST_F(RealImap, ReadsAndChangesFlags)
{
    Open({ Plain, Plain });
    constexpr int32_t read = RYN_FLAGS_READ, add = RYN_FLAGS_ADD, remove = RYN_FLAGS_REMOVE;
    const struct {
        int32_t Message, Operation, Flags, Result;
    } rows[] = {
        { 1, read, 63, 32 },   { 1, add, 8, 8 },    { 1, add, 63, 63 },  { 1, read, 5, 5 },
        { 1, remove, 9, 0 },   { 1, read, 63, 54 }, { 1, add, 32, 0 },   { 1, read, 63, 54 },
        { 1, remove, 63, 32 }, { 1, read, 63, 32 }, { 2, read, 63, 32 }, { 2, add, 16, 16 },
        { 9, read, 63, -78 },  { 9, add, 1, -78 },  { 1, read, 31, 0 },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        EXPECT_EQ(rynImapFlags(0, row.Message, row.Operation, row.Flags), row.Result);
    }
    EXPECT_EQ(Found("DRAFT"), " 2");
    DriveManually(true);
    EXPECT_EQ(Ended(rynImapFlags(0, 1, RYN_FLAGS_ADD, 4)), 0);
    EXPECT_EQ(Found("FLAGGED"), " 1");
    EXPECT_EQ(Ended(rynImapFlags(0, 9, RYN_FLAGS_ADD, 4)), RYN_ERR_IMAP_REPLY);
}

TEST_F(RealImap, SearchesAndWalks)
{
    Open({ Plain, "Subject: other\n\nx\n", Plain, Plain });
    for (const bool isManual : { false, true }) {
        DriveManually(isManual);
        EXPECT_EQ(Found("ALL"), " 1 2 3 4");
        EXPECT_EQ(Found("SUBJECT \"other\""), " 2");
        EXPECT_EQ(Found("NOT SUBJECT other BODY two"), " 1 3 4");
        EXPECT_EQ(Found("ANSWERED"), "");
        char buffer[12] = "##########";
        EXPECT_EQ(Ended(rynImapSearch(0, "NONSENSE", buffer, sizeof buffer)), RYN_ERR_IMAP_REPLY);
        EXPECT_STREQ(buffer, "");
        EXPECT_EQ(rynImapMsgNumber(0, RYN_SEARCH_FIRST), 0);
        EXPECT_EQ(Ended(rynImapSearch(0, "ALL", buffer, sizeof buffer)), 0);
        EXPECT_STREQ(buffer, "SEARCH 1 2 ");
    }
}

TEST_F(RealImap, KeepsHouse)
{
    Open({ Plain, "Subject: two\n\n2\n" });
    const int32_t validity = rynStatistics(0, RYN_STAT_UID_VALIDITY);
    EXPECT_GT(validity, 0);
    EXPECT_EQ(Mailboxes(), "INBOX");
    EXPECT_EQ(rynImapCreateMB(0, "one"), 0);
    EXPECT_EQ(rynImapCreateMB(0, "one"), 0);
    EXPECT_EQ(Answer().substr(0, 4), "T NO");
    EXPECT_EQ(rynImapRenameMB(0, "one", "two"), 0);
    EXPECT_EQ(Mailboxes(), "two INBOX");
    EXPECT_EQ(rynImapCopyMBmail(0, 2, "two"), 0);
    EXPECT_EQ(Answer().substr(0, 4), "T OK");
    EXPECT_EQ(rynImapCopyMBmail(0, 2, "nowhere"), 0);
    EXPECT_EQ(Answer().substr(0, 4), "T NO");
    for (const bool isManual : { false, true }) {
        DriveManually(isManual);
        EXPECT_EQ(Ended(rynImapSelectMB(0, "two")), 0);
        EXPECT_EQ(rynGetEmailCount(0), 1);
        EXPECT_NE(rynStatistics(0, RYN_STAT_UID_VALIDITY), validity);
        EXPECT_EQ(Fetch(1), 0);
        EXPECT_EQ(Saved(), "Subject: two\r\n\r\n2\r\n");
        EXPECT_EQ(Ended(rynImapSelectMB(0, "nowhere")), 0);
        EXPECT_EQ(rynGetEmailCount(0), 0);
        EXPECT_EQ(rynStatistics(0, RYN_STAT_UID_VALIDITY), -1);
        EXPECT_EQ(Ended(rynImapSelectMB(0, "INBOX")), 0);
        EXPECT_EQ(rynGetEmailCount(0), 2);
        EXPECT_EQ(rynStatistics(0, RYN_STAT_UID_VALIDITY), validity);
    }
    DriveManually(false);
    EXPECT_EQ(rynImapDeleteMB(0, "two"), 0);
    EXPECT_EQ(Mailboxes(), "INBOX");
    EXPECT_EQ(rynImapCreateMB(0, std::string(40, 'n').c_str()), 0);
    EXPECT_EQ(Mailboxes(), std::string(25, 'n') + " INBOX");
    EXPECT_EQ(rynStringParam(0, RYN_LIST_ARGUMENTS, "\"\" I*"), 5);
    EXPECT_EQ(Mailboxes(), "INBOX");
    rynStringParam(0, RYN_LIST_ARGUMENTS, "\"\" \"*\"");
}

TEST_F(RealImap, FetchesWhatPop3Fetches)
{
    Start();
    for (const std::string& message : Samples())
        PutMail(Box, "alice", message);
    rynIntegerParam(0, RYN_RAW_PREFIX, '_');
    for (const bool isManual : { false, true }) {
        DriveManually(isManual);
        std::vector<std::string> outcomes;
        const auto count = static_cast<int32_t>(Samples().size());
        ASSERT_EQ(Login(), 0);
        for (int32_t i = 1; i <= count; i++)
            outcomes.push_back(Outcome(i));
        ASSERT_EQ(Close(), 0);
        DriveManually(isManual);
        ASSERT_EQ(ImapLogin(), 0);
        for (int32_t i = 1; i <= count; i++) {
            SCOPED_TRACE(i);
            const std::string& stored = Samples()[static_cast<size_t>(i) - 1];
            // A message without a last line end is followed by a bracket on the same line.
            std::string sent = OnTheWire(stored), &outcome = outcomes[static_cast<size_t>(i) - 1];
            if (!stored.ends_with('\n')) {
                sent.insert(sent.size() - 2, ")");
                outcome = ReplaceAll(outcome, "line end\r", "line end)\r");
            }
            EXPECT_EQ(Outcome(i), outcome);
            EXPECT_EQ(Saved("_mail"), sent);
            std::string lines(30000, '#');
            const int32_t used =
                Number(rynGetEmailLines(0, i, 1, lines.data(), 30000), RYN_STAT_BUFFER_USED);
            lines.resize(static_cast<size_t>(used));
            EXPECT_EQ(lines.substr(0, 12), "* " + std::to_string(i) + " FETCH (R");
            EXPECT_EQ(lines.substr(lines.find('\n') + 1), sent);
        }
        EXPECT_EQ(Found("SEEN"), " 1 2 3 4 5 6 7 8 9");
        ASSERT_EQ(Close(), 0);
        DriveManually(isManual);
        for (size_t i = 0; i < Samples().size(); i++) { // the same as stored messages
            WriteWholeFile(Folder + "/stored",
                           ReplaceAll(OnTheWire(Samples()[i]), "line end\r", "line end)\r"));
            ASSERT_EQ(rynImapSource(0, (Folder + "/stored").c_str()), 1);
            EXPECT_EQ(Outcome(1), outcomes[i]);
            EXPECT_EQ(rynClose(0), 1);
        }
    }
}

TEST_F(RealImap, DeletesAtTheFarewellIfTheHostWantsIt)
{
    Open({ "a: 1\n\n", "a: 2\n\n", "a: 3\n\n", "a: 4\n\n" });
    size_t left = 4;
    for (const bool isManual : { false, true }) {
        for (const uint32_t expunges : { 0U, 1U }) {
            SCOPED_TRACE(expunges);
            DriveManually(isManual);
            rynIntegerParam(0, RYN_EXPUNGE_ON_CLOSE, expunges);
            EXPECT_EQ(Ended(rynDeleteEmail(0, 2)), 0);
            EXPECT_NE(Answer().find("T OK Store completed"), std::string::npos) << Answer();
            EXPECT_EQ(Ended(rynDeleteEmail(0, 9)), 0);
            EXPECT_EQ(Answer().substr(0, 5), "T BAD");
            EXPECT_EQ(Found("DELETED"), " 2");
            EXPECT_EQ(Close(), 0);
            left -= expunges;
            EXPECT_EQ(Stored(), left);
            DriveManually(false);
            ASSERT_EQ(ImapLogin(), 0);
            EXPECT_EQ(rynGetEmailCount(0), static_cast<int32_t>(left));
            EXPECT_EQ(Found("DELETED"), expunges == 0 ? " 2" : "");
        }
    }
    // What is dropped without a word stays.
    EXPECT_EQ(rynDeleteEmail(0, 1), 0);
    EXPECT_EQ(rynAbort(0), 1);
    EXPECT_EQ(Stored(), left);
}

TEST_F(RealImap, SeesNewMailAtTheNextSelection)
{
    Open({ Plain });
    PutMail(Box, "alice", "Subject: new\n\nnew\n");
    EXPECT_EQ(rynCommand(0, "NOOP"), 0);
    EXPECT_NE(Answer().find("* 2 EXISTS\r\n"), std::string::npos) << Answer();
    EXPECT_EQ(rynGetEmailCount(0), 1);
    EXPECT_EQ(Fetch(2), 0);
    EXPECT_EQ(Saved(), "Subject: new\r\n\r\nnew\r\n");
    PutMail(Box, "alice", Plain);
    EXPECT_EQ(rynImapSelectMB(0, "InBox"), 0);
    EXPECT_EQ(rynGetEmailCount(0), 3);
    EXPECT_EQ(Found("ALL"), " 1 2 3");
    // A refused fetch leaves the session as it was.
    rynIntegerParam(0, RYN_REPLY_TIMEOUT, 300);
    EXPECT_EQ(Fetch(9), RYN_ERR_TIMED_OUT);
    rynIntegerParam(0, RYN_REPLY_TIMEOUT, 60000);
    EXPECT_EQ(Found("ALL"), " 1 2 3");
}

TEST_F(RealImap, ReadsTwoMailboxesAtOnce)
{
    Start(2);
    const char* const users[] = { "alice", "bob" };
    const char* const secrets[] = { "secret1", "secret2" };
    std::string messages[2];
    for (int i = 0; i < 3000; i++) {
        messages[0] += "line " + std::to_string(i) + " of alice\n";
        messages[1] += "* " + std::to_string(i) + " FETCH of bob\n";
    }
    for (int i = 0; i < 2; i++)
        PutMail(Box, users[i], "Subject: " + std::to_string(i) + "\n\n" + messages[i]);
    const auto driveBoth = [] {
        int32_t results[2] = { 1, 1 };
        while (results[0] > 0 || results[1] > 0)
            for (const uint32_t channel : { 0u, 1u })
                if (results[channel] > 0)
                    results[channel] = rynDriver(channel);
        EXPECT_EQ(results[0], 0);
        EXPECT_EQ(results[1], 0);
    };
    for (const uint32_t channel : { 0u, 1u }) {
        rynIntegerParam(channel, RYN_AUTO_CALL_DRIVER, 0);
        ASSERT_EQ(rynImapConnect(channel, "127.0.0.1", users[channel], secrets[channel]), 0);
    }
    driveBoth();
    for (const uint32_t channel : { 0u, 1u })
        ASSERT_EQ(rynGetEmailFile(channel, 1, users[channel], Folder.c_str(), Folder.c_str()), 0);
    driveBoth();
    char found[2][32];
    for (const uint32_t channel : { 0u, 1u }) {
        EXPECT_EQ(Saved(users[channel]),
                  OnTheWire("Subject: " + std::to_string(channel) + "\n\n" + messages[channel]));
        const char* const criteria[] = { "ALL", "UNSEEN" };
        ASSERT_EQ(rynImapSearch(channel, criteria[channel], found[channel], 32), 0);
    }
    driveBoth();
    EXPECT_EQ(rynImapMsgNumber(0, RYN_SEARCH_COUNT), 1);
    EXPECT_EQ(rynImapMsgNumber(1, RYN_SEARCH_COUNT), 0);
    for (const uint32_t channel : { 0u, 1u })
        ASSERT_EQ(rynClose(channel), 0);
    driveBoth();
}

TEST_F(RealImapTls, FetchesThroughATunnel)
{
    PutMail(Box, "alice", "Subject: x\n\nhello\n");
    AttachTrusting("ca");
    ASSERT_EQ(ConnectSecure(Box.ImapTlsPort), 0) << TunnelLog("Imap");
    EXPECT_NE(ServerLog().find(" TLS,"), std::string::npos) << ServerLog();
    EXPECT_EQ(rynGetEmailCount(0), 1);
    EXPECT_EQ(Fetch(1), 0);
    EXPECT_EQ(Saved(), "Subject: x\r\n\r\nhello\r\n");
    const std::vector<int32_t> tunnels = Tunnels();
    EXPECT_EQ(tunnels.size(), 1U);
    EXPECT_EQ(rynAbort(0), 1);
    // A refused login leaves the socket open.
    EXPECT_EQ(ConnectSecure(0, "secret2"), RYN_ERR_IMAP_REPLY);
    EXPECT_GE(rynStatistics(0, RYN_STAT_VSOCK), 0);
    EXPECT_EQ(rynAbort(0), 1);
    ASSERT_EQ(ConnectSecure(0), 0);
    EXPECT_EQ(rynImapFlags(0, 1, RYN_FLAGS_READ, RYN_FLAG_SEEN), RYN_FLAG_SEEN);
    EXPECT_EQ(Tunnels(), tunnels);
    EXPECT_EQ(rynClose(0), 0);
    EXPECT_EQ(Tunnels().size(), 0U);
}
