#pragma once

#include "tests/support/Bytes.h"

#include <cstddef>
#include <cstdint>
#include <random>

namespace Vantor {

// Numbers that a seed decides.
class Random {
public:
    explicit Random(unsigned int seed) : m_engine(seed) {}

    // Not std::uniform_int_distribution: a seed means the same schedule everywhere.
    unsigned int below(unsigned int end) { return static_cast<unsigned int>(m_engine() % end); }
    unsigned int between(unsigned int first, unsigned int last) { return first + below(last - first + 1); }
    bool oneIn(unsigned int times) { return below(times) == 0; }

    Bytes bytes(std::size_t size)
    {
        Bytes bytes(size);
        for (std::uint8_t& byte : bytes)
            byte = static_cast<std::uint8_t>(below(256));
        return bytes;
    }

private:
    std::mt19937 m_engine;
};

} // namespace Vantor
