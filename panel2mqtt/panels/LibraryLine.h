#pragma once

#include "libMorvaneHostUsb/UsbDevice.h"
#include "panel2mqtt/desk/PanelLine.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace Vantor {

// A panel of the library's. Its information has come.
//
// Threads: any. Lifetime: keeps the device; one that is kept past the panel's departure gives it
// another uid when it comes back.
class LibraryLine : public PanelLine {
public:
    explicit LibraryLine(std::shared_ptr<UsbDevice> device) : m_device(std::move(device)) {}

    void addRecord(std::uint8_t type, std::optional<std::uint32_t> key, const std::string& payload) override;
    void draw(std::uint16_t lcd, std::vector<ClientLcdBitmap> layers) override;
    PriorityPacker::Progress getProgress() const override { return m_device->getPacker().getProgress(); }
    void startUpgrade(const std::string& mainPath, const std::string& servoPath) override;
    Upgrade getUpgrade() const override;
    void askInformation() override;
    unsigned int getPacketLimit() const override;

private:
    const std::shared_ptr<UsbDevice> m_device;
    // The total's 32 bits, then those written. Shared with the library, which keeps its callback
    // after the end: that must not own the device.
    const std::shared_ptr<std::atomic<std::uint64_t>> m_written = std::make_shared<std::atomic<std::uint64_t>>(0);
};

} // namespace Vantor
