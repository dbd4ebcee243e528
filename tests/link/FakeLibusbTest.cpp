// The scripted libusb notices what it is there to notice.
#include "tests/support/FakeLibusb.h"
#include "tests/support/VirtualClock.h"

#include <chrono>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace Vantor::Test {

namespace {

int s_completions = 0;

void LIBUSB_CALL countCompletion(libusb_transfer* /*transfer*/)
{
    ++s_completions;
}

void LIBUSB_CALL closeHandle(libusb_transfer* transfer)
{
    libusb_close(transfer->dev_handle);
}

void LIBUSB_CALL openAgain(libusb_transfer* transfer)
{
    libusb_device_handle* handle = nullptr;
    libusb_open(static_cast<libusb_device*>(transfer->user_data), &handle);
    libusb_close(handle);
}

// A handle on a panel, and a read to submit on it.
class FakeLibusbUse : public testing::Test {
public:
    FakeLibusbUse() : context(usb.makeContext()), panel(usb.attach({})), transfer(libusb_alloc_transfer(0))
    {
        libusb_open(panel, &handle);
        libusb_fill_bulk_transfer(transfer, handle, FakeLibusb::inEndpoint, buffer, sizeof buffer, countCompletion,
                                  nullptr, 0);
        s_completions = 0;
    }

    void handleEvents()
    {
        timeval time{};
        libusb_handle_events_timeout_completed(context, &time, nullptr);
    }

    void endClean()
    {
        libusb_free_transfer(transfer);
        libusb_close(handle);
        libusb_exit(context);
    }

    VirtualClock clock;
    FakeLibusb usb;
    libusb_context* context;
    libusb_device* panel;
    libusb_device_handle* handle = nullptr;
    libusb_transfer* transfer;
    unsigned char buffer[8] = {};
};

} // namespace

TEST_F(FakeLibusbUse, orderlyUse_isClean)
{
    libusb_submit_transfer(transfer);
    libusb_cancel_transfer(transfer);
    EXPECT_EQ(s_completions, 0) << "inside event handling alone";
    handleEvents();
    EXPECT_EQ(s_completions, 1);
    EXPECT_EQ(transfer->status, LIBUSB_TRANSFER_CANCELLED);
    endClean();
    EXPECT_THAT(usb.verify(), IsEmpty());
}

TEST_F(FakeLibusbUse, whatIsStillHeld_isReported)
{
    EXPECT_THAT(usb.verify(), ElementsAre("handle of 1-4 left open", "transfer not freed",
                                          "device 1-4 left with 2 references", "context left"));
    endClean();
}

TEST_F(FakeLibusbUse, closeTwice_isReported)
{
    libusb_close(handle);
    libusb_close(handle);
    EXPECT_THAT(usb.takeMisuses(), ElementsAre("close of a closed handle"));
}

TEST_F(FakeLibusbUse, closeWithATransferInFlight_isReportedAndItIsForgotten)
{
    libusb_submit_transfer(transfer);
    libusb_cancel_transfer(transfer);
    libusb_close(handle);
    EXPECT_THAT(usb.takeMisuses(), ElementsAre("close with a transfer in flight on 0x81"));
    handleEvents();
    EXPECT_EQ(s_completions, 0);
}

TEST_F(FakeLibusbUse, freeOfATransferInFlight_isReported)
{
    libusb_submit_transfer(transfer);
    libusb_free_transfer(transfer);
    EXPECT_THAT(usb.takeMisuses(), ElementsAre("free of a transfer in flight on 0x81"));
}

TEST_F(FakeLibusbUse, freeTwice_isReported)
{
    libusb_free_transfer(transfer);
    libusb_free_transfer(transfer);
    EXPECT_THAT(usb.takeMisuses(), ElementsAre("free_transfer of a transfer that does not exist"));
}

TEST_F(FakeLibusbUse, useOfAClosedHandle_isReported)
{
    libusb_close(handle);
    libusb_submit_transfer(transfer);
    libusb_clear_halt(handle, 0);
    libusb_claim_interface(handle, 0);
    EXPECT_THAT(usb.takeMisuses(), ElementsAre("submit_transfer of a closed handle", "clear_halt of a closed handle",
                                               "claim_interface of a closed handle"));
}

TEST_F(FakeLibusbUse, closeInsideATransferCallback_isReported)
{
    transfer->callback = closeHandle;
    libusb_submit_transfer(transfer);
    usb.complete(panel, FakeLibusb::inEndpoint, LIBUSB_TRANSFER_COMPLETED, 0);
    handleEvents();
    EXPECT_THAT(usb.takeMisuses(), ElementsAre("close inside a callback"));
}

TEST_F(FakeLibusbUse, openInsideATransferCallback_isReported)
{
    transfer->callback = openAgain;
    transfer->user_data = panel;
    libusb_submit_transfer(transfer);
    usb.complete(panel, FakeLibusb::inEndpoint, LIBUSB_TRANSFER_COMPLETED, 0);
    handleEvents();
    EXPECT_THAT(usb.takeMisuses(), Contains("open inside a transfer callback"));
}

TEST_F(FakeLibusbUse, referenceTooFew_isReported)
{
    libusb_unref_device(panel);
    libusb_unref_device(panel);
    libusb_close(handle);
    EXPECT_THAT(usb.takeMisuses(), ElementsAre("unref of 1-4 below zero"));
}

TEST_F(FakeLibusbUse, deviceThatIsGone_mayNotBeUsed)
{
    libusb_close(handle);
    usb.vanish(panel);
    libusb_get_bus_number(panel);
    libusb_ref_device(panel);
    EXPECT_THAT(usb.takeMisuses(), ElementsAre("get_bus_number of a device without references",
                                               "ref_device of a device without references"));
}

TEST_F(FakeLibusbUse, referenceKeptPastTheExit_isReported)
{
    libusb_ref_device(panel);
    libusb_free_transfer(transfer);
    libusb_close(handle);
    libusb_exit(context);
    EXPECT_THAT(usb.takeMisuses(), ElementsAre("exit with 1 references on 1-4"));
}

TEST_F(FakeLibusbUse, useAfterTheExit_isReported)
{
    libusb_free_transfer(transfer);
    libusb_close(handle);
    libusb_exit(context);
    handleEvents();
    libusb_exit(context);
    EXPECT_THAT(usb.takeMisuses(), ElementsAre("handle_events_timeout_completed after exit", "exit after exit"));
}

TEST_F(FakeLibusbUse, transferUsedAndFreedAfterTheExit_isReported)
{
    libusb_submit_transfer(transfer);
    usb.unplug(panel);
    handleEvents();
    libusb_close(handle);
    libusb_exit(context);
    libusb_free_transfer(transfer);
    EXPECT_THAT(usb.takeMisuses(), ElementsAre("exit with 1 references on 1-4", "free_transfer after exit"));
}

TEST_F(FakeLibusbUse, secondClaimOfAnInterface_isBusy)
{
    libusb_device_handle* second = nullptr;
    libusb_open(panel, &second);
    EXPECT_EQ(libusb_claim_interface(handle, 0), LIBUSB_SUCCESS);
    EXPECT_EQ(libusb_claim_interface(second, 0), LIBUSB_ERROR_BUSY);
    libusb_release_interface(handle, 0);
    EXPECT_EQ(libusb_claim_interface(second, 0), LIBUSB_SUCCESS);
    libusb_close(second);
    EXPECT_EQ(libusb_claim_interface(handle, 0), LIBUSB_SUCCESS) << "a close releases";
    endClean();
    EXPECT_THAT(usb.verify(), IsEmpty());
}

TEST(VirtualClock, bothClocks_standStillUntilAdvanced)
{
    const VirtualClock clock;
    const auto system = std::chrono::system_clock::now();
    const auto steady = std::chrono::steady_clock::now();
    EXPECT_EQ(system, VirtualClock::now());
    std::this_thread::yield();
    EXPECT_EQ(std::chrono::system_clock::now(), system);
    VirtualClock::advance(3s);
    EXPECT_EQ(std::chrono::system_clock::now() - system, 3s);
    EXPECT_EQ(std::chrono::steady_clock::now() - steady, 3s);
    VirtualClock::step(-1s);
    EXPECT_EQ(std::chrono::system_clock::now() - system, 2s);
    EXPECT_EQ(std::chrono::steady_clock::now() - steady, 3s) << "setting the time does not touch it";
    usleep(5);
    EXPECT_EQ(std::chrono::steady_clock::now() - steady, 3s + 5us);
    EXPECT_EQ(VirtualClock::sleeps(), 1u);
}

} // namespace Vantor::Test
