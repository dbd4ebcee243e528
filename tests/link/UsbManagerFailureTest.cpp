// The whole life of two panels with the n-th libusb call failing, for every n.
#include "tests/support/ManagerRig.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace Vantor::Test {

namespace {

void sendThree(UsbManager& manager)
{
    const std::uint8_t payload[] = {1, 2, 3};
    for (const auto& device : manager.getDeviceListSafe())
        device->getPacker().addStructData(payload, 3u, static_cast<PacketType>(5));
}

// Plug, drive, stall, lose, find, unplug, hold, shut down. Returns whether the failure came.
bool live(unsigned int n, int code)
{
    ManagerRig rig;
    LinkRig::setLevel(0);
    rig.usb.failCall(n, code);
    libusb_device* const first = rig.usb.attach(panelAt(4));
    rig.start();
    libusb_device* const second = rig.usb.plug(panelAt(5));
    rig.usb.pass();
    sendThree(*rig.manager);
    rig.usb.completeSend(first);
    rig.usb.receive(first, {12, 0, 1, 0, 0, 0, 0, 0, 5, 1, 0, 42});
    rig.usb.complete(second, FakeLibusb::outEndpoint, LIBUSB_TRANSFER_STALL, 0);
    rig.usb.complete(second, FakeLibusb::inEndpoint, LIBUSB_TRANSFER_STALL, 0);
    rig.usb.pass();
    sendThree(*rig.manager);
    for (const auto& device : rig.manager->getDeviceListSafe())
        device->getPortNumbers();
    libusb_device* const stray = rig.usb.attach(panelAt(6));
    rig.usb.vanish(second); // unnoticed: its read fails, then it is found dead
    rig.usb.complete(second, FakeLibusb::inEndpoint, LIBUSB_TRANSFER_NO_DEVICE, 0);
    rig.usb.complete(second, FakeLibusb::outEndpoint, LIBUSB_TRANSFER_NO_DEVICE, 0);
    rig.usb.passAfter(6s);
    auto held = rig.manager->getDeviceListSafe();
    rig.usb.passAfter(0s);
    rig.usb.unplug(first);
    rig.usb.pass();
    sendThree(*rig.manager);
    rig.usb.unplug(stray);
    rig.usb.plug(panelAt(4));
    rig.usb.passAfter(6s);
    rig.usb.passAfter(6s);
    rig.stop();
    held.clear();
    return rig.usb.hasFailed();
}

} // namespace

TEST(UsbManagerFailure, anyLibusbCallThatFails_leavesEverythingClean)
{
    for (const int code : {LIBUSB_ERROR_IO, LIBUSB_ERROR_NO_DEVICE, LIBUSB_ERROR_BUSY, LIBUSB_ERROR_NO_MEM}) {
        unsigned int n = 0;
        bool failed = true;
        while (failed && !testing::Test::HasFailure()) {
            SCOPED_TRACE("call " + std::to_string(n + 1) + " returns " + std::to_string(code));
            failed = live(++n, code);
        }
        EXPECT_GT(n, 60u) << "the failures did not reach the end of the run";
    }
}

} // namespace Vantor::Test
