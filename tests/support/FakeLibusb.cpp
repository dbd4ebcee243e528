#include "tests/support/FakeLibusb.h"

#include "tests/support/VirtualClock.h"

#include <algorithm>
#include <cassert>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <gtest/gtest.h>

struct libusb_context {
    bool exited = false;
};

struct libusb_device {
    Vantor::Test::FakeLibusb::Panel panel;
    bool attached = false;
    bool onBus = false; // the bus holds its reference
    int references = 0;
    libusb_device_handle* claimedBy = nullptr;
};

struct libusb_device_handle {
    libusb_device* device = nullptr;
    bool open = true;
};

namespace Vantor::Test {

namespace {

FakeLibusb* s_current = nullptr;
thread_local bool t_inTransferCallback = false;
thread_local bool t_inHotplugCallback = false;

std::string hex(unsigned int value, int digits)
{
    char text[16];
    std::snprintf(text, sizeof text, "%0*x", digits, value);
    return text;
}

std::string label(const libusb_device* device)
{
    return std::to_string(device->panel.bus) + "-" + std::to_string(device->panel.port);
}

bool matches(const FakeLibusb::Registration& registration, const libusb_device& device, int event)
{
    const auto agrees = [](int wanted, int value) { return wanted == LIBUSB_HOTPLUG_MATCH_ANY || wanted == value; };
    return registration.active && (registration.events & event) != 0 &&
           agrees(registration.vendorId, device.panel.vendorId) &&
           agrees(registration.productId, device.panel.productId);
}

} // namespace

FakeLibusb::FakeLibusb()
{
    if (s_current != nullptr)
        std::abort();
    s_current = this;
}

FakeLibusb::~FakeLibusb()
{
    for (const auto& transfer : m_transfers)
        std::free(transfer.first);
    s_current = nullptr;
}

std::string FakeLibusb::endpointName(std::uint8_t endpoint)
{
    return "0x" + hex(endpoint, 2);
}

FakeLibusb& FakeLibusb::current()
{
    if (s_current == nullptr)
        std::abort();
    return *s_current;
}

FakeLibusb& FakeLibusb::enter(const std::string& function)
{
    FakeLibusb& fake = current();
    std::shared_ptr<std::function<void()>> hook; // shared: it keeps its state, and may replace itself
    {
        const Lock lock(fake.m_mutex);
        const auto found = fake.m_callHooks.find(function);
        if (found != fake.m_callHooks.end())
            hook = found->second;
    }
    if (hook)
        (*hook)();
    return fake;
}

void FakeLibusb::misuse(const std::string& what)
{
    m_misuses.push_back(what);
}

void FakeLibusb::traceRead(const char* what, const libusb_device* device)
{
    if (m_traceReads)
        m_trace.push_back(device != nullptr ? std::string(what) + " " + label(device) : std::string(what));
}

bool FakeLibusb::isUsable(libusb_context* context, const char* function)
{
    if (context == nullptr)
        return false; // what a failed initialisation leaves; no misuse of its own
    if (context->exited)
        misuse(std::string(function) + " after exit");
    return !context->exited;
}

bool FakeLibusb::isUsable(libusb_device* device, const char* function)
{
    const bool known = std::any_of(m_devices.begin(), m_devices.end(),
                                   [device](const auto& candidate) { return candidate.get() == device; });
    if (!known || device->references <= 0)
        misuse(std::string(function) + " of a device without references");
    return known && device->references > 0;
}

bool FakeLibusb::isUsable(libusb_device_handle* handle, const char* function)
{
    const bool known = std::any_of(m_handles.begin(), m_handles.end(),
                                   [handle](const auto& candidate) { return candidate.get() == handle; });
    if (!known || !handle->open)
        misuse(std::string(function) + " of a closed handle");
    return known && handle->open;
}

FakeLibusb::TransferState* FakeLibusb::stateOf(libusb_transfer* transfer, const char* function)
{
    const auto found = m_transfers.find(transfer);
    if (found != m_transfers.end())
        return &found->second;
    misuse(std::string(function) + " of a transfer that does not exist");
    return nullptr;
}

// A call that can fail: scripted, or the one chosen by failCall.
int FakeLibusb::result(const std::string& function, int otherwise)
{
    if (m_callsToFailure != 0 && --m_callsToFailure == 0) {
        m_failed = true;
        return m_failureCode;
    }
    const auto script = m_scripts.find(function);
    if (script != m_scripts.end() && !script->second.empty()) {
        const int scripted = script->second.front();
        script->second.pop_front();
        return scripted;
    }
    const auto lasting = m_lastingScripts.find(function);
    return lasting != m_lastingScripts.end() ? lasting->second : otherwise;
}

void FakeLibusb::changeReferences(libusb_device* device, int change)
{
    device->references += change;
    if (device->references < 0)
        misuse("unref of " + label(device) + " below zero");
}

libusb_device* FakeLibusb::attach(const Panel& panel)
{
    const Lock lock(m_mutex);
    m_devices.push_back(std::make_unique<libusb_device>());
    libusb_device* const device = m_devices.back().get();
    device->panel = panel;
    device->attached = true;
    device->onBus = true;
    device->references = 1;
    return device;
}

libusb_device* FakeLibusb::plug(const Panel& panel)
{
    libusb_device* const device = attach(panel);
    announce(device, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED);
    return device;
}

void FakeLibusb::announce(libusb_device* device, libusb_hotplug_event event)
{
    const Lock lock(m_mutex);
    changeReferences(device, 1);
    m_pending.push_back({nullptr, device, static_cast<int>(event), 0, {}});
    m_changed.notify_all();
}

void FakeLibusb::unplug(libusb_device* device)
{
    {
        const Lock lock(m_mutex);
        for (const std::uint8_t endpoint : {inEndpoint, outEndpoint})
            post(findInFlight(device, endpoint), LIBUSB_TRANSFER_NO_DEVICE, 0, {});
    }
    announce(device, LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT);
    vanish(device);
}

void FakeLibusb::vanish(libusb_device* device)
{
    const Lock lock(m_mutex);
    device->attached = false;
    if (std::exchange(device->onBus, false))
        changeReferences(device, -1);
}

int FakeLibusb::references(libusb_device* device)
{
    const Lock lock(m_mutex);
    return device->references;
}

FakeLibusb::TransferState* FakeLibusb::findInFlight(libusb_device* device, std::uint8_t endpoint)
{
    for (auto& [transfer, state] : m_transfers) {
        if (state.inFlight && state.submission.device == device && state.submission.endpoint == endpoint)
            return &state;
    }
    return nullptr;
}

libusb_transfer* FakeLibusb::inFlight(libusb_device* device, std::uint8_t endpoint)
{
    const Lock lock(m_mutex);
    const TransferState* const state = findInFlight(device, endpoint);
    return state != nullptr ? state->submission.transfer : nullptr;
}

bool FakeLibusb::post(TransferState* state, int status, int actualLength, Bytes bytes)
{
    if (state == nullptr || state->completionPending)
        return false;
    libusb_transfer* const transfer = state->submission.transfer;
    forgetCompletion(transfer);
    state->completionPending = true;
    m_pending.push_back({transfer, nullptr, status, actualLength, std::move(bytes)});
    m_changed.notify_all();
    return true;
}

void FakeLibusb::forgetCompletion(const libusb_transfer* transfer)
{
    m_scheduled.erase(std::remove_if(m_scheduled.begin(), m_scheduled.end(),
                                     [transfer](const Scheduled& late) { return late.event.transfer == transfer; }),
                      m_scheduled.end());
    m_pending.erase(std::remove_if(m_pending.begin(), m_pending.end(),
                                   [transfer](const Event& event) { return event.transfer == transfer; }),
                    m_pending.end());
}

bool FakeLibusb::complete(libusb_device* device, std::uint8_t endpoint, int status, int actualLength)
{
    const Lock lock(m_mutex);
    return post(findInFlight(device, endpoint), status, actualLength, {});
}

bool FakeLibusb::completeSend(libusb_device* device)
{
    const Lock lock(m_mutex);
    TransferState* const state = findInFlight(device, outEndpoint);
    return state != nullptr && post(state, LIBUSB_TRANSFER_COMPLETED, state->submission.length, {});
}

bool FakeLibusb::receive(libusb_device* device, const Bytes& bytes)
{
    const Lock lock(m_mutex);
    return post(findInFlight(device, inEndpoint), LIBUSB_TRANSFER_COMPLETED, static_cast<int>(bytes.size()), bytes);
}

void FakeLibusb::completeAfter(std::chrono::nanoseconds delay, libusb_device* device, std::uint8_t endpoint, int status,
                               int actualLength)
{
    const Lock lock(m_mutex);
    const TransferState* const state = findInFlight(device, endpoint);
    if (state == nullptr)
        ADD_FAILURE() << "nothing in flight to complete later";
    else
        m_scheduled.push_back(
            {VirtualClock::now() + delay, Event{state->submission.transfer, nullptr, status, actualLength, {}}});
}

void FakeLibusb::ignoreCancel(bool ignore)
{
    const Lock lock(m_mutex);
    m_ignoreCancel = ignore;
}

void FakeLibusb::honourTimeouts(bool honour)
{
    const Lock lock(m_mutex);
    m_honourTimeouts = honour;
}

void FakeLibusb::route(std::function<void(libusb_transfer*)> router)
{
    const Lock lock(m_mutex);
    m_router = std::move(router);
}

void FakeLibusb::onCall(const std::string& function, std::function<void()> hook)
{
    const Lock lock(m_mutex);
    if (hook)
        m_callHooks[function] = std::make_shared<std::function<void()>>(std::move(hook));
    else
        m_callHooks.erase(function);
}

void FakeLibusb::dropCallHooks()
{
    const Lock lock(m_mutex);
    m_callHooks.clear();
}

std::vector<FakeLibusb::Submission> FakeLibusb::takeSubmissions(libusb_device* device, std::uint8_t endpoint)
{
    const Lock lock(m_mutex);
    std::vector<Submission> taken;
    std::vector<Submission> left;
    for (auto& submission : m_submissions) {
        const bool wanted = submission.device == device && submission.endpoint == endpoint;
        (wanted ? taken : left).push_back(std::move(submission));
    }
    m_submissions = std::move(left);
    return taken;
}

std::vector<std::string> FakeLibusb::takeCompletions()
{
    const Lock lock(m_mutex);
    return std::exchange(m_completions, {});
}

std::vector<FakeLibusb::Registration> FakeLibusb::registrations()
{
    const Lock lock(m_mutex);
    return m_registrations;
}

std::vector<timeval> FakeLibusb::takeEventTimeouts()
{
    const Lock lock(m_mutex);
    return std::exchange(m_eventTimeouts, {});
}

void FakeLibusb::script(const std::string& function, int result, int times)
{
    const Lock lock(m_mutex);
    if (times >= forEver)
        m_lastingScripts[function] = result;
    else
        m_scripts[function].insert(m_scripts[function].end(), static_cast<std::size_t>(times), result);
}

void FakeLibusb::setCapability(std::uint32_t capability, int value)
{
    const Lock lock(m_mutex);
    m_capabilities[capability] = value;
}

void FakeLibusb::failCall(unsigned int n, int code)
{
    const Lock lock(m_mutex);
    m_callsToFailure = n;
    m_failureCode = code;
    m_failed = false;
}

bool FakeLibusb::hasFailed()
{
    const Lock lock(m_mutex);
    return m_failed;
}

std::vector<std::string> FakeLibusb::takeTrace()
{
    const Lock lock(m_mutex);
    return std::exchange(m_trace, {});
}

void FakeLibusb::traceReads()
{
    const Lock lock(m_mutex);
    m_traceReads = true;
}

void FakeLibusb::waitParked()
{
    Lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_parked; });
}

void FakeLibusb::pass()
{
    grant(std::nullopt);
}

void FakeLibusb::passAfter(std::chrono::nanoseconds time)
{
    grant(time);
}

void FakeLibusb::grant(std::optional<std::chrono::nanoseconds> time)
{
    Lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_parked; });
    const unsigned long parkings = m_parkings;
    m_grantedTime = time;
    m_granted = true;
    m_changed.notify_all();
    m_changed.wait(lock, [this, parkings] { return m_parked && m_parkings != parkings; });
}

void FakeLibusb::setFreeRunning(bool free)
{
    const Lock lock(m_mutex);
    m_freeRunning = free;
    m_changed.notify_all();
}

void FakeLibusb::settle()
{
    Lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_parked && (!m_freeRunning || (m_pending.empty() && !m_interrupted)); });
}

bool FakeLibusb::hasPendingEvents()
{
    const Lock lock(m_mutex);
    return !m_pending.empty();
}

std::chrono::nanoseconds FakeLibusb::remainingWait()
{
    const Lock lock(m_mutex);
    return m_interrupted ? std::chrono::nanoseconds(0) : m_parkedFor;
}

libusb_context* FakeLibusb::makeContext()
{
    libusb_context* context = nullptr;
    init(&context);
    return context;
}

std::vector<std::string> FakeLibusb::verify()
{
    const Lock lock(m_mutex);
    std::vector<std::string> found = m_misuses;
    for (const auto& handle : m_handles) {
        if (handle->open)
            found.push_back("handle of " + label(handle->device) + " left open");
    }
    for (const auto& transfer : m_transfers)
        found.push_back(transfer.second.inFlight ? "transfer left in flight" : "transfer not freed");
    for (const auto& device : m_devices) {
        if (device->references != 0)
            found.push_back("device " + label(device.get()) + " left with " + std::to_string(device->references) +
                            " references");
    }
    for (const auto& context : m_contexts) {
        if (!context->exited)
            found.emplace_back("context left");
    }
    if (!m_lists.empty())
        found.emplace_back("device list not freed");
    return found;
}

std::vector<std::string> FakeLibusb::takeMisuses()
{
    const Lock lock(m_mutex);
    return std::exchange(m_misuses, {});
}

int FakeLibusb::init(libusb_context** context)
{
    const Lock lock(m_mutex);
    const int code = result("init", LIBUSB_SUCCESS);
    m_trace.emplace_back("init");
    if (code != LIBUSB_SUCCESS)
        return code;
    m_contexts.push_back(std::make_unique<libusb_context>());
    *context = m_contexts.back().get();
    for (const auto& device : m_devices) {
        if (device->attached && !std::exchange(device->onBus, true))
            changeReferences(device.get(), 1);
    }
    m_parked = false;
    m_granted = false;
    m_released = false;
    m_interrupted = false;
    m_worker.reset();
    return LIBUSB_SUCCESS;
}

void FakeLibusb::exit(libusb_context* context)
{
    const Lock lock(m_mutex);
    m_trace.emplace_back("exit");
    for (const auto& event : m_pending) {
        if (event.device != nullptr)
            changeReferences(event.device, -1);
        else
            misuse("exit with a completion not delivered");
    }
    m_pending.clear();
    for (const auto& handle : m_handles) {
        if (handle->open)
            misuse("exit with an open handle of " + label(handle->device));
    }
    for (const auto& device : m_devices) {
        if (std::exchange(device->onBus, false))
            changeReferences(device.get(), -1);
        if (device->references > 0)
            misuse("exit with " + std::to_string(device->references) + " references on " + label(device.get()));
    }
    if (isUsable(context, "exit"))
        context->exited = true;
}

int FakeLibusb::hasCapability(std::uint32_t capability)
{
    const Lock lock(m_mutex);
    const auto found = m_capabilities.find(capability);
    return found != m_capabilities.end() ? found->second : 1;
}

int FakeLibusb::registerHotplug(libusb_context* context, const Registration& registration,
                                libusb_hotplug_callback_handle* handle)
{
    std::vector<libusb_device*> attached;
    {
        const Lock lock(m_mutex);
        m_trace.push_back(std::string("register ") +
                          (registration.events == LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED ? "arrived " : "left ") +
                          hex(static_cast<unsigned int>(registration.vendorId), 4) + ":" +
                          hex(static_cast<unsigned int>(registration.productId), 4));
        if (!isUsable(context, "hotplug_register_callback"))
            return LIBUSB_ERROR_INVALID_PARAM;
        const int code = result("hotplug_register_callback", LIBUSB_SUCCESS);
        if (code != LIBUSB_SUCCESS)
            return code;
        m_registrations.push_back(registration);
        m_released = false;
        *handle = static_cast<libusb_hotplug_callback_handle>(m_registrations.size());
        for (const auto& device : m_devices) {
            if ((registration.flags & LIBUSB_HOTPLUG_ENUMERATE) != 0 && device->onBus &&
                matches(registration, *device, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED))
                attached.push_back(device.get());
        }
    }
    t_inHotplugCallback = true;
    for (libusb_device* const device : attached)
        registration.callback(context, device, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED, registration.userData);
    t_inHotplugCallback = false;
    return LIBUSB_SUCCESS;
}

// Interrupts the event call that is under way, as libusb does.
void FakeLibusb::deregisterHotplug(libusb_context* context, libusb_hotplug_callback_handle handle)
{
    const Lock lock(m_mutex);
    m_trace.push_back("deregister " + std::to_string(handle));
    if (isUsable(context, "hotplug_deregister_callback") && handle > 0 &&
        static_cast<std::size_t>(handle) <= m_registrations.size())
        m_registrations[static_cast<std::size_t>(handle) - 1].active = false;
    m_released = true;
    m_changed.notify_all();
}

int FakeLibusb::descriptor(libusb_device* device, libusb_device_descriptor* descriptor)
{
    const Lock lock(m_mutex);
    if (!isUsable(device, "get_device_descriptor"))
        return LIBUSB_ERROR_NO_DEVICE;
    traceRead("get_device_descriptor", device);
    const int code = result("get_device_descriptor", LIBUSB_SUCCESS);
    if (code != LIBUSB_SUCCESS)
        return code;
    *descriptor = libusb_device_descriptor{};
    descriptor->idVendor = device->panel.vendorId;
    descriptor->idProduct = device->panel.productId;
    return LIBUSB_SUCCESS;
}

const FakeLibusb::Panel& FakeLibusb::panel(libusb_device* device, const char* function)
{
    const Lock lock(m_mutex);
    if (isUsable(device, function))
        traceRead(function, device);
    return device->panel;
}

int FakeLibusb::portNumbers(libusb_device* device, std::uint8_t* ports, int size)
{
    const Lock lock(m_mutex);
    if (!isUsable(device, "get_port_numbers"))
        return LIBUSB_ERROR_INVALID_PARAM;
    const auto& known = device->panel.ports;
    const int code = result("get_port_numbers", static_cast<int>(known.size()));
    if (code != static_cast<int>(known.size()))
        return code;
    if (size < code)
        return LIBUSB_ERROR_OVERFLOW;
    std::copy(known.begin(), known.end(), ports);
    return code;
}

void FakeLibusb::reference(libusb_device* device, int change)
{
    const Lock lock(m_mutex);
    m_trace.push_back((change > 0 ? "ref " : "unref ") + label(device));
    if (isUsable(device, change > 0 ? "ref_device" : "unref_device"))
        changeReferences(device, change);
}

ssize_t FakeLibusb::deviceList(libusb_context* context, libusb_device*** list)
{
    const Lock lock(m_mutex);
    m_trace.emplace_back("list");
    if (!isUsable(context, "get_device_list"))
        return LIBUSB_ERROR_INVALID_PARAM;
    const int code = result("get_device_list", LIBUSB_SUCCESS);
    if (code != LIBUSB_SUCCESS)
        return code;
    std::vector<libusb_device*> found;
    for (const auto& device : m_devices) {
        if (device->onBus)
            found.push_back(device.get());
    }
    for (libusb_device* const device : found)
        changeReferences(device, 1);
    found.push_back(nullptr);
    *list = new libusb_device*[found.size()];
    std::copy(found.begin(), found.end(), *list);
    m_lists.insert(*list);
    return static_cast<ssize_t>(found.size()) - 1;
}

void FakeLibusb::freeDeviceList(libusb_device** list, int unreference)
{
    const Lock lock(m_mutex);
    m_trace.emplace_back(list != nullptr ? "free-list" : "free-list null");
    if (list == nullptr)
        return;
    if (m_lists.erase(list) == 0) {
        misuse("free_device_list of an unknown list");
        return;
    }
    for (libusb_device** entry = list; unreference != 0 && *entry != nullptr; ++entry)
        changeReferences(*entry, -1);
    delete[] list;
}

int FakeLibusb::open(libusb_device* device, libusb_device_handle** handle)
{
    const Lock lock(m_mutex);
    if (t_inTransferCallback)
        misuse("open inside a transfer callback");
    // Its callbacks run with libusb's list of open handles locked, and an open waits for
    // that list with whatever its caller has locked: the callback may want just that. A
    // thread that only waits for events may get one at any moment.
    if (m_eventThread && *m_eventThread != std::this_thread::get_id())
        misuse("open while another thread handles events");
    if (!isUsable(device, "open"))
        return LIBUSB_ERROR_NO_DEVICE;
    m_trace.push_back("open " + label(device));
    const int code = result("open", device->attached ? LIBUSB_SUCCESS : LIBUSB_ERROR_NO_DEVICE);
    if (code != LIBUSB_SUCCESS)
        return code;
    m_handles.push_back(std::make_unique<libusb_device_handle>());
    m_handles.back()->device = device;
    changeReferences(device, 1);
    *handle = m_handles.back().get();
    return LIBUSB_SUCCESS;
}

void FakeLibusb::close(libusb_device_handle* handle)
{
    Lock lock(m_mutex);
    if (t_inTransferCallback || t_inHotplugCallback)
        misuse("close inside a callback");
    if (!isUsable(handle, "close"))
        return;
    m_trace.push_back("close " + label(handle->device));
    // libusb takes the events lock: a callback that runs elsewhere is waited for.
    m_changed.wait(lock, [this] { return !m_callbackThread || *m_callbackThread == std::this_thread::get_id(); });
    for (auto& [transfer, state] : m_transfers) {
        if (!state.inFlight || state.submission.handle != handle)
            continue;
        misuse("close with a transfer in flight on " + endpointName(state.submission.endpoint));
        forgetCompletion(transfer);
        state.inFlight = false; // forgotten: its callback never comes
    }
    handle->open = false;
    if (handle->device->claimedBy == handle)
        handle->device->claimedBy = nullptr;
    changeReferences(handle->device, -1);
}

int FakeLibusb::onHandle(libusb_device_handle* handle, const char* function, const std::string& name, int argument)
{
    const Lock lock(m_mutex);
    if (!isUsable(handle, function))
        return LIBUSB_ERROR_NO_DEVICE;
    const bool isEndpoint = std::strcmp(function, "clear_halt") == 0;
    m_trace.push_back(name + " " + label(handle->device) + " " +
                      (isEndpoint ? endpointName(static_cast<std::uint8_t>(argument)) : std::to_string(argument)));
    // The control endpoint has no halt to clear.
    return result(function, isEndpoint && argument == 0 ? LIBUSB_ERROR_NOT_FOUND : LIBUSB_SUCCESS);
}

int FakeLibusb::claim(libusb_device_handle* handle, int interfaceNumber)
{
    const Lock lock(m_mutex);
    if (!isUsable(handle, "claim_interface"))
        return LIBUSB_ERROR_NO_DEVICE;
    m_trace.push_back("claim " + label(handle->device) + " " + std::to_string(interfaceNumber));
    const bool taken = handle->device->claimedBy != nullptr && handle->device->claimedBy != handle;
    const int code = result("claim_interface", taken ? LIBUSB_ERROR_BUSY : LIBUSB_SUCCESS);
    if (code == LIBUSB_SUCCESS)
        handle->device->claimedBy = handle;
    return code;
}

int FakeLibusb::release(libusb_device_handle* handle, int interfaceNumber)
{
    const Lock lock(m_mutex);
    if (!isUsable(handle, "release_interface"))
        return LIBUSB_ERROR_NO_DEVICE;
    m_trace.push_back("release " + label(handle->device) + " " + std::to_string(interfaceNumber));
    const bool claimed = handle->device->claimedBy == handle;
    const int code = result("release_interface", claimed ? LIBUSB_SUCCESS : LIBUSB_ERROR_NOT_FOUND);
    if (code == LIBUSB_SUCCESS)
        handle->device->claimedBy = nullptr;
    return code;
}

libusb_transfer* FakeLibusb::allocate()
{
    const Lock lock(m_mutex);
    traceRead("alloc_transfer", nullptr);
    if (result("alloc_transfer", LIBUSB_SUCCESS) != LIBUSB_SUCCESS)
        return nullptr;
    auto* const transfer = static_cast<libusb_transfer*>(std::calloc(1, sizeof(libusb_transfer)));
    m_transfers[transfer];
    return transfer;
}

void FakeLibusb::free(libusb_transfer* transfer)
{
    if (transfer == nullptr)
        return;
    const Lock lock(m_mutex);
    m_trace.emplace_back("free");
    const TransferState* const state = stateOf(transfer, "free_transfer");
    if (state == nullptr)
        return;
    if (state->inFlight)
        misuse("free of a transfer in flight on " + endpointName(state->submission.endpoint));
    // libusb reads the device, and through it the context, of a transfer that was used.
    libusb_device* const device = state->submission.device;
    if (device != nullptr) {
        isUsable(device, "free_transfer");
        if (!m_contexts.empty())
            isUsable(m_contexts.back().get(), "free_transfer");
        changeReferences(device, -1);
    }
    m_transfers.erase(transfer);
    std::free(transfer);
}

int FakeLibusb::submit(libusb_transfer* transfer)
{
    const Lock lock(m_mutex);
    TransferState* const state = stateOf(transfer, "submit_transfer");
    if (state == nullptr || !isUsable(transfer->dev_handle, "submit_transfer"))
        return LIBUSB_ERROR_INVALID_PARAM;
    libusb_device* const device = transfer->dev_handle->device;
    m_trace.push_back("submit " + label(device) + " " + endpointName(transfer->endpoint));
    if (state->inFlight)
        return LIBUSB_ERROR_BUSY;
    const int code = result("submit_transfer " + endpointName(transfer->endpoint),
                            device->attached ? LIBUSB_SUCCESS : LIBUSB_ERROR_NO_DEVICE);
    if (code != LIBUSB_SUCCESS)
        return code;

    Submission submission;
    submission.transfer = transfer;
    submission.device = device;
    submission.handle = transfer->dev_handle;
    submission.endpoint = transfer->endpoint;
    submission.type = transfer->type;
    submission.flags = transfer->flags;
    submission.timeout = transfer->timeout;
    submission.length = transfer->length;
    submission.userData = transfer->user_data;
    submission.callback = transfer->callback;
    submission.buffer = transfer->buffer;
    if ((transfer->endpoint & LIBUSB_ENDPOINT_IN) == 0)
        submission.bytes.assign(transfer->buffer, transfer->buffer + transfer->length);
    submission.time = VirtualClock::now();
    m_submissions.push_back(submission);
    if (state->submission.device != nullptr)
        changeReferences(state->submission.device, -1);
    changeReferences(device, 1);
    state->submission = std::move(submission);
    state->inFlight = true;
    state->completionPending = false;
    return LIBUSB_SUCCESS;
}

int FakeLibusb::cancel(libusb_transfer* transfer)
{
    const Lock lock(m_mutex);
    TransferState* const state = stateOf(transfer, "cancel_transfer");
    if (state == nullptr)
        return LIBUSB_ERROR_INVALID_PARAM;
    m_trace.push_back(state->submission.device != nullptr
                          ? "cancel " + label(state->submission.device) + " " + endpointName(state->submission.endpoint)
                          : std::string("cancel unused"));
    const int code = result("cancel_transfer", LIBUSB_SUCCESS);
    if (code != LIBUSB_SUCCESS)
        return code;
    if (!state->inFlight || state->completionPending)
        return LIBUSB_ERROR_NOT_FOUND;
    if (!m_ignoreCancel)
        post(state, LIBUSB_TRANSFER_CANCELLED, 0, {});
    return LIBUSB_SUCCESS;
}

int FakeLibusb::handleEvents(libusb_context* context, timeval timeout)
{
    Lock lock(m_mutex);
    const std::chrono::nanoseconds limit =
        std::chrono::seconds(timeout.tv_sec) + std::chrono::microseconds(timeout.tv_usec);
    if (t_inTransferCallback || t_inHotplugCallback)
        misuse("events handled inside a callback");
    if (std::exchange(m_eventThread, std::this_thread::get_id()))
        misuse("events handled on two threads at once");
    int code = result("handle_events", LIBUSB_SUCCESS);
    if (isMainLoop(limit)) {
        m_eventTimeouts.push_back(timeout);
        park(lock, limit);
    } else {
        waitQuietly(limit);
    }
    m_interrupted = false;
    if (!isUsable(context, "handle_events_timeout_completed"))
        code = LIBUSB_ERROR_INVALID_PARAM;
    if (code == LIBUSB_SUCCESS) {
        for (std::size_t count = m_pending.size(); count != 0 && !m_pending.empty(); --count) {
            const Event event = std::move(m_pending.front());
            m_pending.pop_front();
            deliver(lock, event);
        }
    }
    m_eventThread.reset();
    return code;
}

void FakeLibusb::interrupt(libusb_context* context)
{
    const Lock lock(m_mutex);
    if (!isUsable(context, "interrupt_event_handler"))
        return;
    m_interrupted = true;
    m_changed.notify_all();
}

bool FakeLibusb::isMainLoop(std::chrono::nanoseconds timeout)
{
    if (timeout >= std::chrono::seconds(1))
        m_worker = std::this_thread::get_id();
    return m_worker == std::this_thread::get_id() && timeout != std::chrono::milliseconds(10);
}

void FakeLibusb::park(Lock& lock, std::chrono::nanoseconds timeout)
{
    m_parked = true;
    m_parkedFor = timeout;
    ++m_parkings;
    m_changed.notify_all();
    m_changed.wait(
        lock, [this] { return m_granted || m_released || (m_freeRunning && (!m_pending.empty() || m_interrupted)); });
    m_parked = false;
    if (!std::exchange(m_granted, false))
        return;
    if (m_grantedTime) {
        VirtualClock::advance(*m_grantedTime);
        postDue();
    } else {
        waitQuietly(timeout);
    }
}

// As long as an event call without events would take.
void FakeLibusb::waitQuietly(std::chrono::nanoseconds timeout)
{
    if (m_pending.empty() && !m_interrupted) {
        const auto now = VirtualClock::now();
        const auto due = nextDue();
        const auto end = due && *due < now + timeout ? std::max(*due, now) : now + timeout;
        VirtualClock::advance(end - now);
    }
    postDue();
}

std::optional<std::chrono::system_clock::time_point> FakeLibusb::nextDue()
{
    std::optional<std::chrono::system_clock::time_point> next;
    const auto consider = [&next](std::chrono::system_clock::time_point time) {
        if (!next || time < *next)
            next = time;
    };
    for (const auto& late : m_scheduled)
        consider(late.time);
    for (const auto& [transfer, state] : m_transfers) {
        if (m_honourTimeouts && state.inFlight && !state.completionPending)
            consider(state.submission.time + std::chrono::milliseconds(state.submission.timeout));
    }
    return next;
}

void FakeLibusb::postDue()
{
    const auto now = VirtualClock::now();
    std::vector<Event> due;
    for (const auto& late : m_scheduled) {
        if (late.time <= now)
            due.push_back(late.event);
    }
    for (auto& event : due)
        post(&m_transfers[event.transfer], event.status, event.actualLength, event.bytes);
    if (!m_honourTimeouts)
        return;
    for (auto& [transfer, state] : m_transfers) {
        if (state.inFlight && state.submission.time + std::chrono::milliseconds(state.submission.timeout) <= now)
            post(&state, LIBUSB_TRANSFER_TIMED_OUT, 0, {});
    }
}

void FakeLibusb::deliver(Lock& lock, const Event& event)
{
    m_callbackThread = std::this_thread::get_id();
    if (event.transfer != nullptr)
        deliverCompletion(lock, event);
    else
        deliverHotplug(lock, event);
    m_callbackThread.reset();
    m_changed.notify_all();
}

void FakeLibusb::deliverCompletion(Lock& lock, const Event& event)
{
    libusb_transfer* const transfer = event.transfer;
    TransferState& state = m_transfers.at(transfer);
    const libusb_transfer_cb_fn callback = state.submission.callback;
    const auto router = m_router;
    transfer->status = static_cast<libusb_transfer_status>(event.status);
    transfer->actual_length = event.actualLength;
    if (!event.bytes.empty())
        std::memcpy(state.submission.buffer, event.bytes.data(), event.bytes.size());
    state.inFlight = false;
    state.completionPending = false;
    m_completions.push_back(label(state.submission.device) + " " + endpointName(state.submission.endpoint) +
                            " status " + std::to_string(event.status));

    lock.unlock();
    t_inTransferCallback = true;
    if (router)
        router(transfer);
    callback(transfer);
    t_inTransferCallback = false;
    lock.lock();
}

void FakeLibusb::deliverHotplug(Lock& lock, const Event& event)
{
    for (std::size_t i = 0; i < m_registrations.size(); ++i) {
        const Registration registration = m_registrations[i];
        if (!matches(registration, *event.device, event.status))
            continue;
        lock.unlock();
        t_inHotplugCallback = true;
        const int done = registration.callback(m_contexts.back().get(), event.device,
                                               static_cast<libusb_hotplug_event>(event.status), registration.userData);
        t_inHotplugCallback = false;
        lock.lock();
        if (done != 0)
            m_registrations[i].active = false;
    }
    changeReferences(event.device, -1);
}

} // namespace Vantor::Test

// What the library calls.

using Vantor::Test::FakeLibusb;

extern "C" {

int LIBUSB_CALL libusb_init(libusb_context** context)
{
    return FakeLibusb::enter("init").init(context);
}

void LIBUSB_CALL libusb_exit(libusb_context* context)
{
    FakeLibusb::enter("exit").exit(context);
}

int LIBUSB_CALL libusb_has_capability(uint32_t capability)
{
    return FakeLibusb::enter("has_capability").hasCapability(capability);
}

int LIBUSB_CALL libusb_hotplug_register_callback(libusb_context* context, int events, int flags, int vendorId,
                                                 int productId, int deviceClass, libusb_hotplug_callback_fn callback,
                                                 void* userData, libusb_hotplug_callback_handle* handle)
{
    return FakeLibusb::enter("hotplug_register_callback")
        .registerHotplug(context, {events, flags, vendorId, productId, deviceClass, callback, userData, true}, handle);
}

void LIBUSB_CALL libusb_hotplug_deregister_callback(libusb_context* context, libusb_hotplug_callback_handle handle)
{
    FakeLibusb::enter("hotplug_deregister_callback").deregisterHotplug(context, handle);
}

int LIBUSB_CALL libusb_get_device_descriptor(libusb_device* device, libusb_device_descriptor* descriptor)
{
    return FakeLibusb::enter("get_device_descriptor").descriptor(device, descriptor);
}

uint8_t LIBUSB_CALL libusb_get_bus_number(libusb_device* device)
{
    return FakeLibusb::enter("get_bus_number").panel(device, "get_bus_number").bus;
}

uint8_t LIBUSB_CALL libusb_get_port_number(libusb_device* device)
{
    return FakeLibusb::enter("get_port_number").panel(device, "get_port_number").port;
}

int LIBUSB_CALL libusb_get_port_numbers(libusb_device* device, uint8_t* ports, int size)
{
    return FakeLibusb::enter("get_port_numbers").portNumbers(device, ports, size);
}

libusb_device* LIBUSB_CALL libusb_ref_device(libusb_device* device)
{
    FakeLibusb::enter("ref_device").reference(device, 1);
    return device;
}

void LIBUSB_CALL libusb_unref_device(libusb_device* device)
{
    FakeLibusb::enter("unref_device").reference(device, -1);
}

ssize_t LIBUSB_CALL libusb_get_device_list(libusb_context* context, libusb_device*** list)
{
    return FakeLibusb::enter("get_device_list").deviceList(context, list);
}

void LIBUSB_CALL libusb_free_device_list(libusb_device** list, int unreference)
{
    FakeLibusb::enter("free_device_list").freeDeviceList(list, unreference);
}

int LIBUSB_CALL libusb_open(libusb_device* device, libusb_device_handle** handle)
{
    return FakeLibusb::enter("open").open(device, handle);
}

void LIBUSB_CALL libusb_close(libusb_device_handle* handle)
{
    FakeLibusb::enter("close").close(handle);
}

int LIBUSB_CALL libusb_set_auto_detach_kernel_driver(libusb_device_handle* handle, int enable)
{
    return FakeLibusb::enter("set_auto_detach_kernel_driver")
        .onHandle(handle, "set_auto_detach_kernel_driver", "auto-detach", enable);
}

int LIBUSB_CALL libusb_kernel_driver_active(libusb_device_handle* handle, int interfaceNumber)
{
    return FakeLibusb::enter("kernel_driver_active")
        .onHandle(handle, "kernel_driver_active", "kernel-driver", interfaceNumber);
}

int LIBUSB_CALL libusb_claim_interface(libusb_device_handle* handle, int interfaceNumber)
{
    return FakeLibusb::enter("claim_interface").claim(handle, interfaceNumber);
}

int LIBUSB_CALL libusb_release_interface(libusb_device_handle* handle, int interfaceNumber)
{
    return FakeLibusb::enter("release_interface").release(handle, interfaceNumber);
}

int LIBUSB_CALL libusb_clear_halt(libusb_device_handle* handle, unsigned char endpoint)
{
    return FakeLibusb::enter("clear_halt").onHandle(handle, "clear_halt", "clear-halt", endpoint);
}

libusb_transfer* LIBUSB_CALL libusb_alloc_transfer(int /*isoPackets*/)
{
    return FakeLibusb::enter("alloc_transfer").allocate();
}

void LIBUSB_CALL libusb_free_transfer(libusb_transfer* transfer)
{
    FakeLibusb::enter("free_transfer").free(transfer);
}

int LIBUSB_CALL libusb_submit_transfer(libusb_transfer* transfer)
{
    return FakeLibusb::enter("submit_transfer " + FakeLibusb::endpointName(transfer->endpoint)).submit(transfer);
}

int LIBUSB_CALL libusb_cancel_transfer(libusb_transfer* transfer)
{
    return FakeLibusb::enter("cancel_transfer").cancel(transfer);
}

int LIBUSB_CALL libusb_handle_events_timeout_completed(libusb_context* context, timeval* timeout, int* /*completed*/)
{
    return FakeLibusb::enter("handle_events").handleEvents(context, *timeout);
}

void LIBUSB_CALL libusb_interrupt_event_handler(libusb_context* context)
{
    FakeLibusb::enter("interrupt_event_handler").interrupt(context);
}

const char* LIBUSB_CALL libusb_error_name(int code)
{
    switch (code) {
    case LIBUSB_ERROR_IO:
        return "LIBUSB_ERROR_IO";
    case LIBUSB_ERROR_INVALID_PARAM:
        return "LIBUSB_ERROR_INVALID_PARAM";
    case LIBUSB_ERROR_ACCESS:
        return "LIBUSB_ERROR_ACCESS";
    case LIBUSB_ERROR_NO_DEVICE:
        return "LIBUSB_ERROR_NO_DEVICE";
    case LIBUSB_ERROR_NOT_FOUND:
        return "LIBUSB_ERROR_NOT_FOUND";
    case LIBUSB_ERROR_BUSY:
        return "LIBUSB_ERROR_BUSY";
    case LIBUSB_ERROR_TIMEOUT:
        return "LIBUSB_ERROR_TIMEOUT";
    case LIBUSB_ERROR_OVERFLOW:
        return "LIBUSB_ERROR_OVERFLOW";
    case LIBUSB_ERROR_PIPE:
        return "LIBUSB_ERROR_PIPE";
    case LIBUSB_ERROR_INTERRUPTED:
        return "LIBUSB_ERROR_INTERRUPTED";
    case LIBUSB_ERROR_NO_MEM:
        return "LIBUSB_ERROR_NO_MEM";
    case LIBUSB_ERROR_NOT_SUPPORTED:
        return "LIBUSB_ERROR_NOT_SUPPORTED";
    case LIBUSB_ERROR_OTHER:
        return "LIBUSB_ERROR_OTHER";
    default:
        return "**UNKNOWN**";
    }
}

} // extern "C"
