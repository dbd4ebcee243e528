#pragma once

#include "libMorvaneHostUsb/ClientLcdBitmap.h"
#include "panel2mqtt/desk/Answer.h"
#include "panel2mqtt/desk/Message.h"

#include <cstddef>
#include <cstdint>
#include <variant>
#include <vector>

namespace Vantor {

// Reads a message that draws: docs/mqtt.md, "Pictures".
//
// Threads: stateless; any thread. A picture takes a few ms, a hostile one some 50.
class PictureOrder {
public:
    static constexpr std::size_t maxPayload = std::size_t{4} << 20;
    static constexpr unsigned int maxSide = 255;

    struct Picture {
        std::vector<ClientLcdBitmap> layers; // to be drawn in their order, at least one
        bool isHeld = false;                 // shown with a later one
        std::size_t bytes = 0;               // of memory, for bounds
    };

    // What is to be drawn, or the answer: refused or too large, with a reason. packetLimit is
    // what the panel said of itself: no layer is returned that the library could never send it.
    static std::variant<Picture, Answer> makePicture(const Message& message, std::uint16_t lcd,
                                                     unsigned int packetLimit);
};

} // namespace Vantor
