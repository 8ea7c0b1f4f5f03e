// The generated message without HTML: its head under every setting, the text in all its encodings,
// from memory, from a file and from a memory file.
#include "tests/wire/dialogue.h"

#include <regex>

struct MessageTest : WireTest {};

static std::string Mime(const std::string& type, const std::string& text)
{
    return "--" + HostSeed() + "MIX===\r\n" + type + "\r\n" + text + "\r\n--" + HostSeed() +
           "MIX===--\r\n\r\n";
}

static const char Quoted[] = "Content-Transfer-Encoding: quoted-printable\r\n";

TEST_F(MessageTest, PlainMessageIsExactToTheByte)
{
    PlayAllWays(Conversation(HeadScript() + "C: one\nC: two\n"), {});
}

TEST_F(MessageTest, MimeMessageIsExactToTheByte)
{
    const std::string script = Conversation(
        HeadLines() +
        Lines("C:", { "MIME-Version: 1.0", "Content-Type: multipart/mixed; boundary=\"{B}MIX===\"",
                      "", "--{B}MIX===", "Content-Type: text/plain; charset=iso-8859-1",
                      "Content-Transfer-Encoding: quoted-printable", "", "caf=E9 =3D", "..", "",
                      "--{B}MIX===--", "" }));
    PlayAllWays(script, { .Message = "caf\xE9 =\n." }, [] { HostSet(0, RYN_MESSAGE_TYPE, 36); });
}

TEST_F(MessageTest, PlainTextIsSevenBitAndStuffed)
{
    const std::string longLine(5000, 'x');
    const struct {
        std::string Source, Wire;
    } rows[] = {
        { "", "" },
        { "a", "a\r\n" },
        { "\r\n", "\r\n" },
        { "a\nb\rc\r\r\nd", "a\r\nbc\r\nd\r\n" },
        { ".", "..\r\n" },
        { ".x\n..y\r\nz.\r\n.", "..x\r\n...y\r\nz.\r\n..\r\n" },
        { "\xC8\x01\t\x7F=~ ", "~~\t~=~ \r\n" },
        { longLine, longLine + "\r\n" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(PeerEscape(row.Source.substr(0, 40)));
        EXPECT_EQ(Body({ .Message = row.Source.c_str() }), row.Wire);
    }
    EXPECT_EQ(Body({ .Message = nullptr }), "");
}

TEST_F(MessageTest, QuotedTextFoldsByTheRulesForLongLinesAndDots)
{
    const std::string x74(74, 'x'), x75(75, 'x'), x73(73, 'x'), x999(999, 'x');
    const struct {
        std::string Source, Wire;
        uint32_t Length = 76; // 0 = the start value, as long as nothing was set
    } rows[] = {
        { x999 + x999 + "xx", x999 + "=\r\n" + x999 + "=\r\nxx\r\n", 0 },
        { x999 + ".x", x999 + ".=\r\nx\r\n", 0 },
        { "\xC8=\x01\x7F \t.", "=C8=3D=01=7F \t.\r\n" },
        { ".\n.x", "..\r\n..x\r\n" },
        { "a\nb\rc\r\n", "a\r\nbc\r\n" },
        { x75 + x75 + "xx", x75 + "=\r\n" + x75 + "=\r\nxx\r\n" },
        { x75, x75 + "=\r\n" },
        { x75 + "\r\ny", x75 + "=\r\n\r\ny\r\n" },
        { x75 + ".yy", x75 + ".=\r\nyy\r\n" },
        { x75 + "..y", x75 + ".=\r\n..y\r\n" },
        { x74 + "\xC8y", x74 + "=C8=\r\ny\r\n" },
        { x73 + "\xC8\r\n", x73 + "=C8=\r\n\r\n" },
        { x74 + ".", x74 + ".=\r\n" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(PeerEscape(row.Source));
        const std::string body = Body({ .Message = row.Source.c_str() }, [&] {
            HostSet(0, RYN_MESSAGE_TYPE, 4);
            if (row.Length != 0)
                HostSet(0, RYN_MAX_LINE_LENGTH, row.Length);
        });
        const std::string type = "Content-Type: text/plain; charset=iso-8859-1\r\n";
        EXPECT_EQ(body, Mime(type + Quoted, row.Wire));
    }
}

TEST_F(MessageTest, RawCharsGoOutAsTheyAre)
{
    const std::string wire = "\xC8\x01=\r\n..\xFF\r\n";
    const std::string type = "Content-Type: text/plain; charset=iso-8859-1\r\n";
    for (const uint32_t number : { 0u, 4u }) {
        const std::string body = Body({ .Message = "\xC8\x01=\n.\xFF" }, [=] {
            HostSet(0, RYN_MESSAGE_TYPE, number);
            HostSet(0, RYN_KEEP_RAW_CHARS, 1);
        });
        EXPECT_EQ(body, number == 0 ? wire : Mime(type + Quoted, wire));
    }
}

TEST_F(MessageTest, OverlongRawLineGoesOutInPiecesAndWhole)
{
    const std::string source(200000, 'x');
    const std::string body = Body({ .Message = source.c_str() });
    std::string joined;
    for (size_t at = 0, end; (end = body.find("\r\n", at)) != std::string::npos; at = end + 2) {
        EXPECT_LE(end - at, 65537u);
        joined += body.substr(at, end - at);
    }
    EXPECT_EQ(joined, source);
}

TEST_F(MessageTest, EachTypeHasItsContentTypeLine)
{
    const std::string plain = "Content-Type: text/plain";
    const std::string set = plain + "; charset=";
    const struct {
        uint32_t Type;
        std::string Line;
        bool HasEncoding;
    } rows[] = {
        { 1, plain, true },
        { 2, "Content-Type: text/html", true },
        { 3, "Content-Type: text/enriched", true },
        { 4, set + "iso-8859-1", true },
        { 5, set + "iso-8859-8", true },
        { 6, set + "windows-1252", true },
        { 7, set + "windows-1255", true },
        { 8, plain, false },
        { 9, "Content-Type: text/x-own; charset=x", true },
        { 10, set + "iso-8859-2", true },
        { 11, set + "iso-8859-7", true },
        { 12, plain, false },
        { 13, set + "iso-8859-3", true },
        { 14, set + "iso-8859-4", true },
        { 15, set + "UTF-8", true },
        { 16, plain, false },
        { 31, plain, false },
        { 33, plain, true },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Type);
        const std::string body = Body({ .Message = "\xE9=" }, [&] {
            HostSet(0, RYN_MESSAGE_TYPE, row.Type);
            HostSetText(0, RYN_CONTENT_TYPE_LINE, "Content-Type: text/x-own; charset=x");
        });
        EXPECT_EQ(body, Mime(row.Line + "\r\n" + (row.HasEncoding ? Quoted : ""), "=E9=3D\r\n"));
    }
    const std::string body = Body({ .Message = "a" }, [] {
        HostSet(0, RYN_MESSAGE_TYPE, 1);
        HostSetText(0, RYN_TRANSFER_ENCODING_LINE, "Content-Transfer-Encoding: 8bit");
    });
    EXPECT_EQ(body,
              Mime("Content-Type: text/plain\r\nContent-Transfer-Encoding: 8bit\r\n", "a\r\n"));
}

TEST_F(MessageTest, TextComesFromAFileOrAMemoryFile)
{
    std::string big;
    for (int i = 0; i < 700; ++i)
        big += std::to_string(i) + std::string(static_cast<size_t>(i) % 97, 'y') + "\r\n";
    const std::string zeros("ab\0cd\n\ref\n\0gh", 13);
    const struct {
        std::string Source, Wire;
        uint32_t Type;
    } rows[] = {
        { "", "", 0 },
        { "one\r\n.two", "one\r\n..two\r\n", 0 },
        { big, big, 0 },
        { zeros, "ab\r\ncd\r\nef\r\n", 1 },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(PeerEscape(row.Source.substr(0, 30)));
        WriteWholeFile(Path("text"), row.Source);
        for (const char* name : { "text", "memory*3", "memory*3x" }) {
            const std::string message = "@" + Path(name);
            const std::string body = Body({ .Message = message.c_str() }, [&] {
                HostSet(0, RYN_MESSAGE_TYPE, row.Type);
                const auto size = static_cast<uint32_t>(row.Source.size());
                rynSetFileBuffer(0, 3, row.Source.data(), size);
            });
            const std::string type = std::string("Content-Type: text/plain\r\n") + Quoted;
            EXPECT_EQ(body, row.Type == 0 ? row.Wire : Mime(type, row.Wire));
        }
    }
    const auto unreadable = [] { rynSetFileBuffer(0, 1, nullptr, 5); };
    EXPECT_EQ(Body({ .Message = "@x*1" }, unreadable), "");
    EXPECT_EQ(rynStatistics(0, RYN_STAT_NULL_SITE), 101);
}

TEST_F(MessageTest, NamesTheFileThatCannotBeOpened)
{
    const struct {
        uint32_t Marker;
        std::string Message, Shown;
    } rows[] = {
        { '@', "@" + Path("none"), Path("none") },
        { '#', "#" + Path("none") + "\r\nmore", Path("none") },
        { '@', "@x*8", "x*8" },
        { 0, "", "" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Message);
        Begin(OpenScript() + EnvelopeScript({ "<b@y.example>" }) + "C...\nC:\n");
        HostSet(0, RYN_INDIRECTION_CHAR, row.Marker);
        EXPECT_EQ(Connect(), 0);
        EXPECT_EQ(Send({ .Message = row.Message.c_str() }), RYN_ERR_CANNOT_OPEN_FILE);
        EXPECT_EQ(HostErrorText(0, RYN_ERR_CANNOT_OPEN_FILE).substr(0, 17 + row.Shown.size()),
                  "Cannot open file " + row.Shown);
        EXPECT_EQ(rynAbort(0), 1);
    }
}

static std::string WithoutId(const std::string& head)
{
    static const std::regex id("Message-ID: <[0-9a-f]{8}\\.[0-9a-f]{24}\\.0\\.0@x\\.example>");
    return std::regex_replace(head, id, "ID");
}

TEST_F(MessageTest, HeadFollowsTheSettings)
{
    const std::string x = "X-Mailer: Brindlecroft Rynmark Version 8.4.1 \r\n";
    const std::string agent = "X-Mail-Agent: Brindlecroft Rynmark Version 8.4.1 \r\n";
    const std::string date = "Date: Tue, 17 Nov 2026 22:52:06 +0100\r\n";
    const std::string to = "To: <b@y.example>\r\n", from = "From: Ann <a@x.example>\r\n";
    const std::string tail = "ID\r\nSubject: Hello\r\n";
    const struct {
        Mail Message;
        std::function<void()> Settings;
        std::string Head;
    } rows[] = {
        { {}, nullptr, x + date + to + from + tail },
        { { .Subject = nullptr }, nullptr, x + date + to + from + "ID\r\n" },
        { { .Subject = "a\tb\xE9\nc" }, nullptr, x + date + to + from + "ID\r\nSubject: a_b_\r\n" },
        { { .To = nullptr, .Cc = "B <b@y.example>;" },
          nullptr,
          x + date + from + tail + "CC: B <b@y.example>,\r\n" },
        { { .To = "C <b@y.example>;" },
          [] { HostSet(0, RYN_COMMAS_IN_ADDRESS_HEADERS, 0); },
          x + date + "To: C <b@y.example>;\r\n" + from + tail },
        { {}, [] { HostSet(0, RYN_NO_TO_HEADER, 1); }, x + date + from + tail },
        { {}, [] { HostSet(0, RYN_MAILER_HEADER, 2); }, agent + date + to + from + tail },
        { {}, [] { HostSet(0, RYN_BOTH_MAILER_HEADERS, 1); }, x + agent + date + to + from + tail },
        { {}, [] { HostSet(0, RYN_BOTH_MAILER_HEADERS, 256); }, date + to + from + tail },
        { {}, [] { HostSet(0, RYN_WRITE_HEADERS, 1); }, x + agent + date + to + from + tail },
        { {},
          [] { HostSetText(0, RYN_EXTRA_HEADERS, "X-A: 1\r\nX-B: \xE9\t2\r\n"); },
          x + date + to + from + tail + "X-A: 1\r\nX-B: __2\r\n" },
        { {},
          [] {
              HostSet(0, RYN_MULTIPART_KIND, 3);
              HostSet(0, RYN_MESSAGE_TYPE, 8);
          },
          x + date + to + from + tail +
              "MIME-Version: 1.0\r\nContent-Type: "
              "multipart/related; boundary=\"{B}MIX===\"\r\n" },
    };
    int number = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(number++);
        std::string head = WithoutId(Head(row.Message, row.Settings));
        if (const size_t at = head.find(HostSeed()); at != std::string::npos)
            head.replace(at, HostSeed().size(), "{B}");
        EXPECT_EQ(head, row.Head);
        HostSet(0, RYN_COMMAS_IN_ADDRESS_HEADERS, 1);
        HostSet(0, RYN_NO_TO_HEADER, 0);
    }
}

TEST_F(MessageTest, WithoutHeadersTheHostSuppliesThem)
{
    PlayAllWays(Conversation(IdLine() + Lines("C:", { "Subject: Hello", "one", "two" })), {},
                [] { HostSet(0, RYN_WRITE_HEADERS, 0); });
}

TEST_F(MessageTest, ReplyToAndExtraHeadersLastAsTold)
{
    const auto message = [](const std::string& reply, const std::string& extra) {
        return EnvelopeScript({ "<b@y.example>" }) + "C...\nC: From: Ann <a@x.example>\n" + reply +
               IdLine() + "C: Subject: Hello\n" + extra + Lines("C:", { "", "one", "two", "." }) +
               "S: 250 ok\n";
    };
    Begin(OpenScript() + message("C: Reply-To: R <r@r>\n", "C: X-A: 1\n") +
          message("C: Reply-To: any text\n", "C: X-A: 1\n") + ByeScript());
    PeerScript(HostPort, OpenScript() + message("", "") + ByeScript());
    HostSetText(0, RYN_EXTRA_HEADERS, "X-A: 1");
    EXPECT_EQ(rynSmtpConnect(0, "server.test", Sender, "R <r@r>"), 0);
    EXPECT_EQ(Send({}), 0);
    HostSetText(0, RYN_REPLY_TO, "any text");
    EXPECT_EQ(Send({}), 0);
    EXPECT_EQ(Close(), 0);
    EXPECT_EQ(Connect(), 0); // a new session has neither
    EXPECT_EQ(Send({}), 0);
    EXPECT_EQ(Close(), 0);
}

TEST_F(MessageTest, ListsStandInTheHeadWithCommasAndLongOnesLoseTheirTail)
{
    std::string to, script = "C: MAIL FROM:<a@x.example>\nS: 250 ok\n", line = "To: ";
    for (int i = 100; i < 300; ++i) {
        const std::string address = "<user" + std::to_string(i) + "@y.example>";
        to += (to.empty() ? "" : ";") + address;
        line += (line.size() == 4 ? "" : ",") + address;
        script += "C: RCPT TO:" + address + "\nS: 250 ok\n";
    }
    for (const char* rcpt : { "<d@y>", "<e@z>", "<f@z>" })
        script += std::string("C: RCPT TO:") + rcpt + "\nS: 250 ok\n";
    PlayAllWays(OpenScript() + script + "C: DATA\nS: 354 go\nC...\nC: " + line.substr(0, 1023) +
                    "\nC: From: Ann <a@x.example>\n" + IdLine() +
                    Lines("C:", { "Subject: Hello", "CC: <d@y>,E <e@z>", "", "one", "two", "." }) +
                    "S: 250 ok\n" + ByeScript(),
                { .To = to.c_str(), .Cc = "<d@y>;E <e@z>", .Bcc = "<f@z>" });
}

TEST_F(MessageTest, NothingOfABrokenSendReachesTheNext)
{
    WriteWholeFile(Path("text"), std::string(5000, 'x'));
    WriteWholeFile(Path("next"), "next");
    const std::string broken = "@" + Path("text"), inMemory(5000, 'x'), next = "@" + Path("next");
    for (const std::string& first : { broken, inMemory }) {
        for (const std::string& second : { next, std::string("next") }) {
            Begin(OpenScript() + EnvelopeScript({ "<b@y.example>" }) + "C...\nC~ x{999}=\n! reset");
            HostSet(0, RYN_MESSAGE_TYPE, 1);
            PeerScript(HostPort, Conversation("C...\nC:\nC: --" + HostSeed() +
                                              "MIX===\nC...\nC:\nC: next\nC:\nC: --" + HostSeed() +
                                              "MIX===--\nC:\n"));
            EXPECT_EQ(Connect(), 0);
            EXPECT_EQ(Send({ .Message = first.c_str() }), RYN_ERR_SOCK_WRITE);
            EXPECT_EQ(rynAbort(0), 1);
            EXPECT_EQ(Connect(), 0);
            EXPECT_EQ(Send({ .Message = second.c_str() }), 0);
            EXPECT_EQ(rynStatistics(0, RYN_STAT_MSG_BYTES_IN), 4);
            EXPECT_EQ(Close(), 0);
        }
    }
}
