// The progress line. Sizes are decimal: 1 kB is 1000 bytes.
#include "progress.h"

#include "terminal.h"

#include <cstdio>

constexpr uint64_t RedrawPause = 100;    // ms
constexpr uint64_t RateKnownAfter = 500; // ms; before that a rate says nothing
constexpr uint64_t BarChars = 24;

static std::string SizeText(uint64_t bytes)
{
    constexpr const char* units[] = { "B", "kB", "MB", "GB" };
    constexpr double step = 1000;
    auto size = static_cast<double>(bytes);
    size_t unit = 0;
    while (size >= step && unit < 3) {
        size /= step;
        ++unit;
    }
    char text[32];
    snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", size, units[unit]);
    return text;
}

static std::string TimeText(uint64_t seconds)
{
    constexpr unsigned long long minute = 60;
    constexpr unsigned long long hour = 3600;
    char text[32];
    if (seconds >= hour)
        snprintf(text, sizeof text, "%llu:%02llu:%02llu", seconds / hour, seconds / minute % minute,
                 seconds % minute);
    else
        snprintf(text, sizeof text, "%llu:%02llu", seconds / minute, seconds % minute);
    return text;
}

std::string ProgressLine(const Progress& progress, uint64_t bytes, uint64_t elapsed)
{
    constexpr uint64_t second = 1000; // ms
    const uint64_t done = bytes < progress.Total ? bytes : progress.Total;
    const uint64_t filled = done * BarChars / progress.Total;
    std::string line = progress.Doing + " [" + std::string(filled, '#') +
                       std::string(BarChars - filled, '-') + "] " +
                       std::to_string(done * 100 / progress.Total) + "%  " + SizeText(done) +
                       " of " + SizeText(progress.Total);
    if (done == progress.Total)
        return line + "  waiting for the server";
    const uint64_t rate = elapsed > 0 ? done * second / elapsed : 0; // bytes a second
    if (elapsed >= RateKnownAfter && rate > 0)
        line += "  " + SizeText(rate) + "/s  " +
                TimeText((progress.Total - done + rate - 1) / rate) + " left";
    return line;
}

void BeginProgress(Progress& progress, const std::string& doing, uint64_t total)
{
    progress.Doing = doing;
    progress.Total = total;
    progress.BeganAt = MillisecondsNow();
    progress.ShownAt = 0;
    if (progress.IsShown)
        fprintf(stderr, "\r%s\033[K", doing.c_str());
}

void ShowProgress(Progress& progress, uint64_t bytes)
{
    if (!progress.IsShown || progress.Total == 0 || bytes == 0)
        return;
    const uint64_t now = MillisecondsNow();
    if (progress.ShownAt != 0 && now - progress.ShownAt < RedrawPause)
        return;
    progress.ShownAt = now;
    const std::string line = ProgressLine(progress, bytes, now - progress.BeganAt);
    fprintf(stderr, "\r%s\033[K", line.c_str());
}

void ClearProgress(const Progress& progress)
{
    if (progress.IsShown)
        fputs("\r\033[K", stderr);
}
