#pragma once

#include "benchmarks/link/Measurement.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <libusb-1.0/libusb.h>

namespace Vantor {

// The least that a program needs to talk to panels through libusb: one thread that runs
// the events, and per panel one read and one send, each submitted again by its own
// completion. No failure is handled: a transfer that fails ends the program.
//
// Threads: wake and the getters from any thread; the functions given run on the event
// thread, `fill` on that of wake as well. Lifetime: one at a time.
class BareLink {
public:
    struct Use {
        // Puts the next packet into the buffer, of 8192 bytes, and returns its length; 0 when
        // there is none. Without it nothing is sent.
        std::function<int(unsigned char* buffer)> fill;
        std::function<void(const unsigned char* bytes, int size)> received;
    };

    // Opens every panel that is attached, and those that come.
    explicit BareLink(Use use);
    ~BareLink();
    BareLink(const BareLink&) = delete;
    BareLink& operator=(const BareLink&) = delete;

    // Sends to the first panel what there is to send, unless it is at it.
    void wake();

    Clock::time_point getStartTime() const { return m_start; } // libusb was initialised by then
    Tally& getArrived() { return m_arrived; }
    Tally& getSent() { return m_sent; } // packets

private:
    struct Panel;

    static int LIBUSB_CALL onArrival(libusb_context* context, libusb_device* device, libusb_hotplug_event event,
                                     void* userData);
    static void LIBUSB_CALL onSent(libusb_transfer* transfer);
    static void LIBUSB_CALL onReceived(libusb_transfer* transfer);
    void open(libusb_device* device);
    void send(Panel& panel);
    void submit(libusb_transfer* transfer);
    void runEvents();
    void cancel();

    Use m_use;
    libusb_context* m_context = nullptr;
    libusb_hotplug_callback_handle m_hotplug = 0;
    std::vector<std::unique_ptr<Panel>> m_panels;
    Clock::time_point m_start;
    std::atomic<int> m_inFlight{0};
    std::atomic<bool> m_ending{false};
    Tally m_arrived;
    Tally m_sent;
    std::thread m_thread;
};

} // namespace Vantor
