#pragma once

#include <cstdint>
#include <string>

namespace Vantor {

// A file with the firmware of one MCU, as it was when it was checked. The library reads
// the file itself, so the bytes are not kept.
class FirmwareImage {
public:
    // No microcontroller has more flash.
    static constexpr std::uint32_t largestSize = 16 * 1024 * 1024;

    // `option` is the one that named the file. Throws Failure (usage) for what is no
    // firmware: not there, unreadable, no plain file, empty or too large.
    FirmwareImage(std::string option, std::string path);

    // Reads the file once more. Throws Failure (usage) when it holds something else now.
    void requireUnchanged() const;

    const std::string& getPath() const { return m_path; }
    std::uint32_t getSize() const { return m_size; }
    std::uint32_t getCrc() const { return m_crc; }

    // Records that it takes to send it.
    std::uint32_t getChunks() const;

    // "12000 bytes in 3 chunks, CRC-32 0x1a2b3c4d, from 'main.bin'"
    std::string describe() const;

private:
    std::string m_option;
    std::string m_path;
    std::uint32_t m_size = 0;
    std::uint32_t m_crc = 0; // the one that the panel is told
};

} // namespace Vantor
