// Lists of files and what becomes of them: files that can't be had, that change under a send, servers
// that go away, and what counters and logs tell.
#include "tests/wire/parcel.h"

#include <sys/stat.h>
#include <unistd.h>

// --- lists ---

TEST_F(AttachTest, ListsEndWithOrWithoutADelimiter)
{
    File("a", "x");
    const std::string two = Mixed(FilePart("a", "eA==\r\n") + FilePart("b", "eA==\r\n"));
    EXPECT_EQ(Sent({ .Files = Entry("a") + ";" + Entry("a") + "|b;" }), two);
    EXPECT_EQ(Sent({ .Files = Entry("a") + "," + Entry("a") + "#b;c" },
                   [] {
                       HostSet(0, RYN_ATTACH_DELIMITER, ',');
                       HostSet(0, RYN_NAME_SEPARATOR, '#');
                   }),
              Mixed(FilePart("a", "eA==\r\n") + FilePart("b;c", "eA==\r\n")));
    // Without a delimiter or a separator a list is one path.
    File("a;b", "y");
    EXPECT_EQ(Sent({ .Files = Entry("a;b") }, [] { HostSet(0, RYN_ATTACH_DELIMITER, 0); }),
              Mixed(FilePart("a;b", "eQ==\r\n")));
}

TEST_F(AttachTest, AFileThatCantBeHadFailsTheSend)
{
    File("a", "x");
    ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
    const std::string long1(3000, 'd');
    const struct {
        const char* What;
        std::string Files, Noted; // the entry in the error's text, 50 chars at most
    } rows[] = {
        { "missing", "none", "none" },
        { "behind a good one", Entry("a") + ";none|shown", "none|shown" },
        { "two delimiters in a row", Entry("a") + ";;" + Entry("a"), "" },
        { "no path", "|shown", "|shown" },
        { "folder", Folder, Folder.substr(0, 50) },
        { "FIFO", Entry("fifo"), Entry("fifo").substr(0, 50) },
        { "path too long for the system", long1 + "\\" + long1, long1.substr(0, 50) },
        { "no such memory file", "x*8", "x*8" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.What);
        EXPECT_EQ(Refused({ .Files = row.Files }), RYN_ERR_CANNOT_OPEN_FILE);
        EXPECT_EQ(ErrorText, "Cannot open file " + row.Noted);
        EXPECT_EQ(Refused({ .Files = row.Files }, [] { HostSet(0, RYN_QUOTE_ATTACHMENTS, 1); }),
                  RYN_ERR_CANNOT_OPEN_FILE);
    }
}

TEST_F(AttachTest, TheLogThatIsBeingWrittenCantBeAttached)
{
    EXPECT_EQ(Refused({ .Files = Entry("log") },
                      [&] { EXPECT_GT(HostSetText(0, RYN_LOG_FILE, Path("log")), 0); }),
              RYN_ERR_CANNOT_OPEN_FILE);
}

// --- between the steps of a manual host ---

// Drives until this state has been left n times, or all is done.
static int32_t DriveTo(int32_t state, int n)
{
    int32_t result = 1;
    while (n > 0 && result > 0) {
        result = rynDriver(0);
        n -= result == state ? 1 : 0;
        VirtualClockAdvance(1);
    }
    return result;
}

constexpr int32_t StateOpen = 265;    // the file is opened by the next step
constexpr int32_t StateContent = 266; // one line of it goes out in each step

struct StepTest : AttachTest {
    // Starts a manual send of a file of 40000 bytes and stops in front of a state's n-th step.
    void Begin(int32_t state, int n)
    {
        const std::string files = File("a", Sample(40000));
        HostAttach();
        PeerMode mode;
        mode.MayEndEarly = true;
        PeerScript(HostPort, WholeScript(), mode);
        HostSet(0, RYN_AUTO_CALL_DRIVER, 0);
        EXPECT_EQ(Connect(true), 0);
        EXPECT_EQ(rynSendEmail(0, "<b@y.example>", nullptr, nullptr, "Hello", "one", files.c_str()),
                  0);
        EXPECT_EQ(DriveTo(state, n), state);
    }

    std::string End()
    {
        EXPECT_EQ(HostDrive(0).back(), 0);
        EXPECT_EQ(Close(true), 0);
        return DataSent(0);
    }
};

TEST_F(StepTest, AFileThatVanishesBeforeItIsOpenedFailsTheSend)
{
    Begin(StateOpen, 1);
    ASSERT_EQ(unlink(Path("a").c_str()), 0);
    EXPECT_EQ(HostDrive(0).back(), RYN_ERR_CANNOT_OPEN_FILE);
    EXPECT_EQ(rynDriver(0), 0);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_SOCK_CODE), RYN_ERR_CANNOT_OPEN_FILE);
    EXPECT_EQ(rynAbort(0), 1);
}

TEST_F(StepTest, AFileThatShrinksIsSentToItsNewEnd)
{
    Begin(StateContent, 3);
    ASSERT_EQ(truncate(Path("a").c_str(), 100), 0);
    const std::string sent = End(), end = MixedEnd;
    const std::string whole = Base64(Sample(40000));
    const std::string before = MixedHead + (PlainText + FilePart("a", ""));
    ASSERT_EQ(sent.substr(0, before.size()), before);
    ASSERT_EQ(sent.substr(sent.size() - end.size()), end);
    const std::string content =
        sent.substr(before.size(), sent.size() - before.size() - end.size());
    EXPECT_GE(content.size(), 2 * 78u); // what was sent, what was read ahead, and no more
    EXPECT_LT(content.size(), whole.size());
}

TEST_F(StepTest, TellsItsStatesToAManualHost)
{
    HostAttach();
    HostSet(0, RYN_AUTO_CALL_DRIVER, 0);
    PeerScript(HostPort, WholeScript());
    EXPECT_EQ(Connect(true), 0);
    const std::string image = File("a.gif", "x"), file = File("b", "");
    EXPECT_EQ(rynSendHTML(0, "<b@y.example>", nullptr, nullptr, "Hello", "<p>", image.c_str(),
                          nullptr, file.c_str()),
              0);
    const std::string path = HostPathOf(HostDrive(0));
    EXPECT_EQ(path.substr(path.find(" 241")),
              " 241 260 261 262 263 264 265 266 260 261 262 263 264 265 266 251 252 0");
    EXPECT_EQ(Close(true), 0);
}

TEST_F(StepTest, AnAbortInTheMidstLeavesNothingOpen)
{
    for (const int32_t state : { 260, 261, 262, 263, 264, 265, 266 }) {
        SCOPED_TRACE(state);
        Renew();
        Begin(state, 1);
        const int before = OpenDescriptors();
        EXPECT_EQ(rynAbort(0), 1);
        EXPECT_EQ(OpenDescriptors(), before - (state == 266 ? 1 : 0));
    }
}

// --- counters, failures, logs ---

TEST_F(AttachTest, CountsTheBytesOfTextAndFiles)
{
    const std::string files = File("a", Sample(100)) + ";" + File("b", Sample(57));
    Sent({ .Files = files });
    EXPECT_EQ(rynStatistics(0, RYN_STAT_MSG_BYTES_IN), 3);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_MSG_BYTES_OUT), 5);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_ATTACH_BYTES_IN), 157);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_ATTACH_BYTES_OUT), 78 + 62 + 78);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_BYTES_IN), 160);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_BYTES_OUT), 223);
    // Without files the counters begin anew.
    PeerScript(HostPort, WholeScript());
    EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(SendParcel({}), 0);
    EXPECT_EQ(Close(), 0);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_ATTACH_BYTES_OUT), 0);
}

TEST_F(AttachTest, AFailureInTheMidstOfDataEndsWithCloseAndConnect)
{
    HostAttach();
    PeerScript(HostPort, OpenScript() + EnvelopeScript({ "<b@y.example>" }) +
                             "C...\nC: Content-Disposition: attachment; filename=\"none\"\nC:\n"
                             "C: QUIT\n! silence\n");
    EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(SendParcel({ .Files = "none" }), RYN_ERR_CANNOT_OPEN_FILE);
    EXPECT_EQ(rynIsConnected(0), 1);
    EXPECT_EQ(Close(), RYN_ERR_TIMED_OUT); // the server waits for the end of the message
    EXPECT_EQ(VirtualOpenSockets(), 0);
    const std::string file = File("a", "x");
    PeerScript(HostPort, WholeScript());
    EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(SendParcel({ .Files = file }), 0);
    EXPECT_EQ(Close(), 0);
    EXPECT_EQ(DataSent(1), Mixed(FilePart("a", "eA==\r\n")));
}

TEST_F(AttachTest, AServerThatGoesAwayInTheMidstClosesTheFile)
{
    const std::string files = File("a", Sample(40000));
    for (const char* end : { "close", "reset", "silence" }) {
        SCOPED_TRACE(end);
        Renew();
        HostAttach();
        VirtualSetWindows(5000, 5000);
        const std::string line = Base64(Sample(40000)).substr(0, 76);
        PeerScript(HostPort, OpenScript() + EnvelopeScript({ "<b@y.example>" }) +
                                 "C...\nC: " + line + "\n! " + end + "\n");
        EXPECT_EQ(Connect(), 0);
        const int before = OpenDescriptors();
        const int32_t result = SendParcel({ .Files = files });
        EXPECT_TRUE(result == RYN_ERR_SOCK_WRITE || result == RYN_ERR_TIMED_OUT) << result;
        EXPECT_EQ(rynAbort(0), 1);
        EXPECT_EQ(OpenDescriptors(), before);
    }
}

TEST_F(AttachTest, SurvivesFaultsOfFilesAndMemory)
{
    const std::string files = File("a", Sample(40000)) + ";" + File("b", "x");
    for (const FaultKind kind :
         { FAULT_OPEN, FAULT_LOCK, FAULT_ALLOCATE, FAULT_SEND, FAULT_CLOSE }) {
        for (int nth = 1;; ++nth) {
            SCOPED_TRACE(std::string(FaultName(kind)) + " " + std::to_string(nth));
            Renew();
            HostAttach();
            SinkListen(HostPort);
            EXPECT_EQ(Connect(), 0);
            FaultArm(kind, nth);
            const int32_t result = SendParcel({ .Files = files });
            const bool struck = FaultDisarm();
            EXPECT_TRUE(result < 0 || SinkMessages().size() == 1);
            EXPECT_EQ(rynAbort(0), 1);
            if (!struck || nth > 40)
                break;
        }
    }
}

TEST_F(AttachTest, LogsEachStepOfAnAttachment)
{
    const std::string files = File("a.pdf", Sample(58)) + "|shown.pdf;" + File("b.txt", "x");
    Sent({ .Files = files }, [&] { EXPECT_GT(HostSetText(0, RYN_LOG_FILE, Path("log")), 0); });
    EXPECT_EQ(rynRelease(), 1);
    std::string log = HostLog(Path("log"));
    for (size_t at; (at = log.find(Folder)) != std::string::npos;)
        log.replace(at, Folder.size(), "{F}");
    const std::string sentLine = Base64(Sample(58));
    const std::string expected =
        "<260:#>\r\nS: \r\n\r\n--===RYN099#===MIX===\r\n<261:#>\r\n"
        "$$$ AttachBegPtr = [{F}\\a.pdf|shown.pdf]\r\n$$$ AttachEndPtr = [{F}\\b.txt]\r\n[PDF]\n"
        "S: Content-Type: application/pdf; name=\"shown.pdf\"\r\n<262:#>\r\n"
        "S: Content-Transfer-Encoding: base64\r\n<263:#>\r\n"
        "S: Content-Disposition: attachment; filename=\"shown.pdf\"\r\n<264:#>\r\nS: "
        "\r\n<265:#>\r\n"
        "Opening file '{F}\\a.pdf'\r\nHandle = 2\r\n<266:#>\r\nS: " +
        sentLine.substr(0, 78) + "S: " + sentLine.substr(78) +
        "[Closing file 2]\r\n"
        "### AttachBegPtr = [{F}\\a.pdf|shown.pdf]\r\n### AttachEndPtr = [{F}\\b.txt]\r\n";
    const size_t begin = log.find("<260:#>"), end = log.find("<260:#>", begin + 1);
    ASSERT_LT(begin, end);
    ASSERT_NE(end, std::string::npos);
    EXPECT_EQ(log.substr(begin, end - begin), expected);
}
