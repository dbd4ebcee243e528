#pragma once

#include "panelctl/command/Delivery.h"

#include <cstdint>

namespace Vantor {

// The made-up records of the demo: four types, of both priorities, two of them
// keyed; payloads of 128 to 511 bytes.
namespace DemoRecords {

// Types that are queued one after the other, and types with one value a key.
constexpr PacketType queuedTypes[] = {static_cast<PacketType>(5), static_cast<PacketType>(29)};
constexpr PacketType keyedTypes[] = {static_cast<PacketType>(20), static_cast<PacketType>(12)};

// Gives record number `number` to the delivery. Numbers that wait together must
// differ, or a keyed record is replaced.
void give(Delivery& delivery, std::uint32_t number);

} // namespace DemoRecords

} // namespace Vantor
