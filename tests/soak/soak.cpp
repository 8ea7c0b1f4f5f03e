// The soak: every channel there can be, each on a thread of its own, sends messages and fetches them
// by POP3 or IMAP, round after round, with all attached anew in between. Every message has to come
// back once and byte for byte, and nothing of one channel may stand in another's files or log.
//
//   soak MINUTES [signals]
//
// Ends behind the first round that goes beyond the time. Exit code 1: a fault, told in a line. With
// "signals" the system cuts every second socket call of the library short and moves 97 bytes at most.
#include "include/ryn32.h"
#include "tests/soak/mail_room.h"
#include "tests/support/cut_short.h"
#include "tests/support/temp_folder.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>
#include <vector>

namespace {

constexpr char Server[] = "127.0.0.1";
constexpr uint32_t ReplyTimeoutMs = 60000;

// What one thread does with its channel.
struct Runner {
    uint32_t Channel = 0;
    uint32_t Round = 0;
    int32_t Least = 0; // messages of a round, of which other rounds have up to twice as many
    bool IsManual = false, HasLog = false, ByImap = false;
    std::string Folder; // of the channel alone; ends with a separator
    std::string Fault;  // the first one; empty: none
    uint64_t Messages = 0, Bytes = 0;
};

struct Content {
    int32_t Type; // of the text
    std::string Text;
    std::vector<std::string> Files;
};

// --- contents: made anew wherever they are needed, from the place of a message alone ---

// xorshift, 32 bits.
uint32_t Next(uint32_t& state)
{
    state ^= state << 13;
    state ^= state >> 17;
    return state ^= state << 5;
}

std::string Marker(uint32_t channel)
{
    return "marker-" + std::to_string(100 + channel).substr(1) + "-end";
}

std::string TextOf(uint32_t channel, int32_t type, uint32_t& state)
{
    const uint32_t lines = 1 + Next(state) % 60;
    const std::string extra = type == 0 ? " ~" : " \xE9=\xE9_";
    std::string text;
    for (uint32_t i = 0; i < lines; ++i)
        text += std::string(Next(state) % 4, '.') + Marker(channel) + " " +
                std::to_string(Next(state)) + extra + "\r\n";
    return text;
}

std::string BytesOf(uint32_t& state)
{
    constexpr uint32_t few = 3000, many = 150000;
    const uint32_t size = Next(state) % (Next(state) % 8 == 0 ? many : few);
    std::string bytes(size, 0);
    for (char& byte : bytes)
        byte = static_cast<char>(Next(state));
    return bytes;
}

Content ContentOf(const Runner& runner, int32_t number)
{
    constexpr int32_t latin = 4;
    uint32_t state =
        1 + runner.Channel + 100 * (runner.Round * 100 + static_cast<uint32_t>(number));
    for (int i = 0; i < 8; ++i)
        Next(state);
    Content content = { Next(state) % 2 == 0 ? 0 : latin, "", {} };
    content.Text = TextOf(runner.Channel, content.Type, state);
    for (uint32_t files = Next(state) % 3; files > 0; --files)
        content.Files.push_back(BytesOf(state));
    return content;
}

std::string FileName(const Runner& runner, size_t file)
{
    return Marker(runner.Channel) + std::to_string(file) + ".bin";
}

// --- one step ---

bool Check(Runner& runner, bool isRight, const std::string& what)
{
    if (!isRight && runner.Fault.empty())
        runner.Fault = "channel " + std::to_string(runner.Channel) + ", round " +
                       std::to_string(runner.Round) + (runner.ByImap ? " by IMAP" : " by POP3") +
                       (runner.IsManual ? ", manual: " : ": ") + what;
    return isRight;
}

// Ends what an operation has begun: true if it is a success.
bool Done(Runner& runner, const char* what, int32_t result)
{
    if (runner.IsManual && result >= 0)
        while ((result = rynDriver(runner.Channel)) > 0) {
        }
    if (result >= 0)
        return true;
    char text[256] = "", reply[256] = "";
    rynErrorText(runner.Channel, result, text, sizeof text);
    rynDebug(runner.Channel, RYN_DEBUG_LAST_REPLY, reply, sizeof reply - 1);
    return Check(runner, false,
                 std::string(what) + " gave " + std::to_string(result) + " " + text + " " + reply);
}

// Empty lines part a text from the head and from the parts that follow.
bool CheckFile(Runner& runner, const std::string& path, const std::string& wanted, bool isText)
{
    const std::string found = ReadWholeFile(path);
    runner.Bytes += found.size();
    std::filesystem::remove(path);
    std::string rest = found;
    if (const size_t at = found.find(wanted); isText && at != std::string::npos)
        rest.erase(at, wanted.size());
    const bool isSame = found == wanted || (isText && rest.find_first_not_of("\r\n") == rest.npos);
    return Check(runner, isSame,
                 std::string(isText ? "text" : "attachment") + " is not what was sent: " +
                     std::to_string(found.size()) + " bytes for " + std::to_string(wanted.size()));
}

// Ends the session. Manual driving leaves the socket to be dropped, and is over then.
bool Close(Runner& runner)
{
    if (!Done(runner, "close", rynClose(runner.Channel)))
        return false;
    if (!runner.IsManual)
        return true;
    rynAbort(runner.Channel);
    return rynIntegerParam(runner.Channel, RYN_AUTO_CALL_DRIVER, 0) == 1;
}

// --- a round ---

bool SendOne(Runner& runner, int32_t number)
{
    const Content content = ContentOf(runner, number);
    const std::string box = "<box" + std::to_string(runner.Channel) + "@soak.test>";
    std::string list;
    for (size_t i = 0; i < content.Files.size(); ++i) {
        const std::string path = runner.Folder + "out" + std::to_string(i);
        WriteWholeFile(path, content.Files[i]);
        list += (i > 0 ? ";" : "") + path + "|" + FileName(runner, i);
    }
    rynIntegerParam(runner.Channel, RYN_MESSAGE_TYPE, static_cast<uint32_t>(content.Type));
    return Done(runner, "send",
                rynSendEmail(runner.Channel, box.c_str(), nullptr, nullptr, "soak",
                             content.Text.c_str(), list.c_str()));
}

bool SendAll(Runner& runner, int32_t count)
{
    const std::string sender = "<" + Marker(runner.Channel) + "@soak.test>";
    if (!Done(runner, "connect", rynSmtpConnect(runner.Channel, Server, sender.c_str(), nullptr)))
        return false;
    for (int32_t number = 1; number <= count; ++number)
        if (!SendOne(runner, number))
            return false;
    return Close(runner);
}

bool FetchOne(Runner& runner, int32_t number)
{
    const char* const folder = runner.Folder.c_str();
    if (!Done(runner, "fetch", rynGetEmailFile(runner.Channel, number, "mail", folder, folder)))
        return false;
    const Content content = ContentOf(runner, number);
    if (!CheckFile(runner, runner.Folder + "mail", content.Text, true))
        return false;
    for (size_t i = 0; i < content.Files.size(); ++i)
        if (!CheckFile(runner, runner.Folder + FileName(runner, i), content.Files[i], false))
            return false;
    ++runner.Messages;
    return Done(runner, "delete", rynDeleteEmail(runner.Channel, number));
}

bool FetchAll(Runner& runner, int32_t count)
{
    const std::string box = "box" + std::to_string(runner.Channel);
    const auto connect = runner.ByImap ? rynImapConnect : rynPop3Connect;
    if (!Done(runner, "login", connect(runner.Channel, Server, box.c_str(), "secret")))
        return false;
    const int32_t asked = rynGetEmailCount(runner.Channel);
    if (!runner.ByImap && !Done(runner, "count", asked))
        return false;
    const int32_t there =
        runner.ByImap ? asked : rynStatistics(runner.Channel, RYN_STAT_EMAIL_COUNT);
    if (!Check(runner, there == count,
               std::to_string(there) + " messages for " + std::to_string(count)))
        return false;
    for (int32_t number = 1; number <= count; ++number)
        if (!FetchOne(runner, number))
            return false;
    return Close(runner);
}

// Every marker in the log is the channel's own, and there is one, or the look would prove nothing. A
// piece of a line may end inside of one.
void CheckLog(Runner& runner)
{
    const std::string log = ReadWholeFile(runner.Folder + "log"), own = Marker(runner.Channel);
    const std::string begin = "marker-";
    Check(runner, log.find(own) != std::string::npos, "the log tells nothing");
    for (size_t at = log.find(begin); at != std::string::npos; at = log.find(begin, at + 1)) {
        const std::string number = log.substr(at + begin.size(), 2);
        const bool isWhole = number.find_first_not_of("0123456789") == std::string::npos;
        if (!Check(runner, !isWhole || own.find(number) != std::string::npos,
                   "the log has another's line: " + log.substr(at, 40)))
            return;
    }
}

void RunRound(Runner& runner)
{
    constexpr uint32_t leavers = 5; // every fifth is still connected at the release
    const uint32_t channel = runner.Channel, turn = channel + runner.Round;
    const int32_t count = runner.Least + static_cast<int32_t>(turn) % runner.Least;
    runner.ByImap = turn % 2 == 0;
    runner.IsManual = turn % 3 == 0;
    runner.HasLog = turn / 2 % 2 == 0;
    rynIntegerParam(channel, RYN_AUTO_CALL_DRIVER, runner.IsManual ? 0 : 1);
    if (runner.HasLog)
        Check(runner, rynStringParam(channel, RYN_LOG_FILE, (runner.Folder + "log").c_str()) > 0,
              "no log");
    if (!SendAll(runner, count) || !FetchAll(runner, count))
        return;
    if (turn % leavers == 0)
        Done(runner, "last connect", rynSmtpConnect(channel, Server, "<a@soak.test>", nullptr));
}

// --- all of them ---

bool AttachAll(const MailRoom& room)
{
    if (rynAttach(RYN_MAX_CHANNELS) != 999)
        return false;
    const struct {
        int32_t Code;
        uint32_t Value;
    } rows[] = { { RYN_COMMAND_GAP, 0 },
                 { RYN_REPLY_TIMEOUT, ReplyTimeoutMs },
                 { RYN_POLL_DELAY, 1 },
                 { RYN_NO_ATTACH_NOTE, 1 },
                 { RYN_NO_HEADER_COPY, 1 },
                 { RYN_UNDERSCORE_TO_SPACE, 0 },
                 { RYN_SMTP_PORT, room.SmtpPort },
                 { RYN_POP3_PORT, room.Pop3Port },
                 { RYN_IMAP_PORT, room.ImapPort } };
    for (uint32_t channel = 0; channel < RYN_MAX_CHANNELS; ++channel)
        for (const auto& row : rows)
            rynIntegerParam(channel, row.Code, row.Value);
    return true;
}

ptrdiff_t OpenDescriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

// False: something is left of the round, or something was wrong in it.
bool EndRound(std::vector<Runner>& runners, ptrdiff_t descriptors)
{
    bool isRight = rynRelease() == 1;
    for (Runner& runner : runners) {
        if (runner.HasLog)
            CheckLog(runner);
        isRight = isRight && runner.Fault.empty();
        if (!runner.Fault.empty())
            printf("fault: %s\n", runner.Fault.c_str());
    }
    const int32_t blocks =
        rynStatistics(0, RYN_STAT_BLOCKS_ALLOCATED) - rynStatistics(0, RYN_STAT_BLOCKS_FREED);
    const ptrdiff_t left = OpenDescriptors() - descriptors;
    if (blocks != 0 || left != 0)
        printf("fault: %d blocks and %td descriptors are left\n", blocks, left);
    return isRight && blocks == 0 && left == 0;
}

// Runs rounds until the time is over: false at the first fault.
bool Soak(const MailRoom& room, std::vector<Runner>& runners, double seconds)
{
    const ptrdiff_t descriptors = OpenDescriptors();
    const auto start = std::chrono::steady_clock::now();
    uint64_t messages = 0, bytes = 0;
    uint32_t round = 0;
    double spent = 0;
    bool isRight = true;
    for (; isRight && (round == 0 || spent < seconds); ++round) {
        if (!AttachAll(room))
            return false;
        std::vector<std::thread> threads;
        for (Runner& runner : runners) {
            runner.Round = round;
            threads.emplace_back(RunRound, std::ref(runner));
        }
        for (std::thread& thread : threads)
            thread.join();
        isRight = EndRound(runners, descriptors);
        spent = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    for (const Runner& runner : runners) {
        messages += runner.Messages;
        bytes += runner.Bytes;
    }
    printf("checked %llu messages: %llu bytes in %.0f s, %u rounds of %zu channels\n",
           static_cast<unsigned long long>(messages), static_cast<unsigned long long>(bytes), spent,
           round, runners.size());
    return isRight;
}

} // namespace

int main(int count, char** words)
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const double minutes = count > 1 ? strtod(words[1], nullptr) : 0;
    const bool hasSignals = count == 3 && strcmp(words[2], "signals") == 0;
    MailRoom room = {};
    if (count < 2 || (count > 2 && !hasSignals) || !OpenMailRoom(room)) {
        fputs("usage: soak MINUTES [signals]\n", stderr);
        return 2;
    }
    CutShortAlways(hasSignals); // in this process: the server has its own
    const std::string folder = TempFolderMake();
    std::vector<Runner> runners(RYN_MAX_CHANNELS);
    for (uint32_t channel = 0; channel < RYN_MAX_CHANNELS; ++channel) {
        runners[channel].Channel = channel;
        runners[channel].Least = minutes < 1 ? 1 : 5;
        runners[channel].Folder = folder + "/" + std::to_string(channel) + "/";
        std::filesystem::create_directory(runners[channel].Folder);
    }
    const bool isRight = Soak(room, runners, 60 * minutes);
    CloseMailRoom(room);
    TempFolderRemove(folder);
    return isRight && hasSignals == (CutShortSignals() > 0) ? 0 : 1;
}
