#pragma once

#include "libMorvaneHostUsb/UsbDevice.h"
#include "panel2mqtt/desk/PanelLine.h"

#include <memory>

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
    unsigned int getPacketLimit() const override;

private:
    const std::shared_ptr<UsbDevice> m_device;
};

} // namespace Vantor
