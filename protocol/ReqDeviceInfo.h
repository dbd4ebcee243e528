#pragma once

#include <cstddef>
#include <cstdint>

namespace Vantor {

// Asks a panel for its DeviceInformation.
struct __attribute__((packed)) ReqDeviceInfo {
    std::uint32_t request; // 1
};

static_assert(sizeof(ReqDeviceInfo) == 4);
static_assert(alignof(ReqDeviceInfo) == 1);
static_assert(offsetof(ReqDeviceInfo, request) == 0);

} // namespace Vantor
