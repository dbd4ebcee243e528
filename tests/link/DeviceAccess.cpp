#include "tests/link/DeviceAccess.h"

namespace Vantor::Test::Access {

namespace {

struct CancelPendingTag {
    using Member = std::atomic<bool> UsbDevice::*;
    friend Member memberOf(CancelPendingTag);
};

struct HandleTag {
    using Member = libusb_device_handle* UsbDevice::*;
    friend Member memberOf(HandleTag);
};

// An explicit instantiation may name private members; the friend brings them out.
template <typename Tag, typename Tag::Member member> struct Reach {
    friend typename Tag::Member memberOf(Tag) { return member; }
};
template struct Reach<CancelPendingTag, &UsbDevice::m_cancelPending>;
template struct Reach<HandleTag, &UsbDevice::m_devHandle>;

} // namespace

std::atomic<bool>& cancelPending(UsbDevice& device)
{
    return device.*memberOf(CancelPendingTag());
}

libusb_device_handle*& handle(UsbDevice& device)
{
    return device.*memberOf(HandleTag());
}

} // namespace Vantor::Test::Access
