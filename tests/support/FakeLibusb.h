#pragma once

#include "tests/support/Bytes.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <libusb-1.0/libusb.h>

namespace Vantor::Test {

// A scripted libusb: the functions that the library calls, and no others, defined in
// the test executable. The bus, every transfer's fate and the time are the test's.
//
// It behaves as libusb does where the library depends on it: a cancelled transfer comes
// back through its callback, a second claim of an interface is busy, halts of endpoint 0
// are not cleared, ENUMERATE announces what is attached on the registering thread. Reference
// counts are libusb's: one for the bus, one for each handle, and one for each transfer
// from its submission until it is freed or used for another device.
//
// What libusb forbids is collected as misuse: see verify().
//
// The worker is the thread whose first event call may take a second or more. Its event
// calls park until the test lets them go with pass() or passAfter(), so that test and
// worker take turns and nothing depends on real time; but for those of exactly 10 ms,
// which are a drain's. Those, event calls on other threads, and those after a
// deregistration deliver what there is, or else advance the virtual clock by their
// time-out. One that is interrupted, now or since the last, takes no time.
//
// Threads: every operation from any thread. Lifetime: one at a time.
class FakeLibusb {
public:
    struct Panel {
        std::uint8_t bus = 1;
        std::uint8_t port = 4;
        std::uint16_t vendorId = 0xDEAD;
        std::uint16_t productId = 0xBEEF;
        Bytes ports = {4};
    };

    // One accepted submission.
    struct Submission {
        libusb_transfer* transfer = nullptr;
        libusb_device* device = nullptr;
        libusb_device_handle* handle = nullptr;
        std::uint8_t endpoint = 0;
        std::uint8_t type = 0;
        std::uint8_t flags = 0;
        unsigned int timeout = 0;
        int length = 0;
        void* userData = nullptr;
        libusb_transfer_cb_fn callback = nullptr;
        unsigned char* buffer = nullptr;
        Bytes bytes; // of a send
        std::chrono::system_clock::time_point time;
    };

    struct Registration {
        int events = 0;
        int flags = 0;
        int vendorId = 0;
        int productId = 0;
        int deviceClass = 0;
        libusb_hotplug_callback_fn callback = nullptr;
        void* userData = nullptr;
        bool active = true;
    };

    static constexpr std::uint8_t outEndpoint = 0x02;
    static constexpr std::uint8_t inEndpoint = 0x81;
    static constexpr int forEver = 1 << 30;

    FakeLibusb();
    ~FakeLibusb();
    FakeLibusb(const FakeLibusb&) = delete;
    FakeLibusb& operator=(const FakeLibusb&) = delete;

    // The bus.
    libusb_device* attach(const Panel& panel); // without an announcement
    libusb_device* plug(const Panel& panel);   // with one
    void announce(libusb_device* device, libusb_hotplug_event event);
    void unplug(libusb_device* device); // fails what is in flight, then announces the departure
    void vanish(libusb_device* device); // no announcement, and what is in flight stays there
    int references(libusb_device* device);

    // Transfers. `device` names the panel, `endpoint` the direction.
    libusb_transfer* inFlight(libusb_device* device, std::uint8_t endpoint);
    bool complete(libusb_device* device, std::uint8_t endpoint, int status, int actualLength);
    bool completeSend(libusb_device* device); // whole
    bool receive(libusb_device* device, const Bytes& bytes);
    void completeAfter(std::chrono::nanoseconds delay, libusb_device* device, std::uint8_t endpoint, int status,
                       int actualLength);
    void ignoreCancel(bool ignore); // cancelled transfers do not come back

    // Transfers end with LIBUSB_TRANSFER_TIMED_OUT after their time-out, as they really do.
    void honourTimeouts(bool honour);

    // Takes the manager's place in mapping a completion to a device; called before the
    // transfer's own callback, and like it inside event handling.
    void route(std::function<void(libusb_transfer*)> router);

    // Calls `hook` at the start of every call of `function`, named as in script, on the
    // calling thread and unlocked; nullptr for none. One hook a function.
    void onCall(const std::string& function, std::function<void()> hook);
    void dropCallHooks();

    std::vector<Submission> takeSubmissions(libusb_device* device, std::uint8_t endpoint);
    std::vector<std::string> takeCompletions(); // delivered ones, such as "1-4 0x02 status 0"
    std::vector<Registration> registrations();
    std::vector<timeval> takeEventTimeouts(); // of main-loop event calls

    // Scripted results: of `function`, named without "libusb_", for submit_transfer with
    // the endpoint behind it ("submit_transfer 0x02"); event handling is "handle_events".
    void script(const std::string& function, int result, int times = 1);
    void setCapability(std::uint32_t capability, int value);

    // Lets the n-th call from now on that can fail return `code`; 0 lets none.
    void failCall(unsigned int n, int code);
    bool hasFailed();

    // What was called, in order, such as "claim 1-4 0". Without event calls; with the
    // allocation of transfers and the reads of a device only after traceReads.
    std::vector<std::string> takeTrace();
    void traceReads();

    // The worker.
    void waitParked();
    void pass();                                   // events, or else the whole time-out
    void passAfter(std::chrono::nanoseconds time); // that much time, then events
    void setFreeRunning(bool free);                // events are delivered as they come
    void settle();                                 // parked and nothing to deliver

    bool hasPendingEvents();

    // How long the parked worker would wait for events: nothing once it is interrupted.
    std::chrono::nanoseconds remainingWait();

    // The context of a test without a manager.
    libusb_context* makeContext();

    // Everything libusb forbids that has been done, and everything that is still held:
    // open handles, transfers, device references, lists, contexts. Empty when clean.
    std::vector<std::string> verify();

    // The misuses so far, for a test that provokes one.
    std::vector<std::string> takeMisuses();

    // For the functions below the fence.
    struct Event {
        libusb_transfer* transfer = nullptr;
        libusb_device* device = nullptr;
        int status = 0; // or the hotplug event
        int actualLength = 0;
        Bytes bytes;
    };
    static FakeLibusb& current();
    static FakeLibusb& enter(const std::string& function); // calls the hook
    static std::string endpointName(std::uint8_t endpoint);
    int init(libusb_context** context);
    void exit(libusb_context* context);
    int hasCapability(std::uint32_t capability);
    int registerHotplug(libusb_context* context, const Registration& registration,
                        libusb_hotplug_callback_handle* handle);
    void deregisterHotplug(libusb_context* context, libusb_hotplug_callback_handle handle);
    int descriptor(libusb_device* device, libusb_device_descriptor* descriptor);
    const Panel& panel(libusb_device* device, const char* function);
    int portNumbers(libusb_device* device, std::uint8_t* ports, int size);
    void reference(libusb_device* device, int change);
    ssize_t deviceList(libusb_context* context, libusb_device*** list);
    void freeDeviceList(libusb_device** list, int unreference);
    int open(libusb_device* device, libusb_device_handle** handle);
    void close(libusb_device_handle* handle);
    int onHandle(libusb_device_handle* handle, const char* function, const std::string& name, int argument);
    int claim(libusb_device_handle* handle, int interfaceNumber);
    int release(libusb_device_handle* handle, int interfaceNumber);
    libusb_transfer* allocate();
    void free(libusb_transfer* transfer);
    int submit(libusb_transfer* transfer);
    int cancel(libusb_transfer* transfer);
    int handleEvents(libusb_context* context, timeval timeout);
    void interrupt(libusb_context* context);

private:
    using Lock = std::unique_lock<std::mutex>;
    struct TransferState {
        bool inFlight = false;
        bool completionPending = false;
        Submission submission;
    };
    struct Scheduled {
        std::chrono::system_clock::time_point time;
        Event event;
    };

    void misuse(const std::string& what);
    void traceRead(const char* what, const libusb_device* device);
    bool isUsable(libusb_context* context, const char* function);
    bool isUsable(libusb_device* device, const char* function);
    bool isUsable(libusb_device_handle* handle, const char* function);
    TransferState* stateOf(libusb_transfer* transfer, const char* function);
    int result(const std::string& function, int otherwise);
    void changeReferences(libusb_device* device, int change);
    TransferState* findInFlight(libusb_device* device, std::uint8_t endpoint);
    bool post(TransferState* state, int status, int actualLength, Bytes bytes);
    void forgetCompletion(const libusb_transfer* transfer);
    void postDue();
    std::optional<std::chrono::system_clock::time_point> nextDue();
    bool isMainLoop(std::chrono::nanoseconds timeout);
    void park(Lock& lock, std::chrono::nanoseconds timeout);
    void waitQuietly(std::chrono::nanoseconds timeout);
    void grant(std::optional<std::chrono::nanoseconds> time);
    void deliver(Lock& lock, const Event& event);
    void deliverCompletion(Lock& lock, const Event& event);
    void deliverHotplug(Lock& lock, const Event& event);

    std::mutex m_mutex; // over everything below
    std::condition_variable m_changed;

    std::vector<std::unique_ptr<libusb_context>> m_contexts;
    std::vector<std::unique_ptr<libusb_device>> m_devices;
    std::vector<std::unique_ptr<libusb_device_handle>> m_handles;
    std::map<libusb_transfer*, TransferState> m_transfers;
    std::set<libusb_device**> m_lists;
    std::vector<Registration> m_registrations;
    std::vector<Submission> m_submissions;
    std::vector<std::string> m_completions;
    std::vector<timeval> m_eventTimeouts;
    std::vector<std::string> m_trace;
    std::vector<std::string> m_misuses;

    std::deque<Event> m_pending;
    std::vector<Scheduled> m_scheduled;
    std::map<std::string, std::deque<int>> m_scripts;
    std::map<std::string, int> m_lastingScripts;
    std::map<std::uint32_t, int> m_capabilities;
    std::function<void(libusb_transfer*)> m_router;
    std::map<std::string, std::shared_ptr<std::function<void()>>> m_callHooks;
    bool m_ignoreCancel = false;
    bool m_honourTimeouts = false;
    unsigned int m_callsToFailure = 0;
    int m_failureCode = 0;
    bool m_failed = false;
    bool m_traceReads = false;

    bool m_parked = false;
    bool m_granted = false;
    bool m_released = false;
    bool m_interrupted = false;
    bool m_freeRunning = false;
    std::optional<std::chrono::nanoseconds> m_grantedTime;
    unsigned long m_parkings = 0;
    std::chrono::nanoseconds m_parkedFor{0};
    std::optional<std::thread::id> m_worker;
    std::optional<std::thread::id> m_eventThread; // also while it is parked
    std::optional<std::thread::id> m_callbackThread;
};

} // namespace Vantor::Test
