// Attachments, inline images and forwarded messages on the wire: every byte of their parts, for each
// kind of message, type of file, encoding and size.
#include "tests/wire/parcel.h"

// --- whole messages ---

TEST_F(AttachTest, FollowsThePlainText)
{
    const std::string bytes = Sample(100);
    Expect(Mixed(FilePart("a.bin", Base64(bytes))), { .Files = File("a.bin", bytes) });
    const std::string two = File("a.bin", bytes) + ";" + File("b.txt", "hello");
    Expect(Mixed(FilePart("a.bin", Base64(bytes)) + FilePart("b.txt", "aGVsbG8=\r\n")),
           { .Files = two });
}

TEST_F(AttachTest, NestsInlineImagesWithinTheHtml)
{
    const std::string gif = Sample(60), png = Sample(3), bytes = Sample(57);
    const std::string images = File("a.gif", gif) + ";" + File("b.PNG", png);
    const std::string files = File("c.bin", bytes) + ";" + File("d.jpg", png);
    const std::string imageParts = ImagePart("REL", "GIF", "a.gif", 1, Base64(gif)) +
                                   ImagePart("REL", "PNG", "b.PNG", 2, Base64(png)) + RelatedEnd;
    const auto fileParts = [&](int number) {
        return FilePart("c.bin", Base64(bytes)) +
               ImagePart("MIX", "JPEG", "d.jpg", number, Base64(png));
    };
    const std::string head = MixedHead + (Related + std::string(TwoForms));
    const std::string noImages = "--{B}REL===--\r\n\r\n";
    Expect(head + imageParts + fileParts(3) + MixedEnd, { PARCEL_HTML, files, images });
    Expect(head + imageParts + MixedEnd, { PARCEL_HTML, "", images });
    Expect(head + noImages + fileParts(1) + MixedEnd, { PARCEL_HTML, files });
}

TEST_F(AttachTest, FramesImagesLikeAttachmentsWithoutARelatedPart)
{
    Expect(MixedHead + (Unrelated + std::string(TwoForms)) +
               ImagePart("MIX", "GIF", "a.gif", 1, "Z2lm\r\n") + FilePart("c.txt", "Yw==\r\n") +
               MixedEnd,
           { PARCEL_HTML, File("c.txt", "c"), File("a.gif", "gif") },
           [] { HostSet(0, RYN_NO_RELATED_PART, 1); });
}

// --- forwarding ---

static std::string Forwarded(const std::string& content)
{
    return Part("MIX",
                { "Content-Type: message/rfc822", "Content-Transfer-Encoding: 7bit",
                  "Content-Disposition: attachment" },
                content);
}

TEST_F(AttachTest, ForwardsAMessageAsItStands)
{
    const std::string x70(70, 'x'), x45(45, 'x');
    const struct {
        std::string Stored, Wire;
    } rows[] = {
        { "", "" },
        { "Subject: x\n\n.\n..x\nno end", "Subject: x\r\n\r\n..\r\n...x\r\nno end\r\n" },
        { "\x01 a=b =3D \xE9\x7F\t\r\n", "\x01 a=b =3D \xE9\x7F\t\r\n" },
        // Lines of more than 70 chars fold at a blank from 45 on.
        { x70, x70 + "\r\n" },
        { x45 + " " + std::string(30, 'y'), x45 + " \r\n" + std::string(30, 'y') + "\r\n" },
        { x70 + "x", x70 + "\r\nx\r\n" },
        { x70 + ".y", x70 + "\r\n..y\r\n" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(PeerEscape(row.Stored));
        Expect(Mixed(Forwarded(row.Wire)), { PARCEL_FORWARD, File("m.eml", row.Stored) }, [] {
            rynAttachmentParams(nullptr, nullptr, nullptr, nullptr);
            HostSet(0, RYN_MAX_LINE_LENGTH, 70);
        });
    }
}

TEST_F(AttachTest, EachForwardAddsASetAndTheFileTakesTheFirst)
{
    const Parcel parcel = { PARCEL_FORWARD, File("m.eml", "mail\r\n") };
    HostAttach();
    SinkListen(HostPort);
    GiveOneSet("Content-Type: x/first", nullptr, nullptr, "X-Own: 1");
    EXPECT_EQ(Connect(), 0);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(SendParcel(parcel), 0);
    EXPECT_EQ(rynAttachmentParams("Content-Type: x/fifth", nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(Close(), 0);
    const std::string part = "\r\nContent-Type: x/first\r\nContent-Transfer-Encoding: base64\r\n"
                             "Content-Disposition: attachment; filename=\"m.eml\"\r\n"
                             "X-Own: 1\r\n\r\nmail\r\n";
    ASSERT_EQ(SinkMessages().size(), 4u);
    for (const SinkMessage& message : SinkMessages())
        EXPECT_NE(message.Data.find(part), std::string::npos) << message.Data;
}

// --- types by extension ---

TEST_F(AttachTest, ExtensionDecidesAboutTypeAndDisposition)
{
    const char* const file = "application/octet-stream";
    const struct {
        const char *Name, *Type;
    } rows[] = {
        { "a.PdF", "application/pdf" },
        { "a.wav", "audio/x-wav" },
        { "a.jpeg", file },
        { "a.gif.gz", file },
        { "agif", file },
        { ".gif", file },
        { "a.gif", "GIF" },
        { "a.bmp", "BMP" },
        { "a.tif", "TIFF" },
        { "a.jpg", "JPEG" },
        { "a.PNG", "PNG" },
        { "a.gif.png", "PNG" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Name);
        const std::string name = "name=\"" + std::string(row.Name) + "\"", type = row.Type;
        const bool isImage = type.find('/') == std::string::npos;
        EXPECT_EQ(Sent({ .Files = File(row.Name, "x") }),
                  Mixed(isImage ? ImagePart("MIX", row.Type, row.Name, 0, "eA==\r\n")
                                : Part("MIX",
                                       { "Content-Type: " + type + "; " + name, InBase64,
                                         "Content-Disposition: attachment; file" + name },
                                       "eA==\r\n")));
    }
}

TEST_F(AttachTest, ImagesHaveNumbersInTextOfHtmlTypeToo)
{
    const std::string files = File("a.gif", "x") + ";" + File("b", "x") + ";" + File("c.png", "x");
    const std::string text =
        "--{B}MIX===\r\nContent-Type: text/html\r\n" + std::string(InQuoted) + "\r\n\r\none\r\n";
    EXPECT_EQ(Sent({ .Files = files }, [] { HostSet(0, RYN_MESSAGE_TYPE, 2); }),
              MixedHead + text + ImagePart("MIX", "GIF", "a.gif", 1, "eA==\r\n") +
                  FilePart("b", "eA==\r\n") + ImagePart("MIX", "PNG", "c.png", 2, "eA==\r\n") +
                  MixedEnd);
}

TEST_F(AttachTest, ImagesArePlainFilesWhenTheyAreNotToBeDetected)
{
    const std::string sent =
        Sent({ PARCEL_HTML, "", File("a.gif", "x") }, [] { HostSet(0, RYN_DETECT_IMAGES, 0); });
    EXPECT_EQ(sent, MixedHead + (Related + std::string(TwoForms)) +
                        Part("REL",
                             { "Content-Type: application/octet-stream; name=\"a.gif\"", InBase64,
                               "Content-Disposition: attachment; filename=\"a.gif\"" },
                             "eA==\r\n") +
                        RelatedEnd + MixedEnd);
}

// --- quoted attachments ---

TEST_F(AttachTest, QuotedAttachmentsGoOutLineByLine)
{
    const struct {
        const char* Name;
        uint32_t Quote;
        const char *Type, *Disposition;
    } rows[] = {
        { "a.txt", 1, "text/plain", "inline" },
        { "a.txt", 2, "text/plain", "attachment" },
        { "a.pdf", 1, "application/pdf; name=\"a.pdf\"", "inline" },
        { "a.gif", 2, "Image/GIF; name=\"a.gif\"", "inline" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.Name) + " " + std::to_string(row.Quote));
        const std::string file = File(row.Name, "a=b\r\n.\n\xE9\tz \nno end");
        const std::string part = Part("MIX",
                                      { std::string("Content-Type: ") + row.Type, InQuoted,
                                        std::string("Content-Disposition: ") + row.Disposition +
                                            "; filename=\"" + row.Name + "\"" },
                                      "a=3Db\r\n..\r\n=E9\tz \r\nno end\r\n");
        Expect(Mixed(part), { .Files = file },
               [&] { HostSet(0, RYN_QUOTE_ATTACHMENTS, row.Quote); });
    }
}

TEST_F(AttachTest, QuotedAttachmentsFoldWithSoftBreaks)
{
    const std::string x75(75, 'x');
    const std::string file = File("a.txt", x75 + "yy\r\n" + x75 + ".z\r\n");
    const std::string sent = Sent({ .Files = file }, [] {
        HostSet(0, RYN_QUOTE_ATTACHMENTS, 2);
        HostSet(0, RYN_MAX_LINE_LENGTH, 76);
    });
    EXPECT_EQ(sent, Mixed(Part("MIX",
                               { "Content-Type: text/plain", InQuoted,
                                 "Content-Disposition: attachment; filename=\"a.txt\"" },
                               x75 + "=\r\nyy\r\n" + x75 + ".=\r\nz\r\n")));
}

TEST_F(AttachTest, QuotedImagesStillCloseTheRelatedPart)
{
    const std::string text = Part("MIX",
                                  { "Content-Type: text/plain", InQuoted,
                                    "Content-Disposition: attachment; filename=\"b.txt\"" },
                                  "b\r\n");
    Expect(MixedHead + (Related + std::string(TwoForms)) +
               ImagePart("REL", "GIF", "a.gif", 1, "=01\r\n", InQuoted) + RelatedEnd + text +
               MixedEnd,
           { PARCEL_HTML, File("b.txt", "b"), File("a.gif", "\x01") },
           [] { HostSet(0, RYN_QUOTE_ATTACHMENTS, 2); });
}

// --- sizes ---

TEST_F(AttachTest, ContentsOfEachSizeAreExact)
{
    for (const size_t size : { 0u, 1u, 2u, 3u, 56u, 57u, 58u, 114u, 115u, 5000u, 16384u, 16385u }) {
        SCOPED_TRACE(size);
        const std::string bytes = Sample(size);
        const std::string expected = Mixed(FilePart("a", Base64(bytes)));
        EXPECT_EQ(Sent({ .Files = File("a", bytes) }), expected);
        if (size == 5000)
            Expect(expected, { .Files = Entry("a") });
    }
}
