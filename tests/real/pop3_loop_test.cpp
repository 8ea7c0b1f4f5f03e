// The whole loop: the library sends through Exim, which delivers to the mailboxes that Dovecot
// serves, and the library fetches and decodes what it sent. And POP3 through a tunnel.
#include "tests/real/dovecot_tls_fixture.h"
#include "tests/real/exim_server.h"

namespace {

// Bytes of every value in no simple order.
std::string Sample(size_t length)
{
    std::string bytes;
    for (size_t i = 0; i < length; i++)
        bytes += static_cast<char>((i * 167 + i / 256 + length * 31) & 255);
    return bytes;
}

// What the host gave and what has to come back.
struct Mail {
    std::string To, Cc, Subject;    // as the host reads them
    std::string Body;               // the message file behind its empty line; ATT: the folder
    std::vector<std::string> Names; // of attachments, in order
    std::string Types, Ids;
    std::map<std::string, std::string> Files = {};
    std::string Bytes = {}; // as stored by the SMTP server
};

struct RealLoop : RealMailbox {
    EximServer Exim;
    std::vector<Mail> Mails;
    bool KeepsUnderscores = false; // in quoted texts

    void SetUp() override
    {
        RealMailbox::SetUp();
        ASSERT_EQ(StartExim(Exim), "");
        ASSERT_EQ(StartDovecot(Box, Exim.Folder + "/mail"), "");
        Attach();
        rynIntegerParam(0, RYN_SMTP_PORT, Exim.Port);
        rynIntegerParam(0, RYN_MAX_LINE_LENGTH, 76);
        ASSERT_EQ(rynSmtpConnect(0, "127.0.0.1", "Ann <ann@client.test>", "<r@client.test>"), 0);
    }

    void TearDown() override
    {
        RealMailbox::TearDown();
        StopExim(Exim);
    }

    // An entry of a list of files.
    std::string File(Mail& mail, const std::string& shown, const std::string& bytes)
    {
        const std::string path = "file" + std::to_string(mail.Names.size());
        WriteWholeFile(Exim.Folder + "/" + path, bytes);
        mail.Names.push_back(shown);
        mail.Files[shown] = bytes;
        return Exim.Folder + "\\" + path + "|" + shown + ";";
    }

    // The message is on its way to alice.
    void Keep(Mail mail, int32_t status)
    {
        ASSERT_EQ(status, 0) << LastReply();
        ASSERT_TRUE(WaitForMail(Exim, "alice", Mails.size() + 1, mail.Bytes));
        Mails.push_back(mail);
    }

    void SendText()
    {
        const std::string wide = std::string(100, 'w') + "\xE9" + std::string(100, 'v');
        const std::string text = "gr\xFC\xDF = \xE9 \r\n\r\n.dot\r\n..\r\n" + wide + "\r\na_b=";
        Mail mail = { "Al <alice@example.test>,<carol@example.test>",
                      "<bob@example.test>",
                      "caf\xE9 cr\xE8me",
                      text + "\r\n\r\n\r\n[Attachment saved to \"ATT\\caf\xE9 \xFC.bin\"]\r\n"
                             "[Attachment saved to \"ATT\\a.pdf\"]\r\n",
                      {},
                      "application/octet-stream;application/pdf",
                      "nul;nul" };
        std::string files = File(mail, "caf\xE9 \xFC.bin", Sample(100000));
        files += File(mail, "a.pdf", Sample(1));
        char subject[256];
        ASSERT_GT(rynMakeSubject(mail.Subject.c_str(), 4, subject, sizeof subject), 0);
        rynIntegerParam(0, RYN_MESSAGE_TYPE, 4);
        rynIntegerParam(0, RYN_FILENAME_PAGE_CODE, 4);
        Keep(mail,
             rynSendEmail(0, "Al <alice@example.test>;<carol@example.test>", "<bob@example.test>",
                          nullptr, subject, text.c_str(), files.c_str()));
    }

    // pageCode: 15 or 30, UTF-8 in either form.
    void SendHtml(int32_t pageCode)
    {
        const std::string html = "<p>caf\xC3\xA9</p>\r\n<img src=\"cid:message-root.1\">";
        const std::string cafe = "caf\xC3\xA9 \xE2\x82\xAC.bin";
        Mail mail = { "<alice@example.test>",
                      "",
                      "\xE2\x82\xAC 5",
                      "plain\r\n.form\r\n\r\n\r\n" + html +
                          "\r\n\r\n\r\n[Attachment <message-root.1> saved to \"ATT\\a.gif\"]\r\n"
                          "\r\n\r\n[Attachment saved to \"ATT\\" +
                          cafe + "\"]\r\n",
                      {},
                      "Image/GIF;application/octet-stream",
                      "<message-root.1>;nul" };
        const std::string images = File(mail, "a.gif", Sample(300));
        const std::string files = File(mail, cafe, Sample(5000));
        char subject[256];
        ASSERT_GT(rynMakeSubject(mail.Subject.c_str(), pageCode, subject, sizeof subject), 0);
        rynIntegerParam(0, RYN_MESSAGE_TYPE, 2);
        rynIntegerParam(0, RYN_HTML_CHARSET, 8);
        rynIntegerParam(0, RYN_FILENAME_PAGE_CODE, static_cast<uint32_t>(pageCode));
        Keep(mail, rynSendHTML(0, "<alice@example.test>", nullptr, nullptr, subject, html.c_str(),
                               images.c_str(), "plain\r\n.form\r\n", files.c_str()));
    }

    void SendPlain()
    {
        const Mail mail = { "<alice@example.test>", "", "", "7-bit = text\r\n.\r\n.x", {}, "", "" };
        rynIntegerParam(0, RYN_MESSAGE_TYPE, 0);
        Keep(mail, rynSendEmail(0, "<alice@example.test>", nullptr, nullptr, nullptr,
                                mail.Body.c_str(), nullptr));
        Mails.back().Body += "\r\n";
    }

    static std::string StoredHeader(const Mail& mail, const std::string& name)
    {
        const std::string text = "\n" + mail.Bytes;
        const size_t at = text.find("\n" + name + ": ");
        if (at == std::string::npos)
            return "";
        const size_t value = at + name.size() + 3;
        return text.substr(value, text.find('\n', value) - value);
    }

    void ExpectHeaders(const Mail& mail)
    {
        EXPECT_EQ(HeaderText(RYN_HEADER_TO), mail.To);
        EXPECT_EQ(HeaderText(RYN_HEADER_CC), mail.Cc);
        EXPECT_EQ(HeaderText(RYN_HEADER_SUBJECT), mail.Subject);
        EXPECT_EQ(HeaderText(RYN_HEADER_FROM), "Ann <ann@client.test>");
        EXPECT_EQ(HeaderText(RYN_HEADER_REPLY_TO), "<r@client.test>");
        EXPECT_EQ(HeaderText(RYN_HEADER_DATE), StoredHeader(mail, "Date"));
        EXPECT_EQ(HeaderText(RYN_HEADER_CONTENT_TYPE), StoredHeader(mail, "Content-Type"));
    }

    void ExpectMail(const Mail& mail)
    {
        std::string names, body = ReplaceAll(mail.Body, "ATT", Folder + "/att");
        if (!KeepsUnderscores)
            body = ReplaceAll(body, "_", " ");
        for (const std::string& name : mail.Names)
            names += (names.empty() ? "" : ";") + name;
        EXPECT_EQ(DebugText(RYN_DEBUG_ATTACH_LIST), names);
        EXPECT_EQ(DebugText(RYN_DEBUG_TYPE_LIST), mail.Types);
        EXPECT_EQ(DebugText(RYN_DEBUG_ID_LIST), mail.Ids);
        EXPECT_EQ(rynStatistics(0, RYN_STAT_ATTACH_COUNT), static_cast<int32_t>(mail.Names.size()));
        EXPECT_EQ(TakeAttachments(), mail.Files);
        EXPECT_EQ(Saved(), "Date: " + StoredHeader(mail, "Date") + "\r\nTo: " + mail.To +
                               "\r\nFrom: Ann <ann@client.test>\r\n" +
                               (mail.Subject.empty() ? "" : "Subject: " + mail.Subject + "\r\n") +
                               (mail.Cc.empty() ? "" : "CC: " + mail.Cc + "\r\n") + "\r\n" + body);
        ExpectHeaders(mail);
    }
};

struct RealPop3Tls : RealTlsMailbox {
    int32_t ConnectSecure(uint32_t securePort, const char* password = "secret1")
    {
        return rynPop3ConnectSSL(0, TunnelPort, securePort, securePort == 0 ? nullptr : "localhost",
                                 "alice", password, "127.0.0.1");
    }

    void ExpectMail()
    {
        EXPECT_EQ(rynGetEmailCount(0), 1);
        EXPECT_EQ(Fetch(1), 0);
        EXPECT_EQ(Saved(), "Subject: x\r\n\r\nhello\r\n");
    }
};

} // namespace

TEST_F(RealLoop, GivesBackWhatWasSent)
{
    SendText();
    SendHtml(15);
    SendPlain();
    SendHtml(30);
    ASSERT_EQ(rynClose(0), 0);
    ASSERT_EQ(Mails.size(), 4U);
    for (const bool isManual : { false, true }) {
        DriveManually(isManual);
        rynIntegerParam(0, RYN_USE_APOP, isManual ? 1 : 0);
        rynIntegerParam(0, RYN_UNDERSCORE_TO_SPACE, isManual ? 0 : 1);
        KeepsUnderscores = isManual;
        ASSERT_EQ(Login(), 0);
        EXPECT_EQ(Count(), 4);
        for (int32_t i = 1; i <= 4; i++) {
            SCOPED_TRACE(i);
            const Mail& mail = Mails[static_cast<size_t>(i) - 1];
            EXPECT_EQ(Number(rynGetEmailSize(0, i), RYN_STAT_MESSAGE_SIZE),
                      static_cast<int32_t>(OnTheWire(mail.Bytes).size()));
            ASSERT_EQ(Fetch(i), 0);
            ExpectMail(mail);
        }
        ASSERT_EQ(Close(), 0);
    }
    ASSERT_EQ(Login("bob", "secret2"), 0);
    EXPECT_EQ(Count(), 1);
    ASSERT_EQ(Fetch(1), 0);
    ExpectMail(Mails[0]);
}

TEST_F(RealPop3Tls, FetchesFromAServerThatItTrusts)
{
    PutMail(Box, "alice", "Subject: x\n\nhello\n");
    AttachTrusting("ca");
    ASSERT_EQ(ConnectSecure(Box.Pop3TlsPort), 0) << TunnelLog("Pop3");
    ExpectMail();
    EXPECT_NE(ServerLog().find(" TLS,"), std::string::npos) << ServerLog();
    // A second session through the tunnel that runs, in the place of a first that broke off.
    const std::vector<int32_t> tunnels = Tunnels();
    EXPECT_EQ(tunnels.size(), 1U);
    EXPECT_EQ(rynAbort(0), 1);
    EXPECT_EQ(ConnectSecure(0, "secret2"), RYN_ERR_POP3_REPLY);
    EXPECT_EQ(LastReply(), "-ERR [AUTH] Authentication failed.\r\n");
    ASSERT_EQ(ConnectSecure(0), 0);
    ExpectMail();
    EXPECT_EQ(Tunnels(), tunnels);
    EXPECT_EQ(rynClose(0), 0);
    EXPECT_EQ(Tunnels().size(), 0U);
    EXPECT_FALSE(PortIsOpen(TunnelPort));
}

TEST_F(RealPop3Tls, LogsInNowhereElse)
{
    ASSERT_EQ(MakeAuthority(Folder, "stranger"), "");
    AttachTrusting("stranger");
    rynIntegerParam(0, RYN_REPLY_TIMEOUT, 2000);
    EXPECT_LT(ConnectSecure(Box.Pop3TlsPort), 0);
    EXPECT_NE(TunnelLog("Pop3").find("Rejected by CERT"), std::string::npos) << TunnelLog("Pop3");
    EXPECT_EQ(ServerLog().find("Login:"), std::string::npos) << ServerLog();
    rynRelease();
    AttachTrusting("ca");
    EXPECT_EQ(ConnectSecure(Box.Pop3TlsPort, "secret2"), RYN_ERR_POP3_REPLY);
    EXPECT_EQ(LastReply(), "-ERR [AUTH] Authentication failed.\r\n");
    EXPECT_EQ(rynIsConnected(0), RYN_ERR_NO_SUCH_VSOCK);
    ASSERT_EQ(ConnectSecure(Box.Pop3TlsPort), 0) << TunnelLog("Pop3");
    EXPECT_EQ(rynGetEmailCount(0), 0);
}
