// What fetching and decoding cost beside other libraries: an attachment of 64 MiB and 500 small
// messages, each decoded from files by the library and by GMime, and fetched by POP3 and by
// IMAP by the library and by libcurl with GMime behind it. Every run must have the right result.
//
//     fetch_bench                   all measures
//     fetch_bench NAME [ROUNDS]     one of them, in this process, for strace and perf
#include "bench/curl_fetch.h"
#include "bench/gmime_decode.h"
#include "bench/mail_peer.h"
#include "bench/measure.h"
#include "bench/messages.h"
#include "bench/ryn_fetch.h"
#include "codec/base64.h"
#include "codec/quoted.h"
#include "include/ryn32.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <unistd.h>

// --- the work ---

struct Task {
    std::vector<BenchMessage> Messages;
    int32_t FirstNumber; // on the server
    double Units;        // of which the cost is told
    const char* Unit;
    double UnitsPerSecond;
};

static std::string OutFolder;
static PeerProcess Pop3Peer;
static PeerProcess ImapPeer;

static void StopPeers()
{
    StopPeerProcess(Pop3Peer);
    StopPeerProcess(ImapPeer);
}

static bool DecodeByRyn(const void* data)
{
    return RynDecode(static_cast<const Task*>(data)->Messages, OutFolder);
}

static bool Pop3ByRyn(const void* data)
{
    const Task& task = *static_cast<const Task*>(data);
    return RynFetchByPop3(task.Messages, Pop3Peer.Port, task.FirstNumber, OutFolder);
}

static bool ImapByRyn(const void* data)
{
    const Task& task = *static_cast<const Task*>(data);
    return RynFetchByImap(task.Messages, ImapPeer.Port, task.FirstNumber, OutFolder);
}

static bool DecodeByGmime(const void* data)
{
    bool isRight = true;
    for (const BenchMessage& message : static_cast<const Task*>(data)->Messages)
        isRight = isRight && GmimeDecodeFile(message.File, OutFolder, message.Name);
    return isRight;
}

static bool FetchByCurl(const Task& task, std::string (*address)(uint16_t, size_t), uint16_t port)
{
    GByteArray* bytes = g_byte_array_new();
    CURL* curl = CurlOpen();
    size_t number = static_cast<size_t>(task.FirstNumber);
    bool isRight = true;
    for (const BenchMessage& message : task.Messages)
        isRight = isRight && CurlFetch(curl, address(port, number++), bytes) &&
                  GmimeDecodeBytes(bytes, OutFolder, message.Name);
    CurlClose(curl);
    g_byte_array_free(bytes, TRUE);
    return isRight;
}

static bool Pop3ByCurl(const void* data)
{
    return FetchByCurl(*static_cast<const Task*>(data), Pop3Address, Pop3Peer.Port);
}

static bool ImapByCurl(const void* data)
{
    return FetchByCurl(*static_cast<const Task*>(data), ImapAddress, ImapPeer.Port);
}

static void PrepareOthers()
{
    GmimePrepare();
    CurlPrepare();
}

// --- the measures ---

enum TaskIndex { Large, Small, Text, Head, TaskCount };
static Task Tasks[TaskCount];

struct Contest {
    const char* Name;
    TaskIndex Index;
    bool (*Ours)(const void*);
    bool (*Theirs)(const void*);
};

static const Contest Contests[] = {
    { "decode_large", Large, DecodeByRyn, DecodeByGmime },
    { "fetch_large", Large, Pop3ByRyn, Pop3ByCurl },
    { "imap_large", Large, ImapByRyn, ImapByCurl },
    { "decode_small", Small, DecodeByRyn, DecodeByGmime },
    { "fetch_small", Small, Pop3ByRyn, Pop3ByCurl },
    { "imap_small", Small, ImapByRyn, ImapByCurl },
    { "decode_text_line", Text, DecodeByRyn, DecodeByGmime },
    { "fetch_text_line", Text, Pop3ByRyn, Pop3ByCurl },
    { "imap_text_line", Text, ImapByRyn, ImapByCurl },
    { "decode_header_line", Head, DecodeByRyn, DecodeByGmime },
};

static void MakeTasks(const std::string& folder)
{
    constexpr int lines = 500000;
    constexpr double nanoseconds = 1e9;
    constexpr double milliseconds = 1e3;
    Tasks[Large] = { { MakeLargeMessage(folder, int64_t{ 64 } << 20) }, 1, 1, "ms", milliseconds };
    Tasks[Text] = { { MakeLongText(folder, lines) }, 2, lines, "ns", nanoseconds };
    Tasks[Head] = { { MakeLongHead(folder, lines) }, 3, lines, "ns", nanoseconds };
    Tasks[Small] = { MakeSmallMessages(folder, 500), 4, 1, "ms", milliseconds };
}

static std::vector<std::string> ServedFiles()
{
    std::vector<std::string> files;
    for (const TaskIndex index : { Large, Text, Head, Small })
        for (const BenchMessage& message : Tasks[index].Messages)
            files.push_back(message.File);
    return files;
}

static void EmptyOutFolder()
{
    std::error_code error;
    std::filesystem::remove_all(OutFolder, error);
    std::filesystem::create_directory(OutFolder, error);
}

// Ends the program when a result is wrong: figures of wrong work would mislead.
static void RequireResult(const Task& task, bool isRight, const char* name, const char* who)
{
    for (const BenchMessage& message : task.Messages)
        isRight = isRight && IsDecoded(message, OutFolder);
    if (isRight)
        return;
    fflush(stdout);
    fprintf(stderr, "%s by %s: wrong result in %s\n", name, who, OutFolder.c_str());
    StopPeers();
    _exit(1);
}

struct Figures {
    std::vector<double> Seconds;
    int64_t PeakKiB = 0;
};

static void RunOnce(const Contest& contest, bool isOurs, Figures& figures)
{
    const Task& task = Tasks[contest.Index];
    EmptyOutFolder();
    const Cost cost = MeasureInChild(isOurs ? nullptr : PrepareOthers,
                                     isOurs ? contest.Ours : contest.Theirs, &task);
    RequireResult(task, cost.IsRight, contest.Name, isOurs ? "the library" : "the others");
    figures.Seconds.push_back(cost.CpuSeconds);
    figures.PeakKiB = std::max(figures.PeakKiB, cost.PeakKiB);
}

// The least and the middle of the runs.
static void PrintFigures(const Contest& contest, const char* who, Figures& figures)
{
    const Task& task = Tasks[contest.Index];
    const double scale = task.UnitsPerSecond / task.Units;
    std::sort(figures.Seconds.begin(), figures.Seconds.end());
    printf("%s_%s %.2f %s\n", contest.Name, who, figures.Seconds.front() * scale, task.Unit);
    printf("%s_%s_median %.2f %s\n", contest.Name, who,
           figures.Seconds[figures.Seconds.size() / 2] * scale, task.Unit);
    printf("%s_%s_peak %.1f MiB\n", contest.Name, who, static_cast<double>(figures.PeakKiB) / 1024);
}

static double Measure(const Contest& contest, int rounds)
{
    Figures ours;
    Figures theirs;
    for (int i = 0; i < rounds; i++) {
        RunOnce(contest, true, ours);
        RunOnce(contest, false, theirs);
    }
    PrintFigures(contest, "ryn", ours);
    PrintFigures(contest, "others", theirs);
    fflush(stdout);
    return ours.Seconds.front() / theirs.Seconds.front();
}

// --- the decoders by themselves ---

static constexpr int32_t CodecBytes = 57 * 16;

static double DecodeBase64Lines(std::string& text, std::string& target)
{
    Base64Carry carry = {};
    double decoded = 0;
    for (size_t place = 0; place < text.size(); place += 78) {
        memcpy(&text[place + 76], "\r\n", 2); // the decoder cuts it off in place
        decoded += DecodeBase64Stream(carry, &text[place], target.data(), 78);
    }
    return decoded;
}

static double DecodeQuotedLines(std::string& text, std::string& target)
{
    uint32_t spaces = 0;
    double decoded = 0;
    for (size_t place = 0; place < text.size(); place += strlen(&text[place]) + 1)
        decoded += UnquoteText(&text[place], target.data(), false, spaces);
    return decoded;
}

static void PrintCodec(const char* name, std::string& text,
                       double (*decode)(std::string&, std::string&))
{
    std::string target(2 * text.size() + 16, 0);
    double best = 0;
    for (int i = 0; i < 50; i++) {
        double bytes = 0;
        const double start = CpuSeconds();
        for (int k = 0; k < 2000; k++)
            bytes += decode(text, target);
        best = std::max(best, bytes / (CpuSeconds() - start));
    }
    printf("%s %.2f GB/s\n", name, best * 1e-9);
}

static void MeasureCodecs()
{
    std::string base64(CodecBytes / 57 * 78 + 1, 0);
    const std::string source(CodecBytes, 'x');
    rynEncodeBuffer(source.data(), base64.data(), CodecBytes);
    base64.pop_back();
    PrintCodec("decode_base64_lines", base64, DecodeBase64Lines);
    std::string quoted;
    for (int i = 0; i < 12; i++)
        quoted +=
            std::string("<p class=3D\"x\">Viele Gr=C3=BC=C3=9Fe aus der Stadt, in der die =\r\n") +
            '\0';
    PrintCodec("decode_quoted_lines", quoted, DecodeQuotedLines);
}

// --- the program ---

static int RunInPlace(const Contest& contest, bool isOurs, const char* name, int rounds)
{
    const Task& task = Tasks[contest.Index];
    if (!isOurs)
        PrepareOthers();
    for (int i = 0; i < rounds; i++) {
        EmptyOutFolder();
        const double start = CpuSeconds();
        const bool isRight = (isOurs ? contest.Ours : contest.Theirs)(&task);
        printf("%s %.2f ms\n", name, (CpuSeconds() - start) * 1e3);
        RequireResult(task, isRight, name, "itself");
    }
    return 0;
}

static int RunByName(const char* name, int rounds)
{
    for (const Contest& contest : Contests) {
        const std::string measure = contest.Name;
        if (measure + "_ryn" == name)
            return RunInPlace(contest, true, name, rounds);
        if (measure + "_others" == name)
            return RunInPlace(contest, false, name, rounds);
    }
    fprintf(stderr, "no such measure: %s\n", name);
    return 1;
}

static int RunAll(int rounds)
{
    std::vector<double> ratios;
    for (const Contest& contest : Contests)
        ratios.push_back(Measure(contest, rounds));
    MeasureCodecs();
    for (size_t i = 0; i < ratios.size(); i++)
        printf("%s_ratio %.2f x\n", Contests[i].Name, ratios[i]);
    return 0;
}

// TMPDIR if that is set. Else in memory where there is such a place: making and removing thousands
// of files on a disk is noise that hides what is measured.
static std::string MakeFolder()
{
    const char* const wanted = getenv("TMPDIR");
    const bool hasMemory = access("/dev/shm", W_OK) == 0;
    std::string folder = wanted != nullptr ? wanted : hasMemory ? "/dev/shm" : "/tmp";
    folder += "/ryn32-bench-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        perror(folder.c_str());
        exit(1);
    }
    return folder;
}

int main(int argc, char** argv)
{
    const std::string folder = MakeFolder();
    OutFolder = folder + "/out";
    MakeTasks(folder);
    Pop3Peer = StartMailPeer(PEER_POP3, ServedFiles());
    ImapPeer = StartMailPeer(PEER_IMAP, ServedFiles());
    if (Pop3Peer.Port == 0 || ImapPeer.Port == 0)
        return 1;
    const int rounds = argc > 2 ? atoi(argv[2]) : 1;
    const int result = argc > 1 ? RunByName(argv[1], rounds) : RunAll(7);
    StopPeers();
    std::error_code error;
    std::filesystem::remove_all(folder, error);
    return result;
}
