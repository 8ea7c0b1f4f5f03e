// The session log and the recipient trace: what the files hold to the last byte, and how they open,
// close and fail.
#include "frame/log.h"

#include "tests/support/fault.h"
#include "tests/support/host.h"
#include "tests/support/temp_folder.h"
#include "transport/vfile.h"

#include <cstring>
#include <filesystem>
#include <sys/stat.h>

using std::string;

static string Header()
{
    return "*** RYN Log File ***\r\n"
           "Date: Tue, 17 Nov 2026 22:52:06 +0100\r\n"
           " VS Win32 Version 8.4.1 Build 7\r\n"
           "RYN Win32 Version 8.4.1 Build 7\r\n"
           "CID 0\r\n"
           "Current Dir: " +
           std::filesystem::current_path().string() + "\r\n";
}

struct LogTest : HostTest {
    string Log(const string& name) const
    {
        return ReadWholeFile(Path(name));
    }
    // The line that rynStringParam writes for a file of the folder.
    string Call(uint32_t channel, uint32_t code, const string& name) const
    {
        return "*** rynStringParam(" + std::to_string(channel) + "," + std::to_string(code) + ",'" +
               (name.empty() ? "" : Path(name)) + "')\r\n";
    }
};

TEST_F(LogTest, BeginsWithItsHeaderAndEndsWithTheRelease)
{
    HostAttach(1);
    const int32_t handle = HostSetText(0, RYN_LOG_FILE, Path("log"));
    EXPECT_GT(handle, 0);
    EXPECT_EQ(ChannelTable[0]->LogHandle, handle);
    EXPECT_EQ(Log("log"), Header());
    struct stat status;
    ASSERT_EQ(stat(Path("log").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    EXPECT_EQ(HostSetText(0, RYN_LOG_TEXT, "mine"), handle);
    EXPECT_EQ(rynClose(0), 0);
    EXPECT_EQ(rynAbort(0), 1);
    rynRelease();
    EXPECT_EQ(Log("log"), Header() + "*** rynStringParam(0,52,'mine')\r\nmine\r\n"
                                     "*** rynClose(0)\r\n*** rynAbort\r\n"
                                     "*** rynRelease: Win32 0 8.4.1 (7) ***\r\n"
                                     "*** Releasing channel 0 ***\r\n");
}

TEST_F(LogTest, AnotherNameBeginsAnotherLogAndTheSameNameBeginsAnew)
{
    HostAttach(1);
    HostSetText(0, RYN_LOG_FILE, Path("first"));
    EXPECT_GT(HostSetText(0, RYN_LOG_FILE, Path("second")), 0);
    EXPECT_EQ(Log("first"), Header() + Call(0, 20, "second"));
    EXPECT_EQ(Log("second"), Header());
    HostSetText(0, RYN_LOG_TEXT, "lost");
    EXPECT_GT(HostSetText(0, RYN_LOG_FILE, Path("second")), 0);
    EXPECT_EQ(Log("second"), Header());
    EXPECT_EQ(OpenDescriptors(), DescriptorsBefore + 1);
    EXPECT_EQ(HostSetText(0, RYN_LOG_FILE, ""), 0);
    EXPECT_EQ(OpenDescriptors(), DescriptorsBefore);
    LogText(ChannelTable[0], "unheard");
    LogGlobal("unheard");
    EXPECT_EQ(Log("second"), Header() + Call(0, 20, ""));
}

TEST_F(LogTest, GoesOnWithoutALogThatCannotBeMade)
{
    HostAttach(1);
    HostSetText(0, RYN_LOG_FILE, Path("old"));
    EXPECT_EQ(HostSetText(0, RYN_LOG_FILE, Path("none/log")), -1);
    EXPECT_EQ(ChannelTable[0]->LogHandle, 0);
    EXPECT_EQ(HostSetText(0, RYN_LOG_TEXT, "unheard"), 0);
    EXPECT_EQ(OpenDescriptors(), DescriptorsBefore);
    EXPECT_EQ(Log("old"), Header() + Call(0, 20, "none/log"));
    while (u_Open("x*1", 0, false) != 0) // a full file table counts as no log either
        continue;
    EXPECT_EQ(HostSetText(0, RYN_LOG_FILE, Path("full")), -1);
    EXPECT_EQ(ChannelTable[0]->LogHandle, 0);
    EXPECT_EQ(HostSetText(0, RYN_RCPT_TRACE_FILE, Path("full")), RYN_ERR_CANNOT_CREATE_FILE);
}

TEST_F(LogTest, WithoutAChannelTheLogOpenedLastIsMeant)
{
    HostAttach(2);
    HostSetText(1, RYN_LOG_FILE, Path("one"));
    HostSetText(0, RYN_LOG_FILE, Path("zero"));
    LogGlobal("a\r\n");
    LogText(nullptr, "b\r\n");
    LogText(ChannelTable[1], "c\r\n");
    LogFormat(*ChannelTable[1], "%d%s\r\n", 4, "d");
    EXPECT_EQ(Log("zero"), Header() + "a\r\nb\r\n");
    EXPECT_EQ(Log("one"), Header() + "c\r\n4d\r\n");
}

TEST_F(LogTest, CutsFormattedLinesAndLeavesTextsWhole)
{
    HostAttach(1);
    HostSetText(0, RYN_LOG_FILE, Path("log"));
    const string lengthy(5000, 'x');
    LogFormat(*ChannelTable[0], "%s", lengthy.c_str());
    LogText(ChannelTable[0], "|");
    LogText(ChannelTable[0], (lengthy + "%s\n").c_str());
    EXPECT_EQ(Log("log"), Header() + lengthy.substr(0, 1023) + "|" + lengthy + "%s\n");
}

TEST_F(LogTest, ShowsTheSystemsWordsForTheLastFileError)
{
    HostAttach(1);
    HostSetText(0, RYN_LOG_FILE, Path("log"));
    LogWindowsError(*ChannelTable[0]);
    EXPECT_EQ(Log("log"), Header()); // no error, no block
    EXPECT_EQ(u_Open(Path("none").c_str(), 0, false), RYN_ERR_CANNOT_OPEN_FILE);
    LogWindowsError(*ChannelTable[0]);
    const string block = "\r\n----- Windows Error 2 -----\r\n" + string(strerror(2)) +
                         "\r\n----------------------------\r\n";
    EXPECT_EQ(Log("log"), Header() + block);
}

TEST_F(LogTest, RecipientTraceIsNamedByItsChannel)
{
    HostAttach(3);
    HostSetText(2, RYN_LOG_FILE, Path("log"));
    EXPECT_GT(HostSetText(2, RYN_RCPT_TRACE_FILE, Path("trace")), 0);
    EXPECT_GT(HostSetText(0, RYN_RCPT_TRACE_FILE, Path("trace")), 0);
    EXPECT_EQ(Log("trace_2.log"), "");
    EXPECT_EQ(Log("trace_0.log"), "");
    EXPECT_EQ(Log("trace"), "<no file>");
    EXPECT_GT(HostSetText(2, RYN_RCPT_TRACE_FILE, Path("next")), 0);
    EXPECT_EQ(HostSetText(2, RYN_RCPT_TRACE_FILE, Path("none/x")), RYN_ERR_CANNOT_CREATE_FILE);
    EXPECT_EQ(ChannelTable[2]->RcptTraceFile, 0);
    const auto creating = [&](const string& name) {
        return "Creating rcpt trace file '" + Path(name) + "_2.log'\r\n";
    };
    const string closing = "Closing rcpt trace file\r\n";
    EXPECT_EQ(Log("log"), Header() + Call(2, 77, "trace") + creating("trace") +
                              Call(2, 77, "next") + closing + creating("next") +
                              Call(2, 77, "none/x") + closing + creating("none/x"));
}
