// The test fixture of everything that reads mail from a real server: Dovecot, attached channels
// without pauses, a folder for what is fetched, and both ways of driving.
#pragma once

#include "include/ryn32.h"
#include "tests/real/dovecot_server.h"
#include "tests/support/temp_folder.h"

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <sys/stat.h>
#include <sys/time.h>

inline std::string LastReply(uint32_t channel = 0)
{
    char reply[2048 + 1];
    rynDebug(channel, RYN_DEBUG_LAST_REPLY, reply, 2048);
    return reply;
}

// A text of rynDebug or rynGetHeader.
inline std::string DebugText(int32_t code)
{
    std::string text(8192, 0);
    text.resize(static_cast<size_t>(rynDebug(0, code, text.data(), 8191)));
    return text;
}

inline std::string HeaderText(int32_t code)
{
    std::string text(8192, 0);
    text.resize(static_cast<size_t>(rynGetHeader(0, code, text.data(), 8191)));
    return text;
}

inline std::string ReplaceAll(std::string text, const std::string& from, const std::string& to)
{
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at))
        text.replace(at, from.size(), to), at += to.size();
    return text;
}

// A stored message as a server sends it: lines end in CR LF, the last one too.
inline std::string OnTheWire(const std::string& stored)
{
    std::string text = ReplaceAll(ReplaceAll(stored, "\r\n", "\n"), "\n", "\r\n");
    if (!text.ends_with("\r\n"))
        text += "\r\n";
    return text;
}

struct RealMailbox : testing::Test {
    DovecotServer Box;
    std::string Folder; // for what is fetched; attachments go to Folder/att
    bool IsManual = false;

    void SetUp() override
    {
        Folder = TempFolderMake();
        mkdir((Folder + "/att").c_str(), 0755);
    }

    void TearDown() override
    {
        rynRelease();
        StopDovecot(Box);
        TempFolderRemove(Folder);
    }

    void Attach(uint32_t channels = 1)
    {
        // Sockets take over the pause between two looks when they are made.
        ASSERT_EQ(rynAttach(1), 999);
        ASSERT_EQ(rynIntegerParam(0, RYN_POLL_DELAY, 1), 1);
        rynRelease();
        ASSERT_EQ(rynAttach(channels), 999);
        ASSERT_EQ(rynIntegerParam(0, RYN_COMMAND_GAP, 0), 1);
        for (uint32_t channel = 0; channel < channels; ++channel) {
            ASSERT_EQ(rynIntegerParam(channel, RYN_POP3_PORT, Box.Pop3Port), 1);
            ASSERT_EQ(rynIntegerParam(channel, RYN_IMAP_PORT, Box.ImapPort), 1);
        }
    }

    void DriveManually(bool isManual)
    {
        IsManual = isManual;
        ASSERT_EQ(rynIntegerParam(0, RYN_AUTO_CALL_DRIVER, isManual ? 0 : 1), 1);
    }

    // The outcome of an operation of channel 0, whichever way it is driven.
    int32_t Ended(int32_t result)
    {
        if (!IsManual || result < 0)
            return result;
        EXPECT_EQ(result, 0);
        while ((result = rynDriver(0)) > 0)
            continue;
        return result;
    }

    // The same for an operation that results in a number.
    int32_t Number(int32_t result, uint32_t statistic)
    {
        const int32_t outcome = Ended(result);
        return IsManual && outcome == 0 ? rynStatistics(0, statistic) : outcome;
    }

    int32_t Login(const char* user = "alice", const char* password = "secret1")
    {
        return Ended(rynPop3Connect(0, "127.0.0.1", user, password));
    }

    int32_t Close()
    {
        const int32_t result = Ended(rynClose(0));
        if (IsManual) {
            rynAbort(0);
            rynIntegerParam(0, RYN_AUTO_CALL_DRIVER, 0);
        }
        return result;
    }

    int32_t Fetch(int32_t message, const char* name = "mail")
    {
        return Ended(rynGetEmailFile(0, message, name, Folder.c_str(), (Folder + "/att").c_str()));
    }

    std::string Saved(const std::string& name = "mail")
    {
        return ReadWholeFile(Folder + "/" + name);
    }

    // The attachments that stand on the disk, by name; they are gone afterwards.
    std::map<std::string, std::string> TakeAttachments()
    {
        std::map<std::string, std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(Folder + "/att"))
            files[entry.path().filename()] = ReadWholeFile(entry.path());
        std::filesystem::remove_all(Folder + "/att");
        mkdir((Folder + "/att").c_str(), 0755);
        return files;
    }

    int32_t Count()
    {
        return Number(rynGetEmailCount(0), RYN_STAT_EMAIL_COUNT);
    }

    std::string OpenLog()
    {
        EXPECT_GT(rynStringParam(0, RYN_LOG_FILE, (Folder + "/log").c_str()), 0);
        return Folder + "/log";
    }
};
