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
    // A text with a type of its own stays as it is.
    Expect(MixedHead +
               ("--{B}MIX===\r\nContent-Type: text/plain; charset=iso-8859-1\r\n" +
                std::string(InQuoted) + "\r\n\r\ncaf=E9\r\n") +
               FilePart("b.txt", "aGVsbG8=\r\n") + MixedEnd,
           { .Files = Entry("b.txt"), .Message = "caf\xE9" },
           [] { HostSet(0, RYN_MESSAGE_TYPE, 4); });
}

TEST_F(AttachTest, NestsInlineImagesWithinTheHtml)
{
    const std::string gif = Sample(60), png = Sample(3), bytes = Sample(57);
    const std::string images = File("a.gif", gif) + ";" + File("b.PNG", png);
    const std::string files = File("c.bin", bytes) + ";" + File("d.jpg", png);
    const std::string imageParts =
        Part("REL",
             { "Content-Type: Image/GIF; name=\"a.gif\"", "Content-ID: <message-root.1>", InBase64,
               "Content-Disposition: inline; filename=\"a.gif\"" },
             Base64(gif)) +
        Part("REL",
             { "Content-Type: Image/PNG; name=\"b.PNG\"", "Content-ID: <message-root.2>", InBase64,
               "Content-Disposition: inline; filename=\"b.PNG\"" },
             Base64(png)) +
        RelatedEnd;
    const auto fileParts = [&](const char* number) {
        return FilePart("c.bin", Base64(bytes)) +
               Part("MIX",
                    { "Content-Type: Image/JPEG; name=\"d.jpg\"",
                      std::string("Content-ID: <message-root.") + number + ">", InBase64,
                      "Content-Disposition: inline; filename=\"d.jpg\"" },
                    Base64(png));
    };
    const std::string head = MixedHead + (Related + std::string(TwoForms));
    const std::string noImages = "--{B}REL===--\r\n\r\n";
    Expect(head + imageParts + fileParts("3") + MixedEnd, { PARCEL_HTML, files, images });
    Expect(head + imageParts + MixedEnd, { PARCEL_HTML, "", images });
    Expect(head + noImages + fileParts("1") + MixedEnd, { PARCEL_HTML, files });
}

TEST_F(AttachTest, FramesImagesLikeAttachmentsWithoutARelatedPart)
{
    const std::string images = File("a.gif", "gif") + ";" + File("b.bmp", "bmp");
    std::string expected = MixedHead + (Unrelated + std::string(TwoForms));
    expected += Part("MIX",
                     { "Content-Type: Image/GIF; name=\"a.gif\"", "Content-ID: <message-root.1>",
                       InBase64, "Content-Disposition: inline; filename=\"a.gif\"" },
                     "Z2lm\r\n");
    expected += Part("MIX",
                     { "Content-Type: Image/BMP; name=\"b.bmp\"", "Content-ID: <message-root.2>",
                       InBase64, "Content-Disposition: inline; filename=\"b.bmp\"" },
                     "Ym1w\r\n");
    const auto settings = [] { HostSet(0, RYN_NO_RELATED_PART, 1); };
    Expect(expected + MixedEnd, { PARCEL_HTML, "", images }, settings);
    Expect(expected + FilePart("c.txt", "Yw==\r\n") + MixedEnd,
           { PARCEL_HTML, File("c.txt", "c"), images }, settings);
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
    const struct {
        std::string Stored, Wire;
    } rows[] = {
        { "", "" },
        { "Subject: x\r\n\r\nbody\r\n", "Subject: x\r\n\r\nbody\r\n" },
        { "Subject: x\n\n.\n..x\nno end", "Subject: x\r\n\r\n..\r\n...x\r\nno end\r\n" },
        { "\x01 a=b =3D \xE9\x7F\t\r\n", "\x01 a=b =3D \xE9\x7F\t\r\n" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(PeerEscape(row.Stored));
        const auto noSets = [] { rynAttachmentParams(nullptr, nullptr, nullptr, nullptr); };
        Expect(Mixed(Forwarded(row.Wire)), { PARCEL_FORWARD, File("m.eml", row.Stored) }, noSets);
    }
}

TEST_F(AttachTest, ForwardsTheFileUnquotedWhateverTheTypeOfTheText)
{
    const std::string expected =
        MixedHead +
        ("--{B}MIX===\r\nContent-Type: text/plain; charset=iso-8859-1\r\n" + std::string(InQuoted) +
         "\r\n\r\ncaf=E9\r\n") +
        Forwarded("X: a=b caf\xE9\r\n") + MixedEnd;
    Expect(expected, { PARCEL_FORWARD, File("m.eml", "X: a=b caf\xE9\r\n"), "", "caf\xE9" }, [] {
        rynAttachmentParams(nullptr, nullptr, nullptr, nullptr);
        HostSet(0, RYN_MESSAGE_TYPE, 4);
    });
}

TEST_F(AttachTest, FoldsLongLinesOfAForward)
{
    const struct {
        std::string Stored, Wire;
    } rows[] = {
        { std::string(70, 'x'), std::string(70, 'x') + "\r\n" },
        { std::string(45, 'x') + " " + std::string(10, 'y'),
          std::string(45, 'x') + " \r\n" + std::string(10, 'y') + "\r\n" },
        { std::string(43, 'x') + " " + std::string(5, 'y'),
          std::string(43, 'x') + " " + std::string(5, 'y') + "\r\n" },
        { std::string(71, 'x'), std::string(70, 'x') + "\r\nx\r\n" },
        { std::string(70, 'x') + ".y", std::string(70, 'x') + "\r\n..y\r\n" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Stored);
        const std::string sent = Sent({ PARCEL_FORWARD, File("m.eml", row.Stored) }, [] {
            rynAttachmentParams(nullptr, nullptr, nullptr, nullptr);
            HostSet(0, RYN_MAX_LINE_LENGTH, 70); // folds at a blank from 45 on
        });
        EXPECT_EQ(sent, Mixed(Forwarded(row.Wire)));
        HostSet(0, RYN_MAX_LINE_LENGTH, 1000);
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
    const char *file = "application/octet-stream; ", *attach = "attachment";
    const struct {
        const char *Name, *Type, *Disposition;
        bool HasId; // in an HTML message
    } rows[] = {
        { "a.pdf", "application/pdf; ", attach, false },
        { "a.PdF", "application/pdf; ", attach, false },
        { "a.wav", "audio/x-wav; ", attach, false },
        { "a.gif", "Image/GIF; ", "inline", true },
        { "a.bmp", "Image/BMP; ", "inline", true },
        { "a.tif", "Image/TIFF; ", "inline", true },
        { "a.jpg", "Image/JPEG; ", "inline", true },
        { "a.JPG", "Image/JPEG; ", "inline", true },
        { "a.png", "Image/PNG; ", "inline", true },
        { "a.gif.png", "Image/PNG; ", "inline", true },
        { "a.jpeg", file, attach, false },
        { "a.tiff", file, attach, false },
        { "a.gif.gz", file, attach, false },
        { "agif", file, attach, false },
        { ".gif", file, attach, false },
        { "a", file, attach, false },
    };
    for (const auto& row : rows) {
        for (const ParcelKind kind : { PARCEL_TEXT, PARCEL_HTML }) {
            SCOPED_TRACE(std::string(row.Name) + " " + std::to_string(kind));
            const std::string name = row.Name;
            std::string type = std::string("Content-Type: ") + row.Type + "name=\"" + name + "\"";
            if (row.HasId && kind == PARCEL_HTML)
                type += "\r\nContent-ID: <message-root.1>";
            const std::string part = Part("MIX",
                                          { type, InBase64,
                                            std::string("Content-Disposition: ") + row.Disposition +
                                                "; filename=\"" + name + "\"" },
                                          "eA==\r\n");
            const std::string html =
                MixedHead + (Related + std::string(TwoForms)) + "--{B}REL===--\r\n\r\n";
            EXPECT_EQ(Sent({ kind, File(name, "x") }),
                      kind == PARCEL_HTML ? html + part + MixedEnd : Mixed(part));
        }
    }
}

TEST_F(AttachTest, ImagesHaveNumbersInTextOfHtmlTypeToo)
{
    const std::string files =
        File("a.gif", "x") + ";" + File("b.pdf", "x") + ";" + File("c.png", "x");
    const std::string sent = Sent({ .Files = files }, [] { HostSet(0, RYN_MESSAGE_TYPE, 2); });
    std::string expected = MixedHead + ("--{B}MIX===\r\nContent-Type: text/html\r\n" +
                                        std::string(InQuoted) + "\r\n\r\none\r\n");
    expected += Part("MIX",
                     { "Content-Type: Image/GIF; name=\"a.gif\"", "Content-ID: <message-root.1>",
                       InBase64, "Content-Disposition: inline; filename=\"a.gif\"" },
                     "eA==\r\n");
    expected += Part("MIX",
                     { "Content-Type: application/pdf; name=\"b.pdf\"", InBase64,
                       "Content-Disposition: attachment; filename=\"b.pdf\"" },
                     "eA==\r\n");
    expected += Part("MIX",
                     { "Content-Type: Image/PNG; name=\"c.png\"", "Content-ID: <message-root.2>",
                       InBase64, "Content-Disposition: inline; filename=\"c.png\"" },
                     "eA==\r\n");
    EXPECT_EQ(sent, expected + MixedEnd);
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
    const std::string pdf =
        Sent({ .Files = File("a.pdf", "x") }, [] { HostSet(0, RYN_DETECT_IMAGES, 0); });
    EXPECT_EQ(pdf, Mixed(Part("MIX",
                              { "Content-Type: application/pdf; name=\"a.pdf\"", InBase64,
                                "Content-Disposition: attachment; filename=\"a.pdf\"" },
                              "eA==\r\n")));
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
        { "a.txt", 255, "text/plain", "attachment" },
        { "a.pdf", 1, "application/pdf; name=\"a.pdf\"", "inline" },
        { "a.pdf", 2, "application/pdf; name=\"a.pdf\"", "attachment" },
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
    // Without quoting the lines are folded only, and the bytes pass as they are.
    const std::string raw = Sent({ .Files = File("a.txt", std::string(80, 'x') + "\xE9=\n") }, [] {
        HostSet(0, RYN_QUOTE_ATTACHMENTS, 2);
        HostSet(0, RYN_KEEP_RAW_CHARS, 1);
        HostSet(0, RYN_MAX_LINE_LENGTH, 76);
    });
    EXPECT_EQ(raw, Mixed(Part("MIX",
                              { "Content-Type: text/plain", InQuoted,
                                "Content-Disposition: attachment; filename=\"a.txt\"" },
                              std::string(76, 'x') + "\r\nxxxx\xE9=\r\n")));
}

TEST_F(AttachTest, QuotedImagesStillCloseTheRelatedPart)
{
    std::string expected = MixedHead + (Related + std::string(TwoForms));
    expected += Part("REL",
                     { "Content-Type: Image/GIF; name=\"a.gif\"", "Content-ID: <message-root.1>",
                       InQuoted, "Content-Disposition: inline; filename=\"a.gif\"" },
                     "=01\r\n");
    expected += RelatedEnd + Part("MIX",
                                  { "Content-Type: text/plain", InQuoted,
                                    "Content-Disposition: attachment; filename=\"b.txt\"" },
                                  "b\r\n");
    Expect(expected + MixedEnd, { PARCEL_HTML, File("b.txt", "b"), File("a.gif", "\x01") },
           [] { HostSet(0, RYN_QUOTE_ATTACHMENTS, 2); });
}

// --- sizes ---

TEST_F(AttachTest, ContentsOfEachSizeAreExact)
{
    for (const size_t size :
         { 0u, 1u, 2u, 3u, 56u, 57u, 58u, 113u, 114u, 115u, 5000u, 16384u, 16385u, 40000u }) {
        SCOPED_TRACE(size);
        const std::string bytes = Sample(size);
        const std::string expected = Mixed(FilePart("a", Base64(bytes)));
        EXPECT_EQ(Sent({ .Files = File("a", bytes) }), expected);
        if (size == 5000)
            Expect(expected, { .Files = Entry("a") });
    }
    EXPECT_EQ(Base64(Sample(58)).size(), 78u + 6u);
}

TEST_F(AttachTest, AttachmentsOfATargetFileEndWithoutADot)
{
    HostAttach();
    EXPECT_EQ(rynSmtpTarget(0, Path("out").c_str(), Sender, nullptr), 1);
    EXPECT_EQ(SendParcel({ .Files = File("a", Sample(70)) }), 0);
    EXPECT_EQ(rynSmtpTarget(0, nullptr, nullptr, nullptr), 1);
    std::string text = ReadWholeFile(Path("out"));
    const std::string seed = HostSeed();
    for (size_t at; (at = text.find(seed)) != std::string::npos;)
        text.replace(at, seed.size(), "{B}");
    EXPECT_EQ(text.substr(std::min(text.find("Subject: "), text.size())),
              Mixed(FilePart("a", Base64(Sample(70)))));
}
