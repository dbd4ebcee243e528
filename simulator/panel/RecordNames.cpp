#include "simulator/panel/RecordNames.h"

#include "referenceProtocol/WireFormat.h"

namespace Vantor {

const std::map<PacketType, const char*>& getRecordNames()
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
    return names;
}

} // namespace Vantor
