// Message texts against a real server: what it stores is compared with what was handed over, byte
// by byte, plain and quoted.
#include "tests/real/real_send.h"

#include <cctype>

namespace {

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
        { 0, "one\r\ntwo\r\n", "one\ntwo\n" },
        { 0, "\r\n\r\nlate\r\n\r\n", "\n\nlate\n\n" },
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
    const std::string before = "--" + seed +
                               "MIX===\nContent-Type: text/plain; charset=iso-8859-1\n"
                               "Content-Transfer-Encoding: quoted-printable\n\n";
    const std::string after = "\n--" + seed + "MIX===--\n\n";
    const size_t start = before.size();
    ASSERT_GT(mail.Body.size(), start + after.size());
    EXPECT_EQ(mail.Body.substr(0, start), before);
    EXPECT_EQ(mail.Body.substr(mail.Body.size() - after.size()), after);
    const std::string stored = mail.Body.substr(start, mail.Body.size() - start - after.size());
    EXPECT_EQ(DecodeQuotedText(stored), text);
}

} // namespace
