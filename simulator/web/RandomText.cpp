#include "simulator/web/RandomText.h"

#include "simulator/bus/QuantityText.h"

#include <cerrno>
#include <cstdint>
#include <system_error>
#include <vector>

#include <sys/random.h>

namespace Vantor {

std::string makeRandomText(std::size_t digits)
{
    std::vector<std::uint8_t> bytes((digits + 1) / 2);
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) // never less, up to 256
        throw std::system_error(errno, std::generic_category(), "getrandom");
    std::string text;
    for (const std::uint8_t byte : bytes)
        text += formatHex(byte);
    return text.substr(0, digits);
}

} // namespace Vantor
