// What a second thread meets while one is at work on a device.
#include "tests/support/Contender.h"
#include "tests/support/DeviceRig.h"
#include "tests/support/Meeting.h"
#include "tests/support/TemporaryFolder.h"

#include "libMorvaneHostUsb/EventPump.h"
#include "libMorvaneHostUsb/TransferAccount.h"

#include <cerrno>
#include <chrono>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <pthread.h>
#include <sched.h>
#include <time.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::mutex s_deadlineMutex;
std::vector<std::chrono::nanoseconds> s_deadlines;
thread_local bool t_isWatched = false;

} // namespace

// In virtual time a timed wait is over at once. This one shows its deadline before.
extern "C" int pthread_cond_timedwait(pthread_cond_t* /*condition*/, pthread_mutex_t* mutex, const timespec* deadline)
{
    if (t_isWatched) {
        const std::lock_guard<std::mutex> lock(s_deadlineMutex);
        s_deadlines.push_back(std::chrono::seconds(deadline->tv_sec) + std::chrono::nanoseconds(deadline->tv_nsec));
    }
    pthread_mutex_unlock(mutex);
    sched_yield();
    pthread_mutex_lock(mutex);
    return ETIMEDOUT;
}

namespace Vantor::Test {

// The send side.

TEST(UsbDeviceLocks, secondSend_waitsForTheSubmissionOfTheFirst)
{
    DeviceRig rig;
    rig.open();
    const Meeting meeting(rig.usb, "submit_transfer 0x02", Meeting::Expected::HeldUp,
                          [&rig] { rig.device->sendNextPacket(); });
    rig.add(5, {1});
    EXPECT_TRUE(meeting.wasAsExpected());
    EXPECT_THAT(rig.sends(), testing::SizeIs(1));
}

TEST(UsbDeviceLocks, send_waitsForTheBookkeepingOfACompletedOne)
{
    DeviceRig rig;
    rig.open();
    rig.add(5, {1});
    const Meeting meeting(rig.usb, "clear_halt", Meeting::Expected::HeldUp, [&rig] { rig.device->sendNextPacket(); });
    rig.logged(0, [&rig] { rig.finishSend(LIBUSB_TRANSFER_STALL, 0); });
    EXPECT_TRUE(meeting.wasAsExpected());
}

TEST(UsbDeviceLocks, send_waitsForTheWatchdogsCancel)
{
    DeviceRig rig;
    LinkRig::setLevel(0);
    rig.open();
    rig.add(5, {1});
    rig.device->setDeviceInfo(DeviceInformation{});
    const Meeting meeting(rig.usb, "cancel_transfer", Meeting::Expected::HeldUp,
                          [&rig] { rig.device->sendNextPacket(); });
    rig.poll(5s + 1ns);
    EXPECT_TRUE(meeting.wasAsExpected());
}

TEST(UsbDeviceLocks, send_waitsForTheDrainsCancelOfASendNotOfARead)
{
    for (const bool ofSend : {true, false}) {
        DeviceRig rig;
        rig.open();
        rig.add(5, {1});
        rig.device->markDead();
        std::optional<Contender> sender;
        bool heldUp = false;
        rig.usb.onCall("cancel_transfer", [&, cancels = 0]() mutable {
            if (++cancels != (ofSend ? 2 : 1))
                return;
            sender.emplace([&rig] { rig.device->sendNextPacket(); });
            heldUp = ofSend ? sender->isHeldUp() : !sender->getsThrough();
        });
        rig.device->drain(false);
        ASSERT_TRUE(sender);
        EXPECT_EQ(heldUp, ofSend);
    }
}

// Between its test of the device's life and its submission a sender calls nothing of
// libusb's, but it reads the clock.
TEST(UsbDeviceLocks, drainWhileASendIsBeingPrepared_waitsForItsSubmission)
{
    DeviceRig rig;
    rig.open();
    std::promise<void> prepared;
    std::promise<void> mayGoOn;
    Contender sender([&] {
        VirtualClock::onSystemRead([&prepared, goOn = mayGoOn.get_future().share(), first = true]() mutable {
            if (!std::exchange(first, false))
                return;
            prepared.set_value();
            goOn.wait();
        });
        rig.add(5, {1});
    });
    prepared.get_future().wait();
    Contender closer([&rig] {
        rig.device->markDead();
        rig.device->drain(false);
        rig.device->cleanup();
    });
    EXPECT_TRUE(closer.isHeldUp());
    mayGoOn.set_value();
    sender.join();
    closer.join();
    EXPECT_THAT(rig.usb.takeTrace(),
                ElementsAre("submit 1-4 0x02", "cancel unused", "cancel 1-4 0x02", "release 1-4 0", "close 1-4"));
}

TEST(UsbDeviceLocks, cleanup_waitsForASubmissionThatUsesTheHandle)
{
    DeviceRig rig;
    LinkRig::setLevel(0);
    rig.open();
    rig.usb.script("submit_transfer 0x02", LIBUSB_ERROR_PIPE);
    const Meeting meeting(rig.usb, "submit_transfer 0x02", Meeting::Expected::HeldUp, [&rig] {
        rig.device->markDead();
        rig.device->cleanup();
    });
    rig.add(5, {1});
    EXPECT_TRUE(meeting.wasAsExpected());
}

TEST(UsbDeviceLocks, transfer_isAccountedForBeforeItIsSubmitted)
{
    DeviceRig rig;
    LinkRig::setLevel(0);
    rig.open();
    rig.add(5, {1});
    rig.poll();
    TransferAccount& account = TransferAccount::instance();
    const libusb_transfer* const send = rig.usb.inFlight(rig.panel, FakeLibusb::outEndpoint);
    const libusb_transfer* const read = rig.usb.inFlight(rig.panel, FakeLibusb::inEndpoint);
    rig.finishSend();
    // The device does not hear of its read's end, and its watchdog starts another.
    rig.usb.route(nullptr);
    rig.finishRead(LIBUSB_TRANSFER_TIMED_OUT, 0);
    ASSERT_FALSE(account.isHeld(send));
    ASSERT_FALSE(account.isHeld(read));

    bool sendIsHeld = false;
    bool readIsHeld = false;
    rig.usb.onCall("submit_transfer 0x02", [&] { sendIsHeld = account.isHeld(send); });
    rig.usb.onCall("submit_transfer 0x81", [&] { readIsHeld = account.isHeld(read); });
    rig.add(5, {1});
    rig.poll(5s + 1ns);
    EXPECT_TRUE(sendIsHeld);
    EXPECT_TRUE(readIsHeld);
}

// The packer's observer.

TEST(UsbDeviceLocks, changeOfThePackersObserver_waitsForTheNotification)
{
    DeviceRig rig;
    rig.open();
    const Meeting meeting(rig.usb, "submit_transfer 0x02", Meeting::Expected::HeldUp,
                          [&rig] { rig.device->getPacker().setObserver(nullptr); });
    rig.add(5, {1});
    EXPECT_TRUE(meeting.wasAsExpected());
}

// The firmware upgrade.

TEST(UsbDeviceLocks, everythingOfAnUpgrade_waitsForAFirmwareStep)
{
    const TemporaryFile image("12345");
    const std::function<void(UsbDevice&)> operations[] = {
        [](UsbDevice& device) { device.handleFirmwareUpgrade(FirmwareUpgradeCommand{}); },
        [](UsbDevice& device) { device.startFirmwareUpgrade("/nonexistent", "/nonexistent", nullptr); }};
    for (const auto& operation : operations) {
        DeviceRig rig;
        LinkRig::setLevel(0);
        rig.open();
        const Meeting meeting(rig.usb, "submit_transfer 0x02", Meeting::Expected::HeldUp,
                              [&] { operation(*rig.device); });
        rig.device->startFirmwareUpgrade(image.getPath(), "/nonexistent", nullptr);
        EXPECT_TRUE(meeting.wasAsExpected());
    }
}

TEST(UsbDeviceLocks, firmwareReply_waitsForTheProgressCallback)
{
    DeviceRig rig;
    LinkRig::setLevel(0);
    rig.open();
    std::optional<Contender> receiver;
    bool waits = false;
    rig.device->startFirmwareUpgrade("/nonexistent", "/nonexistent", [&](const UsbDevice::FirmwareProgress&) {
        receiver.emplace([&rig] { rig.device->handleFirmwareUpgrade(FirmwareUpgradeCommand{}); });
        waits = receiver->isHeldUp();
    });
    EXPECT_TRUE(waits);
}

// Identities.

TEST(UsbDeviceLocks, construction_waitsForADestructionThatFreesAnIdentity)
{
    DeviceRig rig;
    auto other = rig.make({1, 5});
    std::unique_ptr<UsbDevice> third;
    const Meeting meeting(rig.usb, "free_transfer", Meeting::Expected::HeldUp, [&] { third = rig.make({1, 5}); });
    other.reset();
    EXPECT_TRUE(meeting.wasAsExpected());
}

// The event pump.

TEST(UsbDeviceLocks, eventPumpsWorker_isExpectedOnceNoDrainRunsEventsAnyMore)
{
    DeviceRig rig;
    rig.open();
    rig.add(5, {1});
    rig.device->markDead();
    const Meeting meeting(rig.usb, "handle_events", Meeting::Expected::HeldUp, [&rig] {
        EventPump::expectWorker(rig.context);
        EventPump::expectNoWorker();
    });
    rig.device->drain(false);
    EXPECT_TRUE(meeting.wasAsExpected());
}

// The queue.

TEST(UsbDeviceLocks, emptyMessageQueue_isLookedAtAgainAfterExactlyOneSecond)
{
    const VirtualClock clock;
    UsbMessageQueue queue;
    const std::chrono::nanoseconds now = VirtualClock::now().time_since_epoch();
    Contender consumer([&queue] {
        t_isWatched = true;
        queue.getMessage();
    });
    VirtualClock::waitForPolling(); // its deadlines are far in the past of the real clock
    queue.kill();
    consumer.join();
    const std::lock_guard<std::mutex> lock(s_deadlineMutex);
    EXPECT_THAT(s_deadlines, testing::AllOf(testing::Not(IsEmpty()), testing::Each(now + 1s)));
    s_deadlines.clear();
}

} // namespace Vantor::Test
