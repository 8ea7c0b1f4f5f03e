// The host's habits of the wire tests.
#include "tests/support/host.h"

#include "tests/support/fault.h"
#include "tests/support/scripted_peer.h"
#include "tests/support/temp_folder.h"
#include "tests/support/virtual_clock.h"
#include "tests/support/virtual_socket.h"

#include <regex>

static void FreshWorld()
{
    VirtualClockReset();
    VirtualNetworkReset();
    PeersReset();
}

void HostTest::SetUp()
{
    rynRelease();
    FreshWorld();
    DescriptorsBefore = OpenDescriptors();
    Folder = TempFolderMake();
}

void HostTest::Renew()
{
    FaultDisarm();
    PeersCheck();
    EXPECT_EQ(HostReleaseLeaves(DescriptorsBefore), "");
    FreshWorld();
}

void HostTest::TearDown()
{
    Renew();
    TempFolderRemove(Folder);
}

std::string HostTest::Path(const std::string& name) const
{
    return Folder + "/" + name;
}

static uint32_t AttachTick = 0;

void HostAttach(uint32_t channels)
{
    AttachTick = osTickCount();
    ASSERT_EQ(rynAttach(channels), 999);
    for (uint32_t channel = 0; channel < channels; ++channel)
        HostSet(channel, RYN_SMTP_PORT, HostPort);
}

void HostSet(uint32_t channel, int32_t code, uint32_t value)
{
    EXPECT_EQ(rynIntegerParam(channel, code, value), 1) << "code " << code;
}

int32_t HostSetText(uint32_t channel, uint32_t code, const std::string& text)
{
    return rynStringParam(channel, code, text.c_str());
}

std::string HostReleaseLeaves(int descriptorsBefore)
{
    rynRelease();
    std::string left;
    const int32_t blocks =
        rynStatistics(0, RYN_STAT_BLOCKS_ALLOCATED) - rynStatistics(0, RYN_STAT_BLOCKS_FREED);
    if (VirtualOpenSockets() != 0)
        left += std::to_string(VirtualOpenSockets()) + " sockets ";
    if (blocks != 0)
        left += std::to_string(blocks) + " blocks ";
    if (OpenDescriptors() != descriptorsBefore)
        left += std::to_string(OpenDescriptors() - descriptorsBefore) + " descriptors";
    return left;
}

std::string HostSeed()
{
    return "===RYN" + std::to_string(rynStatistics(0, RYN_STAT_CID)) + "99" +
           std::to_string(static_cast<int32_t>(AttachTick)) + "===";
}

std::string HostLog(const std::string& path)
{
    const std::string text = ReadWholeFile(path);
    static const std::regex state("(<[ 0-9]{3}:)-?[0-9]+(>\r\n)");
    static const std::regex error("(ERROR\\()-?[0-9]+(\\): Sock)");
    static const std::regex seed("(===RYN[0-9]*99)-?[0-9]+===");
    static const std::regex messageId("<[0-9a-f]{8}\\.[0-9a-f]{24}\\.");
    std::string result = std::regex_replace(text, state, "$1#$2");
    result = std::regex_replace(result, error, "$1#$2");
    result = std::regex_replace(result, seed, "$1#===");
    return std::regex_replace(result, messageId, "<#.");
}

std::vector<int32_t> HostDrive(uint32_t channel)
{
    std::vector<int32_t> results;
    int32_t result = 1;
    while (result > 0) {
        result = rynDriver(channel);
        results.push_back(result);
        VirtualClockAdvance(1); // the host's other work
    }
    return results;
}

std::string HostPathOf(const std::vector<int32_t>& results)
{
    std::string path;
    int32_t last = DRIVER_NOT_YET;
    for (const int32_t result : results) {
        if (result == DRIVER_NOT_YET || result == last)
            continue;
        path += (path.empty() ? "" : " ") + std::to_string(result);
        last = result;
    }
    return path;
}

int32_t HostFinish(uint32_t channel, int32_t result, bool manual)
{
    if (!manual || result < 0)
        return result;
    EXPECT_EQ(result, 0) << "manual driving begins with 0";
    return HostDrive(channel).back();
}

std::string HostDebug(uint32_t channel, int32_t code)
{
    char text[4096] = "";
    rynDebug(channel, code, text, sizeof(text) - 1);
    return text;
}

std::string HostErrorText(uint32_t channel, int32_t status)
{
    char text[4096] = "";
    rynErrorText(channel, status, text, sizeof(text));
    return text;
}

std::string Repeat(const std::string& text, size_t n)
{
    std::string result;
    for (size_t i = 0; i < n; ++i)
        result += text;
    return result;
}
