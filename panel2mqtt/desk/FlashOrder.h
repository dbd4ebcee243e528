#pragma once

#include "panel2mqtt/desk/Answer.h"
#include "panel2mqtt/desk/FirmwareShelf.h"
#include "panel2mqtt/desk/Message.h"

#include <cstddef>
#include <optional>
#include <variant>

namespace Vantor {

// Reads a message that upgrades firmware: docs/mqtt.md, "Firmware".
//
// Threads: stateless; the shelf's. 16 MiB take some 50 ms.
class FlashOrder {
public:
    static constexpr std::size_t maxImage = std::size_t{16} << 20;

    // At least one.
    struct Images {
        std::optional<ShelfImage> main;
        std::optional<ShelfImage> servo;
    };
    using Result = std::variant<Images, Answer>;

    // The images, their sums checked, or the answer: refused or too large, with a reason.
    static Result read(const Message& message, FirmwareShelf& shelf);
};

} // namespace Vantor
