#pragma once

#include <cstdint>
#include <string>

namespace Vantor {

// "12,345"
inline std::string formatCount(std::uint64_t number)
{
    std::string text = std::to_string(number);
    for (std::size_t end = text.size(); end > 3;) {
        end -= 3;
        text.insert(end, 1, ',');
    }
    return text;
}

} // namespace Vantor
