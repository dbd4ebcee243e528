#include "simulator/replay/RecordName.h"

#include "referenceProtocol/WireFormat.h"
#include "simulator/panel/RecordNames.h"

#include <cstdio>

namespace Vantor {

std::string nameOfType(PacketType type)
{
    const std::string text = "type " + std::to_string(static_cast<int>(type));
    const auto named = getRecordNames().find(type);
    return named != getRecordNames().end() ? text + " (" + named->second + ")" : text;
}

bool isRequest(PacketType type)
{
    return type == WireFormat::reqDeviceInfoType || type == WireFormat::firmwareUpgradeRequestType ||
           type == WireFormat::firmwareDataType;
}

std::string nameOfTime(std::chrono::nanoseconds time)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.3f s", std::chrono::duration<double>(time).count());
    return text;
}

bool isSlice(PacketType type)
{
    return type == PacketType::LcdSlice || type == PacketType::EncodedLcdSlice;
}

} // namespace Vantor
