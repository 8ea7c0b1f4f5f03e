// What parameter sets, shown names, memory files and page codes make of the header lines of a part.
#include "tests/wire/parcel.h"

// --- parameter sets ---

static void GiveSets(int count)
{
    rynAttachmentParams(nullptr, "X: ignored", "X: ignored", "X: ignored");
    for (int i = 1; i <= count; ++i) {
        const std::string n = std::to_string(i);
        EXPECT_EQ(rynAttachmentParams(("Content-Type: x/" + n).c_str(), ("X-Enc: " + n).c_str(),
                                      ("X-Disp: " + n).c_str(), ("X-Extra: " + n).c_str()),
                  1);
    }
}

static std::string SetPart(const char* level, int n)
{
    const std::string text = std::to_string(n);
    return Part(
        level,
        { "Content-Type: x/" + text, "X-Enc: " + text, "X-Disp: " + text, "X-Extra: " + text },
        "eA==\r\n");
}

TEST_F(AttachTest, SetNBelongsToEntryNAndAFifthChangesNothing)
{
    std::string files;
    for (const char* name : { "1.gif", "2.pdf", "3", "4", "5", "6" })
        files += (files.empty() ? "" : ";") + File(name, "x");
    std::string parts;
    for (int i = 1; i <= 4; ++i)
        parts += SetPart("MIX", i);
    Expect(Mixed(parts + FilePart("5", "eA==\r\n") + FilePart("6", "eA==\r\n")), { .Files = files },
           [] {
               GiveSets(4);
               EXPECT_EQ(rynAttachmentParams("Content-Type: x/5", nullptr, nullptr, nullptr), 0);
           });
}

TEST_F(AttachTest, SetsCountOverImagesAndAttachmentsAndLastFromSendToSend)
{
    const std::string images = File("a.gif", "x") + ";" + File("b.gif", "x");
    const std::string expected = MixedHead + (Related + std::string(TwoForms)) + SetPart("REL", 1) +
                                 SetPart("REL", 2) + RelatedEnd + SetPart("MIX", 3) +
                                 FilePart("d", "eA==\r\n") + MixedEnd;
    const Parcel parcel = { PARCEL_HTML, File("c", "x") + ";" + File("d", "x"), images };
    EXPECT_EQ(Sent(parcel, [] { GiveSets(3); }), expected);
    PeerScript(HostPort, WholeScript());
    EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(SendParcel(parcel), 0);
    EXPECT_EQ(Close(), 0);
    EXPECT_EQ(DataSent(1), expected);
    // The next rynAttach begins without sets.
    GiveSets(1);
    EXPECT_EQ(Sent({ .Files = Entry("c") }), Mixed(FilePart("c", "eA==\r\n")));
}

TEST_F(AttachTest, AnAbsentLineOfASetIsTheUsualOne)
{
    const std::string type = "Content-Type: application/octet-stream; name=\"a\"";
    const std::string disposition = "Content-Disposition: attachment; filename=\"a\"";
    const struct {
        const char *Type, *Encoding, *Disposition, *Extra;
        std::string Part;
    } rows[] = {
        { "T: 1", "", nullptr, "", Part("MIX", { "T: 1", InBase64, disposition }, "eA==\r\n") },
        { "", "E: 1", "", "X: 1", Part("MIX", { type, "E: 1", disposition, "X: 1" }, "eA==\r\n") },
        { "", "", "D: %s%n", "", Part("MIX", { type, InBase64, "D: %s%n" }, "eA==\r\n") },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Part);
        const std::string sent = Sent({ .Files = File("a", "x") }, [&] {
            GiveOneSet(row.Type, row.Encoding, row.Disposition, row.Extra);
        });
        EXPECT_EQ(sent, Mixed(row.Part));
    }
}

TEST_F(AttachTest, ASetIsAddedWhollyOrNotAtAll)
{
    // The lines of one kind share 512 bytes with their terminators: 499 and 1, then 11 and 1.
    const std::string first = "X: " + std::string(496, 'e'), second = "X: " + std::string(8, 'f');
    const std::string files = File("a", "x") + ";" + File("b", "x") + ";" + File("c", "x");
    for (size_t kind = 0; kind < 4; ++kind) {
        SCOPED_TRACE(kind);
        const auto lines = [&](const std::string& text) {
            std::vector<std::string> all(4, "Y: 1");
            all[kind] = text;
            return all;
        };
        const auto give = [&](const std::string& text) {
            const std::vector<std::string> all = lines(text);
            return rynAttachmentParams(all[0].c_str(), all[1].c_str(), all[2].c_str(),
                                       all[3].c_str());
        };
        const auto part = [&](const std::string& text) {
            const std::vector<std::string> all = lines(text);
            return Part("MIX", { all[0], all[1], all[2], all[3] }, "eA==\r\n");
        };
        const std::string sent = Sent({ .Files = files }, [&] {
            EXPECT_EQ(give("X: " + std::string(509, 'e')), 0);
            EXPECT_EQ(give(std::string(100000, 'e')), 0);
            EXPECT_EQ(give(first), 1);
            EXPECT_EQ(give(second + "f"), 0);
            EXPECT_EQ(give(second), 1);
            EXPECT_EQ(give(""), 0); // even an absent line takes a byte
        });
        EXPECT_EQ(sent, Mixed(part(first) + part(second) + FilePart("c", "eA==\r\n")));
    }
}

// --- names ---

TEST_F(AttachTest, TheShownNameStandsBehindTheSeparator)
{
    File("a", "x");
    const struct {
        std::string Entry, Name;
    } rows[] = {
        { Entry("a") + "|", "" },
        { Entry("a") + "|x\\y", "y" }, // a folder in the shown name is left out too
        { Entry("a") + "|re: y", " y" },
        { Path("a") + "|shown", "shown" },
        { Entry("a") + "|caf\xE9 = \t%s%n", "caf\xE9 = \t%s%n" },
        { Entry("a") + "|x*y", "x" },
        // Path and name end at the first end of a line.
        { Entry("a") + "\r\nb|shown", "shown" },
        { Entry("a") + "|n\r\n.\r\nRSET\r\n", "n" },
        { Entry("a") + "|n\nX-Header", "n" },
        { Entry("a") + "|n\r", "n" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Entry);
        Expect(Mixed(FilePart(row.Name, "eA==\r\n")), { .Files = row.Entry });
    }
    // A header line has 1023 chars at most.
    const std::string sent = Sent({ .Files = Entry("a") + "|" + std::string(2000, 'n') });
    const std::string type = "Content-Type: application/octet-stream; name=\"";
    const std::string disposition = "Content-Disposition: attachment; filename=\"";
    EXPECT_EQ(sent, Mixed(Part("MIX",
                               { type + std::string(1023 - type.size(), 'n'), InBase64,
                                 disposition + std::string(1023 - disposition.size(), 'n') },
                               "eA==\r\n")));
}

TEST_F(AttachTest, MemoryFilesHideTheirMark)
{
    const std::string octets = "application/octet-stream; ";
    const struct {
        std::string Entry, Type, Disposition;
    } rows[] = {
        { "data*3", octets + "name=\"data\"", "attachment; filename=\"data\"" },
        { "*3|shown.bin", octets + "name=\"shown.bin\"", "attachment; filename=\"shown.bin\"" },
        { "x*3.pdf", "application/pdf; name=\"x*3.pdf\"", "attachment; filename=\"x\"" },
        { "x*3.gif", "Image/GIF; name=\"x*3.gif\"", "inline; filename=\"x*3.gif\"" },
        { "x.gif*3", octets + "name=\"x.gif\"", "attachment; filename=\"x.gif\"" },
    };
    const std::string bytes = Sample(300);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Entry);
        const std::string part = Part(
            "MIX",
            { "Content-Type: " + row.Type, InBase64, "Content-Disposition: " + row.Disposition },
            Base64(bytes));
        Expect(Mixed(part), { .Files = row.Entry },
               [&] { EXPECT_EQ(rynSetFileBuffer(0, 3, bytes.data(), 300), 300); });
    }
}

TEST_F(AttachTest, NamesAreEncodedByTheirPageCode)
{
    const std::string utf8 = "caf\xC3\xA9\xE2\x82\xAC.bin";
    File("a", "x");
    File(utf8, "x");
    const struct {
        uint32_t PageCode;
        std::string Entry, Name;
    } rows[] = {
        { 4, Entry("a") + "|caf\xE9.bin", "=?ISO-8859-1?Q?caf=E9.bin?=" },
        { 6, Entry("a") + "|\x80", "=?WIN-1252?Q?=80?=" },
        { 15, Entry(utf8), "=?UTF-8?Q?caf=C3=A9=E2=82=AC.bin?=" },
        { 30, Entry("a") + "|caf\xC3\xA9", "=?UTF-8?B?Y2Fmw6k=?=" },
        { 256 + 4, Entry("a"), "=?ISO-8859-1?Q?a?=" }, // 8 bits
        { 4, Entry("a") + "|", "=?ISO-8859-1?Q?\?=" },
        { 4, Entry("a") + "|" + std::string(238, 'n'),
          "=?ISO-8859-1?Q?" + std::string(238, 'n') + "?=" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Name);
        Expect(Mixed(FilePart(row.Name, "eA==\r\n")), { .Files = row.Entry },
               [&] { HostSet(0, RYN_FILENAME_PAGE_CODE, row.PageCode); });
    }
}

TEST_F(AttachTest, RefusesNamesThatCantBeEncodedOrOpened)
{
    File("a", "x");
    const std::string bytes = "memory";
    const struct {
        uint32_t PageCode;
        std::string Entry;
        int32_t Status;
    } rows[] = {
        { 1, Entry("a"), RYN_ERR_NO_SUCH_PAGE_CODE },
        { 4, Entry("a") + "|" + std::string(239, 'n'), RYN_ERR_NO_SUCH_PAGE_CODE },
        { 15, Entry("caf\xE9"), RYN_ERR_CANNOT_OPEN_FILE }, // no UTF-8
        { 15, "data*3", RYN_ERR_CANNOT_OPEN_FILE },         // a UTF-8 name is never memory
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Entry.substr(0, 80));
        EXPECT_EQ(Refused({ .Files = row.Entry },
                          [&] {
                              HostSet(0, RYN_FILENAME_PAGE_CODE, row.PageCode);
                              rynSetFileBuffer(0, 3, bytes.data(), 6);
                          }),
                  row.Status);
    }
}
