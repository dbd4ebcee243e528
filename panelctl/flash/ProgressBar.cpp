#include "panelctl/flash/ProgressBar.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace Vantor::ProgressBar {

namespace {

constexpr std::size_t marginColumns = 3;
constexpr std::size_t labelWidth = 5; // "servo"
constexpr int rateWidth = 10;         // "36.4 KiB/s"
constexpr int endWidth = 10;          // "12:34 left"
constexpr std::size_t longestBar = 40;
constexpr std::size_t shortestBar = 10;
constexpr std::size_t barFrame = 3; // " [" and "]"

std::string drawBar(const ProgressMeter& meter, std::size_t length)
{
    const std::size_t filled = length * meter.getPercentage() / 100;
    return " [" + std::string(filled, '#') + std::string(length - filled, '-') + "]";
}

bool isDone(const ProgressMeter& meter)
{
    return meter.getDone() == meter.getTotal();
}

std::string describeEnd(const ProgressMeter& meter, const Waits& waits)
{
    if (isDone(meter))
        return "finishing";
    const auto remaining = meter.getRemaining(waits.pauses);
    return (remaining ? formatTime(*remaining) : "-:--") + " left";
}

// What stands behind the bar, the most useful first; of the same width all the time, so
// that the bar keeps its place.
std::vector<std::string> describe(const ProgressMeter& meter, const Waits& waits)
{
    const std::string total = std::to_string(meter.getTotal());
    char bytes[48];
    std::snprintf(bytes, sizeof bytes, " %*u of %s bytes", static_cast<int>(total.size()), meter.getDone(),
                  total.c_str());
    if (waits.silence >= longSilence && !isDone(meter)) {
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(waits.silence).count();
        char silence[48];
        std::snprintf(silence, sizeof silence, ", %-*s", rateWidth + 2 + endWidth,
                      ("no reply for " + std::to_string(seconds) + " s").c_str());
        return {bytes, silence};
    }
    char rate[32];
    std::snprintf(rate, sizeof rate, ", %*s", rateWidth, formatRate(meter.getRate()).c_str());
    char end[32];
    std::snprintf(end, sizeof end, ", %-*s", endWidth, describeEnd(meter, waits).c_str());
    return {bytes, rate, end};
}

} // namespace

std::string format(const std::string& label, const ProgressMeter& meter, const Waits& waits, std::size_t columns)
{
    const std::size_t room = std::max(columns, marginColumns) - marginColumns;
    char start[32];
    std::snprintf(start, sizeof start, "%-*s %3u %%", static_cast<int>(labelWidth), label.c_str(),
                  meter.getPercentage());
    std::string line = start;
    if (line.size() > room)
        return line.substr(0, room);
    std::string rest;
    for (const std::string& part : describe(meter, waits)) {
        if (line.size() + barFrame + shortestBar + rest.size() + part.size() > room)
            break;
        rest += part;
    }
    if (line.size() + barFrame + shortestBar + rest.size() <= room)
        line += drawBar(meter, std::min(longestBar, room - line.size() - barFrame - rest.size()));
    line += rest;
    return line.substr(0, line.find_last_not_of(' ') + 1);
}

std::string formatRate(double bytesPerSecond)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f KiB/s", bytesPerSecond / 1024);
    return text;
}

std::string formatTime(std::chrono::seconds time)
{
    const auto count = time.count();
    char text[48];
    if (count < 3600)
        std::snprintf(text, sizeof text, "%lld:%02lld", static_cast<long long>(count / 60),
                      static_cast<long long>(count % 60));
    else
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", static_cast<long long>(count / 3600),
                      static_cast<long long>(count / 60 % 60), static_cast<long long>(count % 60));
    return text;
}

} // namespace Vantor::ProgressBar
