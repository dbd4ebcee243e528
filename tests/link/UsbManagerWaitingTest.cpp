// How long the worker waits for events, and what ends that wait.
#include "tests/support/BootRecords.h"
#include "tests/support/ManagerRig.h"
#include "tests/support/Meeting.h"
#include "tests/support/TemporaryFolder.h"

#include <functional>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using testing::ElementsAre;

namespace Vantor::Test {

namespace {

constexpr auto idleWait = 1050ms;

// A panel that has been taken up and takes packets of 5,000 bytes, and a worker that has
// nothing left to do.
class WaitingRig : public ManagerRig {
public:
    WaitingRig()
    {
        start();
        panel = arrive();
        device = manager->getDevice(0x104);
        DeviceInformation info{};
        info.maxPacketSize = 5000;
        device->setDeviceInfo(info);
        usb.passAfter(0s);
    }

    // Of 5,000 bytes: two chunks. The worker has seen it.
    void startUpgrade()
    {
        setLevel(0);
        device->startFirmwareUpgrade(image.getPath(), "/nonexistent", nullptr);
        takeSend();
    }

    // The panel takes what was sent.
    void takeSend()
    {
        usb.completeSend(panel);
        usb.passAfter(0s);
    }

    // `command` in a packet of its own; handled when it returns.
    void reply(std::uint8_t command, std::uint32_t address)
    {
        Bytes packet{25, 0, 1, 0, 0, 0, 0, 0, 40, 14, 0};
        const Bytes record = BootRecords::reply(command, 1, address);
        packet.insert(packet.end(), record.begin(), record.end());
        usb.receive(panel, packet);
        usb.passAfter(0s);
        observer.waitForMessages(1);
        VirtualClock::waitForPolling();
    }

    libusb_device* panel;
    std::shared_ptr<UsbDevice> device;
    const TemporaryFile image{BootRecords::image(5000)};
};

} // namespace

TEST(UsbManagerWaiting, attachedPanel_isAnnouncedAtOnce)
{
    ManagerRig rig;
    rig.usb.attach(panelAt(4));
    rig.start();
    const auto begin = VirtualClock::now();
    rig.usb.pass();
    EXPECT_EQ(VirtualClock::now(), begin);
    EXPECT_THAT(rig.observer.take(), ElementsAre("added 104"));
    EXPECT_EQ(rig.usb.remainingWait(), idleWait);
}

TEST(UsbManagerWaiting, panelWithoutAnUpgrade_leavesTheWorkerItsRest)
{
    WaitingRig rig;
    EXPECT_EQ(rig.usb.remainingWait(), idleWait);
}

TEST(UsbManagerWaiting, startOfAnUpgrade_wakesTheWorker)
{
    WaitingRig rig;
    WaitingRig::setLevel(0);
    rig.device->startFirmwareUpgrade(rig.image.getPath(), "/nonexistent", nullptr);
    EXPECT_EQ(rig.usb.remainingWait(), 0s);
    rig.takeSend();
    EXPECT_EQ(rig.usb.remainingWait(), 1s) << "for an answer to the request";
}

TEST(UsbManagerWaiting, everyStep_isTakenWhenItIsDue)
{
    WaitingRig rig;
    rig.startUpgrade();
    VirtualClock::advance(10ms);
    rig.reply(2, 0);
    EXPECT_EQ(rig.usb.remainingWait(), 0s) << "woken by the reply";
    rig.usb.pass();
    EXPECT_EQ(rig.usb.remainingWait(), 90ms) << "0.1 s after the request";
    rig.usb.takeSubmissions(rig.panel, FakeLibusb::outEndpoint);
    rig.usb.pass();
    EXPECT_THAT(rig.usb.takeSubmissions(rig.panel, FakeLibusb::outEndpoint), testing::SizeIs(1)) << "the chunk";
    EXPECT_EQ(rig.usb.remainingWait(), 700ms) << "then it is sent again";
    rig.takeSend();
    rig.usb.pass();
    EXPECT_THAT(rig.usb.takeSubmissions(rig.panel, FakeLibusb::outEndpoint), testing::SizeIs(1));
}

TEST(UsbManagerWaiting, lessThanAMicrosecondToGo_isNotTakenForNone)
{
    WaitingRig rig;
    rig.startUpgrade();
    rig.usb.passAfter(1s - 1ns);
    EXPECT_EQ(rig.usb.remainingWait(), 1us);
    EXPECT_EQ(rig.usb.inFlight(rig.panel, FakeLibusb::outEndpoint), nullptr);
    rig.usb.pass();
    EXPECT_NE(rig.usb.inFlight(rig.panel, FakeLibusb::outEndpoint), nullptr);
}

// The registry check comes between the polls and the wait.
TEST(UsbManagerWaiting, slowOpenOfAStrayPanel_doesNotMakeTheStepLate)
{
    WaitingRig rig;
    WaitingRig::setLevel(0);
    rig.usb.passAfter(5s);
    rig.startUpgrade();
    rig.usb.attach(panelAt(5));
    rig.usb.onCall("open", [] { VirtualClock::advance(300ms); });
    rig.usb.passAfter(500ms);
    EXPECT_EQ(rig.usb.remainingWait(), 200ms);
}

TEST(UsbManagerWaiting, ofTwoUpgrades_theSoonerStepCounts)
{
    WaitingRig rig;
    libusb_device* const second = rig.arrive(panelAt(5));
    rig.startUpgrade();
    VirtualClock::advance(300ms);
    rig.manager->getDevice(0x105)->startFirmwareUpgrade(rig.image.getPath(), "/nonexistent", nullptr);
    rig.usb.completeSend(second);
    rig.usb.passAfter(0s);
    EXPECT_EQ(rig.usb.remainingWait(), 700ms);
}

TEST(UsbManagerWaiting, clockSetBack_doesNotMakeTheWaitLonger)
{
    WaitingRig rig;
    rig.startUpgrade();
    VirtualClock::step(-10s);
    rig.usb.passAfter(0s);
    EXPECT_EQ(rig.usb.remainingWait(), idleWait);
}

TEST(UsbManagerWaiting, endOfAnUpgrade_givesTheWorkerItsRest)
{
    WaitingRig rig;
    rig.startUpgrade();
    for (const std::uint32_t address : {0u, 4096u}) {
        rig.usb.passAfter(1s);
        rig.takeSend();
        VirtualClock::advance(100ms);
        rig.reply(1, address);
        rig.takeSend();
    }
    rig.usb.pass(); // nothing is left
    rig.usb.pass(); // finished
    EXPECT_FALSE(rig.device->isUpdating());
    EXPECT_EQ(rig.usb.remainingWait(), idleWait);
}

// Its steps stay due, and nobody takes them.
TEST(UsbManagerWaiting, deadDeviceWithAnUpgrade_isNotWaitedFor)
{
    WaitingRig rig;
    rig.startUpgrade();
    rig.device->markDead();
    rig.usb.passAfter(2s);
    EXPECT_TRUE(rig.device->isUpdating());
    EXPECT_EQ(rig.usb.remainingWait(), idleWait);
}

TEST(UsbManagerWaiting, deviceThatCannotBeOpened_isNotWaitedFor)
{
    WaitingRig rig;
    WaitingRig::setLevel(0);
    rig.usb.script("open", LIBUSB_ERROR_ACCESS);
    rig.arrive(panelAt(5));
    const auto unusable = rig.manager->getDevice(0x105);
    ASSERT_NE(unusable, nullptr);
    unusable->startFirmwareUpgrade(rig.image.getPath(), "/nonexistent", nullptr);
    rig.usb.passAfter(2s);
    EXPECT_TRUE(unusable->isUpdating());
    EXPECT_EQ(rig.usb.remainingWait(), idleWait);
}

// The first step is due at once, but the worker can't take it.
TEST(UsbManagerWaiting, progressCallback_keepsTheWorkerNeitherAwakeNorWaiting)
{
    WaitingRig rig;
    WaitingRig::setLevel(0);
    std::chrono::nanoseconds meanwhile(0);
    rig.device->startFirmwareUpgrade(rig.image.getPath(), "/nonexistent", [&](const UsbDevice::FirmwareProgress&) {
        rig.usb.passAfter(0s);
        meanwhile = rig.usb.remainingWait();
    });
    EXPECT_EQ(meanwhile, idleWait);
    EXPECT_EQ(rig.usb.remainingWait(), 0s) << "woken when it is over";
}

// A worker that was woken sooner would find the mutex taken, and rest.
TEST(UsbManagerWaiting, wake_comesWhenTheFirmwareMutexIsFree)
{
    const auto step = [](UsbDevice& device) { device.handleFirmwareUpgrade(FirmwareUpgradeCommand{}); };
    const std::function<void(WaitingRig&)> wakers[] = {
        [](WaitingRig& rig) { rig.device->startFirmwareUpgrade(rig.image.getPath(), "/nonexistent", nullptr); },
        [&step](WaitingRig& rig) { step(*rig.device); }};
    for (const auto& wake : wakers) {
        WaitingRig rig;
        WaitingRig::setLevel(0);
        const Meeting meeting(rig.usb, "interrupt_event_handler", Meeting::Expected::Through,
                              [&] { step(*rig.device); });
        wake(rig);
        EXPECT_TRUE(meeting.wasAsExpected());
    }
}

// Its context lives as long as it does.
TEST(UsbManagerWaiting, deviceThatOutlivesTheManager_wakesNobody)
{
    WaitingRig rig;
    WaitingRig::setLevel(0);
    rig.stop();
    rig.device->startFirmwareUpgrade(rig.image.getPath(), "/nonexistent", nullptr);
    rig.device->handleFirmwareUpgrade(FirmwareUpgradeCommand{});
    EXPECT_THAT(rig.usb.takeMisuses(), testing::IsEmpty());
}

} // namespace Vantor::Test
