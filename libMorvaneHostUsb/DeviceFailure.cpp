#include "libMorvaneHostUsb/DeviceFailure.h"

#include <libusb-1.0/libusb.h>

namespace Vantor {

const char* DeviceFailure::nameOf(Operation operation)
{
    switch (operation) {
    case Operation::None:
        return "none";
    case Operation::Allocate:
        return "allocate";
    case Operation::Open:
        return "open";
    case Operation::Claim:
        return "claim";
    case Operation::Send:
        return "send";
    case Operation::Receive:
        return "receive";
    case Operation::Submit:
        return "submit";
    case Operation::Leave:
        return "leave";
    case Operation::Close:
        return "close";
    }
    return "unknown";
}

std::string DeviceFailure::toString() const
{
    std::string text = nameOf(operation);
    if (code != 0)
        text.append(": ").append(libusb_error_name(code));
    return text;
}

} // namespace Vantor
