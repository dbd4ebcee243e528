// Why a device is not alive.
#include "tests/support/DeviceRig.h"

#include <gtest/gtest.h>

namespace Vantor::Test {

namespace {

using Operation = DeviceFailure::Operation;

class FailingRig : public DeviceRig {
public:
    FailingRig()
    {
        open();
        poll();
    }

    void expectFailure(Operation operation, int code) const
    {
        EXPECT_EQ(device->getFailure().operation, operation);
        EXPECT_EQ(device->getFailure().code, code);
        EXPECT_FALSE(device->isAlive());
    }
};

} // namespace

TEST(UsbDeviceFailure, deviceThatLives_hasNone)
{
    const FailingRig rig;
    EXPECT_EQ(rig.device->getFailure().operation, Operation::None);
    EXPECT_EQ(rig.device->getFailure().code, 0);
    EXPECT_EQ(rig.device->getFailure().toString(), "none");
}

TEST(UsbDeviceFailure, transfersWithoutMemory_areSaid)
{
    DeviceRig rig;
    rig.usb.script("alloc_transfer", LIBUSB_ERROR_NO_MEM);
    const auto device = rig.make({1, 5});
    EXPECT_EQ(device->getFailure().operation, Operation::Allocate);
    EXPECT_EQ(device->getFailure().code, LIBUSB_ERROR_NO_MEM);
}

TEST(UsbDeviceFailure, open_saysWithWhichCode)
{
    for (const int code : {LIBUSB_ERROR_ACCESS, LIBUSB_ERROR_NO_DEVICE}) {
        DeviceRig rig;
        rig.usb.script("open", code);
        rig.open();
        rig.log.take();
        EXPECT_EQ(rig.device->getFailure().operation, Operation::Open);
        EXPECT_EQ(rig.device->getFailure().code, code);
    }
    EXPECT_EQ((DeviceFailure{Operation::Open, LIBUSB_ERROR_ACCESS}.toString()), "open: LIBUSB_ERROR_ACCESS");
}

TEST(UsbDeviceFailure, claim_saysWithWhichCode)
{
    for (const int code : {LIBUSB_ERROR_BUSY, LIBUSB_ERROR_NOT_FOUND, LIBUSB_ERROR_NO_DEVICE, LIBUSB_ERROR_IO}) {
        DeviceRig rig;
        rig.usb.script("claim_interface", code);
        rig.open();
        rig.log.take();
        EXPECT_EQ(rig.device->getFailure().operation, Operation::Claim);
        EXPECT_EQ(rig.device->getFailure().code, code);
    }
}

TEST(UsbDeviceFailure, send_saysWhichStatusItWas)
{
    for (const auto& [status, code] : {std::pair{LIBUSB_TRANSFER_ERROR, LIBUSB_ERROR_IO},
                                       std::pair{LIBUSB_TRANSFER_NO_DEVICE, LIBUSB_ERROR_NO_DEVICE}}) {
        FailingRig rig;
        rig.add(5, {'a'});
        rig.finishSend(status, 0);
        rig.log.take();
        rig.expectFailure(Operation::Send, code);
    }
}

TEST(UsbDeviceFailure, submitAndReceive_sayWhatWasRefused)
{
    for (const int code : {LIBUSB_ERROR_IO, LIBUSB_ERROR_NO_DEVICE, LIBUSB_ERROR_NOT_FOUND}) {
        {
            FailingRig rig;
            rig.usb.script("submit_transfer 0x02", code);
            rig.add(5, {'a'});
            rig.log.take();
            rig.expectFailure(Operation::Submit, code);
        }
        FailingRig rig;
        rig.usb.script("submit_transfer 0x81", code);
        rig.finishRead(LIBUSB_TRANSFER_COMPLETED, 0);
        rig.log.take();
        rig.expectFailure(Operation::Receive, code);
    }
}

TEST(UsbDeviceFailure, firstReason_stays)
{
    FailingRig rig;
    rig.add(5, {'a'});
    rig.finishSend(LIBUSB_TRANSFER_ERROR, 0);
    rig.log.take();
    rig.device->end(Operation::Leave, LIBUSB_ERROR_NO_DEVICE);
    rig.expectFailure(Operation::Send, LIBUSB_ERROR_IO);
}

TEST(UsbDeviceFailure, operations_haveNames)
{
    EXPECT_STREQ(DeviceFailure::nameOf(Operation::None), "none");
    EXPECT_STREQ(DeviceFailure::nameOf(Operation::Allocate), "allocate");
    EXPECT_STREQ(DeviceFailure::nameOf(Operation::Open), "open");
    EXPECT_STREQ(DeviceFailure::nameOf(Operation::Claim), "claim");
    EXPECT_STREQ(DeviceFailure::nameOf(Operation::Send), "send");
    EXPECT_STREQ(DeviceFailure::nameOf(Operation::Receive), "receive");
    EXPECT_STREQ(DeviceFailure::nameOf(Operation::Submit), "submit");
    EXPECT_STREQ(DeviceFailure::nameOf(Operation::Leave), "leave");
    EXPECT_STREQ(DeviceFailure::nameOf(Operation::Close), "close");
    EXPECT_STREQ(DeviceFailure::nameOf(static_cast<Operation>(99)), "unknown");
    EXPECT_EQ((DeviceFailure{Operation::Close, 0}.toString()), "close");
}

} // namespace Vantor::Test
