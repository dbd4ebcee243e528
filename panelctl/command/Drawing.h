#pragma once

#include "libMorvaneHostUsb/ClientLcdBitmap.h"
#include "panelctl/picture/PacketForecast.h"
#include "panelctl/session/Panel.h"
#include "panelctl/session/TakenBytes.h"

#include <chrono>
#include <cstdint>
#include <vector>

namespace Vantor {

class Session;

// Layers for one LCD of one panel, sent together, and how much of them the panel has
// taken. The library reports no layer; what it shows is whether the packer is empty
// and how many bytes have been accepted, so the bytes are worked out beforehand.
//
// Threads: one. Nothing else may be sent to the panel meanwhile.
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
    std::uint64_t getTakenBytes() { return m_taken.get(); }

private:
    bool isTaken();
    bool isCutShort();

    Panel m_panel;
    std::vector<ClientLcdBitmap> m_layers;
    PacketForecast m_forecast;
    TakenBytes m_taken;
};

} // namespace Vantor
