// Several channels on several threads at once, over real sockets. Built plainly these cases show
// that nothing is lost, doubled or mixed up between channels; built with the thread sanitizer they
// show that the channels share nothing that is not guarded.
#include "include/ryn32.h"
#include "tests/real/exim_server.h"
#include "tests/support/temp_folder.h"
#include "tests/threads/smtp_sink.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

namespace {

// What one thread did with its channel, looked at when all threads are back.
struct ChannelRun {
    uint32_t Channel = 0;
    std::string Folder;
    std::string LogPath;
    std::vector<uint32_t> Sent;        // checksums of the bodies that the server took
    std::vector<std::string> Problems; // one line for each result that was not the one wanted
};

void Expect(ChannelRun& run, const char* what, int32_t result, int32_t wanted)
{
    if (result != wanted)
        run.Problems.push_back("channel " + std::to_string(run.Channel) + ": " + what + " gave " +
                               std::to_string(result) + ", wanted " + std::to_string(wanted));
}

// Stands in every line of a channel's messages and in no other channel's.
std::string Token(uint32_t channel)
{
    return "token-of-" + std::to_string(channel) + "-end";
}

std::string SenderOf(uint32_t channel)
{
    return "<from" + std::to_string(channel) + "@client" + std::to_string(channel) + ".test>";
}

// A text with dots to be stuffed, different for each channel and each message.
std::string MessageText(uint32_t channel, int32_t number, int32_t lines)
{
    std::string text;
    for (int32_t i = 0; i < lines; i++)
        text += std::string(static_cast<size_t>(i % 5), '.') + Token(channel) + " message " +
                std::to_string(number) + " line " + std::to_string(i) + "\r\n";
    return text;
}

void OpenLog(ChannelRun& run)
{
    run.LogPath = run.Folder + "/channel" + std::to_string(run.Channel) + ".log";
    if (rynStringParam(run.Channel, RYN_LOG_FILE, run.LogPath.c_str()) < 1)
        run.Problems.push_back("no log " + run.LogPath);
}

void Connect(ChannelRun& run)
{
    const std::string sender = SenderOf(run.Channel);
    Expect(run, "connect", rynSmtpConnect(run.Channel, "127.0.0.1", sender.c_str(), nullptr), 0);
}

void SendText(ChannelRun& run, const char* to, const std::string& text)
{
    const int32_t status =
        rynSendEmail(run.Channel, to, nullptr, nullptr, "x", text.c_str(), nullptr);
    Expect(run, "send", status, 0);
    if (status == 0)
        run.Sent.push_back(ChecksumOf(text));
}

// Attaches as many channels as there are runs, all for one port, without pauses between commands.
void Attach(std::vector<ChannelRun>& runs, uint32_t port, const std::string& folder)
{
    ASSERT_EQ(rynAttach(static_cast<uint32_t>(runs.size())), 999);
    ASSERT_EQ(rynIntegerParam(0, RYN_COMMAND_GAP, 0), 1);
    for (uint32_t i = 0; i < runs.size(); i++) {
        runs[i].Channel = i;
        runs[i].Folder = folder;
        ASSERT_EQ(rynIntegerParam(i, RYN_SMTP_PORT, port), 1);
    }
}

// Runs work on a thread for each channel at the same time and gathers what went wrong.
void RunAll(std::vector<ChannelRun>& runs, void (*work)(ChannelRun&))
{
    std::vector<std::thread> threads;
    for (ChannelRun& run : runs)
        threads.emplace_back([&run, work] { work(run); });
    for (std::thread& thread : threads)
        thread.join();
    for (ChannelRun& run : runs) {
        for (const std::string& problem : run.Problems)
            ADD_FAILURE() << problem;
        run.Problems.clear();
    }
}

// No log may hold a byte of another channel's session. The owner's token must be there, or the
// test would pass on empty logs.
void ExpectSeparateLogs(const std::vector<ChannelRun>& runs)
{
    for (const ChannelRun& run : runs) {
        const std::string log = ReadWholeFile(run.LogPath);
        for (const ChannelRun& other : runs) {
            SCOPED_TRACE(run.LogPath + " and " + Token(other.Channel));
            const bool isOwn = &run == &other;
            EXPECT_EQ(log.find(Token(other.Channel)) != std::string::npos, isOwn);
            EXPECT_EQ(log.find(SenderOf(other.Channel)) != std::string::npos, isOwn);
        }
    }
}

// Every text that a thread sent must stand among the sink's messages once, from its own sender.
void ExpectAllArrived(const SmtpSink& sink, const std::vector<ChannelRun>& runs)
{
    std::vector<std::pair<std::string, uint32_t>> sent, arrived;
    for (const ChannelRun& run : runs)
        for (const uint32_t sum : run.Sent)
            sent.push_back({ SenderOf(run.Channel), sum });
    for (const SinkMessage& message : sink.Messages) {
        arrived.push_back({ message.Sender, message.Checksum });
        EXPECT_NE(message.Head.find("\r\nDate: "), std::string::npos) << message.Head;
        EXPECT_NE(message.Head.find("\r\nFrom: " + message.Sender + "\r\n"), std::string::npos)
            << message.Head;
    }
    std::sort(sent.begin(), sent.end());
    std::sort(arrived.begin(), arrived.end());
    EXPECT_EQ(sent, arrived);
    EXPECT_EQ(sink.Strays, std::vector<std::string>());
}

ptrdiff_t CountOpenHandles()
{
    const std::filesystem::directory_iterator handles("/proc/self/fd");
    return std::distance(begin(handles), end(handles));
}

TEST(Threads, SendToARealServerFromTwoChannels)
{
    EximServer server;
    ASSERT_EQ(StartExim(server), "");
    std::vector<ChannelRun> runs(2);
    Attach(runs, server.Port, server.Folder);
    RunAll(runs, [](ChannelRun& run) {
        const char* to = run.Channel == 0 ? "<alice@example.test>" : "<bob@example.test>";
        OpenLog(run);
        Connect(run);
        for (int32_t number = 1; number <= 3; number++)
            SendText(run, to, MessageText(run.Channel, number, 200));
        Expect(run, "close", rynClose(run.Channel), 0);
    });
    EXPECT_EQ(rynRelease(), 1);
    for (const ChannelRun& run : runs) {
        const char* user = run.Channel == 0 ? "alice" : "bob";
        std::vector<std::string> wanted, stored;
        for (int32_t number = 1; number <= 3; number++) {
            std::string text = MessageText(run.Channel, number, 200), bytes;
            text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
            wanted.push_back(text);
            WaitForMail(server, user, static_cast<size_t>(number), bytes);
            stored.push_back(bytes.substr(std::min(bytes.find("\n\n") + 2, bytes.size())));
        }
        std::sort(stored.begin(), stored.end());
        EXPECT_EQ(stored, wanted);
        EXPECT_EQ(CountMail(server, user), 3U);
    }
    ExpectSeparateLogs(runs);
    StopExim(server);
}

// A file that can't be opened fails the send inside the message: only an abort gets out of there.
void FailAnOpen(ChannelRun& run)
{
    char text[256];
    const std::string name = "@missing-" + std::to_string(run.Channel);
    const int32_t status =
        rynSendEmail(run.Channel, "<to@sink.test>", nullptr, nullptr, "x", name.c_str(), nullptr);
    Expect(run, "send of a missing file", status, RYN_ERR_CANNOT_OPEN_FILE);
    // The name behind these words is that of whichever channel failed last.
    rynErrorText(run.Channel, RYN_ERR_CANNOT_OPEN_FILE, text, sizeof text);
    if (std::string(text).rfind("Cannot open file ", 0) != 0)
        run.Problems.push_back(std::string("error text: ") + text);
    Expect(run, "abort", rynAbort(run.Channel), 1);
}

void AskForTexts(ChannelRun& run)
{
    char text[256];
    Expect(run, "date", rynDebug(run.Channel, RYN_DEBUG_DATE, text, sizeof text - 1), 0);
    if (std::string(text).rfind("Date: ", 0) != 0)
        run.Problems.push_back(std::string("date: ") + text);
    rynDebug(run.Channel, RYN_DEBUG_WINDOWS_ERROR, text, sizeof text - 1);
    Expect(run, "subject", rynMakeSubject("caf\xE9", 4, text, sizeof text), 23);
    Expect(run, "format", rynVerifyFormat("a@b"), RYN_ERR_MISSING_LEFT_ANGLE);
}

TEST(Threads, SendManyMessagesFromEightChannels)
{
    constexpr int32_t Rounds = 3, MessagesARound = 2;
    const std::string folder = TempFolderMake();
    SmtpSink sink;
    ASSERT_TRUE(StartSink(sink));
    std::vector<ChannelRun> runs(8);
    Attach(runs, sink.Port, folder);
    RunAll(runs, [](ChannelRun& run) {
        OpenLog(run);
        for (int32_t round = 0; round < Rounds; round++) {
            Connect(run);
            for (int32_t i = 0; i < MessagesARound; i++) {
                const int32_t number = round * MessagesARound + i;
                SendText(run, "<to@sink.test>;<more@sink.test>",
                         MessageText(run.Channel, number, 1 + 7 * number));
                AskForTexts(run);
            }
            FailAnOpen(run);
        }
        Connect(run);
        SendText(run, "<to@sink.test>", MessageText(run.Channel, 99, 1));
        Expect(run, "close", rynClose(run.Channel), 0);
    });
    EXPECT_EQ(rynRelease(), 1);
    StopSink(sink);
    EXPECT_EQ(sink.Messages.size(), runs.size() * (Rounds * MessagesARound + 1));
    EXPECT_EQ(sink.Connections, static_cast<int32_t>(runs.size()) * (Rounds + 1));
    EXPECT_EQ(sink.CutShort, static_cast<int32_t>(runs.size()) * Rounds);
    ExpectAllArrived(sink, runs);
    ExpectSeparateLogs(runs);
    TempFolderRemove(folder);
}

TEST(Threads, AttachAndReleaseBetweenRuns)
{
    constexpr int32_t Rounds = 3;
    const std::string folder = TempFolderMake();
    SmtpSink sink;
    ASSERT_TRUE(StartSink(sink));
    std::vector<ChannelRun> runs(4);
    for (int32_t round = 0; round < Rounds; round++) {
        Attach(runs, sink.Port, folder);
        // The release finds two channels still connected, and all logs open.
        RunAll(runs, [](ChannelRun& run) {
            OpenLog(run);
            Connect(run);
            SendText(run, "<to@sink.test>",
                     MessageText(run.Channel, static_cast<int32_t>(run.Sent.size()), 9));
            if (run.Channel < 2)
                Expect(run, "close", rynClose(run.Channel), 0);
        });
        ExpectSeparateLogs(runs);
        EXPECT_EQ(rynRelease(), 1);
        EXPECT_EQ(rynStatistics(0, RYN_STAT_BLOCKS_ALLOCATED),
                  rynStatistics(0, RYN_STAT_BLOCKS_FREED));
        EXPECT_EQ(rynDriver(0), RYN_ERR_NOT_ATTACHED);
    }
    StopSink(sink);
    ExpectAllArrived(sink, runs);
    TempFolderRemove(folder);
}

TEST(Threads, LeaveNoHandleBehind)
{
    const std::string folder = TempFolderMake();
    std::vector<ChannelRun> runs(8);
    ptrdiff_t handles = 0;
    for (int32_t round = 0; round < 20; round++) {
        Attach(runs, 9, folder);
        RunAll(runs, [](ChannelRun& run) {
            OpenLog(run);
            AskForTexts(run);
            Expect(run, "no connection",
                   rynSendEmail(run.Channel, "<a@b>", nullptr, nullptr, "x", "y", nullptr),
                   RYN_ERR_SMTP_ONLY);
        });
        EXPECT_EQ(rynRelease(), 1);
        if (round == 0)
            handles = CountOpenHandles();
        EXPECT_EQ(CountOpenHandles(), handles);
    }
    TempFolderRemove(folder);
}

} // namespace
