// Messages with files: sending, expected bytes, the fixture.
#include "tests/wire/parcel.h"

static const char* OrNull(const std::string& text)
{
    return text.empty() ? nullptr : text.c_str();
}

int32_t SendParcel(const Parcel& p, bool manual)
{
    const char *to = "<b@y.example>", *text = p.Message.c_str(), *files = OrNull(p.Files);
    int32_t result = 0;
    if (p.Kind == PARCEL_HTML)
        result =
            rynSendHTML(0, to, nullptr, nullptr, "Hello", text, OrNull(p.Images), "plain", files);
    else if (p.Kind == PARCEL_FORWARD)
        result = rynForwardEmail(0, to, nullptr, nullptr, "Hello", text, files);
    else
        result = rynSendEmail(0, to, nullptr, nullptr, "Hello", text, files);
    return HostFinish(0, result, manual);
}

std::string WholeScript()
{
    return OpenScript() + EnvelopeScript({ "<b@y.example>" }) + "C...\nC: .\nS: 250 ok\n" +
           ByeScript();
}

std::string DataSent(size_t script)
{
    const std::string& all = PeerReceived(script);
    const size_t begin = all.find("Subject: Hello\r\n");
    const size_t end = all.rfind(".\r\nQUIT");
    if (begin == std::string::npos || end == std::string::npos)
        return "<no message>";
    std::string text = all.substr(begin, end - begin);
    const std::string seed = HostSeed();
    for (size_t at; (at = text.find(seed)) != std::string::npos;)
        text.replace(at, seed.size(), "{B}");
    return text;
}

std::string Part(const char* level, std::initializer_list<std::string> lines,
                 const std::string& content)
{
    std::string text = std::string("\r\n\r\n--{B}") + level + "===\r\n";
    for (const std::string& line : lines)
        text += line + "\r\n";
    return text + "\r\n" + content;
}

std::string FilePart(const std::string& name, const std::string& content)
{
    return Part("MIX",
                { "Content-Type: application/octet-stream; name=\"" + name + "\"", InBase64,
                  "Content-Disposition: attachment; filename=\"" + name + "\"" },
                content);
}

std::string ImagePart(const char* level, const char* type, const std::string& name, int number,
                      const std::string& content, const char* encoding)
{
    std::string line = "Content-Type: Image/" + std::string(type) + "; name=\"" + name + "\"";
    if (number > 0)
        line += "\r\nContent-ID: <message-root." + std::to_string(number) + ">";
    return Part(level, { line, encoding, "Content-Disposition: inline; filename=\"" + name + "\"" },
                content);
}

std::string Mixed(const std::string& parts)
{
    return MixedHead + (PlainText + parts) + MixedEnd;
}

std::string Base64(const std::string& bytes)
{
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (size_t at = 0; at < bytes.size(); at += 3) {
        unsigned bits = 0;
        for (size_t i = 0; i < 3; ++i)
            bits =
                bits << 8 | (at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0);
        for (size_t i = 0; i < 4; ++i)
            text += at + i > bytes.size() ? '=' : alphabet[bits >> (18 - 6 * i) & 63];
        if (at % 57 == 54 || at + 3 >= bytes.size())
            text += "\r\n";
    }
    return text;
}

std::string Sample(size_t length)
{
    std::string bytes;
    for (size_t i = 0; i < length; ++i)
        bytes += static_cast<char>((i * 167 + i / 256 + length * 31) & 255);
    return bytes;
}

void GiveOneSet(const char* type, const char* encoding, const char* disposition, const char* extra)
{
    EXPECT_EQ(rynAttachmentParams(nullptr, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(rynAttachmentParams(type, encoding, disposition, extra), 1);
}

void AttachTest::TearDown()
{
    rynAttachmentParams(nullptr, nullptr, nullptr, nullptr);
    WireTest::TearDown();
}

std::string AttachTest::File(const std::string& name, const std::string& bytes)
{
    WriteWholeFile(Path(name), bytes);
    return Entry(name);
}

std::string AttachTest::Entry(const std::string& name) const
{
    return Folder + "\\" + name;
}

std::string AttachTest::Sent(const Parcel& parcel, const Settings& settings, const char* way)
{
    Renew();
    HostAttach();
    PeerScript(HostPort, WholeScript(), { *way == 'b' });
    if (settings)
        settings();
    const bool manual = *way == 'm';
    if (manual)
        HostSet(0, RYN_AUTO_CALL_DRIVER, 0);
    EXPECT_EQ(Connect(manual), 0);
    EXPECT_EQ(SendParcel(parcel, manual), 0);
    EXPECT_EQ(Close(manual), 0);
    return DataSent(0);
}

void AttachTest::Expect(const std::string& expected, const Parcel& parcel, const Settings& settings)
{
    for (const char* way : { "whole", "byte by byte", "manual" }) {
        SCOPED_TRACE(way);
        EXPECT_EQ(Sent(parcel, settings, way), expected);
    }
}

int32_t AttachTest::Refused(const Parcel& parcel, const Settings& settings)
{
    Renew();
    HostAttach();
    PeerMode mode;
    mode.MayEndEarly = true;
    PeerScript(HostPort, WholeScript(), mode);
    if (settings)
        settings();
    EXPECT_EQ(Connect(), 0);
    const int32_t result = SendParcel(parcel);
    EXPECT_EQ(rynDriver(0), 0); // the send is over
    ErrorText = result < 0 ? HostErrorText(0, result) : "";
    EXPECT_EQ(rynAbort(0), 1);
    HostSet(0, RYN_FILENAME_PAGE_CODE, 0);
    PeerScript(HostPort, WholeScript());
    EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(SendParcel({}), 0);
    EXPECT_EQ(Close(), 0);
    EXPECT_EQ(DataSent(1), "Subject: Hello\r\n\r\none\r\n");
    return result;
}
