// The scripted libusb notices what it is there to notice.
#include "tests/support/FakeLibusb.h"
#include "tests/support/VirtualClock.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
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

int LIBUSB_CALL openArrived(libusb_context* /*context*/, libusb_device* device, libusb_hotplug_event /*event*/,
                            void* handle)
{
    libusb_open(device, static_cast<libusb_device_handle**>(handle));
    return 0;
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

TEST_F(FakeLibusbUse, openWhileAnotherThreadHandlesEvents_isReported)
{
    std::thread worker([this] {
        timeval time{1, 50000};
        libusb_handle_events_timeout_completed(context, &time, nullptr);
    });
    usb.waitParked(); // its next callback may come at any moment
    libusb_device_handle* second = nullptr;
    libusb_open(panel, &second);
    EXPECT_THAT(usb.takeMisuses(), ElementsAre("open while another thread handles events"));
    libusb_close(second);
    libusb_hotplug_deregister_callback(context, 0); // lets it go
    worker.join();
    libusb_open(panel, &second);
    libusb_close(second);
    endClean();
    EXPECT_THAT(usb.verify(), IsEmpty()) << "no events are handled any more";
}

TEST_F(FakeLibusbUse, openInsideAHotplugCallback_isClean)
{
    libusb_device_handle* second = nullptr;
    libusb_hotplug_callback_handle registration = 0;
    libusb_hotplug_register_callback(context, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED, 0, LIBUSB_HOTPLUG_MATCH_ANY,
                                     LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY, openArrived, &second,
                                     &registration);
    usb.plug({});
    handleEvents();
    ASSERT_NE(second, nullptr);
    libusb_close(second);
    endClean();
    EXPECT_THAT(usb.verify(), IsEmpty());
}

TEST_F(FakeLibusbUse, callHook_runsBeforeTheCallItIsNamedAfter)
{
    int calls = 0;
    usb.takeTrace();
    usb.onCall("submit_transfer 0x81", [&] {
        ++calls;
        EXPECT_THAT(usb.takeTrace(), IsEmpty()) << "nothing has happened, and nothing is locked";
        libusb_clear_halt(handle, 0); // not hooked
    });
    usb.onCall("submit_transfer 0x02", [] { ADD_FAILURE() << "the other endpoint"; });
    libusb_submit_transfer(transfer);
    EXPECT_EQ(calls, 1);
    EXPECT_THAT(usb.takeTrace(), ElementsAre("clear-halt 1-4 0x00", "submit 1-4 0x81"));
    libusb_cancel_transfer(transfer);
    handleEvents();

    usb.onCall("submit_transfer 0x81", nullptr);
    libusb_submit_transfer(transfer);
    EXPECT_EQ(calls, 1);
    libusb_cancel_transfer(transfer);
    handleEvents();
    endClean();
}

TEST_F(FakeLibusbUse, callHooks_reachEveryFunction)
{
    std::vector<std::string> called;
    const char* const functions[] = {"init",
                                     "has_capability",
                                     "hotplug_register_callback",
                                     "hotplug_deregister_callback",
                                     "get_device_descriptor",
                                     "get_bus_number",
                                     "get_port_number",
                                     "get_port_numbers",
                                     "ref_device",
                                     "unref_device",
                                     "get_device_list",
                                     "free_device_list",
                                     "open",
                                     "set_auto_detach_kernel_driver",
                                     "kernel_driver_active",
                                     "claim_interface",
                                     "clear_halt",
                                     "alloc_transfer",
                                     "submit_transfer 0x81",
                                     "cancel_transfer",
                                     "handle_events",
                                     "release_interface",
                                     "free_transfer",
                                     "close",
                                     "exit"};
    for (const char* const function : functions)
        usb.onCall(function, [&called, function] { called.emplace_back(function); });

    libusb_context* otherContext = nullptr;
    libusb_init(&otherContext);
    libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG);
    libusb_hotplug_callback_handle registration = 0;
    libusb_hotplug_register_callback(context, LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT, 0, LIBUSB_HOTPLUG_MATCH_ANY,
                                     LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY, openArrived, nullptr,
                                     &registration);
    libusb_hotplug_deregister_callback(context, registration);
    libusb_device_descriptor descriptor{};
    libusb_get_device_descriptor(panel, &descriptor);
    libusb_get_bus_number(panel);
    libusb_get_port_number(panel);
    std::uint8_t ports[8];
    libusb_get_port_numbers(panel, ports, sizeof ports);
    libusb_ref_device(panel);
    libusb_unref_device(panel);
    libusb_device** list = nullptr;
    libusb_get_device_list(context, &list);
    libusb_free_device_list(list, 1);
    libusb_device_handle* second = nullptr;
    libusb_open(panel, &second);
    libusb_set_auto_detach_kernel_driver(handle, 1);
    libusb_kernel_driver_active(handle, 0);
    libusb_claim_interface(handle, 0);
    libusb_clear_halt(handle, 0);
    libusb_transfer* const unused = libusb_alloc_transfer(0);
    libusb_submit_transfer(transfer);
    libusb_cancel_transfer(transfer);
    handleEvents();
    libusb_release_interface(handle, 0);
    libusb_free_transfer(unused);
    libusb_close(second);
    libusb_exit(otherContext);
    EXPECT_THAT(called, ElementsAreArray(functions));
    usb.dropCallHooks();
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

TEST(FakeLibusbClock, bothClocks_standStillUntilAdvanced)
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
