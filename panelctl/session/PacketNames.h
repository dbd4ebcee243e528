#pragma once

#include "protocol/PacketType.h"

#include <optional>
#include <string>

namespace Vantor::PacketNames {

// "DeviceInformation"; nothing for a type that only the application and the panel know.
std::optional<std::string> find(PacketType type);

// A name, in whatever case, or a number from 0 to 255; nothing for anything else.
std::optional<PacketType> parse(const std::string& text);

// "DeviceInformation, LcdSlice"
std::string listAll();

} // namespace Vantor::PacketNames
