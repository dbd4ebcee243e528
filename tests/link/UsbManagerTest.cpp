// The manager's life cycle, hotplug and the registry of devices.
#include "tests/support/ManagerRig.h"
#include "tests/support/ThreadFailure.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace Vantor::Test {

namespace {

constexpr std::uint16_t productionVendor = MORVANE_PRODUCTION_VENDOR_ID;

// As libusb would call it.
int hotplug(libusb_device* device, int event)
{
    return UsbManager::hotplugCallback(nullptr, device, static_cast<libusb_hotplug_event>(event), nullptr);
}

// Says at the very end of the process what libusb was told, if a test asks for it.
FakeLibusb* s_watchedAtExit = nullptr;

void reportTrace()
{
    if (s_watchedAtExit == nullptr)
        return;
    for (const std::string& call : s_watchedAtExit->takeTrace())
        std::fprintf(stderr, "%s, ", call.c_str());
}

// Registered before any static object is built, so it runs after they are gone.
__attribute__((constructor(101))) void registerReport()
{
    std::atexit(reportTrace);
}

constexpr int arrived = LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED;
constexpr int left = LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT;

} // namespace

// Life cycle.

TEST(UsbManager, getUsbManagerTwice_isOneInstanceWithoutThreads)
{
    ManagerRig rig;
    const std::size_t threads = countThreads();
    UsbManager& first = rig.create();
    EXPECT_EQ(&rig.create(), &first);
    EXPECT_EQ(countThreads(), threads);
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("init"));
}

TEST(UsbManager, getUsbManagerFromManyThreads_isOneInstance)
{
    ManagerRig rig;
    std::vector<UsbManager*> found(4);
    std::vector<std::thread> threads;
    for (auto& result : found)
        threads.emplace_back([&result] { result = UsbManager::getUsbManager(); });
    for (auto& thread : threads)
        thread.join();
    EXPECT_THAT(found, testing::Each(&rig.create()));
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("init"));
}

TEST(UsbManager, constructionLog_showsCapabilitiesAtFourAndTheVersionAtThree)
{
    for (const int level : {4, 3, 2}) {
        ManagerRig rig;
        rig.usb.setCapability(LIBUSB_CAP_HAS_CAPABILITY, 1);
        rig.usb.setCapability(LIBUSB_CAP_HAS_HOTPLUG, 2);
        rig.usb.setCapability(LIBUSB_CAP_SUPPORTS_DETACH_KERNEL_DRIVER, 0);
        std::string expected;
        if (level >= 4)
            expected += "[libusb] --- Has capability CAP=1 ---\n"
                        "[libusb] --- Has hotplug CAP=2 ---\n"
                        "[libusb] --- Has supports detach CAP=0 ---\n";
        if (level >= 3)
            expected += "[libusb] Libusb version = 1.0.22\n";
        EXPECT_EQ(rig.logged(level, [&] { rig.create(); }), expected);
    }
}

TEST(UsbManager, failedInitialisation_isPrintedAtLevelFourAlone)
{
    for (const int level : {4, 3}) {
        ManagerRig rig;
        rig.usb.script("init", LIBUSB_ERROR_NO_MEM);
        EXPECT_EQ(rig.logged(level, [&] { EXPECT_NE(&rig.create(), nullptr); }),
                  level >= 4 ? "[libusb] --- Has capability CAP=1 ---\n"
                               "[libusb] --- Has hotplug CAP=1 ---\n"
                               "[libusb] --- Has supports detach CAP=1 ---\n"
                               "[libusb] Init Error \n"
                             : "");
        EXPECT_EQ(&rig.create(), rig.manager);
    }
}

TEST(UsbManager, version_isFixed)
{
    EXPECT_EQ(UsbManager::getVersion(), "1.2.1+");
    EXPECT_EQ(UsbManager::getVersionMajor(), 1);
    EXPECT_EQ(UsbManager::getVersionMinor(), 2);
    EXPECT_EQ(UsbManager::getVersionPatch(), 1);
}

TEST(UsbManager, initialise_registersForArrivalsAndDeparturesOfBothVendors)
{
    ManagerRig rig;
    rig.create();
    rig.initialise();
    const auto registrations = rig.usb.registrations();
    ASSERT_THAT(registrations, SizeIs(4));
    const struct {
        int events;
        int vendor;
    } rows[] = {{arrived, 0xDEAD}, {left, 0xDEAD}, {arrived, productionVendor}, {left, productionVendor}};
    for (std::size_t i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(registrations[i].events, rows[i].events);
        EXPECT_EQ(registrations[i].vendorId, rows[i].vendor);
        EXPECT_EQ(registrations[i].productId, 0xBEEF);
        EXPECT_EQ(registrations[i].flags, LIBUSB_HOTPLUG_ENUMERATE);
        EXPECT_EQ(registrations[i].deviceClass, LIBUSB_HOTPLUG_MATCH_ANY);
        EXPECT_TRUE(registrations[i].callback == &UsbManager::hotplugCallback);
        EXPECT_EQ(registrations[i].userData, rig.manager);
    }
}

TEST(UsbManager, initialise_startsTwoThreads)
{
    ManagerRig rig;
    rig.create();
    const std::size_t threads = countThreads();
    rig.initialise();
    EXPECT_EQ(countThreads(), threads + 2);
}

TEST(UsbManager, initialiseTwice_changesNothing)
{
    ManagerRig rig;
    rig.start();
    rig.arrive();
    const std::size_t threads = countThreads();
    rig.usb.takeTrace();
    rig.manager->initialise();
    EXPECT_THAT(rig.usb.takeTrace(), IsEmpty()) << "no registration, no device closed";
    EXPECT_EQ(countThreads(), threads);
    EXPECT_THAT(rig.usb.registrations(), SizeIs(4));
}

// The worker is started first, the receive thread second.
TEST(UsbManager, initialiseWithoutAThread_isLoggedAndUndone)
{
    for (const int failing : {1, 2}) {
        ManagerRig rig;
        rig.create().registerObserver(&rig.observer);
        rig.usb.attach({});
        rig.usb.setFreeRunning(true);
        {
            const ThreadFailure failure(failing);
            EXPECT_EQ(rig.logged(2, [&rig] { rig.manager->initialise(); }),
                      "[libusb] Cannot start a thread: Resource temporarily unavailable\n");
        }
        EXPECT_THAT(rig.manager->getDeviceListSafe(), IsEmpty());
        EXPECT_THAT(rig.usb.takeTrace(), Contains("close 1-4"));
        for (const auto& registration : rig.usb.registrations())
            EXPECT_FALSE(registration.active) << std::hex << registration.vendorId;
        rig.usb.setFreeRunning(false);
        rig.observer.take();

        rig.initialise();
        rig.usb.passAfter(0s);
        EXPECT_THAT(rig.observer.take(), ElementsAre("added 104")) << "a second call succeeds";
        EXPECT_TRUE(rig.manager->getDevice(0x104)->isAlive());
    }
}

TEST(UsbManager, initialiseWithoutAThread_takesTransfersBackItself)
{
    ManagerRig rig;
    rig.create();
    libusb_device* const panel = rig.usb.attach({});
    const auto sendSomething = [&rig] {
        const std::uint8_t byte = 1;
        rig.manager->getDevice(0x104)->getPacker().addStructData(&byte, 1u, static_cast<PacketType>(5));
    };
    {
        const ThreadFailure failure(1, sendSomething);
        EXPECT_EQ(rig.logged(2, [&rig] { rig.manager->initialise(); }),
                  "[libusb] Cannot start a thread: Resource temporarily unavailable\n")
            << "no word of transfers that did not come back";
    }
    EXPECT_THAT(rig.usb.takeSubmissions(panel, FakeLibusb::outEndpoint), SizeIs(1));
    EXPECT_THAT(rig.usb.takeTrace(), Contains("cancel 1-4 0x02"));
    rig.initialise();
}

TEST(UsbManager, failedRegistrations_areIgnored)
{
    ManagerRig rig;
    rig.usb.script("hotplug_register_callback", LIBUSB_ERROR_NOT_SUPPORTED, 4);
    rig.start();
    rig.usb.pass();
    rig.stop();
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("deregister 0", "deregister 0", "exit"));
}

TEST(UsbManager, destroy_deregistersTheLastTwoRegistrationsAlone)
{
    ManagerRig rig;
    rig.start();
    rig.stop();
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("deregister 3", "deregister 4", "exit"));
    const auto registrations = rig.usb.registrations();
    EXPECT_TRUE(registrations[0].active && registrations[1].active) << "their handles are lost";
}

TEST(UsbManager, destroy_closesTheDevicesAndExitsLast)
{
    ManagerRig rig;
    rig.start();
    rig.arrive(panelAt(4));
    rig.arrive(panelAt(5));
    rig.usb.takeTrace();
    rig.stop();
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("deregister 3", "deregister 4",                                   //
                                                 "cancel 1-4 0x81", "cancel unused", "release 1-4 0", "close 1-4", //
                                                 "cancel 1-5 0x81", "cancel unused", "release 1-5 0", "close 1-5", //
                                                 "free", "free", "unref 1-4", "free", "free", "unref 1-5", "exit"));
}

TEST(UsbManager, destroyWithASendInFlight_letsItComplete)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const panel = rig.arrive();
    const std::uint8_t byte = 1;
    rig.manager->getDevice(0x104)->getPacker().addStructData(&byte, 1u, static_cast<PacketType>(5));
    rig.usb.completeAfter(200ms, panel, FakeLibusb::outEndpoint, LIBUSB_TRANSFER_COMPLETED, 12);
    rig.usb.takeTrace();
    rig.stop();
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("deregister 3", "deregister 4", "cancel 1-4 0x81", "cancel 1-4 0x02",
                                                 "release 1-4 0", "close 1-4", "free", "free", "unref 1-4", "exit"));
    EXPECT_THAT(rig.usb.takeCompletions(), ElementsAre("1-4 0x02 status 0", "1-4 0x81 status 3"));
}

TEST(UsbManager, destroy_ignoresTheCompletionsThatStillCome)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const panel = rig.arrive();
    rig.usb.takeSubmissions(panel, FakeLibusb::inEndpoint);
    const std::string text = rig.logged(5, [&] { rig.stop(); });
    EXPECT_THAT(text, Not(testing::HasSubstr("handleTransferRecvCallback")));
    EXPECT_THAT(rig.usb.takeSubmissions(panel, FakeLibusb::inEndpoint), IsEmpty()) << "no read is armed again";
}

TEST(UsbManager, hotplugDuringTheDestroy_isLoggedAndIgnored)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const panel = rig.arrive(panelAt(4));
    rig.usb.takeTrace();
    rig.usb.plug(panelAt(5));
    rig.usb.unplug(panel); // both come in the worker's last event call
    const std::string text = rig.logged(4, [&] { rig.stop(); });
    EXPECT_THAT(text, testing::HasSubstr("[libusb] >> New device: dead:beef bus=1 port=5"));
    EXPECT_THAT(text, testing::HasSubstr("[libusb] >> Device unplugged: dead:beef"));
    const std::string death = "[libusb] UsbDevice::markDead() uid=104\n";
    const std::string::size_type closed = text.find(death);
    const std::string::size_type destroyed = text.find(death, closed + 1);
    EXPECT_NE(destroyed, std::string::npos);
    EXPECT_EQ(text.find(death, destroyed + 1), std::string::npos) << "not at the departure";
    EXPECT_THAT(rig.usb.takeTrace(), Not(Contains("open 1-5")));
}

TEST(UsbManager, instanceAfterADestroy_isFreshAndNotInitialised)
{
    ManagerRig rig;
    rig.start();
    rig.arrive();
    rig.stop();
    rig.usb.takeTrace();
    rig.create();
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("init"));
    EXPECT_THAT(rig.manager->getDeviceListSafe(), IsEmpty());
    rig.initialise();
    EXPECT_THAT(rig.manager->getDeviceListSafe(), SizeIs(1)) << "found again by enumeration";
}

TEST(UsbManagerDeathTest, destroyOfAManagerThatNeverRan_endsTheProcess)
{
    ManagerRig rig;
    EXPECT_EXIT(
        {
            UsbManager::getUsbManager();
            UsbManager::destroyUsbManager();
        },
        testing::KilledBySignal(SIGABRT), "terminate called");
}

TEST(UsbManagerDeathTest, endOfTheProcess_destroysAManagerThatIsStillThere)
{
    ManagerRig rig;
    EXPECT_EXIT(
        {
            rig.start();
            rig.arrive();
            rig.usb.takeTrace();
            s_watchedAtExit = &rig.usb;
            std::exit(0);
        },
        testing::ExitedWithCode(0), "deregister 3, deregister 4, cancel 1-4 0x81, .*close 1-4, .*exit, ");
}

// There the instance is still known to the callback.
TEST(UsbManagerDeathTest, endOfTheProcess_ignoresHotplugBeforeItDeregisters)
{
    ManagerRig rig;
    EXPECT_EXIT(
        {
            rig.start();
            libusb_device* const panel = rig.usb.attach({});
            rig.usb.onCall("hotplug_deregister_callback", [panel] { hotplug(panel, arrived); });
            s_watchedAtExit = &rig.usb;
            std::exit(0);
        },
        testing::ExitedWithCode(0),
        testing::AllOf(testing::HasSubstr("deregister 3, deregister 4"), Not(testing::HasSubstr("open"))));
}

TEST(UsbManager, sync_waitsForEveryDeviceInTurn)
{
    ManagerRig rig;
    rig.start();
    rig.arrive(panelAt(4));
    rig.arrive(panelAt(5));
    for (const auto& device : rig.manager->getDeviceListSafe()) {
        const Bytes tooLarge(2000);
        device->getPacker().addStructData(tooLarge.data(), 2000u, static_cast<PacketType>(5));
    }
    rig.manager->sync();
    EXPECT_EQ(VirtualClock::sleeps(), 40000u) << "sync(2) each";
}

// Observers.

TEST(UsbManager, observer_isReplacedByTheNext)
{
    ManagerRig rig;
    rig.start();
    RecordingObserver second;
    rig.manager->registerObserver(&second);
    rig.arrive();
    EXPECT_THAT(rig.observer.take(), IsEmpty());
    EXPECT_THAT(second.take(), ElementsAre("added 104"));
}

TEST(UsbManager, unregisterObserver_removesTheRegisteredOneWhateverTheArgument)
{
    ManagerRig rig;
    rig.start();
    RecordingObserver other;
    rig.manager->unregisterObserver(&other);
    rig.arrive();
    EXPECT_THAT(rig.observer.take(), IsEmpty());
}

// Hotplug.

TEST(UsbManager, panelAttachedBefore_isOpenWhenInitialiseReturnsAndAnnouncedByTheWorker)
{
    ManagerRig rig;
    rig.usb.attach(panelAt(4));
    rig.create().registerObserver(&rig.observer);
    rig.initialise();
    ASSERT_NE(rig.manager->getDevice(0x104), nullptr);
    EXPECT_THAT(rig.usb.takeTrace(),
                ElementsAre("init", "register arrived dead:beef", "ref 1-4", "open 1-4", "auto-detach 1-4 1",
                            "kernel-driver 1-4 0", "claim 1-4 0", "clear-halt 1-4 0x00", "register left dead:beef",
                            testing::StartsWith("register arrived"), testing::StartsWith("register left")));
    EXPECT_THAT(rig.observer.take(), IsEmpty());
    rig.usb.pass();
    EXPECT_THAT(rig.observer.take(), ElementsAre("added 104"));
    EXPECT_EQ(rig.observer.threadOf("added"), "MorvaneWorker");
}

TEST(UsbManager, arrivalLog_isASummary)
{
    for (const int level : {3, 2}) {
        ManagerRig rig;
        rig.start();
        FakeLibusb::Panel panel;
        panel.bus = 10;
        panel.port = 11;
        libusb_device* device = nullptr;
        const std::string text = rig.logged(level, [&] { device = rig.arrive(panel); });
        EXPECT_EQ(text,
                  level >= 3 ? "[libusb] >> New device: dead:beef bus=10 port=11 dev=" + printed(device) + "\n" : "");
    }
}

TEST(UsbManager, arrivalLog_endsWithATrace)
{
    for (const int level : {5, 4}) {
        ManagerRig rig;
        rig.start();
        const std::string text = rig.logged(level, [&] { rig.arrive(); });
        EXPECT_THAT(text, testing::StartsWith("[libusb] >> New device: dead:beef bus=1 port=4 dev="));
        const std::string::size_type end = text.find("@UsbManager: >> New device end\n");
        EXPECT_EQ(end != std::string::npos, level >= 5) << text;
        if (level >= 5) {
            EXPECT_GT(end, text.find("libusb_clear_halt")) << "the device is open by then";
        }
        EXPECT_TRUE(rig.usb.registrations()[0].active) << "the callback returned 0";
    }
}

TEST(UsbManager, departureLog_isASummaryAndATrace)
{
    for (const int level : {5, 4, 3, 2}) {
        ManagerRig rig;
        rig.start();
        libusb_device* const device = rig.usb.attach({});
        const std::string text = rig.logged(level, [&] { EXPECT_EQ(hotplug(device, left), 0); });
        std::string expected;
        if (level >= 3)
            expected += "[libusb] >> Device unplugged: dead:beef dev=" + printed(device) + "\n";
        if (level >= 5)
            expected += "@UsbManager: >> Device unplugged end\n";
        EXPECT_EQ(text, expected) << "nobody knows it, so nothing else happens";
    }
}

TEST(UsbManager, departureLog_comesBeforeTheDevicesDeath)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const device = rig.arrive();
    EXPECT_EQ(rig.logged(4, [&] { hotplug(device, left); }),
              "[libusb] >> Device unplugged: dead:beef dev=" + printed(device) +
                  "\n[libusb] UsbDevice::markDead() uid=104\n");
    rig.usb.pass();
}

TEST(UsbManager, otherEvent_doesNothing)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const device = rig.usb.attach({});
    for (const int event : {0, 3})
        EXPECT_EQ(rig.logged(5, [&] { EXPECT_EQ(hotplug(device, event), 0); }), "");
    EXPECT_THAT(rig.manager->getDeviceListSafe(), IsEmpty());
}

TEST(UsbManager, deviceOfAnotherKind_isLoggedAndIgnored)
{
    const struct {
        std::uint16_t vendor;
        std::uint16_t product;
        const char* shown;
    } rows[] = {{0xDEAD, 0x0007, "dead:   7"}, {productionVendor ^ 0x0001, 0xBEEF, nullptr}};
    for (const auto& row : rows) {
        ManagerRig rig;
        rig.start();
        FakeLibusb::Panel panel;
        panel.vendorId = row.vendor;
        panel.productId = row.product;
        libusb_device* const device = rig.usb.attach(panel);
        const std::string text = rig.logged(3, [&] { hotplug(device, arrived); });
        if (row.shown != nullptr) {
            EXPECT_EQ(text, std::string("[libusb] >> New device: ") + row.shown +
                                " bus=1 port=4 dev=" + printed(device) + "\n");
        }
        EXPECT_THAT(rig.manager->getDeviceListSafe(), IsEmpty());
        EXPECT_THAT(rig.usb.takeTrace(), IsEmpty());
    }
}

TEST(UsbManager, panelOfTheProductionVendor_isTakenUp)
{
    ManagerRig rig;
    rig.start();
    FakeLibusb::Panel panel;
    panel.vendorId = productionVendor;
    rig.arrive(panel);
    EXPECT_THAT(rig.observer.take(), ElementsAre("added 104"));
}

TEST(UsbManager, eventWithoutARunningManager_isLoggedAndIgnored)
{
    ManagerRig rig;
    libusb_device* const device = rig.usb.attach({});
    const auto events = [&] {
        hotplug(device, arrived);
        hotplug(device, left);
    };
    const std::string lines = "[libusb] >> New device: dead:beef bus=1 port=4 dev=" + printed(device) +
                              "\n[libusb] >> Device unplugged: dead:beef dev=" + printed(device) + "\n";
    EXPECT_EQ(rig.logged(3, events), lines) << "no instance";
    rig.create();
    EXPECT_EQ(rig.logged(3, events), lines) << "not initialised";
    EXPECT_THAT(rig.manager->getDeviceListSafe(), IsEmpty());
    rig.usb.vanish(device);
    rig.initialise();
    rig.stop();
}

TEST(UsbManager, secondArrivalOfADevice_addsAndOpensNothing)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const device = rig.arrive();
    const auto before = rig.manager->getDeviceListSafe();
    rig.observer.take();
    rig.usb.takeTrace();
    rig.usb.announce(device, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED);
    rig.usb.pass();
    EXPECT_EQ(rig.manager->getDeviceListSafe(), before);
    EXPECT_THAT(rig.observer.take(), IsEmpty());
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("ref 1-4", "free", "free", "unref 1-4")) << "built and dropped";
    rig.arrive(panelAt(5));
    EXPECT_THAT(rig.observer.take(), ElementsAre("added 105")) << "the dropped one's identity is free";
}

TEST(UsbManager, arrivalThatCannotBeOpened_isRegisteredAndAnnouncedDead)
{
    ManagerRig rig;
    rig.start();
    rig.usb.script("claim_interface", LIBUSB_ERROR_ACCESS);
    EXPECT_EQ(rig.logged(2, [&] { rig.arrive(); }), "[libusb] Unable to claim USB interface. Error -3. Aborting.\n");
    EXPECT_THAT(rig.observer.take(), ElementsAre("added 104"));
    ASSERT_NE(rig.manager->getDevice(0x104), nullptr);
    EXPECT_FALSE(rig.manager->getDevice(0x104)->isAlive());
}

TEST(UsbManager, departure_marksDeadAtOnceAndRetiresInTheWorker)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const device = rig.arrive();
    const auto panel = rig.manager->getDevice(0x104);
    rig.observer.take();
    rig.usb.takeTrace();
    hotplug(device, left);
    EXPECT_FALSE(panel->isAlive());
    EXPECT_EQ(rig.manager->getDevice(0x104), panel) << "in the registry until it is retired";
    EXPECT_THAT(rig.usb.takeTrace(), IsEmpty());
    rig.usb.pass();
    EXPECT_EQ(rig.manager->getDevice(0x104), nullptr);
    EXPECT_THAT(rig.observer.take(), ElementsAre("removed 104"));
    EXPECT_EQ(rig.observer.threadOf("removed"), "MorvaneWorker");
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("cancel 1-4 0x81", "cancel unused", "release 1-4 0", "close 1-4"));
}

TEST(UsbManager, completionAfterTheDeparture_isDropped)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const device = rig.arrive();
    hotplug(device, left);
    rig.usb.receive(device, {1, 2, 3, 4, 5, 6, 7, 8, 9});
    rig.usb.takeSubmissions(device, FakeLibusb::inEndpoint);
    const auto panel = rig.manager->getDevice(0x104);
    rig.usb.pass();
    EXPECT_EQ(panel->getReceivedData(), 0u);
    EXPECT_THAT(rig.usb.takeSubmissions(device, FakeLibusb::inEndpoint), IsEmpty());
    rig.usb.takeTrace();
}

TEST(UsbManager, unplugWithTransfersInFlight_endsClean)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const device = rig.arrive();
    const std::uint8_t byte = 1;
    rig.manager->getDevice(0x104)->getPacker().addStructData(&byte, 1u, static_cast<PacketType>(5));
    rig.usb.unplug(device);
    EXPECT_EQ(rig.logged(2, [&] { rig.usb.pass(); }), "[libusb] RX LIBUSB_ERROR_NO_DEVICE uid=104!\n"
                                                      "[libusb] RX LIBUSB_ERROR_NO_DEVICE\n"
                                                      "[libusb] TX LIBUSB_ERROR_NO_DEVICE uid=104!\n");
    EXPECT_EQ(rig.usb.references(device), 0);
}

TEST(UsbManager, panelPluggedBackBeforeItsRetirement_getsTheNextUid)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const device = rig.arrive();
    rig.observer.take();
    rig.usb.unplug(device);
    rig.usb.plug({});
    rig.logged(0, [&] { rig.usb.pass(); });
    EXPECT_THAT(rig.observer.take(), ElementsAre("removed 104", "added 105"));
    EXPECT_EQ(rig.manager->getDevice(0x105)->getId(), 1u);
}

// The registry.

TEST(UsbManager, getDevice_findsByUidOrReturnsNothing)
{
    ManagerRig rig;
    rig.start();
    EXPECT_EQ(rig.manager->getDevice(0x104), nullptr);
    rig.arrive(panelAt(4));
    rig.arrive(panelAt(5));
    ASSERT_NE(rig.manager->getDevice(0x105), nullptr);
    EXPECT_EQ(rig.manager->getDevice(0x105)->getUid(), 0x105);
    EXPECT_EQ(rig.manager->getDevice(0x106), nullptr);
}

TEST(UsbManager, getDeviceList_isOneListInOrderOfArrivalCopiedOnChangeAlone)
{
    ManagerRig rig;
    rig.start();
    rig.arrive(panelAt(9));
    const auto& list = rig.manager->getDeviceList();
    ASSERT_THAT(list, SizeIs(1));
    const auto* const content = list.data();
    EXPECT_EQ(&rig.manager->getDeviceList(), &list);
    EXPECT_EQ(list.data(), content) << "not copied again";
    rig.arrive(panelAt(2));
    EXPECT_THAT(list, SizeIs(1)) << "as it was at the last call";
    EXPECT_EQ(&rig.manager->getDeviceList(), &list);
    ASSERT_THAT(list, SizeIs(2));
    EXPECT_EQ(list[0]->getUid(), 0x109);
    EXPECT_EQ(list[1]->getUid(), 0x102);
}

TEST(UsbManager, getDeviceListSafe_isTheCallersOwn)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const device = rig.arrive();
    const auto list = rig.manager->getDeviceListSafe();
    rig.usb.unplug(device);
    rig.logged(0, [&] { rig.usb.pass(); });
    EXPECT_THAT(rig.manager->getDeviceListSafe(), IsEmpty());
    ASSERT_THAT(list, SizeIs(1));
    EXPECT_EQ(list[0]->getUid(), 0x104);
}

TEST(UsbManager, deviceHeldPastTheDestroy_staysSafeAndGoesInOrder)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const device = rig.arrive();
    auto held = rig.manager->getDeviceListSafe();
    rig.usb.unplug(device);
    rig.logged(0, [&] { rig.usb.pass(); });
    rig.stop();
    rig.usb.takeTrace();

    EXPECT_THAT(held[0]->getPortNumbers(), ElementsAre(4));
    EXPECT_EQ(held[0]->getDeviceInfo(), nullptr);
    EXPECT_FALSE(held[0]->isUpdating());
    const std::uint8_t byte = 1;
    held[0]->getPacker().addStructData(&byte, 1u, static_cast<PacketType>(5));
    held[0]->sync(2);
    EXPECT_THAT(rig.usb.takeTrace(), IsEmpty()) << "the context is still there";
    held.clear();
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("free", "free", "unref 1-4", "exit"));
}

TEST(UsbManager, attachedDeviceHeldPastTheDestroy_isClosedButNotFreed)
{
    ManagerRig rig;
    rig.start();
    rig.arrive();
    auto held = rig.manager->getDevice(0x104);
    rig.usb.takeTrace();
    rig.stop();
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("deregister 3", "deregister 4", "cancel 1-4 0x81", "cancel unused",
                                                 "release 1-4 0", "close 1-4"));
    held.reset();
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("free", "free", "unref 1-4", "exit"));
}

TEST(UsbManager, identityOfAHeldDevice_staysTaken)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const device = rig.arrive();
    auto held = rig.manager->getDevice(0x104);
    rig.usb.unplug(device);
    rig.logged(0, [&] { rig.usb.pass(); });
    rig.arrive();
    EXPECT_NE(rig.manager->getDevice(0x105), nullptr);
    held.reset();
}

// closeAllDevices.

TEST(UsbManager, closeAllDevices_closesInOrderAndTellsNobody)
{
    ManagerRig rig;
    rig.start();
    rig.arrive(panelAt(4));
    rig.arrive(panelAt(5));
    const auto held = rig.manager->getDeviceListSafe();
    rig.observer.take();
    rig.usb.takeTrace();
    rig.closeAllDevices();
    EXPECT_THAT(rig.usb.takeTrace(),
                testing::IsSupersetOf({"release 1-4 0", "close 1-4", "release 1-5 0", "close 1-5"}));
    EXPECT_THAT(rig.manager->getDeviceListSafe(), IsEmpty());
    EXPECT_FALSE(held[0]->isAlive());
    rig.usb.passAfter(0s);
    EXPECT_THAT(rig.observer.take(), IsEmpty());
}

TEST(UsbManager, closeAllDevices_marksDeadThenCleansUpEachInOrder)
{
    ManagerRig rig;
    rig.start();
    rig.usb.attach(panelAt(4));
    libusb_device* const gone = rig.arrive(panelAt(5));
    rig.usb.passAfter(0s);
    libusb_device* const second = rig.arrive(panelAt(6));
    hotplug(gone, left); // in both lists
    const auto held = rig.manager->getDeviceListSafe();
    const std::string text = rig.logged(4, [&] { rig.closeAllDevices(); });
    EXPECT_EQ(text, "[libusb] UsbDevice::markDead() uid=105\n[libusb] UsbDevice::cleanup() uid=105\n"
                    "[libusb] UsbDevice::markDead() uid=106\n[libusb] UsbDevice::cleanup() uid=106\n"
                    "[libusb] UsbDevice::markDead() uid=105\n")
        << "then the removed ones";
    EXPECT_EQ(rig.usb.inFlight(second, FakeLibusb::inEndpoint), nullptr);
}

TEST(UsbManager, closeAllDevices_leavesTheListHandedOut)
{
    ManagerRig rig;
    rig.start();
    rig.arrive();
    const auto& list = rig.manager->getDeviceList();
    rig.closeAllDevices();
    ASSERT_THAT(list, SizeIs(1));
    EXPECT_FALSE(list[0]->isAlive());
    EXPECT_THAT(rig.manager->getDeviceList(), IsEmpty());
}

TEST(UsbManager, closeAllDevicesWithASendInFlight_letsItComplete)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const panel = rig.arrive();
    const std::uint8_t byte = 1;
    const auto device = rig.manager->getDevice(0x104);
    device->getPacker().addStructData(&byte, 1u, static_cast<PacketType>(5));
    // The time of grace stands still until the panel takes the packet.
    std::thread taker([&] {
        while (device->isAlive())
            std::this_thread::yield();
        rig.usb.completeSend(panel);
    });
    rig.closeAllDevices(0ns);
    taker.join();
    EXPECT_THAT(rig.usb.takeCompletions(), ElementsAre("1-4 0x02 status 0", "1-4 0x81 status 3"));
    EXPECT_EQ(device->getSentData(), 0u) << "out of the registry: it is not counted";
}

TEST(UsbManager, closeAllDevicesWithASendThatDoesNotEnd_cancelsItAfterTheGrace)
{
    ManagerRig rig;
    rig.start();
    rig.arrive();
    const std::uint8_t byte = 1;
    rig.manager->getDevice(0x104)->getPacker().addStructData(&byte, 1u, static_cast<PacketType>(5));
    const auto start = VirtualClock::now();
    rig.closeAllDevices();
    EXPECT_THAT(rig.usb.takeCompletions(), ElementsAre("1-4 0x81 status 3", "1-4 0x02 status 3"));
    EXPECT_GE(VirtualClock::now() - start, 250ms);
    EXPECT_LT(VirtualClock::now() - start, 400ms);
}

TEST(UsbManager, closeAllDevicesOfADeadDevice_givesItsSendNoGrace)
{
    ManagerRig rig;
    rig.start();
    rig.arrive();
    const std::uint8_t byte = 1;
    const auto device = rig.manager->getDevice(0x104);
    device->getPacker().addStructData(&byte, 1u, static_cast<PacketType>(5));
    device->markDead();
    const auto start = VirtualClock::now();
    rig.closeAllDevices();
    EXPECT_LT(VirtualClock::now() - start, 100ms);
}

TEST(UsbManager, closeAllDevicesWithTransfersThatDoNotComeBack_givesUpAfterOneSecond)
{
    ManagerRig rig;
    rig.start();
    rig.arrive();
    rig.usb.ignoreCancel(true);
    VirtualClock::tickPerSteadyRead(10ms);
    const auto start = VirtualClock::now();
    EXPECT_EQ(rig.logged(2, [&] { rig.manager->closeAllDevices(); }),
              "[libusb] Transfers still pending after cancelling, uid=104\n");
    EXPECT_GE(VirtualClock::now() - start, 1s);
    EXPECT_LT(VirtualClock::now() - start, 1100ms) << "the close has forgotten them: nobody waits again";
    VirtualClock::tickPerSteadyRead(0ns);
    rig.usb.ignoreCancel(false);
    EXPECT_THAT(rig.usb.takeMisuses(), ElementsAre("close with a transfer in flight on 0x81"));
}

TEST(UsbManager, closeAllDevicesInACallbackOfTheWorker_closesAndGoesOn)
{
    ManagerRig rig;
    rig.observer.whenAdded = [&rig](std::uint16_t) { rig.manager->closeAllDevices(); };
    rig.start();
    rig.usb.attach(panelAt(5)); // found by the next registry check
    rig.arrive(panelAt(4));
    EXPECT_THAT(rig.observer.take(), ElementsAre("added 104"));
    EXPECT_THAT(rig.usb.takeTrace(), Contains("close 1-4"));
    EXPECT_THAT(rig.manager->getDeviceListSafe(), IsEmpty());
    rig.observer.whenAdded = nullptr;
    rig.usb.passAfter(6s);
    rig.usb.passAfter(0s);
    EXPECT_THAT(rig.observer.take(), testing::UnorderedElementsAre("added 104", "added 105"))
        << "what is attached is found again";
}

TEST(UsbManager, closeAllDevicesInACallbackOfTheReceiveThread_closes)
{
    ManagerRig rig;
    rig.start();
    libusb_device* const panel = rig.arrive();
    rig.observer.whenParsed = [&rig](std::uint16_t) { rig.closeAllDevices(); };
    rig.usb.receive(panel, {12, 0, 1, 0, 0, 0, 0, 0, 5, 1, 0, 42});
    rig.usb.pass();
    rig.observer.waitForMessages(1);
    EXPECT_EQ(rig.observer.threadOf("parsed"), "MorvaneRecv");
    EXPECT_THAT(rig.usb.takeTrace(), Contains("close 1-4"));
    EXPECT_THAT(rig.manager->getDeviceListSafe(), IsEmpty());
}

} // namespace Vantor::Test
