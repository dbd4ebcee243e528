// What a second thread meets while one is at work on a device.
#include "tests/support/Contender.h"
#include "tests/support/DeviceRig.h"
#include "tests/support/Meeting.h"

#include <cerrno>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include <pthread.h>
#include <sched.h>
#include <time.h>

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

TEST(UsbDevice, secondSend_waitsForTheSubmissionOfTheFirst)
{
    DeviceRig rig;
    rig.open();
    const Meeting meeting(rig.usb, "submit_transfer 0x02", Meeting::Expected::HeldUp,
                          [&rig] { rig.device->sendNextPacket(); });
    rig.add(5, {1});
    EXPECT_TRUE(meeting.wasAsExpected());
    EXPECT_THAT(rig.sends(), testing::SizeIs(1));
}

TEST(UsbDevice, send_waitsForTheBookkeepingOfACompletedOne)
{
    DeviceRig rig;
    rig.open();
    rig.add(5, {1});
    const Meeting meeting(rig.usb, "clear_halt", Meeting::Expected::HeldUp, [&rig] { rig.device->sendNextPacket(); });
    rig.logged(0, [&rig] { rig.finishSend(LIBUSB_TRANSFER_STALL, 0); });
    EXPECT_TRUE(meeting.wasAsExpected());
}

TEST(UsbDevice, send_waitsForTheWatchdogsCancel)
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

TEST(UsbDevice, send_waitsForTheDrainsCancelOfASendNotOfARead)
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
TEST(UsbDevice, drainWhileASendIsBeingPrepared_waitsForItsSubmission)
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

// Identities.

TEST(UsbDevice, construction_waitsForADestructionThatFreesAnIdentity)
{
    DeviceRig rig;
    auto other = rig.make({1, 5});
    std::unique_ptr<UsbDevice> third;
    const Meeting meeting(rig.usb, "free_transfer", Meeting::Expected::HeldUp, [&] { third = rig.make({1, 5}); });
    other.reset();
    EXPECT_TRUE(meeting.wasAsExpected());
}

// The queue.

TEST(UsbMessageQueue, emptyQueue_isLookedAtAgainAfterExactlyOneSecond)
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
