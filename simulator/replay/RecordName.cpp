#include "simulator/replay/RecordName.h"

#include "referenceProtocol/WireFormat.h"

#include <cstdio>
#include <map>

namespace Vantor {

std::string nameOfType(PacketType type)
{
    static const std::map<PacketType, const char*> names{
        {PacketType::DeviceInformation, "DeviceInformation"},
        {WireFormat::reqDeviceInfoType, "ReqDeviceInfo"},
        {PacketType::LcdSlice, "LcdSlice"},
        {PacketType::FirmwareUpgradeCommand, "FirmwareUpgradeCommand"},
        {WireFormat::firmwareUpgradeRequestType, "FirmwareUpgradeRequest"},
        {WireFormat::firmwareDataType, "FirmwareData"},
        {PacketType::EncodedLcdSlice, "EncodedLcdSlice"},
    };
    const std::string text = "type " + std::to_string(static_cast<int>(type));
    const auto named = names.find(type);
    return named != names.end() ? text + " (" + named->second + ")" : text;
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
