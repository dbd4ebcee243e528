#pragma once

#include <cstddef>
#include <cstdint>

namespace Vantor {

// Start of every record inside a packet; `length` payload bytes follow.
struct __attribute__((packed)) RecordHeader {
    std::uint8_t type;
    std::uint16_t length; // payload bytes only
};

static_assert(sizeof(RecordHeader) == 3);
static_assert(alignof(RecordHeader) == 1);
static_assert(offsetof(RecordHeader, type) == 0);
static_assert(offsetof(RecordHeader, length) == 1);

} // namespace Vantor
