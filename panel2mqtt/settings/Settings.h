#pragma once

#include "panel2mqtt/broker/BrokerSettings.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>

namespace Vantor {

// What the configuration file says. docs/mqtt.md lists its keys.
//
// Threads: a plain value.
struct Settings {
    std::string host; // in topics: letters, digits, '-', '_' and '.', 1 to 64, not "all"
    BrokerSettings broker;

    std::optional<std::set<std::uint8_t>> gotTypes;            // without: all but 0
    int gotQos = 0;                                            // 0 or 1
    std::chrono::seconds statsEvery = std::chrono::minutes(1); // 0: never
    std::chrono::seconds forgetAfter = std::chrono::hours(24);
    std::chrono::seconds wait = std::chrono::minutes(1);

    std::string firmwareFolder; // absolute; empty: none

    // Whether what panels send under this type is published.
    bool publishes(std::uint8_t type) const { return gotTypes ? gotTypes->count(type) != 0 : type != 0; }
};

} // namespace Vantor
