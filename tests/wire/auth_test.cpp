// The login behind EHLO: which method is chosen, the dialogue of each with its pauses, refusals and
// broken servers, credentials of every length, and what the log may show of them.
#include "codec/md5.h"
#include "tests/wire/dialogue.h"

namespace {

constexpr uint32_t CramMd5 = 1;
constexpr uint32_t Login = 2;
constexpr uint32_t Plain = 4;
constexpr uint32_t XOAuth2 = 8;
constexpr size_t MostUser = 64; // chars, as the two capacities of ryn32.h
constexpr size_t MostPassword = 2048;

// RFC 2195, 2: the example of CRAM-MD5 there.
constexpr char Tim[] = "tim";
constexpr char TimSecret[] = "tanstaaftanstaaf";
constexpr char TimChallenge[] = "334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+";
constexpr char TimAnswer[] = "dGltIGI5MTNhNjAyYzdlZGE3YTQ5NWI0ZTZlNzMzNGQzODkw";
constexpr char TimBase64[] = "dGlt";
constexpr char TimSecretBase64[] = "dGFuc3RhYWZ0YW5zdGFhZg==";
constexpr char TimPlainBase64[] = "dGltAHRpbQB0YW5zdGFhZnRhbnN0YWFm";

constexpr char ShortChallenge[] = "<17.42@mail.test>";
constexpr char ShortChallengeReply[] = "S: 334 PDE3LjQyQG1haWwudGVzdD4=\n";

// One line of Base64, worked out bit by bit.
std::string Base64(const std::string& bytes)
{
    static const char alphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (size_t bit = 0; bit < bytes.size() * 8; bit += 6) {
        size_t value = 0;
        for (size_t i = bit; i < bit + 6; ++i) {
            const size_t byte = i / 8 < bytes.size() ? static_cast<unsigned char>(bytes[i / 8]) : 0;
            value = value * 2 + (byte >> (7 - i % 8) & 1);
        }
        text += alphabet[value];
    }
    return text + std::string((4 - text.size() % 4) % 4, '=');
}

// Lines of so many bytes each, all ended by CR LF.
std::string Base64Lines(const std::string& bytes, size_t width)
{
    std::string lines;
    for (size_t at = 0; at < bytes.size(); at += width)
        lines += Base64(bytes.substr(at, width)) + "\r\n";
    return lines;
}

std::string HmacHex(const std::string& text, const std::string& key)
{
    uint8_t digest[Md5DigestBytes];
    char digits[2 * Md5DigestBytes + 1];
    HmacMd5(text.data(), text.size(), key.data(), key.size(), digest);
    DigestToHex(digest, digits);
    return digits;
}

std::string PlainBlock(const std::string& user, const std::string& password)
{
    return user + std::string(1, '\0') + user + std::string(1, '\0') + password;
}

std::string OfferScript(const std::string& offer = "S: 250 AUTH CRAM-MD5 LOGIN PLAIN XOAUTH2\n")
{
    return "S: 220 hi\nC: EHLO x.example\n" + offer;
}

// The bytes of a credential as a step of a script.
std::string Bytes(const std::string& bytes)
{
    return "C- " + PeerEscape(bytes) + "\n";
}

void SetAccount(uint32_t methods, const std::string& user, const std::string& password)
{
    HostSet(0, RYN_USE_EHLO, 1);
    HostSet(0, RYN_AUTH_METHODS, methods);
    if (!user.empty())
        HostSetText(0, RYN_AUTH_USER, user);
    if (!password.empty())
        HostSetText(0, RYN_AUTH_PASSWORD, password);
}

struct Dialogue {
    const char* Name;
    uint32_t Methods;
    std::vector<std::string> Prompts;  // the server's replies, each behind a command
    std::vector<std::string> Commands; // what tim sends
    const char* Path;                  // of manual driving, from the reply to EHLO on
    const char* Log;                   // behind the reply to EHLO
};

const std::vector<Dialogue>& Dialogues()
{
    static const std::vector<Dialogue> all = {
        { "CRAM-MD5",
          CramMd5,
          { TimChallenge, "235 ok" },
          { "AUTH CRAM-MD5", TimAnswer },
          "203 150 151 152 153 0",
          "Using CRAM-MD5\r\n<150:#>\r\nS: AUTH CRAM-MD5\r\nrecv(0)=62\r\n"
          "R: 334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+\r\n"
          "Challenge '<1896.697170952@postoffice.reston.mci.net>'\r\n<152:#>\r\n"
          "S: ************************************************\r\n<153:#>\r\nrecv(0)=8\r\n"
          "R: 235 ok\r\nAUTH CRAM-MD5 ok\r\n" },
        { "LOGIN",
          Login,
          { "334 VXNlcm5hbWU6", "334 UGFzc3dvcmQ6", "235 ok" },
          { "AUTH LOGIN", TimBase64, TimSecretBase64 },
          "203 160 162 163 164 0",
          "Using LOGIN\r\n<160:#>\r\nS: AUTH LOGIN\r\n<162:#>\r\nrecv(0)=18\r\n"
          "R: 334 VXNlcm5hbWU6\r\nS: dGlt\r\n<163:#>\r\nrecv(0)=18\r\n"
          "R: 334 UGFzc3dvcmQ6\r\nS: ************************\r\n<164:#>\r\nrecv(0)=8\r\n"
          "R: 235 ok\r\nAUTH LOGIN ok\r\n" },
        { "PLAIN",
          Plain,
          { "235 ok" },
          { std::string("AUTH PLAIN ") + TimPlainBase64 },
          "203 170 171 0",
          "Using PLAIN\r\n<170:#>\r\nS: *******************************************\r\n"
          "<171:#>\r\nrecv(0)=8\r\nR: 235 ok\r\nAUTH PLAIN ok\r\n" },
        { "XOAUTH2",
          XOAuth2,
          { "235 ok" },
          { std::string("AUTH XOAUTH2 ") + TimSecretBase64 },
          "203 172 173 0",
          "Using XOAUTH2\r\n<172:#>\r\n(39 chars in XOAUTH2 string)\n"
          "S: *************************************\r\n<173:#>\r\nrecv(0)=8\r\nR: 235 ok\r\n"
          "AUTH XOAUTH2 returns 0\r\n" },
    };
    return all;
}

// The commands of a dialogue with the prompts behind them, up to the given one, which is replaced.
std::string DialogueScript(const Dialogue& dialogue, size_t upTo, const std::string& lastReply,
                           const std::string& before = "")
{
    std::string script;
    for (size_t i = 0; i < upTo; ++i)
        script += "C: " + dialogue.Commands[i] + "\n" + before + "S: " + dialogue.Prompts[i] + "\n";
    return script + "C: " + dialogue.Commands[upTo] + "\n" + before + lastReply;
}

std::string WholeDialogue(const Dialogue& dialogue, const std::string& before = "")
{
    const size_t last = dialogue.Commands.size() - 1;
    return DialogueScript(dialogue, last, "S: " + dialogue.Prompts[last] + "\n", before);
}

// What each method sends for these credentials, in the order of the bits of the methods.
std::vector<std::string> StepsOf(const std::string& user, const std::string& password)
{
    const std::string cram = Base64(user + " " + HmacHex(ShortChallenge, password));
    return { "C: AUTH CRAM-MD5\n" + std::string(ShortChallengeReply) + "C: " + cram + "\n",
             "C: AUTH LOGIN\nS: 334 a\nC: " + Base64(user) + "\nS: 334 b\n" +
                 Bytes(Base64Lines(password, 114)),
             Bytes("AUTH PLAIN " + Base64Lines(PlainBlock(user, password), 114)),
             Bytes("AUTH XOAUTH2 " + Base64Lines(password, 48)) };
}

struct AuthTest : WireTest {
    // Attaches with a log, connects by this account to a server that plays the script; closes if that
    // worked.
    int32_t LogIn(const std::string& script, uint32_t methods, const std::string& user,
                  const std::string& password)
    {
        Renew();
        HostAttach();
        HostSetText(0, RYN_LOG_FILE, Path("log"));
        SetAccount(methods, user, password);
        PeerScript(HostPort, script);
        const int32_t result = Connect();
        if (result == 0) {
            EXPECT_EQ(Close(), 0);
        }
        return result;
    }

    std::string Log()
    {
        rynRelease();
        return HostLog(Path("log"));
    }
};

} // namespace

// --- the choice ---

TEST_F(AuthTest, ChoosesTheFirstOfItsOwnOrderThatBothSidesAllow)
{
    const struct {
        const char* Offer; // lines of the reply to EHLO
        uint32_t Methods;
        const char *Command, *LogLine; // null: no login
    } rows[] = {
        { "S: 250-AUTH PLAIN LOGIN CRAM-MD5\nS: 250 HELP\n", 7, "AUTH CRAM-MD5", "CRAM-MD5" },
        { "S: 250-AUTH PLAIN LOGIN CRAM-MD5\nS: 250 HELP\n", 6, "AUTH LOGIN", "LOGIN" },
        { "S: 250-AUTH PLAIN LOGIN CRAM-MD5\nS: 250 HELP\n", 12, "AUTH PLAIN dQB1AHA=", "PLAIN" },
        { "S: 250-AUTH PLAIN LOGIN CRAM-MD5\nS: 250 HELP\n", 0x100 + 4,
          "AUTH PLAIN dQB1AHA=", "PLAIN" },
        { "S: 250 AUTH XOAUTH2\n", 7, nullptr, nullptr },
        { "S: 250 AUTH XOAUTH2 PLAIN\n", 15, "AUTH PLAIN dQB1AHA=", "PLAIN" },
        // The old form has no bit of its own and stands in front of PLAIN.
        { "S: 250 AUTH=LOGIN\n", 0, "AUTH LOGIN", "=LOGIN" },
        { "S: 250 AUTH=LOGIN CRAM-MD5\n", 7, "AUTH CRAM-MD5", "CRAM-MD5" },
        { "S: 250-AUTH PLAIN\nS: 250 AUTH=LOGIN\n", 4, "AUTH LOGIN", "=LOGIN" },
        { "S: 250 AUTH=PLAIN\n", 4, nullptr, nullptr },
        { "S: 250 auth=login\n", 4, "AUTH LOGIN", "=LOGIN" },
        { "S: 250 AUTH X-PLAIN X-LOGIN\n", 7, nullptr, nullptr },
        { "S: 250-mail.author.example\nS: 250 HELP\n", 15, nullptr, nullptr },
        { "S: 250-X LOGIN\nS: 250 AUTH GSSAPI\n", 7, nullptr, nullptr }, // in front of the word
        { "S: 250-AUTH GSSAPI\nS: 250 X LOGIN\n", 7, "AUTH LOGIN", "LOGIN" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.Offer) + std::to_string(row.Methods));
        const std::string script = row.Command == nullptr
                                       ? ByeScript()
                                       : std::string("C: ") + row.Command + "\nS: 535 no\n";
        EXPECT_EQ(LogIn(OfferScript(row.Offer) + script, row.Methods, "u", "p"),
                  row.Command == nullptr ? 0 : RYN_ERR_SMTP_REPLY);
        const std::string line = row.LogLine == nullptr
                                     ? "\r\nNo protocols!\r\n"
                                     : "\r\nUsing " + std::string(row.LogLine) + "\r\n";
        EXPECT_NE(Log().find(line), std::string::npos) << line;
    }
}

TEST_F(AuthTest, DoesNotLogInBehindHelo)
{
    HostAttach();
    SetAccount(15, "u", "p");
    HostSet(0, RYN_USE_EHLO, 0);
    PeerScript(HostPort,
               "S: 220 hi\nC: HELO x.example\nS: 250 AUTH PLAIN LOGIN CRAM-MD5\n" + ByeScript());
    EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(Close(), 0);
}

TEST_F(AuthTest, KeepsTheHeadOfWhatTheServerOffersAndLogsInAllTheSame)
{
    const std::string many = Repeat("GSSAPI ", 500);
    EXPECT_EQ(LogIn(OfferScript("S: 250-AUTH " + many + "\nS: 250 AUTH PLAIN\n") +
                        "C: AUTH PLAIN dQB1AHA=\nS: 235 ok\n" + ByeScript(),
                    Plain, "u", "p"),
              0);
    const std::string kept = HostDebug(0, RYN_DEBUG_AUTH_LINES);
    EXPECT_GE(kept.size(), 2046U);
    EXPECT_LE(kept.size(), 2048U);
    EXPECT_EQ(kept, many.substr(0, kept.size()));
}

// --- the dialogues ---

TEST_F(AuthTest, PlaysEachDialogueInEveryWayAndMasksItsSecrets)
{
    for (const Dialogue& dialogue : Dialogues()) {
        for (const char* way : { "whole", "byte by byte", "manual" }) {
            SCOPED_TRACE(std::string(dialogue.Name) + " " + way);
            const bool manual = *way == 'm';
            Renew();
            HostAttach();
            HostSetText(0, RYN_LOG_FILE, Path("log"));
            SetAccount(dialogue.Methods, Tim, TimSecret);
            PeerScript(HostPort,
                       OfferScript() + WholeDialogue(dialogue, *way == 'w' ? "" : "! wait 40\n") +
                           ByeScript(),
                       { *way == 'b' });
            HostSet(0, RYN_AUTO_CALL_DRIVER, manual ? 0 : 1);
            EXPECT_EQ(rynSmtpConnect(0, "server.test", Sender, nullptr), 0);
            if (manual) {
                EXPECT_EQ(HostPathOf(HostDrive(0)).substr(28), dialogue.Path);
            }
            EXPECT_EQ(rynStatistics(0, RYN_STAT_REPLY_CODE), 235);
            EXPECT_EQ(HostDebug(0, RYN_DEBUG_LAST_REPLY), "235 ok\r\n");
            EXPECT_EQ(Close(manual), 0);
            const std::string log = Log();
            if (*way == 'w') {
                EXPECT_NE(log.find("R: 250 AUTH CRAM-MD5 LOGIN PLAIN XOAUTH2\r\n" +
                                   std::string(dialogue.Log)),
                          std::string::npos)
                    << log;
            }
        }
    }
}

TEST_F(AuthTest, PausesBetweenItsSteps)
{
    // ms at a gap of 40; XOAUTH2 looks for its verdict only behind RYN_POLL_DELAY.
    const uint32_t pauses[] = { 80 + 240, 280 + 40 + 240, 80, 80 + 100 };
    constexpr uint32_t Slack = 75; // ms that yields and the peer's own waits take
    for (size_t i = 0; i < Dialogues().size(); ++i) {
        const Dialogue& dialogue = Dialogues()[i];
        SCOPED_TRACE(dialogue.Name);
        Renew();
        HostAttach();
        HostSet(0, RYN_COMMAND_GAP, 40);
        HostSetText(0, RYN_LOG_FILE, Path("log"));
        SetAccount(dialogue.Methods, Tim, TimSecret);
        PeerScript(HostPort, OfferScript() + WholeDialogue(dialogue, "! wait 5\n") + ByeScript());
        EXPECT_EQ(Connect(), 0);
        const uint32_t end = VirtualClockStart + static_cast<uint32_t>(VirtualClockSpent());
        EXPECT_EQ(Close(), 0);
        rynRelease();
        const std::string log = ReadWholeFile(Path("log"));
        const std::string mark = "<" + std::string(dialogue.Path).substr(4, 3) + ":"; // first state
        ASSERT_NE(log.find(mark), std::string::npos);
        const auto begin = static_cast<uint32_t>(std::stoul(log.substr(log.find(mark) + 5)));
        EXPECT_GE(end - begin, pauses[i]);
        EXPECT_LE(end - begin, pauses[i] + Slack);
    }
}

TEST_F(AuthTest, EndsAtARefusalOfAnyStep)
{
    for (const Dialogue& dialogue : Dialogues()) {
        for (size_t step = 0; step < dialogue.Commands.size(); ++step) {
            for (const char* reply : { "535 5.7.8 no", "400 later", "535-no\nS: 535 never" }) {
                SCOPED_TRACE(std::string(dialogue.Name) + " " + reply);
                const std::string refusal = std::string("S: ") + reply + "\n";
                EXPECT_EQ(LogIn(OfferScript() + DialogueScript(dialogue, step, refusal),
                                dialogue.Methods, Tim, TimSecret),
                          RYN_ERR_SMTP_REPLY);
                EXPECT_EQ(rynStatistics(0, RYN_STAT_REPLY_CODE), atoi(reply));
                EXPECT_EQ(VirtualOpenSockets(), 0); // a refused login leaves no session
                EXPECT_EQ(rynDriver(0), 0);
            }
        }
    }
}

// Only numbers of 400 and above refuse; what a reply says is not looked at.
TEST_F(AuthTest, TakesEveryOtherReplyAsConsent)
{
    const struct {
        uint32_t Methods;
        const char* Script;
    } rows[] = {
        { Login, "C: AUTH LOGIN\nS: 334 \nC: dQ==\nS: 250-a\nS: 250 b\nC: cA==\nS: 399 ok\n" },
        { XOAuth2, "C: AUTH XOAUTH2 cA==\nS: 334 eyJzdGF0dXMiOiI0MDAifQ==\n" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Script);
        EXPECT_EQ(LogIn(OfferScript() + row.Script + ByeScript(), row.Methods, "u", "p"), 0);
    }
}

TEST_F(AuthTest, SurvivesACutAtEveryByteOfTheServer)
{
    for (const Dialogue& dialogue : Dialogues()) {
        for (const PeerCut cut : { PEER_CUT_CLOSE, PEER_CUT_RESET, PEER_CUT_SILENCE }) {
            bool wasCut = true;
            for (int64_t at = 0; wasCut; ++at) {
                SCOPED_TRACE(std::string(dialogue.Name) + " cut " + std::to_string(cut) + " at " +
                             std::to_string(at));
                Renew();
                HostAttach();
                HostSet(0, RYN_REPLY_TIMEOUT, 2000);
                HostSetText(0, RYN_LOG_FILE, Path("log"));
                SetAccount(dialogue.Methods, Tim, TimSecret);
                PeerScript(HostPort, OfferScript() + WholeDialogue(dialogue), { false, at, cut });
                const int32_t result = Connect();
                wasCut = PeerWasCut(0);
                EXPECT_EQ(result < 0 ? VirtualOpenSockets() : rynAbort(0), result < 0 ? 0 : 1);
                const std::string log = Log();
                for (const char* secret : { TimSecret, TimSecretBase64, TimAnswer, TimPlainBase64 })
                    EXPECT_EQ(log.find(secret), std::string::npos) << secret;
            }
        }
    }
}

// A closed connection is no failure at a read, and a masked send is tried once.
TEST_F(AuthTest, TellsHowAServerLeftTheDialogue)
{
    const struct {
        const char* Script;
        int32_t Status;
    } rows[] = {
        { "C: AUTH LOGIN\n! close\n", RYN_ERR_SOCK_WRITE },
        { "C: AUTH LOGIN\nS: 334 a\nC: dQ==\n! reset\n", RYN_ERR_SOCK_WRITE },
        { "C: AUTH LOGIN\nS: 334 a\nC: dQ==\n! silence\n", RYN_ERR_TIMED_OUT },
        { "C: AUTH LOGIN\nS- 334\n! silence\n", RYN_ERR_TIMED_OUT },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Script);
        EXPECT_EQ(LogIn(OfferScript() + row.Script, Login, "u", "p"), row.Status);
        EXPECT_EQ(VirtualOpenSockets(), 0);
    }
    // No verdict at all passes as one: the number of the reply tells.
    Renew();
    HostAttach();
    SetAccount(Plain, "u", "p");
    PeerScript(HostPort, OfferScript() + "C: AUTH PLAIN dQB1AHA=\n! close\n");
    EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_REPLY_CODE), 0);
    EXPECT_EQ(rynIsConnected(0), 0);
    EXPECT_EQ(rynAbort(0), 1);
}

TEST_F(AuthTest, TriesALineAgainAndASecretOnce)
{
    const Dialogue& login = Dialogues()[1];
    for (int nth = 1; nth <= 4; ++nth) { // EHLO, AUTH LOGIN, the user, the password
        SCOPED_TRACE(nth);
        Renew();
        HostAttach();
        SetAccount(Login, Tim, TimSecret);
        PeerScript(HostPort, OfferScript() + WholeDialogue(login), { false, -1, {}, nth == 4 });
        FaultArm(FAULT_SEND, nth);
        EXPECT_EQ(Connect(), nth == 4 ? RYN_ERR_SOCK_WRITE : 0);
        EXPECT_TRUE(FaultDisarm());
        EXPECT_EQ(rynStatistics(0, RYN_STAT_SOCK_CODE) < 0, nth == 4);
        EXPECT_EQ(rynAbort(0), 1);
    }
}

// --- challenges ---

TEST_F(AuthTest, AnswersEveryChallenge)
{
    const struct {
        const char *Reply, *Text; // the text that the answer is made of
    } rows[] = {
        { "S: 334 PDE3LjQyQG1haWwudGVzdD4=\n", ShortChallenge },
        { "S: 334 YWJjDWRlZg0K\n", "abc" },      // up to its first CR
        { "S: 334 YWJjY\n", "abc" },             // no whole group at the end
        { "S: 334 \n", "" },                     // none at all
        { "S: 334 !!!!\n", "" },                 // chars outside the alphabet count as 0
        { "S: 334 a\n", "" },                    //
        { "S: 250 YWI=\n", "ab" },               // the number is not 334
        { "S- 334 YW\\x00I=\\r\\n\n", nullptr }, // a zero byte arrives as a blank
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Reply);
        const std::string answer =
            row.Text == nullptr ? "C~ [A-Za-z0-9+/=]{48}\n"
                                : "C: " + Base64("tim " + HmacHex(row.Text, TimSecret)) + "\n";
        EXPECT_EQ(LogIn(OfferScript() + "C: AUTH CRAM-MD5\n" + row.Reply + answer + "S: 235 ok\n" +
                            ByeScript(),
                        CramMd5, Tim, TimSecret),
                  0);
    }
}

// A challenge is kept as far as there is room: the answer is made of that part.
TEST_F(AuthTest, CutsALongChallenge)
{
    for (const size_t length : { 500U, 507U, 508U, 512U, 513U, 4500U, 6000U }) {
        SCOPED_TRACE(length);
        const std::string challenge = Repeat("<0123456789abcdef>", 400).substr(0, length);
        EXPECT_EQ(LogIn(OfferScript() + "C: AUTH CRAM-MD5\nS: 334 " + Base64(challenge) +
                            "\nC~ [A-Za-z0-9+/=]{48}\nS: 235 ok\n" + ByeScript(),
                        CramMd5, Tim, TimSecret),
                  0);
        const std::string received = PeerReceived(0), log = Log();
        const size_t begin = log.find("Challenge '") + 11;
        const std::string kept = log.substr(begin, log.find("'\r\n", begin) - begin);
        EXPECT_GE(kept.size(), std::min<size_t>(length, 500U));
        EXPECT_LE(kept.size(), 512U);
        EXPECT_EQ(kept, challenge.substr(0, kept.size()));
        EXPECT_NE(received.find("\r\n" + Base64("tim " + HmacHex(kept, TimSecret)) + "\r\n"),
                  std::string::npos);
    }
}

// --- lengths ---

TEST_F(AuthTest, SendsCredentialsOfEveryLength)
{
    std::string user, password;
    for (size_t length = 1; length <= MostPassword; ++length) {
        if (length <= MostUser)
            user += static_cast<char>(length + 160);
        password += static_cast<char>(length % 255 + 1);
        SCOPED_TRACE(length);
        const std::vector<std::string> steps = StepsOf(user, password);
        const size_t method = length % 4; // each in its turn, all at the ends of lines and ranges
        const bool isSpecial = length < 130 || length > MostPassword - 4 || length % 114 < 2;
        for (size_t i = 0; i < 4; ++i) {
            if (i != method && !isSpecial)
                continue;
            EXPECT_EQ(LogIn(OfferScript() + steps[i] + "S: 235 ok\n" + ByeScript(), 1U << i, user,
                            password),
                      0)
                << "method " << i;
        }
    }
}

TEST_F(AuthTest, TellsOfEmptyCredentials)
{
    const struct {
        uint32_t Methods;
        const char *User, *Password, *Script;
        int32_t Status;
    } rows[] = {
        // LOGIN has nothing to send: the send fails all its tries.
        { Login, "", "p", "C: AUTH LOGIN\nS: 334 a\n", RYN_ERR_SOCK_WRITE },
        { Login, "u", "", "C: AUTH LOGIN\nS: 334 a\nC: dQ==\nS: 334 b\n", RYN_ERR_SOCK_WRITE },
        { Plain, "", "p", "C: AUTH PLAIN AABw\nS: 535 no\n", RYN_ERR_SMTP_REPLY },
        { Plain, "u", "", "C: AUTH PLAIN dQB1AA==\nS: 535 no\n", RYN_ERR_SMTP_REPLY },
        // Without a token there is no line end either: the server waits for one.
        { XOAuth2, "u", "", "C- AUTH XOAUTH2 \n! silence\n", RYN_ERR_TIMED_OUT },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.Script) + row.User);
        EXPECT_EQ(LogIn(OfferScript() + row.Script, row.Methods, row.User, row.Password),
                  row.Status);
    }
}

// --- the log ---

// A secret and every piece of it that somebody could use; as it is, in Base64 at each place in a group.
static std::vector<std::string> PiecesOf(const std::string& secret)
{
    std::vector<std::string> pieces;
    for (size_t at = 0; at + 6 <= secret.size(); ++at) {
        const std::string piece = secret.substr(at, 6);
        pieces.push_back(piece);
        pieces.push_back(Base64(piece));
    }
    return pieces;
}

TEST_F(AuthTest, KeepsSecretsOutOfTheLog)
{
    // As long as one line of Base64 holds with the user's name, and short ones.
    for (const size_t length : { 1U, 7U, 40U, 106U }) {
        for (const Dialogue& dialogue : Dialogues()) {
            SCOPED_TRACE(dialogue.Name + std::to_string(length));
            const size_t most =
                dialogue.Methods == XOAuth2 ? std::min<size_t>(length, 48U) : length;
            std::string secret = "\x01";
            for (size_t i = 1; i < most; ++i)
                secret += static_cast<char>('!' + i * 37 % 90);
            const size_t index = static_cast<size_t>(&dialogue - Dialogues().data());
            EXPECT_EQ(
                LogIn(OfferScript() + StepsOf(Tim, secret)[index] + "S: 235 ok\n" + ByeScript(),
                      dialogue.Methods, Tim, secret),
                0);
            const std::string cram = Base64("tim " + HmacHex(ShortChallenge, secret));
            const std::string log = Log();
            EXPECT_NE(log.find("*** rynStringParam(0,57,*)\r\n"), std::string::npos);
            std::vector<std::string> pieces = PiecesOf(secret);
            for (const std::string& whole :
                 { secret, cram, Base64(secret), Base64(PlainBlock(Tim, secret)) })
                for (const std::string& piece : PiecesOf(whole))
                    pieces.push_back(piece);
            for (const std::string& piece : pieces)
                EXPECT_EQ(log.find(piece), std::string::npos) << piece;
            EXPECT_EQ(log.find('\x01'), std::string::npos);
        }
    }
}

TEST_F(AuthTest, ShowsSecretsWhenAsked)
{
    HostAttach();
    HostSet(0, RYN_SHOW_SECRETS, 1);
    EXPECT_EQ(
        LogIn(OfferScript() + WholeDialogue(Dialogues()[2]) + ByeScript(), Plain, Tim, TimSecret),
        0);
    HostSet(0, RYN_SHOW_SECRETS, 0);
    EXPECT_NE(Log().find("S: AUTH PLAIN " + std::string(TimPlainBase64) + "\r\n"),
              std::string::npos);
}
