#pragma once

#include "panelctl/flash/ProgressMeter.h"

#include <cstddef>
#include <string>

namespace Vantor::ProgressBar {

// What the meter does not know.
struct Waits {
    std::chrono::milliseconds pauses{0}; // to come, in which nothing advances
    std::chrono::nanoseconds silence{0}; // since the panel's last reply
};

// Longer than a healthy upgrade is without a reply.
constexpr std::chrono::seconds longSilence{4};

// One line of at most `columns` - 3 characters, so that no terminal wraps it, not even
// with the ^C behind it that an interrupt leaves there:
//
//   main   52 % [##########----------] 53248 of 102400 bytes, 36.4 KiB/s, 0:02 left
//
// Where it is too narrow the end is left out first, then the bar. After a long silence
// "no reply for 12 s" stands in place of rate and end.
std::string format(const std::string& label, const ProgressMeter& meter, const Waits& waits, std::size_t columns);

// "36.4 KiB/s"
std::string formatRate(double bytesPerSecond);

// "0:02", "1:02:03"
std::string formatTime(std::chrono::seconds time);

} // namespace Vantor::ProgressBar
