// The test fixture of everything that sends to a real server: Exim, one attached channel without
// pauses between commands, and the way to the stored message.
#pragma once

#include "include/ryn32.h"
#include "tests/real/exim_server.h"
#include "tests/support/temp_folder.h"

#include <gtest/gtest.h>
#include <regex>

constexpr char Sender[] = "Ann <ann@client.test>";
constexpr char Alice[] = "<alice@example.test>";

struct StoredMail {
    std::string Head; // header lines, each with its LF; the two that differ each time end in "*"
    std::string Body; // all behind the empty line
};

// Replaces what no test can know beforehand, but only where it has the right form.
inline std::string MaskHead(const std::string& head)
{
    static const std::regex date("\nDate: (Sun|Mon|Tue|Wed|Thu|Fri|Sat), [1-9][0-9]? "
                                 "(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [0-9]{4} "
                                 "[0-9]{2}:[0-9]{2}:[0-9]{2} [+-][0-9]{4}\n");
    static const std::regex id(
        "\nMessage-ID: <[0-9a-f]{8}\\.[0-9a-f]{24}\\.0\\.0@client\\.test>\n");
    const std::string dated = std::regex_replace(head, date, "\nDate: *\n");
    return std::regex_replace(dated, id, "\nMessage-ID: *\n");
}

inline std::string LastReply()
{
    char reply[2048 + 1];
    rynDebug(0, RYN_DEBUG_LAST_REPLY, reply, 2048);
    return reply;
}

struct RealSend : testing::Test {
    EximServer Server;

    void SetUp() override
    {
        ASSERT_EQ(StartExim(Server), "");
        ASSERT_EQ(rynAttach(1), 999);
        ASSERT_EQ(rynIntegerParam(0, RYN_SMTP_PORT, Server.Port), 1);
        ASSERT_EQ(rynIntegerParam(0, RYN_COMMAND_GAP, 0), 1);
    }

    void TearDown() override
    {
        rynRelease();
        StopExim(Server);
    }

    int32_t Connect()
    {
        return rynSmtpConnect(0, "127.0.0.1", Sender, nullptr);
    }

    int32_t Send(const char* to, const char* message)
    {
        return rynSendEmail(0, to, nullptr, nullptr, "x", message, nullptr);
    }

    StoredMail Stored(const char* user, size_t n)
    {
        std::string bytes;
        WaitForMail(Server, user, n, bytes);
        const size_t end = bytes.find("\n\n");
        if (end == std::string::npos)
            return { "no empty line in: " + bytes, "" };
        return { MaskHead(bytes.substr(0, end + 1)), bytes.substr(end + 2) };
    }

    std::string OpenLog(const char* name)
    {
        const std::string path = Server.Folder + "/" + name;
        EXPECT_GT(rynStringParam(0, RYN_LOG_FILE, path.c_str()), 0);
        return path;
    }
};
