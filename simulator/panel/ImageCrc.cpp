#include "simulator/panel/ImageCrc.h"

#include <array>

namespace Vantor {

namespace {

constexpr std::uint32_t reflectedPolynomial = 0xEDB88320;

constexpr std::array<std::uint32_t, 256> makeTable()
{
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
        std::uint32_t rest = byte;
        for (int bit = 0; bit < 8; ++bit)
            rest = (rest >> 1) ^ ((rest & 1) != 0 ? reflectedPolynomial : 0);
        table[byte] = rest;
    }
    return table;
}

constexpr auto table = makeTable();

} // namespace

std::uint32_t calculateImageCrc(const std::vector<std::uint8_t>& image)
{
    std::uint32_t crc = 0xFFFFFFFF;
    for (const std::uint8_t byte : image)
        crc = (crc >> 8) ^ table[(crc ^ byte) & 0xFF];
    return crc ^ 0xFFFFFFFF;
}

} // namespace Vantor
