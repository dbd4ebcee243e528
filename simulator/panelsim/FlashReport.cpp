#include "simulator/panelsim/FlashReport.h"

#include "simulator/bus/QuantityText.h"

namespace Vantor {

namespace {

std::string describe(const BootLoader::Image& image)
{
    const std::string size = formatBytes(image.size);
    switch (image.state) {
    case BootLoader::State::Untouched:
        break;
    case BootLoader::State::Incomplete:
        return "incomplete, " + std::to_string(image.written) + " of " + size;
    case BootLoader::State::Verified:
        return size + ", verified";
    case BootLoader::State::Mismatched:
        return size + ", does not match its CRC";
    }
    return {};
}

} // namespace

std::vector<std::string> describeUpgrades(const BootLoader::Flash& flash)
{
    std::vector<std::string> lines;
    if (flash.main.state != BootLoader::State::Untouched)
        lines.push_back("main MCU: " + describe(flash.main));
    if (flash.servo.state != BootLoader::State::Untouched)
        lines.push_back("servo MCU: " + describe(flash.servo));
    return lines;
}

} // namespace Vantor
