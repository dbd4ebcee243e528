#pragma once

struct libusb_context;
struct timeval;

namespace Vantor {

// Who runs libusb's events, and what another piece of code may do to see a
// completion come in. One worker at a time.
//
// Threads: every operation from any thread.
class EventPump {
public:
    // A worker for `context` is about to start: from now on other threads wait for it.
    static void expectWorker(libusb_context* context);

    // Makes the calling thread the worker that runs the events of `context`, for the
    // object's lifetime.
    class Worker {
    public:
        explicit Worker(libusb_context* context);
        ~Worker();
        Worker(const Worker&) = delete;
        Worker& operator=(const Worker&) = delete;
    };

    // Runs events once, for `timeout` at most.
    static void handleEvents(libusb_context* context, timeval timeout);

    // True inside handleEvents on this thread: events can neither be run nor waited for.
    static bool isInsideEvents();

    // True when another thread is the worker of `context`, so that this one should
    // wait for it and not run events itself.
    static bool isRunElsewhere(const libusb_context* context);
};

} // namespace Vantor
