#include "libMorvaneHostUsb/EventPump.h"

#include <atomic>

#include <libusb-1.0/libusb.h>

namespace Vantor {

namespace {

std::atomic<libusb_context*> s_workerContext{nullptr};
// Without this model the library would need the dynamic loader by name.
#define MORVANE_TLS __attribute__((tls_model("initial-exec"))) thread_local
MORVANE_TLS bool t_isWorker = false;
MORVANE_TLS bool t_insideEvents = false;
#undef MORVANE_TLS

} // namespace

void EventPump::expectWorker(libusb_context* context)
{
    s_workerContext = context;
}

EventPump::Worker::Worker(libusb_context* context)
{
    t_isWorker = true;
    expectWorker(context);
}

EventPump::Worker::~Worker()
{
    s_workerContext = nullptr;
    t_isWorker = false;
}

void EventPump::handleEvents(libusb_context* context, timeval timeout)
{
    t_insideEvents = true;
    libusb_handle_events_timeout_completed(context, &timeout, nullptr);
    t_insideEvents = false;
}

bool EventPump::isInsideEvents()
{
    return t_insideEvents;
}

bool EventPump::isRunElsewhere(const libusb_context* context)
{
    return !t_isWorker && context != nullptr && s_workerContext == context;
}

} // namespace Vantor
