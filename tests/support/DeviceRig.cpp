#include "tests/support/DeviceRig.h"

#include "libMorvaneHostUsb/EventPump.h"

#include <gtest/gtest.h>

namespace Vantor::Test {

DeviceRig::DeviceRig()
    : context(usb.makeContext()), queue(std::make_shared<UsbMessageQueue>()), panel(libusb_ref_device(usb.attach({}))),
      device(std::make_unique<UsbDevice>(queue, context, panel))
{
    usb.route([this](libusb_transfer* transfer) {
        if (!device || transfer->user_data != device->getIdAsPtr())
            return;
        if ((transfer->endpoint & LIBUSB_ENDPOINT_IN) != 0)
            device->onRecvMessage(transfer);
        else
            device->onSentMessage(transfer);
    });
    usb.takeTrace();
}

DeviceRig::~DeviceRig()
{
    usb.route(nullptr);
    usb.dropCallHooks();
    device.reset();
    libusb_unref_device(panel);
    libusb_exit(context);
}

void DeviceRig::open()
{
    device->open();
    usb.takeTrace();
}

std::unique_ptr<UsbDevice> DeviceRig::make(const FakeLibusb::Panel& other)
{
    return std::make_unique<UsbDevice>(queue, context, usb.attach(other));
}

void DeviceRig::deliver()
{
    if (usb.hasPendingEvents())
        EventPump::handleEvents(context, timeval{});
}

void DeviceRig::finishSend(int status, int actualLength)
{
    EXPECT_TRUE(usb.complete(panel, FakeLibusb::outEndpoint, status, actualLength)) << "no send in flight";
    deliver();
}

void DeviceRig::finishSend()
{
    EXPECT_TRUE(usb.completeSend(panel)) << "no send in flight";
    deliver();
}

void DeviceRig::finishRead(int status, int actualLength)
{
    EXPECT_TRUE(usb.complete(panel, FakeLibusb::inEndpoint, status, actualLength)) << "no read in flight";
    deliver();
}

void DeviceRig::poll()
{
    deliver();
    device->poll(VirtualClock::now());
}

void DeviceRig::poll(std::chrono::nanoseconds later)
{
    VirtualClock::advance(later);
    poll();
}

void DeviceRig::add(std::uint8_t type, const Bytes& payload)
{
    device->getPacker().addStructData(payload.data(), static_cast<unsigned int>(payload.size()),
                                      static_cast<PacketType>(type));
}

std::vector<FakeLibusb::Submission> DeviceRig::sends()
{
    return usb.takeSubmissions(panel, FakeLibusb::outEndpoint);
}

std::vector<FakeLibusb::Submission> DeviceRig::reads()
{
    return usb.takeSubmissions(panel, FakeLibusb::inEndpoint);
}

} // namespace Vantor::Test
