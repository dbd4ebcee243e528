#include "panelctl/Wording.h"

#include <cstdio>

namespace Vantor {

std::string formatSeconds(std::chrono::nanoseconds time)
{
    char text[32];
    std::snprintf(text, sizeof text, "%g s", std::chrono::duration<double>(time).count());
    return text;
}

std::string formatNumber(std::uint64_t number, const std::string& noun)
{
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

} // namespace Vantor
