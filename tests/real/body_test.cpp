// Message texts against a real server: what it stores is compared with what was handed over, byte
// by byte, for every way in which a text can be given and encoded.
#include "tests/real/real_send.h"

#include <cctype>
#include <cstring>

namespace {

// How a text of a MIME type is stored: the text in the only part of a multipart/mixed.
std::string MixedBody(const std::string& seed, const std::string& typeLines,
                      const std::string& text)
{
    return "--" + seed + "MIX===\n" + typeLines + "\n" + text + "\n--" + seed + "MIX===--\n\n";
}

std::string MixedHead(const std::string& seed)
{
    return "X-Mailer: Brindlecroft Rynmark Version 8.4.1 \nDate: *\nTo: <alice@example.test>\n"
           "From: Ann <ann@client.test>\nMessage-ID: *\nSubject: x\nMIME-Version: 1.0\n"
           "Content-Type: multipart/mixed; boundary=\"" +
           seed + "MIX===\"\n";
}

// The part of all boundaries that changes from one rynAttach to the next.
std::string FindSeed(const StoredMail& mail)
{
    std::smatch match;
    static const std::regex boundary("boundary=\"(===RYN[0-9]+===)MIX===\"\n");
    return std::regex_search(mail.Head, match, boundary) ? match[1].str() : "no boundary";
}

// Quoted-printable (RFC 2045, 6.7), written anew here so that no fault of the library's own codec
// cancels out.
std::string DecodeQuotedText(const std::string& text)
{
    std::string decoded;
    for (size_t i = 0; i < text.size(); i++) {
        if (text[i] != '=') {
            decoded += text[i];
        } else if (i + 1 < text.size() && text[i + 1] == '\n') {
            i++;
        } else {
            const std::string digits = text.substr(i + 1, 2);
            EXPECT_TRUE(digits.size() == 2 && isxdigit(digits[0]) && isxdigit(digits[1])) << digits;
            decoded += static_cast<char>(strtol(digits.c_str(), nullptr, 16));
            i += 2;
        }
    }
    return decoded;
}

TEST_F(RealSend, StoresPlainTextsUnchangedButForCharsBeyondAscii)
{
    const struct {
        uint32_t KeepRaw;
        std::string Text, Stored;
    } rows[] = {
        { 0, "", "" },
        { 0, "one\r\ntwo", "one\ntwo\n" },
        { 0, "one\r\ntwo\r\n", "one\ntwo\n" },
        { 0, "\r\n\r\nlate\r\n\r\n", "\n\nlate\n\n" },
        { 0, ".", ".\n" },
        { 0, ".\r\n..\r\n...\r\n.x\r\nx.\r\n.", ".\n..\n...\n.x\nx.\n.\n" },
        { 0, "bare\nfeed\rand\r\rreturn", "bare\nfeedandreturn\n" },
        { 0, "From the start\r\ntrailing \t\r\n", "From the start\ntrailing \t\n" },
        { 0, "caf\xE9 \x01\x7F\tend", "caf~ ~~\tend\n" },
        { 1, "caf\xE9 \x01\x7F\tend\r\n.\xC3\xA9", "caf\xE9 \x01\x7F\tend\n.\xC3\xA9\n" },
        { 0, std::string(998, 'a') + "\r\nb", std::string(998, 'a') + "\nb\n" },
        { 0, "." + std::string(996, 'a'), "." + std::string(996, 'a') + "\n" },
    };
    ASSERT_EQ(Connect(), 0);
    size_t n = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Text);
        rynIntegerParam(0, RYN_KEEP_RAW_CHARS, row.KeepRaw);
        ASSERT_EQ(Send(Alice, row.Text.c_str()), 0);
        const StoredMail mail = Stored("alice", ++n);
        EXPECT_EQ(mail.Head, "X-Mailer: Brindlecroft Rynmark Version 8.4.1 \nDate: *\n"
                             "To: <alice@example.test>\nFrom: Ann <ann@client.test>\n"
                             "Message-ID: *\nSubject: x\n");
        EXPECT_EQ(mail.Body, row.Stored);
    }
}

TEST_F(RealSend, StoresTextsOfMimeTypesQuoted)
{
    constexpr char Quoted[] = "Content-Transfer-Encoding: quoted-printable\n";
    const struct {
        uint32_t Type;
        std::string Text, TypeLines, Stored;
    } rows[] = {
        { 1, "", std::string("Content-Type: text/plain\n") + Quoted, "" },
        { 2, "<b>1=1</b>", std::string("Content-Type: text/html\n") + Quoted, "<b>1=3D1</b>\n" },
        { 4, "caf\xE9\r\n.\r\n.x\ttab ",
          std::string("Content-Type: text/plain; charset=iso-8859-1\n") + Quoted,
          "caf=E9\n.\n.x\ttab \n" },
        { 15, "caf\xC3\xA9", std::string("Content-Type: text/plain; charset=UTF-8\n") + Quoted,
          "caf=C3=A9\n" },
        { 16, "a=b", "Content-Type: text/plain\n", "a=3Db\n" },
    };
    ASSERT_EQ(Connect(), 0);
    size_t n = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Text);
        rynIntegerParam(0, RYN_MESSAGE_TYPE, row.Type);
        ASSERT_EQ(Send(Alice, row.Text.c_str()), 0);
        const StoredMail mail = Stored("alice", ++n);
        const std::string seed = FindSeed(mail);
        EXPECT_EQ(mail.Head, MixedHead(seed));
        EXPECT_EQ(mail.Body, MixedBody(seed, row.TypeLines, row.Stored));
    }
}

TEST_F(RealSend, StoresEveryByteOfAFoldedQuotedText)
{
    std::string text;
    for (int round = 0; round < 40; round++)
        for (int byte = 1; byte < 256; byte++)
            if (byte != '\r' && (byte != '\n' || round % 8 == 7))
                text += static_cast<char>(byte);
    text += "\n" + std::string(3000, '.') + "\n";
    rynIntegerParam(0, RYN_MESSAGE_TYPE, 4);
    rynIntegerParam(0, RYN_MAX_LINE_LENGTH, 76);
    ASSERT_EQ(Connect(), 0);
    ASSERT_EQ(Send(Alice, text.c_str()), 0);
    const StoredMail mail = Stored("alice", 1);
    const std::string seed = FindSeed(mail);
    const std::string before =
        MixedBody(seed,
                  "Content-Type: text/plain; charset=iso-8859-1\nContent-Transfer-Encoding: "
                  "quoted-printable\n",
                  "\x01");
    const size_t start = before.find('\x01');
    const std::string after = before.substr(start + 1);
    ASSERT_GT(mail.Body.size(), before.size());
    EXPECT_EQ(mail.Body.substr(0, start), before.substr(0, start));
    EXPECT_EQ(mail.Body.substr(mail.Body.size() - after.size()), after);
    const std::string stored = mail.Body.substr(start, mail.Body.size() - start - after.size());
    EXPECT_EQ(DecodeQuotedText(stored), text);
}

TEST_F(RealSend, ReportsTheRefusalOfOverlongLinesAndGoesOn)
{
    const struct {
        uint32_t Type;
        size_t Length;
        const char* Reply;
    } rows[] = {
        { 0, 999, "550 line of 999 characters\r\n" },
        { 0, 70000, "550 line of " },
        // The start value of RYN_MAX_LINE_LENGTH makes quoted lines longer than RFC 5321 allows.
        { 4, 2000, "550 line of 1000 characters\r\n" },
    };
    ASSERT_EQ(Connect(), 0);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Length);
        rynIntegerParam(0, RYN_MESSAGE_TYPE, row.Type);
        EXPECT_EQ(Send(Alice, std::string(row.Length, 'a').c_str()), RYN_ERR_SMTP_REPLY);
        EXPECT_EQ(LastReply().substr(0, strlen(row.Reply)), row.Reply);
        EXPECT_EQ(rynIsConnected(0), 1);
    }
    rynIntegerParam(0, RYN_MESSAGE_TYPE, 0);
    EXPECT_EQ(Send(Alice, "short"), 0);
    EXPECT_EQ(Stored("alice", 1).Body, "short\n");
    EXPECT_EQ(CountMail(Server, "alice"), 1U);
}

TEST_F(RealSend, StoresTextsFromFilesAndFromMemory)
{
    // Longer than several reads of the text window, with lines that end on all sides of its edges.
    std::string sent, stored;
    for (int i = 0; i < 1500; i++) {
        const std::string line = std::string(static_cast<size_t>(i % 90), '.') + std::to_string(i);
        sent += line + "\r\n";
        stored += line + "\n";
    }
    const std::string path = Server.Folder + "/text.txt";
    WriteWholeFile(path, sent);
    const std::string byFile = "@" + path;
    ASSERT_EQ(Connect(), 0);
    ASSERT_EQ(Send(Alice, byFile.c_str()), 0);
    EXPECT_EQ(Stored("alice", 1).Body, stored);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_MSG_BYTES_IN), static_cast<int32_t>(sent.size()));

    ASSERT_EQ(rynSetFileBuffer(0, 3, sent.data(), static_cast<uint32_t>(sent.size())),
              static_cast<int32_t>(sent.size()));
    ASSERT_EQ(Send(Alice, "@any name*3"), 0);
    EXPECT_EQ(Stored("alice", 2).Body, stored);

    // The memory was read once: the same name gives an empty text now.
    ASSERT_EQ(Send(Alice, "@any name*3"), 0);
    EXPECT_EQ(Stored("alice", 3).Body, "");
    ASSERT_EQ(Send(Alice, sent.c_str()), 0);
    EXPECT_EQ(Stored("alice", 4).Body, stored);
}

TEST_F(RealSend, StoresHtmlBesideItsPlainAlternative)
{
    const std::string path = Server.Folder + "/alternative.txt";
    WriteWholeFile(path, "from a file\r\n.\r\n..end\r\n");
    const std::string byFile = "@" + path;
    const struct {
        uint32_t Type;
        const char *Alternative, *StoredAlternative, *TypeLines, *StoredHtml;
    } rows[] = {
        { 0, ".plain\r\n.\r\ntext", ".plain\n.\ntext\n\n", "Content-Type: text/html\n",
          "<p>1=1 caf~</p>\n.\n" },
        { 0, nullptr, "", "Content-Type: text/html\n", "<p>1=1 caf~</p>\n.\n" },
        { 2, byFile.c_str(), "from a file\n.\n..end\n\n\n",
          "Content-Type: text/html; charset=iso-8859-1\n"
          "Content-Transfer-Encoding: quoted-printable\n",
          "<p>1=3D1 caf=E9</p>\n.\n" },
    };
    rynIntegerParam(0, RYN_HTML_CHARSET, 4);
    ASSERT_EQ(Connect(), 0);
    size_t n = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.StoredAlternative);
        rynIntegerParam(0, RYN_MESSAGE_TYPE, row.Type);
        ASSERT_EQ(rynSendHTML(0, Alice, nullptr, nullptr, "x", "<p>1=1 caf\xE9</p>\r\n.", nullptr,
                              row.Alternative, nullptr),
                  0);
        const StoredMail mail = Stored("alice", ++n);
        const std::string seed = FindSeed(mail);
        EXPECT_EQ(mail.Head, MixedHead(seed));
        EXPECT_EQ(mail.Body, "--" + seed + "MIX===\nContent-Type: multipart/related; boundary=\"" +
                                 seed + "REL===\"\n\n--" + seed +
                                 "REL===\nContent-Type: multipart/alternative; boundary=\"" + seed +
                                 "ALT===\"\n\n--" + seed + "ALT===\nContent-Type: text/plain\n\n" +
                                 row.StoredAlternative + "--" + seed + "ALT===\n" + row.TypeLines +
                                 "\n" + row.StoredHtml + "--" + seed + "ALT===--\n\n--" + seed +
                                 "REL===--\n\n\n--" + seed + "MIX===--\n\n");
    }
}

} // namespace
