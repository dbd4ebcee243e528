#pragma once

#include <string>

namespace Vantor {

// What has become of a command. docs/mqtt.md says what each word means.
//
// Threads: a plain value.
struct Answer {
    enum class Word { Taken, Busy, TooLarge, Offline, Expired, Refused, Unknown };

    Word word;
    std::string reason; // empty where the word says it all
};

} // namespace Vantor
