#include "libMorvaneHostUsb/EventPump.h"

#include "libMorvaneHostUsb/ThreadAnnotations.h"

#include <mutex>

#include <libusb-1.0/libusb.h>

namespace Vantor {

namespace {

std::mutex s_pumpMutex;
libusb_context* s_workerContext MORVANE_GUARDED_BY(s_pumpMutex) = nullptr;
// Without this model the library would need the dynamic loader by name.
#define MORVANE_TLS __attribute__((tls_model("initial-exec"))) thread_local
MORVANE_TLS bool t_isWorker = false;
MORVANE_TLS bool t_insideEvents = false;
#undef MORVANE_TLS

} // namespace

void EventPump::expectWorker(libusb_context* context)
{
    const std::lock_guard<std::mutex> lock(s_pumpMutex);
    s_workerContext = context;
}

void EventPump::expectNoWorker()
{
    expectWorker(nullptr);
}

EventPump::Worker::Worker(libusb_context* context)
{
    t_isWorker = true;
    expectWorker(context);
}

EventPump::Worker::~Worker()
{
    expectNoWorker();
    t_isWorker = false;
}

void EventPump::handleEvents(libusb_context* context, timeval timeout)
{
    t_insideEvents = true;
    libusb_handle_events_timeout_completed(context, &timeout, nullptr);
    t_insideEvents = false;
}

void EventPump::wake(libusb_context* context)
{
    if (context != nullptr)
        libusb_interrupt_event_handler(context);
}

bool EventPump::isInsideEvents()
{
    return t_insideEvents;
}

bool EventPump::handleEventsUnlessRunElsewhere(libusb_context* context, timeval timeout)
{
    if (t_isWorker) {
        handleEvents(context, timeout);
        return true;
    }
    const std::lock_guard<std::mutex> lock(s_pumpMutex);
    if (context != nullptr && s_workerContext == context)
        return false;
    handleEvents(context, timeout);
    return true;
}

} // namespace Vantor
