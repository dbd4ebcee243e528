#pragma once

#include "libMorvaneHostUsb/UsbDevice.h"

#include <atomic>

// The few members of UsbDevice that a test must reach because no operation stops
// between the two steps it is about.
namespace Vantor::Test::Access {

std::atomic<bool>& cancelPending(UsbDevice& device);
libusb_device_handle*& handle(UsbDevice& device);

} // namespace Vantor::Test::Access
