// Attaching and releasing, the guards of every operation, and the end of a conversation.
#include "frame/channel.h"

#include "frame/memory.h"
#include "frame/settings.h"
#include "frame/states.h"
#include "tests/support/fault.h"
#include "tests/support/host.h"
#include "tests/support/temp_folder.h"
#include "tests/support/virtual_socket.h"
#include "transport/vfile.h"
#include "transport/vsock.h"

using std::string;

struct ChannelTest : HostTest {};

TEST_F(ChannelTest, AttachesUpTo65AndOnce)
{
    EXPECT_EQ(rynAttach(66), RYN_ERR_CHANNEL_RANGE);
    EXPECT_EQ(rynAttach(0xFFFFFFFF), RYN_ERR_CHANNEL_RANGE);
    EXPECT_EQ(rynAttach(0), 999);
    EXPECT_EQ(rynClose(0), RYN_ERR_NOT_ATTACHED);
    EXPECT_EQ(rynAttach(65), 999);
    EXPECT_EQ(ChannelCount, 65u);
    EXPECT_EQ(rynAttach(1), RYN_ERR_ALREADY_ATTACHED);
    EXPECT_EQ(rynAttach(66), RYN_ERR_ALREADY_ATTACHED);
    EXPECT_EQ(rynClose(64), 0);
    EXPECT_EQ(rynClose(65), RYN_ERR_CHANNEL_RANGE);
    EXPECT_EQ(rynRelease(), 1);
    EXPECT_EQ(ChannelCount, 0u);
    EXPECT_EQ(rynRelease(), 1);
    EXPECT_EQ(rynAttach(2), 999);
}

TEST_F(ChannelTest, AddsToTheWaitsAtEachAttach)
{
    ASSERT_EQ(rynAttach(3), 999);
    EXPECT_EQ(ReplyTimeout, 36000u);
    EXPECT_EQ(DataTimeout, 66000u);
    EXPECT_EQ(FetchTimeout, 66000u);
    rynRelease();
    ASSERT_EQ(rynAttach(3), 999);
    EXPECT_EQ(ReplyTimeout, 42000u);
    HostSet(0, RYN_REPLY_TIMEOUT, 5000);
    EXPECT_EQ(FetchTimeout, 5000u);
    rynRelease();
    ASSERT_EQ(rynAttach(1), 999);
    EXPECT_EQ(FetchTimeout, 7000u);
}

TEST_F(ChannelTest, LeavesNothingOfAFailedAttach)
{
    for (int nth = 1; nth <= 3; ++nth) {
        FaultArm(FAULT_ALLOCATE, nth);
        EXPECT_EQ(rynAttach(3), RYN_ERR_NO_MEMORY) << nth;
        EXPECT_TRUE(FaultDisarm());
        EXPECT_EQ(rynClose(0), RYN_ERR_NOT_ATTACHED);
        EXPECT_EQ(BlocksAllocated, BlocksFreed);
        EXPECT_EQ(rynAttach(3), 999); // the lock was left
        EXPECT_EQ(HostReleaseLeaves(DescriptorsBefore), "");
    }
}

// Operations of each kind, with arguments that it would refuse by another status.
static constexpr struct {
    const char* Name;
    int32_t (*Call)(uint32_t channel);
} Operations[] = {
    { "Close", rynClose },
    { "Abort", rynAbort },
    { "Driver", rynDriver },
    { "ErrorText", [](uint32_t c) { return rynErrorText(c, -1, nullptr, 0); } },
    { "Statistics", [](uint32_t c) { return rynStatistics(c, 9999); } },
    { "Debug",
      [](uint32_t c) {
          char text[2] = "x";
          const int32_t result = rynDebug(c, 9999, text, 1);
          return text[0] == 0 ? result : 1; // the text is emptied first
      } },
    { "SendEmail",
      [](uint32_t c) {
          return rynSendEmail(c, nullptr, nullptr, nullptr, nullptr, nullptr, "x");
      } },
    { "VerifyUser", [](uint32_t c) { return rynVerifyUser(c, nullptr); } },
};

TEST_F(ChannelTest, OperationsBeginWithTheTwoGuards)
{
    for (const auto& operation : Operations)
        for (const uint32_t channel : { 0u, 70u, 0xFFFFFFFFu })
            EXPECT_EQ(operation.Call(channel), RYN_ERR_NOT_ATTACHED) << operation.Name;
    HostAttach(2);
    for (const auto& operation : Operations)
        for (const uint32_t channel : { 2u, 65u, 0xFFFFFFFFu })
            EXPECT_EQ(operation.Call(channel), RYN_ERR_CHANNEL_RANGE) << operation.Name;
}

TEST_F(ChannelTest, AbortForgetsWhatWasToBeDriven)
{
    HostAttach(1);
    Channel& ch = *ChannelTable[0];
    WriteWholeFile(Path("text"), "abc");
    HostSet(0, RYN_AUTO_CALL_DRIVER, 0);
    ch.VSock = vsCreate(0);
    ch.Protocol = 'S';
    ch.NextState = ST_SMTP_MAIL_REPLY;
    ch.AfterConnectState = ST_SMTP_GREETING;
    ch.AttachHandle = u_Open(Path("text").c_str(), 0, false);
    ch.AltHandle = u_Open(Path("text").c_str(), 0, false);
    ASSERT_NE(AllocAndCopy(0, SLOT_TO, "<a@b>"), nullptr);
    EXPECT_EQ(rynAbort(0), 1);
    EXPECT_EQ(ch.VSock, -1);
    EXPECT_EQ(VirtualOpenSockets(), 0);
    EXPECT_EQ(ch.NextState, ST_IDLE);
    EXPECT_EQ(ch.AfterConnectState, 0);
    EXPECT_EQ(ch.AutoCallDriver, 1);
    EXPECT_EQ(ch.AttachHandle, 0);
    EXPECT_EQ(ch.AltHandle, 0);
    EXPECT_EQ(ch.Protocol, 'S');
    EXPECT_EQ(BlockExists(1), 1); // the blocks stay
    EXPECT_EQ(OpenDescriptors(), DescriptorsBefore);
}

TEST_F(ChannelTest, ReleaseClosesAllThatChannelsHold)
{
    HostAttach(3);
    for (uint32_t i = 0; i < 3; ++i) {
        ChannelTable[i]->VSock = vsCreate(0);
        EXPECT_GT(HostSetText(i, RYN_LOG_FILE, Path("log" + std::to_string(i))), 0);
        EXPECT_GT(HostSetText(i, RYN_RCPT_TRACE_FILE, Path("trace")), 0);
        EXPECT_NE(AllocateMemory(static_cast<int32_t>(i), SLOT_SEARCH, 10), nullptr);
    }
    EXPECT_EQ(HostReleaseLeaves(DescriptorsBefore), "");
}
