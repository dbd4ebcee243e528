#pragma once

#include "libMorvaneHostUsb/Export.h"

#include <string>

namespace Vantor {

// What ended a device, or kept it from being opened.
struct MORVANE_API DeviceFailure {
    enum class Operation : int {
        None,     // the device is alive
        Allocate, // of its transfers: no memory
        Open,     // the device node: no rights, most often
        Claim,    // the interface: another program has it
        Send,     // a packet that was on its way
        Receive,  // a read that could not be started
        Submit,   // a packet that libusb did not take
        Leave,    // the panel was unplugged
        Close,    // by UsbManager::closeAllDevices, or the manager's end
    };

    Operation operation = Operation::None;

    // libusb's error code: LIBUSB_ERROR_ACCESS (denied), _BUSY, _NO_DEVICE (gone), _IO, … 0
    // for None and Close. Of a transfer's status it is the code of the same meaning.
    int code = 0;

    // "none", "allocate", "open", "claim", "send", "receive", "submit", "leave", "close".
    static const char* nameOf(Operation operation);

    // One line such as "claim: LIBUSB_ERROR_BUSY", "close", or "none".
    std::string toString() const;
};

} // namespace Vantor
