#include "benchmarks/link/StubLibusb.h"

#include "wire/PanelLink.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <libusb-1.0/libusb.h>

struct libusb_device {
    std::uint8_t port = 0;
    libusb_transfer* read = nullptr; // that waits for a packet
    unsigned int packets = 0;        // that wait for a read
};

struct libusb_device_handle {
    libusb_device* device;
};

namespace Vantor {

namespace {

std::mutex s_mutex; // over everything but the tally
std::condition_variable s_hasEvents;
std::vector<libusb_device> s_panels;
std::vector<libusb_transfer*> s_completed;
std::vector<libusb_transfer*> s_held;
std::vector<unsigned char> s_packet;
bool s_holds = false;
bool s_isInterrupted = false;
Tally s_sent;

// Whoever runs the events is woken after the mutex is let go, lest it waits again.
class Change {
public:
    Change() : m_lock(s_mutex) {}
    ~Change()
    {
        m_lock.unlock();
        s_hasEvents.notify_one();
    }
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;

private:
    std::unique_lock<std::mutex> m_lock;
};

bool isRead(const libusb_transfer& transfer)
{
    return transfer.endpoint == PanelLink::inEndpoint;
}

void complete(libusb_transfer* transfer, libusb_transfer_status status, int length)
{
    transfer->status = status;
    transfer->actual_length = length;
    s_completed.push_back(transfer);
}

void answer(libusb_device& panel)
{
    if (panel.read == nullptr || panel.packets == 0)
        return;
    --panel.packets;
    std::memcpy(panel.read->buffer, s_packet.data(), s_packet.size());
    complete(panel.read, LIBUSB_TRANSFER_COMPLETED, static_cast<int>(s_packet.size()));
    panel.read = nullptr;
}

} // namespace

void StubLibusb::attach(unsigned int panels)
{
    s_panels.assign(panels, {});
    for (unsigned int i = 0; i < panels; ++i)
        s_panels[i].port = static_cast<std::uint8_t>(i + 1);
}

void StubLibusb::give(const std::vector<unsigned char>& packet, unsigned int times, unsigned int panels)
{
    const Change change;
    s_packet = packet;
    for (unsigned int i = 0; i < panels; ++i) {
        s_panels[i].packets += times;
        answer(s_panels[i]);
    }
}

void StubLibusb::holdSends()
{
    const Change change;
    s_holds = true;
}

void StubLibusb::letSendsGo()
{
    const Change change;
    s_holds = false;
    for (libusb_transfer* const transfer : s_held)
        complete(transfer, LIBUSB_TRANSFER_COMPLETED, transfer->length);
    s_held.clear();
}

Tally& StubLibusb::getSent()
{
    return s_sent;
}

} // namespace Vantor

using namespace Vantor;

int LIBUSB_CALL libusb_init(libusb_context** context)
{
    static char context_;
    *context = reinterpret_cast<libusb_context*>(&context_);
    return 0;
}

void LIBUSB_CALL libusb_exit(libusb_context* /*context*/) {}

int LIBUSB_CALL libusb_has_capability(std::uint32_t /*capability*/)
{
    return 1;
}

const char* LIBUSB_CALL libusb_error_name(int /*code*/)
{
    return "error";
}

int LIBUSB_CALL libusb_hotplug_register_callback(libusb_context* context, int events, int /*flags*/, int vendorId,
                                                 int /*productId*/, int /*deviceClass*/,
                                                 libusb_hotplug_callback_fn callback, void* userData,
                                                 libusb_hotplug_callback_handle* /*handle*/)
{
    if (events == LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED && vendorId == PanelLink::developmentVendorId)
        for (libusb_device& panel : s_panels)
            callback(context, &panel, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED, userData);
    return 0;
}

void LIBUSB_CALL libusb_hotplug_deregister_callback(libusb_context* context, libusb_hotplug_callback_handle /*handle*/)
{
    libusb_interrupt_event_handler(context); // as the real one does
}

ssize_t LIBUSB_CALL libusb_get_device_list(libusb_context* /*context*/, libusb_device*** list)
{
    *list = new libusb_device*[s_panels.size()];
    std::transform(s_panels.begin(), s_panels.end(), *list, [](libusb_device& panel) { return &panel; });
    return static_cast<ssize_t>(s_panels.size());
}

void LIBUSB_CALL libusb_free_device_list(libusb_device** list, int /*unreference*/)
{
    delete[] list;
}

libusb_device* LIBUSB_CALL libusb_ref_device(libusb_device* device)
{
    return device;
}

void LIBUSB_CALL libusb_unref_device(libusb_device* /*device*/) {}

int LIBUSB_CALL libusb_get_device_descriptor(libusb_device* /*device*/, libusb_device_descriptor* descriptor)
{
    descriptor->idVendor = PanelLink::developmentVendorId;
    descriptor->idProduct = PanelLink::productId;
    return 0;
}

std::uint8_t LIBUSB_CALL libusb_get_bus_number(libusb_device* /*device*/)
{
    return 1;
}

std::uint8_t LIBUSB_CALL libusb_get_port_number(libusb_device* device)
{
    return device->port;
}

int LIBUSB_CALL libusb_get_port_numbers(libusb_device* device, std::uint8_t* ports, int /*size*/)
{
    ports[0] = device->port;
    return 1;
}

int LIBUSB_CALL libusb_open(libusb_device* device, libusb_device_handle** handle)
{
    *handle = new libusb_device_handle{device};
    return 0;
}

void LIBUSB_CALL libusb_close(libusb_device_handle* handle)
{
    delete handle;
}

int LIBUSB_CALL libusb_set_auto_detach_kernel_driver(libusb_device_handle* /*handle*/, int /*enable*/)
{
    return 0;
}

int LIBUSB_CALL libusb_kernel_driver_active(libusb_device_handle* /*handle*/, int /*number*/)
{
    return 0;
}

int LIBUSB_CALL libusb_claim_interface(libusb_device_handle* /*handle*/, int /*number*/)
{
    return 0;
}

int LIBUSB_CALL libusb_release_interface(libusb_device_handle* /*handle*/, int /*number*/)
{
    return 0;
}

int LIBUSB_CALL libusb_clear_halt(libusb_device_handle* /*handle*/, unsigned char /*endpoint*/)
{
    return 0;
}

libusb_transfer* LIBUSB_CALL libusb_alloc_transfer(int /*packets*/)
{
    return static_cast<libusb_transfer*>(std::calloc(1, sizeof(libusb_transfer)));
}

void LIBUSB_CALL libusb_free_transfer(libusb_transfer* transfer)
{
    std::free(transfer);
}

int LIBUSB_CALL libusb_submit_transfer(libusb_transfer* transfer)
{
    const Change change;
    if (isRead(*transfer)) {
        libusb_device& panel = *transfer->dev_handle->device;
        panel.read = transfer;
        answer(panel);
    } else if (s_holds) {
        s_held.push_back(transfer);
    } else {
        complete(transfer, LIBUSB_TRANSFER_COMPLETED, transfer->length);
    }
    return 0;
}

int LIBUSB_CALL libusb_cancel_transfer(libusb_transfer* transfer)
{
    const Change change;
    libusb_device* const panel = transfer->dev_handle != nullptr ? transfer->dev_handle->device : nullptr;
    if (panel == nullptr || panel->read != transfer)
        return LIBUSB_ERROR_NOT_FOUND;
    panel->read = nullptr;
    complete(transfer, LIBUSB_TRANSFER_CANCELLED, 0);
    return 0;
}

void LIBUSB_CALL libusb_interrupt_event_handler(libusb_context* /*context*/)
{
    const Change change;
    s_isInterrupted = true;
}

int LIBUSB_CALL libusb_handle_events_timeout_completed(libusb_context* /*context*/, timeval* timeout,
                                                       int* /*completed*/)
{
    static std::vector<libusb_transfer*> s_batch; // of whoever runs the events, one thread at a time
    {
        std::unique_lock<std::mutex> lock(s_mutex);
        s_hasEvents.wait_for(lock, std::chrono::seconds(timeout->tv_sec) + std::chrono::microseconds(timeout->tv_usec),
                             [] { return !s_completed.empty() || s_isInterrupted; });
        s_isInterrupted = false;
        s_batch.swap(s_completed);
    }
    for (libusb_transfer* const transfer : s_batch) {
        const bool wasSend = !isRead(*transfer); // the callback may fill it anew
        transfer->callback(transfer);
        if (wasSend)
            s_sent.add(1);
    }
    s_batch.clear();
    return 0;
}
