// What sending costs: a driver step of an idle channel, a line of a long text, a small message.
#include "bench/curl_upload.h"
#include "bench/drain_peer.h"
#include "include/ryn32.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

static PeerProcess Peer;
static std::string TextFile; // 64 MiB of text in lines of 70 chars and a line end

static constexpr int64_t TextBytes = int64_t{ 64 } << 20;
static constexpr int64_t LineBytes = 71;

static void Require(int32_t result, const char* what)
{
    if (result >= 0)
        return;
    char text[256] = "";
    rynErrorText(0, result, text, sizeof text);
    fprintf(stderr, "%s: %d %s\n", what, result, text);
    exit(1);
}

static void MakeTextFile()
{
    char name[] = "/tmp/ryn32-bench-XXXXXX";
    const int file = mkstemp(name);
    FILE* out = fdopen(file, "w");
    const std::string line = std::string(static_cast<size_t>(LineBytes) - 1, 'x') + "\n";
    for (int64_t i = 0; i < TextBytes / LineBytes; i++)
        fputs(line.c_str(), out);
    fclose(out);
    TextFile = name;
}

static void Connect()
{
    Require(rynAttach(1), "attach");
    Require(rynIntegerParam(0, RYN_SMTP_PORT, Peer.Port), "port");
    Require(rynIntegerParam(0, RYN_COMMAND_GAP, 0), "gap");
    Require(rynSmtpConnect(0, "127.0.0.1", "<a@x.example>", nullptr), "connect");
}

static void Disconnect()
{
    rynClose(0);
    rynRelease();
}

static void IdleDriver(benchmark::State& state)
{
    Require(rynAttach(1), "attach");
    for (auto _ : state)
        benchmark::DoNotOptimize(rynDriver(0));
    state.SetItemsProcessed(state.iterations());
    rynRelease();
}
BENCHMARK(IdleDriver);

// One iteration is one message; the figures are told for a line and a driver step of it.
static void TextFromFile(benchmark::State& state)
{
    Connect();
    const std::string message = "@" + TextFile;
    const int32_t before = rynStatistics(0, RYN_STAT_DRIVER_CALLS);
    for (auto _ : state)
        Require(
            rynSendEmail(0, "<b@y.example>", nullptr, nullptr, "bench", message.c_str(), nullptr),
            "send");
    const double steps = rynStatistics(0, RYN_STAT_DRIVER_CALLS) - before;
    state.counters["steps"] = benchmark::Counter(steps, benchmark::Counter::kIsRate);
    state.counters["cpu_s_per_line"] = benchmark::Counter(
        static_cast<double>(TextBytes / LineBytes) * static_cast<double>(state.iterations()),
        benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.SetBytesProcessed(TextBytes * state.iterations());
    Disconnect();
}
BENCHMARK(TextFromFile)->Unit(benchmark::kMillisecond)->Iterations(3);

// One attachment of 64 MiB, by the library and by libcurl.
static void Attachment(benchmark::State& state)
{
    Connect();
    for (auto _ : state)
        Require(
            rynSendEmail(0, "<b@y.example>", nullptr, nullptr, "bench", "text", TextFile.c_str()),
            "send");
    state.SetBytesProcessed(TextBytes * state.iterations());
    Disconnect();
}
BENCHMARK(Attachment)->Unit(benchmark::kMillisecond)->Iterations(3);

static void AttachmentByCurl(benchmark::State& state)
{
    for (auto _ : state)
        if (!CurlSendAttachment(Peer.Port, TextFile.c_str()))
            state.SkipWithError("libcurl failed");
    state.SetBytesProcessed(TextBytes * state.iterations());
}
BENCHMARK(AttachmentByCurl)->Unit(benchmark::kMillisecond)->Iterations(3);

static void EncodeBase64(benchmark::State& state)
{
    const std::string source(57 * 1024, 'x');
    std::string target(78 * 1024 + 1, 0);
    for (auto _ : state)
        benchmark::DoNotOptimize(rynEncodeBuffer(source.data(), target.data(), 57 * 1024));
    state.SetBytesProcessed(state.iterations() * 57 * 1024);
}
BENCHMARK(EncodeBase64);

static void DecodeBase64(benchmark::State& state)
{
    const std::string bytes(57 * 1024, 'x');
    std::string text(78 * 1024 + 1, 0);
    std::string target(60 * 1024, 0);
    const int32_t length = rynEncodeBuffer(bytes.data(), text.data(), 57 * 1024);
    for (auto _ : state)
        benchmark::DoNotOptimize(rynDecodeBuffer(text.data(), target.data(), length));
    state.SetBytesProcessed(state.iterations() * 57 * 1024);
}
BENCHMARK(DecodeBase64);

// The second that the library waits for the verdict on a message is part of the wall time.
static void SmallMessage(benchmark::State& state)
{
    Connect();
    for (auto _ : state)
        Require(rynSendEmail(0, "<b@y.example>", nullptr, nullptr, "bench", "hello\r\n", nullptr),
                "send");
    Disconnect();
}
BENCHMARK(SmallMessage)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();
BENCHMARK(SmallMessage)->Unit(benchmark::kMillisecond)->Iterations(5);

int main(int argc, char** argv)
{
    Peer = StartDrainPeer();
    if (Peer.Port == 0)
        return 1;
    MakeTextFile();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    unlink(TextFile.c_str());
    StopPeerProcess(Peer);
    return 0;
}
