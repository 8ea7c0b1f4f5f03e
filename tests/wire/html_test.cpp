// HTML messages: the nesting of their parts, the plain alternative from memory and from a file, and
// the lines that tell type and charset.
#include "tests/wire/dialogue.h"

struct HtmlTest : WireTest {};

static const std::string Outer[] = { "MIME-Version: 1.0",
                                     "Content-Type: multipart/mixed; boundary=\"{B}MIX===\"", "",
                                     "--{B}MIX===" };

static std::string AllOf(std::initializer_list<std::string> lines)
{
    return Lines("C:", lines);
}

// The script of an HTML message: its alternative and its HTML part as steps.
static std::string Html(bool related, const std::string& alternative, const std::string& part)
{
    std::string script = HeadLines();
    for (const std::string& line : Outer)
        script += "C: " + line + "\n";
    if (related)
        script +=
            AllOf({ "Content-Type: multipart/related; boundary=\"{B}REL===\"", "", "--{B}REL===" });
    script += AllOf({ "Content-Type: multipart/alternative; boundary=\"{B}ALT===\"", "",
                      "--{B}ALT===", "Content-Type: text/plain", "" });
    script += alternative + "C: --{B}ALT===\n" + part + AllOf({ "--{B}ALT===--", "" });
    if (related)
        script += AllOf({ "--{B}REL===--", "" });
    return Conversation(script + AllOf({ "", "--{B}MIX===--", "" }));
}

static const std::string Part = "C: Content-Type: text/html\nC:\nC: <p>one\nC: ..\n";

static Mail HtmlMail(const char* alternative)
{
    return { .Message = "<p>one\r\n.", .Alternative = alternative, .Html = true };
}

TEST_F(HtmlTest, NestsItsParts)
{
    PlayAllWays(Html(true, "C: plain\nC:\n", Part), HtmlMail("plain"));
    PlayAllWays(Html(true, "", Part), HtmlMail(nullptr));
    PlayAllWays(Html(false, "C: plain\nC:\n", Part), HtmlMail("plain"),
                [] { HostSet(0, RYN_NO_RELATED_PART, 1); });
    PlayAllWays(Html(true, "C: plain\nC:\n", Part + "C: <p>end\n"), HtmlMail("plain"),
                [] { HostSetText(0, RYN_EXTRA_LINE, "<p>end"); });
}

TEST_F(HtmlTest, TellsItsStatesToAManualHost)
{
    Begin(Conversation("C...\n"), "manual");
    EXPECT_EQ(Connect(true), 0);
    EXPECT_EQ(rynSendHTML(0, "<b@y.example>", nullptr, nullptr, "Hello", "<p>", nullptr, "plain",
                          nullptr),
              0);
    EXPECT_EQ(HostPathOf(HostDrive(0)),
              "205 206 207 208 209 210 221 223 224 225 226 220 227 228 "
              "229 230 231 233 234 500 501 504 236 239 240 241 251 252 0");
    EXPECT_EQ(Close(true), 0);
}

TEST_F(HtmlTest, StuffsTheAlternativeFromMemoryAndFromAFile)
{
    const std::string block(16384, 'z');
    const struct {
        std::string Source, Script;
        bool FromFile;
    } rows[] = {
        { ".", "C: ..\nC:\n", false },
        { ".x\r\n.\r\ny.\r\n..z", "C: ..x\nC: ..\nC: y.\nC: ...z\nC:\n", false },
        { "a\r\n", "C: a\nC:\nC:\n", false },
        { block + "cut", "C: " + block + "\nC:\n", false },
        { "", "C:\n", true },
        { "a\r\n.b\r\n.", "C: a\nC: ..b\nC: ..\nC:\n", true },
        { block + "rest", "C: " + block + "\nC: rest\nC:\n", true },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(PeerEscape(row.Source.substr(0, 30)));
        WriteWholeFile(Path("alt"), row.Source);
        const std::string text = row.FromFile ? "@" + Path("alt") : row.Source;
        PlayAllWays(Html(true, row.Script, Part), HtmlMail(text.c_str()));
    }
    Begin(OpenScript() + EnvelopeScript({ "<b@y.example>" }) +
          "C...\nC~ --.*ALT===\nC: Content-Type: text/plain\nC:\n");
    EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(Send(HtmlMail(("@" + Path("none")).c_str())), RYN_ERR_CANNOT_OPEN_FILE);
    EXPECT_EQ(rynAbort(0), 1);
}

TEST_F(HtmlTest, EachCharsetHasItsLine)
{
    const struct {
        uint32_t Type, Charset;
        const char* Line;
        bool HasEncoding, IsQuoted;
    } rows[] = {
        { 0, 4, "", false, false },
        { 1, 4, "", false, true },
        { 2, 0, "", true, true },
        { 2, 1, ";  charset=us-ascii", true, true },
        { 2, 4, "; charset=iso-8859-1", true, true },
        { 2, 5, "; charset=iso-8859-8", true, true },
        { 2, 6, "; charset=windows-1252", true, true },
        { 2, 7, "; charset=windows-1255", true, true },
        { 2, 8, "; charset=UTF-8", true, true },
        { 2, 9, "", true, true },
        { 2, 10, "; charset=iso-8859-2", true, true },
        { 2, 11, "; charset=iso-8859-7", true, true },
        { 2, 12, "; charset=windows-1250", true, true },
        { 2, 13, "; charset=iso-8859-3", true, true },
        { 2, 14, "; charset=iso-8859-4", true, true },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.Type) + " " + std::to_string(row.Charset));
        const std::string part =
            "C: Content-Type: text/html" + std::string(row.Line) + "\n" +
            (row.HasEncoding ? "C: Content-Transfer-Encoding: quoted-printable\n" : "") +
            "C:\nC: " + (row.IsQuoted ? "a=3D=E9" : "a=~") + "\n";
        PlayAllWays(Html(true, "", part), { .Message = "a=\xE9", .Html = true }, [&] {
            HostSet(0, RYN_MESSAGE_TYPE, row.Type);
            HostSet(0, RYN_HTML_CHARSET, row.Charset);
        });
    }
}
