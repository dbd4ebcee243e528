#pragma once

#include "libMorvaneHostUsb/ClientLcdBitmap.h"
#include "panelctl/picture/PacketForecast.h"
#include "panelctl/session/Handover.h"

#include <chrono>
#include <cstdint>
#include <vector>

namespace Vantor {

// Layers for one LCD of one panel, sent together; their packets are worked out
// beforehand. Threads: as Handover.
class Drawing {
public:
    // At least one layer. The panel comes with its information.
    Drawing(const Panel& panel, std::vector<ClientLcdBitmap> layers);

    const PacketForecast& getForecast() const { return m_forecast; }

    // Gives the layers to the packer, with the LCD locked: nothing leaves.
    void hold();

    // Unlocks the LCD.
    void release();

    // Waits until everything has left and is taken. Throws Failure when that does not
    // come about.
    void await(Session& session, std::chrono::nanoseconds limit);

    // Bytes the panel has accepted since construction.
    std::uint64_t getTakenBytes() { return m_handover.getTakenBytes(); }

private:
    std::vector<ClientLcdBitmap> m_layers;
    PacketForecast m_forecast;
    Handover m_handover;
};

} // namespace Vantor
