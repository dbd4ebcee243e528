#pragma once

#include "simulator/capture/CaptureReader.h"
#include "tests/support/Bytes.h"

#include <cstdio>
#include <string>
#include <vector>

namespace Vantor {

inline std::string hexOf(const std::uint8_t* bytes, std::size_t size)
{
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned int>(bytes[i]));
        text += digits;
    }
    return text;
}

// "S bulk 02 -115 4 deadbeef": event, transfer, endpoint, status, length, and what follows
// of setup and data. Without the device, ids and time.
inline std::string textOf(const CapturedUrb& urb)
{
    static const char* const transfers[] = {"isochronous", "interrupt", "control", "bulk"};
    const auto transfer = static_cast<std::size_t>(urb.transfer);
    std::string text(1, static_cast<char>(urb.event));
    text += std::string(" ") + (transfer < 4 ? transfers[transfer] : "?") + " " + hexOf(&urb.endpoint, 1) + " " +
            std::to_string(urb.status) + " " + std::to_string(urb.length);
    if (urb.setupFlag == CapturedUrb::follows)
        text += " [" + hexOf(urb.setup.data(), urb.setup.size()) + "]";
    if (!urb.data.empty())
        text += " " + hexOf(urb.data.data(), urb.data.size());
    return text;
}

inline std::vector<std::string> textsOf(const std::vector<CapturedUrb>& urbs)
{
    std::vector<std::string> texts;
    for (const CapturedUrb& urb : urbs)
        texts.push_back(textOf(urb));
    return texts;
}

// All of a file, which must be whole.
inline std::vector<CapturedUrb> readCapture(const std::string& path)
{
    std::vector<CapturedUrb> urbs;
    CaptureReader reader(path);
    while (auto urb = reader.next())
        urbs.push_back(std::move(*urb));
    return urbs;
}

// How a panel is found: its descriptors, each read whole.
inline const std::vector<std::string> enumerationTexts = {
    "S control 80 -115 18 [8006000100001200]",
    "C control 80 0 18 12010002000000"
    "40addeefbe000101020001",
    "S control 80 -115 32 [8006000200002000]",
    "C control 80 0 32 "
    "090220000101"
    "00c000"
    "0904000002ff000000"
    "07050202000200"
    "07058102000200",
};

} // namespace Vantor
