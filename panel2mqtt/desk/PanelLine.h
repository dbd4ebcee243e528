#pragma once

#include "libMorvaneHostUsb/ClientLcdBitmap.h"
#include "libMorvaneHostUsb/PriorityPacker.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Vantor {

// An attached panel that has said what it takes, as the desk sees it. Nobody else gives it
// records or pictures.
//
// Threads: the desk's. Lifetime: shared; may outlive the panel's departure.
class PanelLine {
public:
    virtual ~PanelLine() = default;

    virtual void addRecord(std::uint8_t type, std::optional<std::uint32_t> key, const std::string& payload) = 0;

    // They appear together.
    virtual void draw(std::uint16_t lcd, std::vector<ClientLcdBitmap> layers) = 0;

    virtual PriorityPacker::Progress getProgress() const = 0;

    // Writes new firmware from the two files, which are read before it returns; an empty path
    // leaves that MCU alone. Not while one is under way.
    virtual void startUpgrade(const std::string& mainPath, const std::string& servoPath) = 0;

    // The last one. It stays under way until it succeeds, if need be for ever.
    struct Upgrade {
        bool isUpdating = false;
        std::uint32_t written = 0; // bytes that count as confirmed
        std::uint32_t total = 0;
    };
    virtual Upgrade getUpgrade() const = 0;

    // Has the panel say once more what it is.
    virtual void askInformation() = 0;

    // Bytes of a packet.
    virtual unsigned int getPacketLimit() const = 0;
};

} // namespace Vantor
