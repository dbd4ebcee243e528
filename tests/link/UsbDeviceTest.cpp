// Identity, opening, death, clean-up and the small operations of one device.
#include "tests/support/DeviceRig.h"

#include "libMorvaneHostUsb/EventPump.h"
#include "libMorvaneHostUsb/TransferAccount.h"
#include "tests/link/DeviceAccess.h"

#include <atomic>
#include <cstring>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

namespace Vantor::Test {

namespace {

DeviceInformation informationWith(std::uint16_t maxPacketSize)
{
    DeviceInformation info{};
    info.maxPacketSize = maxPacketSize;
    return info;
}

} // namespace

TEST(UsbDevice, construction_allocatesThenReadsDescriptorPortAndBus)
{
    DeviceRig rig;
    rig.usb.traceReads();
    const auto other = rig.make({31, 18});
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("alloc_transfer", "alloc_transfer", "get_device_descriptor 31-18",
                                                 "get_port_number 31-18", "get_bus_number 31-18"));
}

TEST(UsbDevice, constructionLog_showsUidZeroBeforeTheUidIsAssigned)
{
    for (const int level : {5, 4, 3}) {
        DeviceRig rig;
        std::unique_ptr<UsbDevice> other;
        const std::string text = rig.logged(level, [&] { other = rig.make({31, 18}); });
        std::string expected;
        if (level >= 5)
            expected += "@UsbDevice: UsbDevice " + printed(other.get()) + "\n";
        if (level >= 4)
            expected += "[libusb] UsbDevice() uid=0 bus=1f port=12\n";
        EXPECT_EQ(text, expected);
        EXPECT_EQ(other->getUid(), 0x1f12);
    }
}

TEST(UsbDevice, construction_isAliveWithoutInformationAndOnItsDevice)
{
    DeviceRig rig;
    EXPECT_TRUE(rig.device->isAlive());
    EXPECT_EQ(rig.device->getDevice(), rig.panel);
    EXPECT_EQ(rig.device->getDeviceInfo(), nullptr);
    EXPECT_FALSE(rig.device->isUpdating());
    EXPECT_EQ(rig.device->getSentData(), 0u);
    EXPECT_EQ(rig.device->getReceivedData(), 0u);
    EXPECT_EQ(rig.usb.references(rig.panel), 2) << "the device takes no reference of its own";
}

TEST(UsbDevice, transfersThatCannotBeAllocated_makeItDeadFromTheStart)
{
    for (const int allocation : {0, 1}) {
        DeviceRig rig;
        for (int i = 0; i < allocation; ++i)
            rig.usb.script("alloc_transfer", LIBUSB_SUCCESS);
        rig.usb.script("alloc_transfer", LIBUSB_ERROR_NO_MEM);
        const auto other = rig.make({1, 5});
        EXPECT_FALSE(other->isAlive());
        other->open();
        rig.usb.takeTrace();
        other->poll(VirtualClock::now() + 10s);
        const std::uint8_t byte = 1;
        other->getPacker().addStructData(&byte, 1u, static_cast<PacketType>(5));
        EXPECT_THAT(rig.usb.takeTrace(), ElementsAre()) << "it does no transfers";
    }
}

TEST(UsbDevice, secondDeviceAtAPort_getsTheNextUid)
{
    DeviceRig rig;
    EXPECT_EQ(rig.device->getUid(), 0x104);
    const auto second = rig.make({1, 4});
    EXPECT_EQ(second->getUid(), 0x105);
    const auto neighbour = rig.make({1, 5});
    EXPECT_EQ(neighbour->getUid(), 0x106);
    rig.device.reset();
    const auto again = rig.make({1, 4});
    EXPECT_EQ(again->getUid(), 0x104) << "free again once the first is destroyed";
}

TEST(UsbDevice, uidAboveTheLast_wrapsToZero)
{
    DeviceRig rig;
    const auto last = rig.make({255, 255});
    EXPECT_EQ(last->getUid(), 0xFFFF);
    const auto next = rig.make({255, 255});
    EXPECT_EQ(next->getUid(), 0);
}

TEST(UsbDevice, id_isTheLowestThatNoLiveDeviceHas)
{
    DeviceRig rig;
    auto one = rig.make({1, 5});
    const auto two = rig.make({1, 6});
    EXPECT_EQ(rig.device->getId(), 0u);
    EXPECT_EQ(one->getId(), 1u);
    EXPECT_EQ(two->getId(), 2u);
    rig.device.reset();
    const auto zero = rig.make({1, 7});
    EXPECT_EQ(zero->getId(), 0u);
    one.reset();
    const auto first = rig.make({1, 8});
    EXPECT_EQ(first->getId(), 1u);
    EXPECT_EQ(first->getIdAsPtr(), reinterpret_cast<void*>(1));
}

TEST(UsbDevice, deadOrClosedDevice_keepsItsIdentityUntilDestroyed)
{
    DeviceRig rig;
    rig.open();
    rig.device->markDead();
    rig.device->cleanup();
    const auto other = rig.make({1, 4});
    EXPECT_EQ(other->getUid(), 0x105);
    EXPECT_EQ(other->getId(), 1u);
}

TEST(UsbDevice, open_claimsInterfaceZeroAndClearsTheHaltOfEndpointZero)
{
    DeviceRig rig;
    rig.device->open();
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("open 1-4", "auto-detach 1-4 1", "kernel-driver 1-4 0", "claim 1-4 0",
                                                 "clear-halt 1-4 0x00"));
    EXPECT_TRUE(rig.device->isAlive());
}

TEST(UsbDevice, openLog_tracesEveryStepAtLevelFive)
{
    for (const int level : {5, 4, 3}) {
        DeviceRig rig;
        std::string text = rig.logged(level, [&] { rig.device->open(); });
        text = LogCapture::replaced(text, printed(Access::handle(*rig.device)), "HANDLE");
        std::string expected;
        if (level >= 4)
            expected += "[libusb] UsbDevice::open uid=104 id=0\n";
        if (level >= 5)
            expected += "@UsbDevice: Device Opened uid=104 HANDLE\n"
                        "@UsbDevice: libusb_kernel_driver_active uid=104 HANDLE\n"
                        "@UsbDevice: libusb_claim_interface uid=104 HANDLE\n"
                        "@UsbDevice: libusb_clear_halt uid=104 HANDLE\n";
        EXPECT_EQ(text, expected);
    }
}

TEST(UsbDevice, openThatFails_printsALineAtLevelTwoAndIsDead)
{
    for (const int level : {2, 1}) {
        DeviceRig rig;
        rig.usb.script("open", LIBUSB_ERROR_ACCESS);
        EXPECT_EQ(rig.logged(level, [&] { rig.device->open(); }),
                  level >= 2 ? "[libusb] Cannot open device uid=104 (nil)\n" : "");
        EXPECT_FALSE(rig.device->isAlive());
        EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("open 1-4"));
        rig.device->cleanup();
        EXPECT_THAT(rig.usb.takeTrace(), ElementsAre()) << "there is no handle to close";
    }
}

TEST(UsbDevice, autoDetachNotSupported_isASummaryAndGoesOn)
{
    for (const int level : {3, 2}) {
        DeviceRig rig;
        rig.usb.script("set_auto_detach_kernel_driver", LIBUSB_ERROR_NOT_SUPPORTED);
        EXPECT_EQ(rig.logged(level, [&] { rig.device->open(); }),
                  level >= 3 ? "[libusb] Auto kernel detach not supported for uid=104\n" : "");
        EXPECT_TRUE(rig.device->isAlive());
        EXPECT_THAT(rig.usb.takeTrace(), Contains("claim 1-4 0"));
    }
}

TEST(UsbDevice, autoDetachThatFailsOtherwise_isSilent)
{
    DeviceRig rig;
    rig.usb.script("set_auto_detach_kernel_driver", LIBUSB_ERROR_OTHER);
    EXPECT_EQ(rig.logged(3, [&] { rig.device->open(); }), "");
    EXPECT_TRUE(rig.device->isAlive());
}

TEST(UsbDevice, kernelDriverResultOtherThanZero_isPrintedAtLevelFourAndGoesOn)
{
    for (const int result : {1, static_cast<int>(LIBUSB_ERROR_NOT_SUPPORTED)}) {
        for (const int level : {4, 3}) {
            DeviceRig rig;
            rig.usb.script("kernel_driver_active", result);
            EXPECT_EQ(rig.logged(level, [&] { rig.device->open(); }),
                      level >= 4 ? "[libusb] UsbDevice::open uid=104 id=0\n[libusb] Kernel Driver Active\n" : "");
            EXPECT_TRUE(rig.device->isAlive());
        }
    }
}

TEST(UsbDevice, claimThatFails_printsTheCauseIsDeadAndKeepsTheHandleUntilCleanup)
{
    const struct {
        int code;
        const char* line;
    } rows[] = {
        {LIBUSB_ERROR_NOT_FOUND, "[libusb] Unable to claim USB interface. Device not found. Aborting.\n"},
        {LIBUSB_ERROR_NO_DEVICE, "[libusb] Unable to claim USB interface. No device. Aborting.\n"},
        {LIBUSB_ERROR_BUSY, "[libusb] Unable to claim USB interface. Device busy. Aborting.\n"},
        {LIBUSB_ERROR_IO, "[libusb] Unable to claim USB interface. Error -1. Aborting.\n"},
        {LIBUSB_ERROR_OTHER, "[libusb] Unable to claim USB interface. Error -99. Aborting.\n"},
        {1, "[libusb] Unable to claim USB interface. Error 1. Aborting.\n"},
    };
    for (const auto& row : rows) {
        for (const int level : {2, 1}) {
            SCOPED_TRACE(row.code);
            DeviceRig rig;
            rig.usb.script("claim_interface", row.code);
            EXPECT_EQ(rig.logged(level, [&] { rig.device->open(); }), level >= 2 ? row.line : "");
            EXPECT_FALSE(rig.device->isAlive());
            EXPECT_THAT(rig.usb.takeTrace(), Not(Contains("clear-halt 1-4 0x00")));
            EXPECT_EQ(rig.usb.references(rig.panel), 3) << "the handle stays open";
            rig.device->cleanup();
            EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("release 1-4 0", "close 1-4"));
        }
    }
}

TEST(UsbDevice, clearHaltThatFailsAtOpen_isIgnored)
{
    for (const int code : {0, -1, -4, -99}) {
        DeviceRig rig;
        rig.usb.script("clear_halt", code);
        EXPECT_EQ(rig.logged(3, [&] { rig.device->open(); }), "");
        EXPECT_TRUE(rig.device->isAlive());
    }
}

TEST(UsbDevice, markDeadLog_printsItsLinesEveryTime)
{
    for (const int level : {5, 4, 3}) {
        DeviceRig rig;
        rig.open();
        const std::string handle = printed(Access::handle(*rig.device));
        std::string expected;
        if (level >= 5)
            expected += "@UsbDevice: UsbDevice::markDead() " + handle + "\n";
        if (level >= 4)
            expected += "[libusb] UsbDevice::markDead() uid=104\n";
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(rig.logged(level, [&] { rig.device->markDead(); }), expected);
    }
}

TEST(UsbDevice, markDead_setsItsFlagsOnce)
{
    DeviceRig rig;
    rig.open();
    rig.device->markDead();
    EXPECT_FALSE(rig.device->isAlive());
    EXPECT_TRUE(Access::cancelPending(*rig.device));
    Access::cancelPending(*rig.device) = false;
    rig.device->markDead();
    EXPECT_FALSE(Access::cancelPending(*rig.device)) << "nothing happens to a dead device";
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre()) << "transfers are left alone";
}

TEST(UsbDevice, cleanupLog_tracesReleaseAndClose)
{
    for (const int level : {5, 4, 3}) {
        DeviceRig rig;
        rig.open();
        rig.device->markDead();
        const std::string handle = printed(Access::handle(*rig.device));
        rig.usb.script("release_interface", LIBUSB_ERROR_NOT_FOUND);
        std::string expected;
        if (level >= 5)
            expected += "@UsbDevice: UsbDevice::cleanup() " + handle + "\n";
        if (level >= 4)
            expected += "[libusb] UsbDevice::cleanup() uid=104\n";
        if (level >= 5)
            expected += "@UsbDevice: m_devHandle=" + handle +
                        "\n"
                        "@UsbDevice: libusb_release_interface -5\n"
                        "@UsbDevice: libusb_close\n";
        EXPECT_EQ(rig.logged(level, [&] { rig.device->cleanup(); }), expected);
        EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("release 1-4 0", "close 1-4"));
        EXPECT_EQ(rig.logged(level, [&] { rig.device->cleanup(); }),
                  level >= 5 ? "@UsbDevice: UsbDevice::cleanup() (nil)\n" : "");
        EXPECT_THAT(rig.usb.takeTrace(), ElementsAre()) << "the handle is closed once";
    }
}

TEST(UsbDevice, cleanupOfALiveDevice_printsTheTraceAlone)
{
    DeviceRig rig;
    rig.open();
    const std::string handle = printed(Access::handle(*rig.device));
    EXPECT_EQ(rig.logged(5, [&] { rig.device->cleanup(); }), "@UsbDevice: UsbDevice::cleanup() " + handle + "\n");
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre());
    EXPECT_TRUE(rig.device->isAlive());
}

TEST(UsbDevice, cleanupFromManyThreads_closesTheHandleOnce)
{
    DeviceRig rig;
    rig.open();
    rig.device->markDead();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&rig] { rig.device->cleanup(); });
    for (auto& thread : threads)
        thread.join();
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("release 1-4 0", "close 1-4"));
}

TEST(UsbDevice, destructor_marksDeadCleansUpAndFreesBothTransfers)
{
    for (const int level : {5, 4, 3}) {
        DeviceRig rig;
        rig.open();
        const std::string handle = printed(Access::handle(*rig.device));
        const std::string self = printed(rig.device.get());
        std::string expected;
        if (level >= 5)
            expected += "@UsbDevice: UsbDevice::markDead() " + handle + "\n";
        if (level >= 4)
            expected += "[libusb] UsbDevice::markDead() uid=104\n";
        if (level >= 5)
            expected += "@UsbDevice: UsbDevice::cleanup() " + handle + "\n";
        if (level >= 4)
            expected += "[libusb] UsbDevice::cleanup() uid=104\n";
        if (level >= 5)
            expected += "@UsbDevice: m_devHandle=" + handle +
                        "\n@UsbDevice: libusb_release_interface 0\n"
                        "@UsbDevice: libusb_close\n"
                        "@UsbDevice: ~UsbDevice " +
                        self + " dev=" + printed(rig.panel) + "\n";
        if (level >= 4)
            expected += "[libusb] ~UsbDevice() uid=104\n";
        EXPECT_EQ(rig.logged(level, [&] { rig.device.reset(); }), expected);
        EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("release 1-4 0", "close 1-4", "free", "free"));
    }
}

TEST(UsbDevice, destructorOfAnAliveDevice_letsItsSendComplete)
{
    DeviceRig rig;
    rig.open();
    rig.add(5, {1});
    rig.usb.completeAfter(200ms, rig.panel, FakeLibusb::outEndpoint, LIBUSB_TRANSFER_COMPLETED, 12);
    rig.device.reset();
    EXPECT_THAT(rig.usb.takeCompletions(), ElementsAre("1-4 0x02 status 0"));
}

TEST(UsbDevice, destructor_keepsItsIdentityUntilItsHandleIsClosed)
{
    DeviceRig rig;
    rig.open();
    std::unique_ptr<UsbDevice> next;
    rig.usb.onCall("close", [&] { next = rig.make({1, 4}); });
    rig.device.reset();
    ASSERT_NE(next, nullptr);
    EXPECT_EQ(next->getUid(), 0x105);
    EXPECT_EQ(next->getId(), 1u);
}

TEST(UsbDevice, destructorWithTransfersInFlight_takesThemBackBeforeTheClose)
{
    DeviceRig rig;
    rig.open();
    rig.poll();
    rig.add(5, {1, 2, 3});
    rig.usb.takeTrace();
    rig.device->markDead();
    rig.device.reset();
    EXPECT_THAT(rig.usb.takeTrace(),
                ElementsAre("cancel 1-4 0x81", "cancel 1-4 0x02", "release 1-4 0", "close 1-4", "free", "free"));
}

TEST(UsbDevice, dataAddedAfterTheCleanup_isKeptAndNotSent)
{
    DeviceRig rig;
    rig.open();
    rig.device->markDead();
    rig.device->cleanup();
    rig.usb.takeTrace();
    rig.add(5, {1});
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre());
    EXPECT_TRUE(rig.device->getPacker().hasMoreData());
}

TEST(UsbDevice, deviceInfo_isNullUntilSetAndThenTheLastRecord)
{
    DeviceRig rig;
    EXPECT_EQ(rig.device->getDeviceInfo(), nullptr);
    DeviceInformation first = informationWith(600);
    first.description[0] = 0x11;
    first.reserved = 0x22;
    rig.device->setDeviceInfo(first);
    const DeviceInformation* const info = rig.device->getDeviceInfo();
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(std::memcmp(info, &first, sizeof first), 0);
    DeviceInformation second = informationWith(700);
    second.description[79] = 0x33;
    rig.device->setDeviceInfo(second);
    EXPECT_EQ(rig.device->getDeviceInfo(), info) << "it stays in place";
    EXPECT_EQ(std::memcmp(info, &second, sizeof second), 0);
}

TEST(UsbDevice, packetLimit_is1100BytesBeforeTheInformation)
{
    DeviceRig rig;
    rig.open();
    rig.add(5, Bytes(1089)); // and 11 bytes of framing
    ASSERT_EQ(rig.sends().size(), 1u);
    rig.finishSend();
    rig.add(5, Bytes(1090));
    EXPECT_EQ(rig.sends().size(), 0u);
}

TEST(UsbDevice, informationOf1024Bytes_leavesThePacketLimit)
{
    DeviceRig rig;
    rig.open();
    rig.device->setDeviceInfo(informationWith(1024));
    rig.add(5, Bytes(1089));
    EXPECT_EQ(rig.sends().size(), 1u);
}

TEST(UsbDevice, informationOf1025Bytes_setsThePacketLimit)
{
    DeviceRig rig;
    rig.open();
    rig.device->setDeviceInfo(informationWith(1025));
    rig.add(5, Bytes(1014));
    const auto sends = rig.sends();
    ASSERT_EQ(sends.size(), 1u);
    EXPECT_EQ(sends[0].length, 1025);
    rig.finishSend();
    rig.add(5, Bytes(1015));
    EXPECT_EQ(rig.sends().size(), 0u);
}

TEST(UsbDevice, portNumbers_areTheChainFromTheRootHub)
{
    DeviceRig rig;
    FakeLibusb::Panel panel;
    panel.ports = {1, 4, 2, 7, 3, 6, 5};
    EXPECT_THAT(rig.make(panel)->getPortNumbers(), ElementsAre(1, 4, 2, 7, 3, 6, 5));
}

TEST(UsbDevice, portNumbersThatCannotBeRead_areEmpty)
{
    DeviceRig rig;
    for (const int result : {0, static_cast<int>(LIBUSB_ERROR_OVERFLOW)}) {
        rig.usb.script("get_port_numbers", result);
        EXPECT_THAT(rig.device->getPortNumbers(), ElementsAre());
    }
}

TEST(UsbDevice, syncWithZero_returnsWithoutSleeping)
{
    DeviceRig rig;
    rig.add(5, {1}); // not open: it waits
    rig.device->sync(0);
    EXPECT_EQ(VirtualClock::sleeps(), 0u);
}

TEST(UsbDevice, syncOfADeadDevice_returnsAtOnce)
{
    DeviceRig rig;
    rig.add(5, {1});
    rig.device->markDead();
    rig.device->sync(2);
    EXPECT_EQ(VirtualClock::sleeps(), 0u);
}

TEST(UsbDevice, syncOfAnEmptyPacker_returnsAtOnce)
{
    DeviceRig rig;
    rig.device->sync(2);
    EXPECT_EQ(VirtualClock::sleeps(), 0u);
}

TEST(UsbDevice, sync_givesUpAfterTenThousandSleepsPerUnit)
{
    DeviceRig rig;
    rig.add(5, {1});
    rig.device->sync(1);
    EXPECT_EQ(VirtualClock::sleeps(), 10000u);
    rig.device->sync(2);
    EXPECT_EQ(VirtualClock::sleeps(), 30000u);
}

TEST(UsbDevice, sync_endsWhenThePackerIsEmpty)
{
    DeviceRig rig;
    rig.open();
    rig.add(5, {1}); // in flight
    rig.add(5, {2}); // waits
    VirtualClock::onSleep([&rig] {
        if (VirtualClock::sleeps() == 3)
            rig.finishSend();
    });
    rig.device->sync(2);
    EXPECT_EQ(VirtualClock::sleeps(), 3u);
}

TEST(UsbDevice, sync_endsWhenTheDeviceDies)
{
    DeviceRig rig;
    rig.add(5, {1});
    VirtualClock::onSleep([&rig] {
        if (VirtualClock::sleeps() == 3)
            rig.device->markDead();
    });
    rig.device->sync(2);
    EXPECT_EQ(VirtualClock::sleeps(), 3u);
}

// Draining: a dead device's transfers come back before its handle is closed.

class Drain {
public:
    Drain()
    {
        rig.open();
        rig.poll();
        rig.add(5, {1, 2, 3});
        rig.usb.takeTrace();
        m_start = VirtualClock::now();
        rig.usb.onCall("cancel_transfer", [this] { cancels.push_back(VirtualClock::now() - m_start); });
    }

    std::chrono::nanoseconds elapsed() const { return VirtualClock::now() - m_start; }

    DeviceRig rig;
    std::vector<std::chrono::nanoseconds> cancels;

private:
    std::chrono::system_clock::time_point m_start;
};

TEST(UsbDevice, drainOfADeadDevice_cancelsBothAtOnce)
{
    Drain drain;
    drain.rig.device->markDead();
    drain.rig.device->drain(false);
    EXPECT_THAT(drain.rig.usb.takeTrace(), ElementsAre("cancel 1-4 0x81", "cancel 1-4 0x02"));
    EXPECT_THAT(drain.cancels, ElementsAre(0ns, 0ns));
    EXPECT_EQ(drain.elapsed(), 0ns);
}

TEST(UsbDevice, drainOfAnAliveDevice_letsTheSendComplete)
{
    Drain drain;
    drain.rig.usb.completeAfter(249ms, drain.rig.panel, FakeLibusb::outEndpoint, LIBUSB_TRANSFER_COMPLETED, 14);
    drain.rig.device->markDead();
    drain.rig.device->drain(true);
    EXPECT_EQ(drain.rig.device->getSentData(), 14u);
    EXPECT_THAT(drain.cancels, ElementsAre(249ms, 249ms)) << "the read is cancelled once the send is out";
    EXPECT_THAT(drain.rig.usb.takeTrace(), ElementsAre("cancel 1-4 0x81", "cancel 1-4 0x02"));
}

TEST(UsbDevice, drainOfAnAliveDevice_cancelsASendThatTakesLongerThan250Milliseconds)
{
    Drain drain;
    drain.rig.usb.completeAfter(251ms, drain.rig.panel, FakeLibusb::outEndpoint, LIBUSB_TRANSFER_COMPLETED, 14);
    drain.rig.device->markDead();
    drain.rig.device->drain(true);
    EXPECT_THAT(drain.cancels, ElementsAre(250ms, 250ms));
    EXPECT_EQ(drain.rig.device->getSentData(), 0u);
}

TEST(UsbDevice, drainOfAnAliveDeviceWithoutASend_waitsForNothing)
{
    Drain drain;
    drain.rig.finishSend();
    drain.rig.usb.takeTrace();
    drain.rig.device->markDead();
    drain.rig.device->drain(true);
    EXPECT_THAT(drain.cancels, ElementsAre(0ns, 0ns));
}

TEST(UsbDevice, drainWithNothingInFlight_cancelsNothing)
{
    DeviceRig rig;
    rig.open();
    rig.device->markDead();
    rig.device->drain(true);
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre());
}

TEST(UsbDevice, drainAfterAFailedSubmission_cancelsNothing)
{
    DeviceRig rig;
    rig.open();
    rig.usb.script("submit_transfer 0x81", LIBUSB_ERROR_INTERRUPTED);
    rig.usb.script("submit_transfer 0x02", LIBUSB_ERROR_INTERRUPTED);
    EXPECT_EQ(rig.logged(2,
                         [&] {
                             rig.add(5, {1});
                             rig.poll();
                         }),
              "[libusb] TX LIBUSB_ERROR_INTERRUPTED\n[libusb] RX LIBUSB_ERROR_INTERRUPTED\n");
    EXPECT_EQ(rig.sends().size(), 1u) << "the poll tries the send again";
    rig.finishSend();
    rig.usb.takeTrace();
    rig.device->markDead();
    rig.device->drain(false);
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre());
}

TEST(UsbDevice, drain_cancelsAgainUntilItWorks)
{
    Drain drain;
    drain.rig.usb.script("cancel_transfer", LIBUSB_ERROR_OTHER, 6);
    drain.rig.device->markDead();
    drain.rig.device->drain(false);
    EXPECT_THAT(drain.cancels, ElementsAre(0ns, 0ns, 10ms, 10ms, 20ms, 20ms, 30ms, 30ms));
}

TEST(UsbDevice, drainOfTransfersThatDoNotComeBack_givesUpAfterOneSecond)
{
    for (const int level : {2, 1}) {
        Drain drain;
        drain.rig.usb.ignoreCancel(true);
        drain.rig.device->markDead();
        EXPECT_EQ(drain.rig.logged(level, [&] { drain.rig.device->drain(false); }),
                  level >= 2 ? "[libusb] Transfers still pending after cancelling, uid=104\n" : "");
        EXPECT_EQ(drain.elapsed(), 1s);
        EXPECT_EQ(drain.cancels.size(), 200u) << "again and again";
        drain.rig.usb.ignoreCancel(false);
    }
}

TEST(UsbDevice, drainInsideEventHandling_doesNothing)
{
    Drain drain;
    drain.rig.usb.route([&drain](libusb_transfer*) {
        drain.rig.device->markDead();
        drain.rig.device->drain(true);
    });
    EXPECT_TRUE(drain.rig.usb.completeSend(drain.rig.panel));
    drain.rig.deliver();
    EXPECT_THAT(drain.rig.usb.takeTrace(), ElementsAre());
}

TEST(UsbDevice, drainWhileAWorkerRunsTheEvents_leavesThemToIt)
{
    Drain drain;
    std::atomic<bool> stop{false};
    std::atomic<bool> started{false};
    std::atomic<int> foreign{0};
    std::thread worker([&] {
        const EventPump::Worker declared(drain.rig.context);
        started = true;
        while (!stop)
            EventPump::handleEvents(drain.rig.context, timeval{});
    });
    drain.rig.usb.route([&foreign, caller = std::this_thread::get_id()](libusb_transfer*) {
        if (std::this_thread::get_id() == caller)
            ++foreign;
    });
    while (!started)
        std::this_thread::yield();
    drain.rig.device->markDead();
    drain.rig.device->drain(false);
    stop = true;
    worker.join();
    EXPECT_EQ(foreign, 0) << "the draining thread ran events itself";
    EXPECT_EQ(drain.rig.usb.inFlight(drain.rig.panel, FakeLibusb::inEndpoint), nullptr);
    EXPECT_EQ(drain.rig.usb.inFlight(drain.rig.panel, FakeLibusb::outEndpoint), nullptr);
    drain.rig.usb.takeTrace();
}

// The account of what libusb holds.

TEST(UsbDeviceTransferAccount, transfer_isHeldUntilLoweredAsOftenAsRaised)
{
    TransferAccount& account = TransferAccount::instance();
    libusb_transfer transfer{};
    EXPECT_FALSE(account.isHeld(&transfer));
    account.raise(&transfer);
    account.raise(&transfer);
    account.lower(&transfer);
    EXPECT_TRUE(account.isHeld(&transfer));
    account.lower(&transfer);
    EXPECT_FALSE(account.isHeld(&transfer));
}

TEST(UsbDeviceTransferAccount, unknownTransfer_isIgnored)
{
    TransferAccount& account = TransferAccount::instance();
    libusb_transfer transfer{};
    account.lower(&transfer);
    account.lower(nullptr);
    EXPECT_FALSE(account.isHeld(&transfer));
    account.raise(&transfer);
    EXPECT_TRUE(account.isHeld(&transfer)) << "no debt is kept";
    account.forget(&transfer);
    EXPECT_FALSE(account.isHeld(&transfer));
}

} // namespace Vantor::Test
