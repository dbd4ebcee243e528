#include "panelctl/session/PacketNames.h"

#include "panelctl/terminal/Wording.h"

#include <charconv>
#include <cstdint>

namespace Vantor::PacketNames {

namespace {

struct Name {
    PacketType type;
    const char* text;
};

constexpr Name names[] = {{PacketType::DeviceInformation, "DeviceInformation"},
                          {PacketType::LcdSlice, "LcdSlice"},
                          {PacketType::FirmwareUpgradeCommand, "FirmwareUpgradeCommand"},
                          {PacketType::EncodedLcdSlice, "EncodedLcdSlice"}};

} // namespace

std::optional<std::string> find(PacketType type)
{
    for (const Name& name : names)
        if (name.type == type)
            return name.text;
    return std::nullopt;
}

std::optional<PacketType> parse(const std::string& text)
{
    for (const Name& name : names)
        if (toLower(name.text) == toLower(text))
            return name.type;
    std::uint8_t number = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end ? std::optional(static_cast<PacketType>(number))
                                                         : std::nullopt;
}

std::string listAll()
{
    std::string text;
    for (const Name& name : names)
        text += (text.empty() ? "" : ", ") + std::string(name.text);
    return text;
}

} // namespace Vantor::PacketNames
