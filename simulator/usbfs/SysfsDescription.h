#pragma once

#include "simulator/usbfs/UsbfsPanel.h"

#include <string>

namespace Vantor {

// What sysfs shows of the virtual bus, in the form that umockdev_testbed_add_from_string
// takes. Pure.
namespace SysfsDescription {

// The root hub of bus 1, device 1.
std::string describeRootHub();

// A panel behind a port of the root hub.
std::string describePanel(const UsbfsPanel::Address& address, const PanelModel& model, bool isSuspendable);

// Its interface, which comes after it; `driver` is the kernel's that is bound to it, empty for none.
std::string describeInterface(const UsbfsPanel::Address& address, const PanelModel& model, const std::string& driver);

// Where sysfs has it and its interface, from /sys.
std::string panelPath(const UsbfsPanel::Address& address);
std::string interfacePath(const UsbfsPanel::Address& address);

// The device node, from /dev.
std::string nodePath(const UsbfsPanel::Address& address);

} // namespace SysfsDescription

} // namespace Vantor
