#pragma once

struct libusb_context;
struct timeval;

namespace Vantor {

// Who runs libusb's events, and what another piece of code may do to see a
// completion come in. One worker at a time.
//
// Threads: every operation from any thread. Its mutex is held while a drain runs events,
// whose callbacks take the manager's: take it with none of the manager's locks held.
class EventPump {
public:
    // A worker for `context` is about to start: from now on other threads wait for it.
    // Blocks until none of them runs events any more, 10 ms in practice.
    static void expectWorker(libusb_context* context);

    // It will not start after all, or has ended.
    static void expectNoWorker();

    // Makes the calling thread the worker that runs the events of `context`, for the
    // object's lifetime.
    class Worker {
    public:
        explicit Worker(libusb_context* context);
        ~Worker();
        Worker(const Worker&) = delete;
        Worker& operator=(const Worker&) = delete;
    };

    // Runs events once, for `timeout` at most; the worker.
    static void handleEvents(libusb_context* context, timeval timeout);

    // The same for a drain. Does nothing and says false when another thread is the worker
    // of `context`: this one should wait for it.
    static bool handleEventsUnlessRunElsewhere(libusb_context* context, timeval timeout);

    // Ends the event call that runs on `context`, or else the next one, at once.
    static void wake(libusb_context* context);

    // Does so when it is destroyed. Declared before a lock that the worker tries, it comes
    // when that is free, and an exception does not keep it from coming.
    class WakeAtEnd {
    public:
        explicit WakeAtEnd(libusb_context* context) : m_context(context) {}
        ~WakeAtEnd() { wake(m_context); }
        WakeAtEnd(const WakeAtEnd&) = delete;
        WakeAtEnd& operator=(const WakeAtEnd&) = delete;

    private:
        libusb_context* m_context;
    };

    // True inside handleEvents on this thread: events can neither be run nor waited for.
    static bool isInsideEvents();
};

} // namespace Vantor
