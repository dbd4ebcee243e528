#include "simulator/replay/RecordName.h"

#include "referenceProtocol/WireFormat.h"

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

bool isSlice(PacketType type)
{
    return type == PacketType::LcdSlice || type == PacketType::EncodedLcdSlice;
}

} // namespace Vantor
