// What a second thread meets while one is at work in the manager.
#include "tests/support/Contender.h"
#include "tests/support/ManagerRig.h"
#include "tests/support/Meeting.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using testing::Contains;

namespace Vantor::Test {

namespace {

constexpr auto heldUp = Meeting::Expected::HeldUp;
constexpr auto through = Meeting::Expected::Through;

void send(UsbManager& manager)
{
    const std::uint8_t byte = 1;
    for (const auto& device : manager.getDeviceListSafe())
        device->getPacker().addStructData(&byte, 1u, static_cast<PacketType>(5));
}

// A call that takes the manager's mutex for a moment.
std::function<void()> lookUp(ManagerRig& rig)
{
    return [&rig] { rig.manager->getDevice(0x104); };
}

} // namespace

// The instance.

TEST(UsbManagerLocks, getUsbManagerDuringTheConstruction_waitsForIt)
{
    ManagerRig rig;
    UsbManager* other = nullptr;
    {
        const Meeting meeting(rig.usb, "init", heldUp, [&other] { other = UsbManager::getUsbManager(); });
        rig.create();
        EXPECT_TRUE(meeting.wasAsExpected());
    }
    EXPECT_EQ(other, rig.manager);
}

// Hotplug.

TEST(UsbManagerLocks, hotplugCallback_isOneAtATimeFromStartToEnd)
{
    for (const char* const point : {"get_device_descriptor", "clear_halt"}) {
        SCOPED_TRACE(point);
        ManagerRig rig;
        rig.start();
        libusb_device* const other = rig.usb.attach(panelAt(5));
        // An event of no kind: it takes no lock but the callback's own.
        const Meeting meeting(rig.usb, point, heldUp, [other] {
            UsbManager::hotplugCallback(nullptr, other, static_cast<libusb_hotplug_event>(0), nullptr);
        });
        rig.arrive(panelAt(4));
        EXPECT_TRUE(meeting.wasAsExpected());
    }
}

// The registry.

TEST(UsbManagerLocks, everyUseOfTheRegistry_waitsForTheRegistryCheck)
{
    const auto complete = [](void (UsbManager::*handler)(libusb_transfer*)) {
        return [handler](UsbManager& manager) {
            libusb_transfer ofNobody{};
            ofNobody.user_data = reinterpret_cast<void*>(std::uintptr_t{77});
            (manager.*handler)(&ofNobody);
        };
    };
    libusb_device* panel = nullptr;
    const auto announce = [&panel](libusb_hotplug_event event) {
        return [&panel, event](UsbManager&) { UsbManager::hotplugCallback(nullptr, panel, event, nullptr); };
    };
    const struct {
        const char* name;
        std::function<void(UsbManager&)> operation;
    } rows[] = {{"second arrival", announce(LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED)},
                {"departure", announce(LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT)},
                {"getDevice", [](UsbManager& manager) { manager.getDevice(0x104); }},
                {"getDeviceList", [](UsbManager& manager) { manager.getDeviceList(); }},
                {"getDeviceListSafe", [](UsbManager& manager) { manager.getDeviceListSafe(); }},
                {"sync", [](UsbManager& manager) { manager.sync(); }},
                {"send completion", complete(&UsbManager::handleTransferSendCallback)},
                {"receive completion", complete(&UsbManager::handleTransferRecvCallback)}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ManagerRig rig;
        rig.start();
        panel = rig.arrive();
        LinkRig::setLevel(0);
        const Meeting meeting(rig.usb, "get_device_list", heldUp, [&] { row.operation(*rig.manager); });
        rig.usb.passAfter(6s);
        EXPECT_TRUE(meeting.wasAsExpected());
    }
}

// With nothing registered: a drain would need the worker, and a close would wait for a
// callback in any case.
TEST(UsbManagerLocks, closeAllDevices_waitsForTheRegistryCheck)
{
    ManagerRig rig;
    rig.start();
    const Meeting meeting(rig.usb, "get_device_list", heldUp, [&rig] { rig.manager->closeAllDevices(); });
    rig.usb.passAfter(6s);
    EXPECT_TRUE(meeting.wasAsExpected());
}

TEST(UsbManagerLocks, lookUp_waitsForEveryStepOfAnOpen)
{
    for (const char* const step : {"open", "claim_interface", "clear_halt"}) {
        SCOPED_TRACE(step);
        ManagerRig rig;
        rig.start();
        const Meeting meeting(rig.usb, step, heldUp, lookUp(rig));
        rig.arrive();
        EXPECT_TRUE(meeting.wasAsExpected());
    }
}

TEST(UsbManagerLocks, lookUp_waitsForTheRegistryCheck)
{
    for (const char* const step : {"open", "clear_halt", "free_device_list"}) {
        SCOPED_TRACE(step);
        ManagerRig rig;
        rig.start();
        rig.usb.attach({}); // a stray
        const Meeting meeting(rig.usb, step, heldUp, lookUp(rig));
        rig.usb.passAfter(6s);
        EXPECT_TRUE(meeting.wasAsExpected());
    }
}

TEST(UsbManagerLocks, lookUp_waitsForThePoll)
{
    ManagerRig rig;
    rig.start();
    const Meeting meeting(rig.usb, "submit_transfer 0x81", heldUp, lookUp(rig));
    rig.arrive();
    EXPECT_TRUE(meeting.wasAsExpected());
}

TEST(UsbManagerLocks, lookUpDuringARetirement_waitsForTheCloseNotForTheDrain)
{
    for (const auto& row :
         {std::pair("cancel_transfer", through), std::pair("release_interface", heldUp), std::pair("close", heldUp)}) {
        SCOPED_TRACE(row.first);
        ManagerRig rig;
        rig.start();
        libusb_device* const panel = rig.arrive();
        const Meeting meeting(rig.usb, row.first, row.second, lookUp(rig));
        rig.usb.announce(panel, LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT);
        rig.usb.pass();
        EXPECT_TRUE(meeting.wasAsExpected());
    }
}

TEST(UsbManagerLocks, lookUpDuringCloseAllDevices_waitsForNothing)
{
    for (const char* const step : {"cancel_transfer", "release_interface", "close"}) {
        SCOPED_TRACE(step);
        ManagerRig rig;
        rig.start();
        rig.arrive();
        rig.usb.setFreeRunning(true);
        const Meeting meeting(rig.usb, step, through, lookUp(rig));
        rig.manager->closeAllDevices();
        EXPECT_TRUE(meeting.wasAsExpected());
        rig.usb.settle();
        rig.usb.setFreeRunning(false);
    }
}

// A destructor may wait for completions, which look their device up.
TEST(UsbManagerLocks, lastReferenceToADevice_isDroppedWithoutTheLock)
{
    const std::function<void(ManagerRig&, libusb_device*)> drops[] = {
        [](ManagerRig& rig, libusb_device* panel) { // by the worker
            rig.usb.announce(panel, LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT);
            rig.usb.pass();
        },
        [](ManagerRig& rig, libusb_device* panel) { // of a device that was there already
            rig.usb.announce(panel, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED);
            rig.usb.pass();
        },
        [](ManagerRig& rig, libusb_device*) { // by the list that is handed out
            rig.manager->getDeviceList();
            rig.closeAllDevices();
            rig.manager->getDeviceList();
        },
        [](ManagerRig& rig, libusb_device*) { rig.closeAllDevices(); }};
    for (const auto& drop : drops) {
        SCOPED_TRACE(&drop - &drops[0]);
        ManagerRig rig;
        rig.start();
        libusb_device* const panel = rig.arrive();
        const Meeting meeting(rig.usb, "free_transfer", through, lookUp(rig));
        drop(rig, panel);
        EXPECT_TRUE(meeting.wasAsExpected());
    }
}

TEST(UsbManagerLocks, observersCall_holdsNoLock)
{
    ManagerRig rig;
    int calls = 0;
    const auto use = [&](std::uint16_t) {
        Contender other(lookUp(rig));
        EXPECT_TRUE(other.getsThrough());
        ++calls;
    };
    rig.observer.whenAdded = use;
    rig.observer.whenRemoved = use;
    rig.observer.whenParsed = use;
    rig.observer.whenBegun = [&use](std::uint16_t uid, const UsbMessage&) { use(uid); };
    rig.start();
    libusb_device* const panel = rig.arrive();
    rig.receive(panel, {12, 0, 1, 0, 0, 0, 0, 0, 5, 1, 0, 42});
    rig.usb.unplug(panel);
    rig.logged(0, [&] { rig.usb.pass(); });
    EXPECT_EQ(calls, 4);
}

TEST(UsbManagerLocks, sync_keepsTheRegistryLocked)
{
    ManagerRig rig;
    rig.start();
    rig.arrive();
    const Bytes tooLarge(2000);
    rig.manager->getDevice(0x104)->getPacker().addStructData(tooLarge.data(), 2000u, static_cast<PacketType>(5));
    std::unique_ptr<Contender> other;
    bool waits = false;
    VirtualClock::onSleep([&] {
        if (other)
            return;
        other = std::make_unique<Contender>(lookUp(rig));
        waits = other->isHeldUp();
    });
    rig.manager->sync();
    VirtualClock::onSleep(nullptr);
    EXPECT_TRUE(waits);
}

// Completions.

TEST(UsbManagerLocks, completionsHandler_runsWithoutTheRegistrysLock)
{
    for (const std::uint8_t endpoint : {FakeLibusb::inEndpoint, FakeLibusb::outEndpoint}) {
        SCOPED_TRACE(+endpoint);
        ManagerRig rig;
        rig.start();
        libusb_device* const panel = rig.arrive();
        send(*rig.manager);
        const Meeting meeting(rig.usb, "clear_halt", through, lookUp(rig));
        rig.usb.complete(panel, endpoint, LIBUSB_TRANSFER_STALL, 0);
        rig.logged(0, [&] { rig.usb.passAfter(0s); });
        EXPECT_TRUE(meeting.wasAsExpected());
    }
}

// The stalled read keeps its completion in the handler; it is not submitted again there,
// for the device is dead by then.
TEST(UsbManagerLocks, closeDuringACompletion_waitsForTheEndOfItsHandler)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const panel = rig.arrive();
    std::atomic<int> cancels{0};
    std::atomic<bool> released{false};
    std::unique_ptr<Contender> closer;
    rig.usb.onCall("cancel_transfer", [&cancels] { ++cancels; });
    rig.usb.onCall("release_interface", [&released] { released = true; });
    rig.usb.onCall("clear_halt", [&] {
        closer = std::make_unique<Contender>([&rig] { rig.manager->closeAllDevices(); });
        while (cancels < 6 && !released)
            std::this_thread::yield();
        EXPECT_FALSE(released) << "libusb still has the transfer";
    });
    rig.usb.complete(panel, FakeLibusb::inEndpoint, LIBUSB_TRANSFER_STALL, 0);
    rig.logged(0, [&] { rig.usb.passAfter(0s); });
    closer->join();
    EXPECT_TRUE(released);
    rig.usb.takeTrace();
}

// The worker's thread takes its time to start, but is expected already.
TEST(UsbManagerLocks, closeBeforeTheWorkerRuns_leavesTheEventsToIt)
{
    ManagerRig rig;
    rig.create();
    rig.usb.attach({});
    std::atomic<int> cancels{0};
    std::atomic<bool> pumped{false};
    std::atomic<std::thread::id> closerId{};
    std::unique_ptr<Contender> closer;
    rig.usb.onCall("cancel_transfer", [&cancels] {
        VirtualClock::tickPerSteadyRead(0ns); // the rest of the drain takes no time
        ++cancels;
    });
    rig.usb.onCall("handle_events", [&] {
        if (std::this_thread::get_id() == closerId)
            pumped = true;
    });
    rig.usb.onCall("hotplug_register_callback", [&, registrations = 0]() mutable {
        if (++registrations != 2)
            return;
        send(*rig.manager);
        VirtualClock::tickPerSteadyRead(10ms); // past the send's time of grace
        closer = std::make_unique<Contender>([&] {
            closerId = std::this_thread::get_id();
            rig.manager->closeAllDevices();
        });
        while (cancels == 0 && !pumped)
            std::this_thread::yield();
    });
    rig.usb.setFreeRunning(true);
    rig.manager->initialise();
    closer->join();
    EXPECT_FALSE(pumped);
    rig.usb.settle();
    rig.usb.setFreeRunning(false);
    EXPECT_THAT(rig.usb.takeTrace(), Contains("close 1-4"));
    rig.initialise(); // for the rig: it runs
}

} // namespace Vantor::Test
