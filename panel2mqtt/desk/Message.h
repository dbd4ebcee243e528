#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Vantor {

// One message of MQTT 5, as far as the gateway has to do with it. Payloads are bytes.
//
// Threads: a plain value.
struct Message {
    std::string topic;
    std::string payload;
    int qos = 0;
    bool isRetained = false;

    std::string responseTopic;                  // empty: none
    std::optional<std::string> correlation;     // bytes
    std::optional<std::uint32_t> expirySeconds; // what is left of it
    std::vector<std::pair<std::string, std::string>> userProperties;

    // The first user property of this name; null if there is none.
    const std::string* findProperty(std::string_view name) const
    {
        for (const auto& [key, value] : userProperties) {
            if (key == name)
                return &value;
        }
        return nullptr;
    }
};

} // namespace Vantor
