#pragma once

#include "panelctl/picture/GreyPicture.h"

#include <cstdint>
#include <stdexcept>
#include <string>

namespace Vantor {

// Reads PNG files of every colour type, depth and interlacing. 16 bits are rounded
// to 8, what is transparent lies on white; gamma and colour profiles are ignored,
// so that samples are taken as they are. Nothing but the pixels takes memory, and that
// once the file's size in pixels is within the limits.
//
// Threads: stateless; any thread.
class PngReader {
public:
    struct Limits {
        std::uint32_t side = 16384;
        std::uint64_t pixels = 1 << 24;
    };

    // What is wrong with a file, as the end of a sentence that begins with its name.
    class Defect : public std::runtime_error {
    public:
        explicit Defect(const std::string& text, bool isBeyondLimits = false)
            : std::runtime_error(text), m_isTooLarge(isBeyondLimits)
        {}

        bool isTooLarge() const { return m_isTooLarge; }

    private:
        bool m_isTooLarge;
    };

    // Throws Failure (usage) that names the file and what is wrong with it.
    static GreyPicture read(const std::string& path);

    // By its first bytes alone.
    static bool isPng(const std::string& bytes);

    // A file's content. Throws Defect.
    static GreyPicture readBytes(const std::string& bytes, const Limits& limits);
};

} // namespace Vantor
