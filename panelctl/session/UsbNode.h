#pragma once

#include <string>

namespace Vantor::UsbNode {

// Where sysfs has the USB devices.
constexpr const char* sysfsFolder = "/sys/bus/usb/devices";

// Where the kernel lets programs open the USB device at `place` ("1-4.2"): "/dev/bus/usb/001/002";
// empty when sysfs does not say. The folders are the system's, or stand for them.
std::string locate(const std::string& place, const std::string& sysfs = sysfsFolder, const std::string& dev = "/dev");

} // namespace Vantor::UsbNode
