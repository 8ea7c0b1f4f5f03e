// Bad arguments of the sending operations (null, empty, overlong), and a channel that is not ready.
#include "tests/wire/dialogue.h"

struct ArgumentsTest : WireTest {};

static const std::string Mib(1 << 20, 'm');

TEST_F(ArgumentsTest, AnIdleChannelRefusesWhatNeedsAConnection)
{
    HostAttach();
    EXPECT_EQ(rynDriver(0), 0);
    EXPECT_EQ(Send({}), RYN_ERR_SMTP_ONLY);
    EXPECT_EQ(Send({ .Html = true }), RYN_ERR_SMTP_ONLY);
    EXPECT_EQ(rynVerifyUser(0, "a"), RYN_ERR_SMTP_ONLY);
    EXPECT_EQ(Connect(), RYN_ERR_CONNECT_FAILED);
    EXPECT_EQ(Send({}), RYN_ERR_NOT_CONNECTED); // SMTP it is now, but without a connection
}

TEST_F(ArgumentsTest, SendTellsWhichListIsWrong)
{
    Begin(OpenScript() + ByeScript());
    EXPECT_EQ(Connect(), 0);
    const struct {
        const char *To, *Cc, *Bcc;
        int32_t Status;
    } rows[] = {
        { nullptr, nullptr, nullptr, RYN_ERR_NO_RECIPIENT },
        { "", "", "", RYN_ERR_NO_RECIPIENT },
        { "<a@b", nullptr, nullptr, RYN_ERR_MISSING_RIGHT_ANGLE },
        { "<a@b>", "x", nullptr, RYN_ERR_MISSING_LEFT_ANGLE },
        { "<a@b>", "<a@b>", "<x", RYN_ERR_MISSING_RIGHT_ANGLE },
        { Mib.c_str(), nullptr, nullptr, RYN_ERR_MISSING_LEFT_ANGLE },
    };
    for (const auto& row : rows) {
        for (const bool html : { false, true }) {
            SCOPED_TRACE(row.To == nullptr ? "null" : std::string(row.To).substr(0, 20));
            EXPECT_EQ(Send({ .To = row.To, .Cc = row.Cc, .Bcc = row.Bcc, .Html = html }),
                      row.Status);
            EXPECT_EQ(rynDriver(0), 0);
        }
    }
    EXPECT_EQ(rynVerifyUser(0, ""), RYN_ERR_NO_RECIPIENT);
    EXPECT_EQ(Close(), 0);
}

TEST_F(ArgumentsTest, OverlongTextsPassWithoutHarm)
{
    HostAttach();
    SinkListen(HostPort);
    const std::string from = "<" + Mib + "@x>", subject = Mib;
    EXPECT_EQ(rynSmtpConnect(0, "server.test", from.c_str(), from.c_str()), 0);
    const std::string to = Mib + "<b@y.example>";
    for (const bool html : { false, true }) {
        EXPECT_EQ(Send({ .To = to.c_str(),
                         .Cc = to.c_str(),
                         .Bcc = to.c_str(),
                         .Subject = subject.c_str(),
                         .Message = Mib.c_str(),
                         .Alternative = Mib.c_str(),
                         .Html = html }),
                  0);
    }
    ASSERT_EQ(SinkMessages().size(), 2u);
    for (const SinkMessage& m : SinkMessages()) {
        EXPECT_EQ(m.From, "MAIL FROM:<" + std::string(255, 'm'));
        EXPECT_EQ(m.To, std::vector<std::string>(3, "RCPT TO:<b@y.example>"));
        EXPECT_NE(m.Data.find("\r\nSubject: " + std::string(1014, 'm') + "\r\n"),
                  std::string::npos);
        EXPECT_NE(m.Data.find("\r\nReply-To: <" + std::string(255, 'm') + "\r\n"),
                  std::string::npos);
    }
    EXPECT_EQ(Close(), 0);
}
