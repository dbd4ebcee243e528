#include "demo/DemoRecords.h"

#include <vector>

namespace Vantor::DemoRecords {

void give(Delivery& delivery, std::uint32_t number)
{
    const std::vector<std::uint8_t> payload(128 + number * 37 % 384, static_cast<std::uint8_t>(number));
    const PacketType* const types = number % 2 == 0 ? queuedTypes : keyedTypes;
    const PacketType type = types[number / 2 % 2];
    if (number % 2 == 0)
        delivery.add(type, std::nullopt, payload);
    else
        delivery.add(type, number, payload);
}

} // namespace Vantor::DemoRecords
