#pragma once

#include "libMorvaneHostUsb/UsbDevice.h"
#include "panelctl/terminal/Reason.h"
#include "protocol/DeviceInformation.h"
#include "protocol/FirmwareData.h"
#include "protocol/PacketHeader.h"
#include "wire/RecordHeader.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace Vantor {

// An attached panel with what it has said of itself so far. Keeps the library's
// device: drop it once the panel has left, or the panel comes back under
// another uid.
class Panel {
public:
    // Of a packet with a chunk of firmware.
    static constexpr unsigned int firmwarePacketSize =
        sizeof(PacketHeader) + sizeof(RecordHeader) + sizeof(FirmwareData);

    Panel(std::shared_ptr<UsbDevice> device, const std::optional<DeviceInformation>& information);

    UsbDevice& getDevice() const { return *m_device; }

    // The same panel with what it has said meanwhile.
    Panel with(const DeviceInformation& information) const { return {m_device, information}; }

    std::uint16_t getUid() const { return m_device->getUid(); }

    // "0104"
    std::string getUidText() const;

    // Bus and ports as the kernel writes them: "1-4.2".
    std::string getPlace() const;

    // "panel 0104 (1-4)"
    std::string getName() const;

    // False when it could not be opened, has left, or the library has given it up.
    bool isAlive() const { return m_device->isAlive(); }

    // Why not; nothing while it is alive.
    std::optional<Reason> getReason() const;

    const std::optional<DeviceInformation>& getInformation() const { return m_information; }

    // Its description, up to the first zero: its bytes, and as far as they are printable.
    // Empty before the information has come.
    std::string getDescriptionBytes() const;
    std::string getDescription() const;

    // Bytes of the largest packet that the library builds for it, and of the largest
    // payload that fits there. Valid once the information has come.
    unsigned int getPacketLimit() const;
    unsigned int getPayloadLimit() const;

    // Bytes taken by and from the panel; both wrap.
    std::uint32_t getSentBytes() const;
    std::uint32_t getReceivedBytes() const;

private:
    std::shared_ptr<UsbDevice> m_device;
    std::optional<DeviceInformation> m_information;
};

// A uid as it is printed: "0104".
std::string formatUid(std::uint16_t uid);

} // namespace Vantor
