// Messages with files against a real server: a mail reader of another make takes apart what was
// stored, and every part has to be the one that was handed over, to the last byte.
#include "tests/real/real_send.h"

#include <cstdio>
#include <vector>

namespace {

// One part as the judge tells it.
struct FoundPart {
    std::string Type;
    std::string Name = "-";
    std::string Disposition = "-";
    std::string Encoding = "-";
    std::string Bytes = {};
    std::string Id = "-";
    std::string FileName = "-";
    std::string Extra = "-";
    bool IsMulti = false;
};

std::string Hex(const std::string& bytes)
{
    static constexpr char Digits[] = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        text += Digits[c >> 4 & 15];
        text += Digits[c & 15];
    }
    return text;
}

std::string Told(const FoundPart& p)
{
    return p.Type + " name=" + p.Name + " id=" + p.Id + " disposition=" + p.Disposition +
           " filename=" + p.FileName + " encoding=" + p.Encoding + " extra=" + p.Extra +
           (p.IsMulti ? "" : " bytes=" + Hex(p.Bytes)) + "\n";
}

FoundPart Multi(const std::string& type)
{
    FoundPart part = { .Type = type };
    part.IsMulti = true;
    return part;
}

// A file in Base64 within a mixed message, its name shown in both lines.
FoundPart FilePart(const std::string& name, const std::string& bytes,
                   const std::string& type = ">application/octet-stream")
{
    FoundPart part = { type, name, "attachment", "base64", bytes };
    part.FileName = name;
    return part;
}

FoundPart ImagePart(const std::string& type, const std::string& name, const std::string& bytes,
                    const std::string& id)
{
    FoundPart part = FilePart(name, bytes, type);
    part.Disposition = "inline";
    part.Id = id;
    return part;
}

// The text in front of files: two empty lines part it from the next boundary.
const FoundPart PlainText = { .Type = ">text/plain", .Bytes = "one\n\n" };

std::string ToldAll(std::initializer_list<FoundPart> parts)
{
    std::string text = Told(Multi("multipart/mixed"));
    for (const FoundPart& part : parts)
        text += Told(part);
    return text;
}

// Bytes of every value in no simple order.
std::string Sample(size_t length)
{
    std::string bytes;
    for (size_t i = 0; i < length; i++)
        bytes += static_cast<char>((i * 167 + i / 256 + length * 31) & 255);
    return bytes;
}

struct RealAttach : RealSend {
    size_t Received = 0;

    void SetUp() override
    {
        RealSend::SetUp();
        ASSERT_EQ(Connect(), 0);
    }

    // An entry of a list: a file of the case's own, told with the library's separator of folders.
    std::string File(const std::string& name, const std::string& bytes)
    {
        WriteWholeFile(Server.Folder + "/" + name, bytes);
        return Server.Folder + "\\" + name;
    }

    int32_t SendFiles(const std::string& files)
    {
        return rynSendEmail(0, Alice, nullptr, nullptr, "x", "one", files.c_str());
    }

    // What the judge finds in alice's next message.
    std::string Judged()
    {
        std::string bytes;
        if (!WaitForMail(Server, "alice", ++Received, bytes))
            return "no message";
        const std::string path = Server.Folder + "/judged.eml";
        WriteWholeFile(path, bytes);
        FILE* judge = popen(("python3 '" RYN_MAIL_JUDGE "' '" + path + "'").c_str(), "r");
        if (judge == nullptr)
            return "no judge";
        std::string text;
        char block[4096];
        for (size_t count; (count = fread(block, 1, sizeof block, judge)) > 0;)
            text.append(block, count);
        EXPECT_EQ(pclose(judge), 0);
        return text;
    }
};

TEST_F(RealAttach, StoresFilesOfEachSize)
{
    std::string files, expected = Told(Multi("multipart/mixed")) + Told(PlainText);
    for (const size_t size : { 0u, 1u, 2u, 3u, 56u, 57u, 58u, 113u, 114u, 115u, 5000u, 100000u }) {
        const std::string name = "file" + std::to_string(size);
        files += File(name, Sample(size)) + ";";
        expected += Told(FilePart(name, Sample(size)));
    }
    ASSERT_EQ(SendFiles(files), 0);
    EXPECT_EQ(Judged(), expected);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_ATTACH_BYTES_IN), 105519);
}

TEST_F(RealAttach, StoresFilesByTheirExtension)
{
    const std::string bytes = Sample(70);
    ASSERT_EQ(SendFiles(File("a.pdf", bytes) + ";" + File("b.wav", bytes) + ";" +
                        File("c.gif", bytes) + ";" + File("d.jpeg", bytes)),
              0);
    EXPECT_EQ(Judged(),
              ToldAll({ PlainText, FilePart("a.pdf", bytes, ">application/pdf"),
                        FilePart("b.wav", bytes, ">audio/x-wav"),
                        ImagePart(">image/gif", "c.gif", bytes, "-"), FilePart("d.jpeg", bytes) }));
}

TEST_F(RealAttach, StoresImagesBesideTheFormsOfTheHtml)
{
    const std::string gif = Sample(60), png = Sample(3000), bytes = Sample(57);
    const std::string images = File("a.gif", gif) + ";" + File("b.png", png);
    const std::string files = File("c.bin", bytes) + ";" + File("d.jpg", gif);
    const auto send = [&](const char* inlined, const char* attached) {
        return rynSendHTML(0, Alice, nullptr, nullptr, "x", "<p>.</p>", inlined, "plain", attached);
    };
    const std::string alternative = Told(Multi(">>multipart/alternative")) +
                                    Told({ .Type = ">>>text/plain", .Bytes = "plain\n" }) +
                                    Told({ .Type = ">>>text/html", .Bytes = "<p>.</p>" });
    const std::string head = Told(Multi("multipart/mixed")) + Told(Multi(">multipart/related"));
    const std::string inner = Told(ImagePart(">>image/gif", "a.gif", gif, "<message-root.1>")) +
                              Told(ImagePart(">>image/png", "b.png", png, "<message-root.2>"));
    const std::string outer = Told(FilePart("c.bin", bytes));
    ASSERT_EQ(send(images.c_str(), files.c_str()), 0);
    EXPECT_EQ(Judged(), head + alternative + inner + outer +
                            Told(ImagePart(">image/jpeg", "d.jpg", gif, "<message-root.3>")));
    ASSERT_EQ(send(images.c_str(), nullptr), 0);
    EXPECT_EQ(Judged(), head + alternative + inner);
    ASSERT_EQ(send(nullptr, files.c_str()), 0);
    EXPECT_EQ(Judged(), head + alternative + outer +
                            Told(ImagePart(">image/jpeg", "d.jpg", gif, "<message-root.1>")));

    rynIntegerParam(0, RYN_NO_RELATED_PART, 1);
    ASSERT_EQ(send(images.c_str(), files.c_str()), 0);
    EXPECT_EQ(Judged(), Told(Multi("multipart/mixed")) + Told(Multi(">multipart/alternative")) +
                            Told({ .Type = ">>text/plain", .Bytes = "plain\n" }) +
                            Told({ .Type = ">>text/html", .Bytes = "<p>.</p>" }) +
                            Told(ImagePart(">image/gif", "a.gif", gif, "<message-root.1>")) +
                            Told(ImagePart(">image/png", "b.png", png, "<message-root.2>")) +
                            outer +
                            Told(ImagePart(">image/jpeg", "d.jpg", gif, "<message-root.3>")));
}

TEST_F(RealAttach, StoresAForwardedMessageWithinTheMessage)
{
    const std::string stored = "From: <x@y.test>\r\nContent-Type: text/x-own; name=n\r\n\r\n"
                               ".\r\n..dots\r\nFrom here\r\na=3D \xE9\x01\r\n";
    const std::string file = File("m.eml", stored);
    ASSERT_EQ(rynForwardEmail(0, Alice, nullptr, nullptr, "x", "one", file.c_str()), 0);
    FoundPart message = Multi(">message/rfc822");
    message.Disposition = "attachment";
    message.Encoding = "7bit";
    const FoundPart inner = { .Type = ">>text/x-own",
                              .Name = "n",
                              .Bytes = ".\n..dots\nFrom here\na=3D \xE9\x01\n",
                              .FileName = "n" };
    EXPECT_EQ(Judged(), ToldAll({ PlainText, message, inner }));
    rynAttachmentParams(nullptr, nullptr, nullptr, nullptr);
}

TEST_F(RealAttach, StoresTheLinesOfParameterSets)
{
    const std::string bytes = Sample(100), text = "a,b\r\n1,2\r\n";
    ASSERT_EQ(rynAttachmentParams("Content-Type: text/csv; name=\"own.csv\"", nullptr,
                                  "Content-Disposition: attachment; filename=\"own.csv\"",
                                  "X-Extra: first"),
              1);
    ASSERT_EQ(rynAttachmentParams("Content-Type: application/x-own", "", nullptr, nullptr), 1);
    ASSERT_EQ(SendFiles(File("a", text) + ";" + File("b", bytes) + ";" + File("c.pdf", bytes)), 0);
    FoundPart first = FilePart("own.csv", text, ">text/csv");
    first.Extra = "first";
    FoundPart second = FilePart("-", bytes, ">application/x-own");
    second.FileName = "b";
    EXPECT_EQ(Judged(),
              ToldAll({ PlainText, first, second, FilePart("c.pdf", bytes, ">application/pdf") }));
    ASSERT_EQ(rynAttachmentParams(nullptr, nullptr, nullptr, nullptr), 1);
    ASSERT_EQ(SendFiles(File("a", text)), 0);
    EXPECT_EQ(Judged(), ToldAll({ PlainText, FilePart("a", text) }));
}

TEST_F(RealAttach, StoresNamesAsTheyWereShown)
{
    const std::string file = File("a", "bytes"), cafe = "caf\xC3\xA9-\xE2\x82\xAC.bin";
    File(cafe, "other bytes");
    const std::string long1 = std::string(300, 'n') + ".bin";
    struct Shown {
        std::string Entry, Name, Bytes;
    };
    const struct {
        uint32_t PageCode;
        std::vector<Shown> Files;
    } rows[] = {
        { 0,
          { { file, "a", "bytes" },
            { file + "|two words = 'x'.bin", "two words = 'x'.bin", "bytes" },
            { file + "|" + long1, long1, "bytes" } } },
        { 4, { { file + "|caf\xE9.bin", "caf\xC3\xA9.bin", "bytes" }, { file, "a", "bytes" } } },
        { 5, { { file + "|\xF9\xEC.bin", "\xD7\xA9\xD7\x9C.bin", "bytes" } } },
        { 11, { { file + "|\xE1.bin", "\xCE\xB1.bin", "bytes" } } },
        { 15,
          { { file + "|" + cafe, cafe, "bytes" },
            { Server.Folder + "\\" + cafe, cafe, "other bytes" } } },
        { 30, { { file + "|" + cafe, cafe, "bytes" } } },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.PageCode);
        std::string files, expected = ToldAll({ PlainText });
        for (const Shown& shown : row.Files) {
            files += shown.Entry + ";";
            expected += Told(FilePart(shown.Name, shown.Bytes));
        }
        rynIntegerParam(0, RYN_FILENAME_PAGE_CODE, row.PageCode);
        ASSERT_EQ(SendFiles(files), 0);
        EXPECT_EQ(Judged(), expected);
    }
}

TEST_F(RealAttach, StoresMemoryFiles)
{
    const std::string first = Sample(1000), second = "second";
    ASSERT_EQ(rynSetFileBuffer(0, 0, first.data(), 1000), 1000);
    ASSERT_EQ(rynSetFileBuffer(0, 7, second.data(), 6), 6);
    ASSERT_EQ(SendFiles("data.bin*0;*7|shown.pdf"), 0);
    EXPECT_EQ(Judged(), ToldAll({ PlainText, FilePart("data.bin", first),
                                  FilePart("shown.pdf", second, ">application/pdf") }));
}

TEST_F(RealAttach, StoresQuotedFilesWithTheirLines)
{
    std::string text;
    for (int i = 0; i < 400; i++)
        text += std::string(static_cast<size_t>(i % 130), i % 3 == 0 ? '.' : '=') + "\xE9\t \r\n";
    std::string lines;
    for (const char c : text)
        if (c != '\r')
            lines += c;
    const std::string files = File("a.txt", text) + ";" + File("b.txt", "end");
    for (const uint32_t quote : { 1u, 2u }) {
        SCOPED_TRACE(quote);
        rynIntegerParam(0, RYN_QUOTE_ATTACHMENTS, quote);
        rynIntegerParam(0, RYN_MAX_LINE_LENGTH, 76);
        ASSERT_EQ(SendFiles(files), 0);
        // A file in lines ends in a line end, and the empty lines in front of a boundary are its own.
        FoundPart a = { ">text/plain", "-", quote == 1 ? "inline" : "attachment",
                        "quoted-printable", lines + "\n" };
        a.FileName = "a.txt";
        FoundPart b = a;
        b.FileName = "b.txt";
        b.Bytes = "end\n";
        EXPECT_EQ(Judged(), ToldAll({ PlainText, a, b }));
    }
}

} // namespace
