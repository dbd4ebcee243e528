// The worker's passes and its check of the registry against the bus.
#include "tests/support/ManagerRig.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <fstream>
#include <utility>

#include <pthread.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace Vantor::Test {

TEST(UsbManagerWorker, worker_handlesEventsForUpTo1050Milliseconds)
{
    ManagerRig rig;
    rig.start();
    rig.usb.pass(); // woken at the end of initialise
    const auto start = VirtualClock::now();
    rig.usb.pass();
    EXPECT_EQ(VirtualClock::now() - start, 1050ms);
    const auto timeouts = rig.usb.takeEventTimeouts();
    ASSERT_THAT(timeouts, SizeIs(3));
    for (const timeval& timeout : timeouts) {
        EXPECT_EQ(timeout.tv_sec, 1);
        EXPECT_EQ(timeout.tv_usec, 50000);
    }
}

TEST(UsbManagerWorker, worker_announcesDeparturesBeforeArrivals)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const four = rig.arrive(panelAt(4));
    libusb_device* const five = rig.arrive(panelAt(5));
    rig.observer.take();
    rig.usb.plug(panelAt(6));
    rig.usb.plug(panelAt(7));
    rig.usb.unplug(five);
    rig.usb.unplug(four);
    rig.logged(0, [&] { rig.usb.pass(); });
    EXPECT_THAT(rig.observer.take(), ElementsAre("removed 105", "removed 104", "added 106", "added 107"));
}

TEST(UsbManagerWorker, panelThatComesAndGoesInOnePass_isAnnouncedRemovedFirst)
{
    ManagerRig rig;
    rig.start();
    rig.usb.unplug(rig.usb.plug({}));
    EXPECT_EQ(rig.logged(2, [&] { rig.usb.pass(); }), "[libusb] Cannot open device uid=104 (nil)\n");
    EXPECT_THAT(rig.observer.take(), ElementsAre("removed 104", "added 104"));
    EXPECT_THAT(rig.manager->getDeviceListSafe(), IsEmpty());
}

TEST(UsbManagerWorker, observerThatUnregistersItself_isToldNothingMoreInThatPass)
{
    ManagerRig rig;
    rig.observer.whenAdded = [&rig](std::uint16_t) { rig.manager->unregisterObserver(&rig.observer); };
    rig.observer.whenRemoved = [&rig](std::uint16_t) { rig.manager->unregisterObserver(&rig.observer); };
    rig.start();
    libusb_device* const four = rig.usb.plug(panelAt(4));
    libusb_device* const five = rig.usb.plug(panelAt(5));
    rig.usb.pass();
    EXPECT_THAT(rig.observer.take(), ElementsAre("added 104"));
    rig.manager->registerObserver(&rig.observer);
    rig.usb.unplug(four);
    rig.usb.unplug(five);
    rig.usb.plug(panelAt(6));
    rig.logged(0, [&] { rig.usb.pass(); });
    EXPECT_THAT(rig.observer.take(), ElementsAre("removed 104"));
}

TEST(UsbManagerWorker, observerReplacedInACallback_isFollowedByTheNewOne)
{
    ManagerRig rig;
    RecordingObserver second;
    rig.observer.whenAdded = [&](std::uint16_t) { rig.manager->registerObserver(&second); };
    rig.start();
    rig.usb.plug(panelAt(4));
    rig.usb.plug(panelAt(5));
    rig.usb.pass();
    EXPECT_THAT(rig.observer.take(), ElementsAre("added 104"));
    EXPECT_THAT(second.take(), ElementsAre("added 105"));
    rig.manager->registerObserver(&rig.observer);
}

TEST(UsbManagerWorker, announcedDevice_canBeFoundAndARetiredOneCannot)
{
    ManagerRig rig;
    bool found = false;
    bool foundRetired = true;
    rig.observer.whenAdded = [&](std::uint16_t uid) { found = rig.manager->getDevice(uid) != nullptr; };
    rig.observer.whenRemoved = [&](std::uint16_t uid) { foundRetired = rig.manager->getDevice(uid) != nullptr; };
    rig.start();
    libusb_device* const panel = rig.arrive();
    rig.usb.unplug(panel);
    rig.logged(0, [&] { rig.usb.pass(); });
    EXPECT_TRUE(found);
    EXPECT_FALSE(foundRetired);
}

TEST(UsbManagerWorker, arrivalsWithoutAnObserver_areDrivenAllTheSame)
{
    ManagerRig rig;
    rig.create();
    rig.initialise();
    libusb_device* const panel = rig.arrive();
    EXPECT_NE(rig.usb.inFlight(panel, FakeLibusb::inEndpoint), nullptr);
    rig.usb.unplug(panel);
    rig.logged(0, [&] { rig.usb.pass(); });
    EXPECT_THAT(rig.manager->getDeviceListSafe(), IsEmpty());
}

TEST(UsbManagerWorker, arrival_isToldBeforeItsFirstPoll)
{
    ManagerRig rig;
    rig.observer.whenAdded = [&rig](std::uint16_t) { rig.usb.takeTrace(); };
    rig.start();
    rig.arrive();
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("submit 1-4 0x81"));
}

TEST(UsbManagerWorker, arrivedDevice_isPolledInTheSamePass)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const panel = rig.usb.plug({});
    rig.usb.pass();
    EXPECT_THAT(rig.usb.takeSubmissions(panel, FakeLibusb::inEndpoint), SizeIs(1));
}

TEST(UsbManagerWorker, worker_pollsEveryDeviceWithOneTimeStamp)
{
    ManagerRig rig;
    pthread_t worker{};
    rig.observer.whenAdded = [&worker](std::uint16_t) { worker = pthread_self(); };
    rig.start();
    libusb_device* const four = rig.usb.plug(panelAt(4));
    libusb_device* const five = rig.usb.plug(panelAt(5));
    rig.usb.passAfter(0s);
    // Two seconds after their construction nothing is due yet; a second reading of the
    // clock would be later.
    VirtualClock::tickPerSystemRead(1s, worker);
    rig.usb.passAfter(2s);
    VirtualClock::tickPerSystemRead(0s, worker);
    EXPECT_EQ(rig.usb.inFlight(four, FakeLibusb::outEndpoint), nullptr);
    EXPECT_EQ(rig.usb.inFlight(five, FakeLibusb::outEndpoint), nullptr);
}

TEST(UsbManagerWorker, sendTimedOut_isRetriedByTheNextPass)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const panel = rig.arrive();
    const std::uint8_t byte = 1;
    rig.manager->getDevice(0x104)->getPacker().addStructData(&byte, 1u, static_cast<PacketType>(5));
    ASSERT_THAT(rig.usb.takeSubmissions(panel, FakeLibusb::outEndpoint), SizeIs(1));
    rig.usb.complete(panel, FakeLibusb::outEndpoint, LIBUSB_TRANSFER_TIMED_OUT, 0);
    rig.usb.pass();
    EXPECT_THAT(rig.usb.takeSubmissions(panel, FakeLibusb::outEndpoint), SizeIs(1));
}

TEST(UsbManagerWorker, failingEventCalls_doNotStopTheWorker)
{
    ManagerRig rig;
    rig.start();
    rig.usb.script("handle_events", LIBUSB_ERROR_INTERRUPTED, 2);
    rig.usb.plug({});
    rig.usb.pass(); // the call that is under way did not fail
    EXPECT_THAT(rig.observer.take(), ElementsAre("added 104"));
    rig.usb.pass();
    rig.usb.pass();
}

// Departures.

TEST(UsbManagerWorker, departureAnnouncedTwice_isToldOnce)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const panel = rig.arrive();
    rig.observer.take();
    rig.usb.takeTrace();
    rig.usb.announce(panel, LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT);
    rig.usb.announce(panel, LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT);
    rig.usb.pass();
    EXPECT_THAT(rig.observer.take(), ElementsAre("removed 104"));
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("cancel 1-4 0x81", "cancel unused", "release 1-4 0", "close 1-4",
                                                 "free", "free", "unref 1-4"));
    rig.usb.passAfter(0s);
    EXPECT_THAT(rig.observer.take(), IsEmpty());
}

TEST(UsbManagerWorker, departureDuringADrain_waitsForTheNextPass)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const four = rig.arrive(panelAt(4));
    libusb_device* const five = rig.arrive(panelAt(5));
    rig.observer.take();
    rig.usb.onCall("cancel_transfer", [&rig, five, done = false]() mutable {
        if (!std::exchange(done, true))
            rig.usb.unplug(five);
    });
    rig.usb.announce(four, LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT);
    rig.logged(0, [&] { rig.usb.pass(); });
    EXPECT_THAT(rig.observer.take(), ElementsAre("removed 104"));
    EXPECT_NE(rig.manager->getDevice(0x105), nullptr);
    rig.usb.passAfter(0s);
    EXPECT_THAT(rig.observer.take(), ElementsAre("removed 105"));
}

TEST(UsbManagerWorker, departureDuringADrain_isNotTakenForADeadDevice)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const four = rig.arrive(panelAt(4));
    libusb_device* const five = rig.arrive(panelAt(5));
    rig.usb.complete(four, FakeLibusb::inEndpoint, LIBUSB_TRANSFER_TIMED_OUT, 0);
    rig.usb.complete(five, FakeLibusb::inEndpoint, LIBUSB_TRANSFER_TIMED_OUT, 0);
    rig.usb.passAfter(5s);
    rig.observer.take();
    rig.usb.onCall("cancel_transfer", [&rig, five, done = false]() mutable {
        if (!std::exchange(done, true))
            rig.usb.unplug(five);
    });
    rig.usb.announce(four, LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT);
    rig.usb.vanish(four);
    const std::string text = rig.logged(3, [&] { rig.usb.passAfter(1s); });
    EXPECT_THAT(text, testing::HasSubstr(">> Device unplugged"));
    EXPECT_THAT(text, Not(testing::HasSubstr("found dead device: uid=105")));
    rig.usb.passAfter(0s);
    EXPECT_THAT(rig.observer.take(), ElementsAre("removed 104", "removed 105"));
}

TEST(UsbManagerWorker, retirement_waitsForACancelledTransferToComeBack)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const panel = rig.arrive();
    rig.usb.ignoreCancel(true);
    rig.usb.completeAfter(300ms, panel, FakeLibusb::inEndpoint, LIBUSB_TRANSFER_CANCELLED, 0);
    rig.usb.announce(panel, LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT);
    const auto start = VirtualClock::now();
    rig.usb.pass();
    EXPECT_EQ(VirtualClock::now() - start, 300ms);
    EXPECT_THAT(rig.usb.takeTrace(), Contains("close 1-4"));
}

// The registry check.

TEST(UsbManagerWorker, registryCheck_comesMoreThanFiveSecondsAfterTheLast)
{
    ManagerRig rig;
    rig.start();
    for (int check = 0; check < 2; ++check) {
        for (int i = 0; i < 5; ++i)
            rig.usb.passAfter(1s);
        EXPECT_THAT(rig.usb.takeTrace(), IsEmpty()) << "at the limit";
        rig.usb.passAfter(1ns);
        EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("list", "free-list"));
    }
}

TEST(UsbManagerWorker, registryCheck_isDatedByItsPass)
{
    ManagerRig rig;
    pthread_t worker{};
    rig.usb.onCall("handle_events", [&worker] { worker = pthread_self(); });
    rig.start();
    rig.usb.pass();
    const auto check = VirtualClock::now() + 6s;
    VirtualClock::tickPerSystemRead(1s, worker); // a second reading would be later
    rig.usb.passAfter(6s);
    VirtualClock::tickPerSystemRead(0s, worker);
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("list", "free-list"));
    rig.usb.passAfter(check + 5s + 1ns - VirtualClock::now());
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("list", "free-list"));
}

TEST(UsbManagerWorker, idleWorker_checksTheBusInEveryFifthPass)
{
    ManagerRig rig;
    rig.start();
    Trace trace;
    rig.usb.pass();                // at once
    for (int i = 0; i < 20; ++i) { // 21 s
        rig.usb.pass();
        const Trace part = rig.usb.takeTrace();
        trace.insert(trace.end(), part.begin(), part.end());
    }
    EXPECT_EQ(std::count(trace.begin(), trace.end(), "list"), 4);
}

TEST(UsbManagerWorker, registryCheck_leavesALiveDeviceAlone)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const panel = rig.arrive();
    const auto before = rig.manager->getDeviceListSafe();
    rig.usb.takeTrace();
    rig.usb.complete(panel, FakeLibusb::inEndpoint, LIBUSB_TRANSFER_TIMED_OUT, 0);
    rig.usb.passAfter(6s);
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("submit 1-4 0x81", "submit 1-4 0x02", "list", "free-list"));
    EXPECT_EQ(rig.manager->getDeviceListSafe(), before);
}

TEST(UsbManagerWorker, deadDevice_isReportedByTheCheckAndRetiredInTheNextPass)
{
    for (const int level : {3, 2}) {
        ManagerRig rig;
        rig.start();
        libusb_device* const four = rig.arrive(panelAt(4));
        libusb_device* const panel = rig.arrive(panelAt(5));
        rig.observer.take();
        rig.usb.takeTrace();
        rig.usb.complete(four, FakeLibusb::inEndpoint, LIBUSB_TRANSFER_TIMED_OUT, 0);
        rig.manager->getDevice(0x105)->markDead();
        rig.usb.vanish(panel); // and its departure was lost
        rig.usb.passAfter(1s);
        EXPECT_THAT(rig.observer.take(), IsEmpty());
        const std::string lines = "[libusb] found dead device: uid=105 id=1\n";
        const std::string text = rig.logged(level, [&] { rig.usb.passAfter(4s + 1ns); });
        EXPECT_EQ(text, level >= 3 ? lines : "");
        EXPECT_THAT(rig.observer.take(), IsEmpty());
        EXPECT_NE(rig.manager->getDevice(0x105), nullptr) << "the check does not clean up";
        EXPECT_THAT(rig.usb.takeTrace(), Not(Contains("close 1-5")));
        rig.usb.passAfter(0s);
        EXPECT_THAT(rig.observer.take(), ElementsAre("removed 105"));
        EXPECT_EQ(rig.manager->getDevice(0x105), nullptr);
        EXPECT_THAT(rig.usb.takeTrace(), Contains("close 1-5"));
    }
}

TEST(UsbManagerWorker, completionOfADeviceThatTheCheckFoundDead_isDropped)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const panel = rig.arrive();
    const auto device = rig.manager->getDevice(0x104);
    device->markDead();
    rig.usb.vanish(panel);
    EXPECT_EQ(rig.logged(3, [&] { rig.usb.passAfter(6s); }), "[libusb] found dead device: uid=104 id=0\n");
    rig.usb.receive(panel, {1, 2, 3});
    rig.usb.passAfter(0s);
    EXPECT_EQ(device->getReceivedData(), 0u);
}

TEST(UsbManagerWorker, strayDevice_isReportedByItsIdAndAnnouncedInTheNextPass)
{
    for (const int level : {3, 2}) {
        ManagerRig rig;
        rig.start();
        libusb_device* const four = rig.arrive(panelAt(4)); // takes id 0
        rig.observer.take();
        rig.usb.complete(four, FakeLibusb::inEndpoint, LIBUSB_TRANSFER_TIMED_OUT, 0);
        libusb_device* const panel = rig.usb.attach(panelAt(5));
        rig.usb.takeTrace();
        EXPECT_EQ(rig.logged(level, [&] { rig.usb.passAfter(6s); }),
                  level >= 3 ? "[libusb] Found stray device uid=1\n" : "");
        EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("submit 1-4 0x81", "submit 1-4 0x02", "list", "ref 1-5",
                                                     "open 1-5", "auto-detach 1-5 1", "kernel-driver 1-5 0",
                                                     "claim 1-5 0", "clear-halt 1-5 0x00", "free-list"));
        EXPECT_THAT(rig.observer.take(), IsEmpty());
        EXPECT_NE(rig.manager->getDevice(0x105), nullptr);
        rig.usb.passAfter(0s);
        EXPECT_THAT(rig.observer.take(), ElementsAre("added 105"));
        EXPECT_NE(rig.usb.inFlight(panel, FakeLibusb::inEndpoint), nullptr);
    }
}

TEST(UsbManagerWorker, strayDevicesCompletions_findTheirDevice)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const panel = rig.usb.attach(panelAt(5));
    rig.usb.passAfter(6s);
    rig.usb.passAfter(0s);
    rig.receive(panel, {12, 0, 1, 0, 0, 0, 0, 0, 5, 1, 0, 42});
    EXPECT_THAT(rig.observer.take(),
                ElementsAre("added 105", "begin 105 12 bytes", "parsed 105 type 5: 2a", "end 105"));
}

TEST(UsbManagerWorker, foreignDeviceOnTheBus_isNoStray)
{
    ManagerRig rig;
    rig.start();
    FakeLibusb::Panel foreign;
    foreign.productId = 0xBEEE;
    rig.usb.attach(foreign);
    foreign.productId = 0xBEEF;
    foreign.vendorId = 0xDEAE;
    rig.usb.attach(foreign);
    rig.usb.passAfter(6s);
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("list", "free-list"));
}

TEST(UsbManagerWorker, failingDeviceList_isFreedAndTriedAgainAtTheNextCheck)
{
    ManagerRig rig;
    rig.start();
    rig.usb.attach({});
    rig.usb.script("get_device_list", LIBUSB_ERROR_NO_MEM);
    rig.usb.passAfter(6s);
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("list", "free-list null"));
    EXPECT_THAT(rig.manager->getDeviceListSafe(), IsEmpty());
    rig.usb.passAfter(6s);
    EXPECT_THAT(rig.manager->getDeviceListSafe(), SizeIs(1));
}

TEST(UsbManagerWorker, deadDeviceThatStaysAttached_isRemovedAndAddedAgain)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const panel = rig.arrive();
    rig.observer.take();
    rig.usb.complete(panel, FakeLibusb::inEndpoint, LIBUSB_TRANSFER_TIMED_OUT, 0);
    rig.usb.passAfter(6s); // a check that finds it alive
    rig.manager->getDevice(0x104)->markDead();
    // The same check takes it in as a stray, while the old handle still holds the interface.
    EXPECT_EQ(rig.logged(3, [&] { rig.usb.passAfter(6s); }),
              "[libusb] found dead device: uid=104 id=0\n"
              "[libusb] Found stray device uid=1\n"
              "[libusb] Unable to claim USB interface. Device busy. Aborting.\n");
    rig.usb.passAfter(0s);
    EXPECT_THAT(rig.observer.take(), ElementsAre("removed 104", "added 105"));
    // The next check finds that one dead, and the interface free.
    EXPECT_EQ(rig.logged(3, [&] { rig.usb.passAfter(6s); }), "[libusb] found dead device: uid=105 id=1\n"
                                                             "[libusb] Found stray device uid=0\n");
    rig.usb.passAfter(0s);
    EXPECT_THAT(rig.observer.take(), ElementsAre("removed 105", "added 104"));
    EXPECT_TRUE(rig.manager->getDevice(0x104)->isAlive());
    EXPECT_NE(rig.usb.inFlight(panel, FakeLibusb::inEndpoint), nullptr);
}

TEST(UsbManagerWorker, clockSetBack_postponesTheCheck)
{
    ManagerRig rig;
    rig.start();
    VirtualClock::step(-10s);
    rig.usb.passAfter(15s);
    EXPECT_THAT(rig.usb.takeTrace(), IsEmpty());
    rig.usb.passAfter(1ns);
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("list", "free-list"));
}

// Between the worker and the application.

TEST(UsbManagerWorker, progressCallback_mayUseTheGettersWhileTheWorkerPolls)
{
    ManagerRig rig;
    rig.start();
    rig.arrive();
    const auto device = rig.manager->getDevice(0x104);
    bool called = false;
    rig.logged(0, [&] {
        device->startFirmwareUpgrade("/nonexistent", "/nonexistent", [&](const UsbDevice::FirmwareProgress&) {
            rig.usb.passAfter(0s); // a whole pass, with the device's poll
            EXPECT_EQ(rig.manager->getDevice(0x104), device);
            EXPECT_THAT(rig.manager->getDeviceListSafe(), SizeIs(1));
            called = true;
        });
    });
    EXPECT_TRUE(called);
    EXPECT_TRUE(device->isUpdating());
    rig.usb.passAfter(0s);
    EXPECT_FALSE(device->isUpdating()) << "the worker's next pass takes the step";
}

TEST(UsbManagerWorker, upgradeThroughTheWorker_isDrivenByPassesAndReplies)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const panel = rig.arrive();
    const auto device = rig.manager->getDevice(0x104);
    DeviceInformation info{};
    info.maxPacketSize = 5000;
    device->setDeviceInfo(info);
    const TemporaryFile image("12345");
    std::vector<std::uint32_t> progress;
    device->startFirmwareUpgrade(image.getPath(), "/nonexistent", [&progress](const UsbDevice::FirmwareProgress& step) {
        progress.push_back(step.bytesWritten);
    });
    EXPECT_EQ(rig.log.take(), "[libusb] > Error opening file=/nonexistent\n");
    ASSERT_THAT(rig.usb.takeSubmissions(panel, FakeLibusb::outEndpoint), SizeIs(1));
    rig.usb.completeSend(panel);
    rig.usb.passAfter(1s);
    ASSERT_THAT(rig.usb.takeSubmissions(panel, FakeLibusb::outEndpoint), SizeIs(1)) << "the chunk";
    rig.usb.completeSend(panel);
    rig.usb.passAfter(100ms);
    // Chunk written: command 1, board 1, address 0, length 5, checksum 0.
    rig.receive(panel, {25, 0, 1, 0, 0, 0, 0, 0, 40, 14, 0, 1, 1, 0, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_THAT(progress, ElementsAre(0u, 5u));
    rig.usb.passAfter(700ms);
    rig.usb.passAfter(0s);
    EXPECT_FALSE(device->isUpdating());
}

} // namespace Vantor::Test
