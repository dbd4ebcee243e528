#include "benchmarks/link/BareLink.h"

#include "benchmarks/link/PanelPacket.h"
#include "wire/PanelLink.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace Vantor {

namespace {

constexpr unsigned int timeout = 2000; // ms, as the library's
constexpr int readSize = 32768;
constexpr std::size_t pageSize = 4096;

void require(bool good, const char* what)
{
    if (good)
        return;
    std::fprintf(stderr, "bare loop: %s has failed\n", what);
    std::_Exit(EXIT_FAILURE); // threads and transfers are under way
}

} // namespace

struct BareLink::Panel {
    Panel(BareLink& owner, libusb_device* device) : link(owner), fromPanel(readSize)
    {
        require(libusb_open(device, &handle) == 0, "open");
        require(libusb_claim_interface(handle, PanelLink::interfaceNumber) == 0, "claim");
        libusb_fill_bulk_transfer(in, handle, PanelLink::inEndpoint, fromPanel.data(), readSize, onReceived, this,
                                  timeout);
        libusb_fill_bulk_transfer(out, handle, PanelLink::outEndpoint, toPanel, 0, onSent, this, timeout);
        out->flags = LIBUSB_TRANSFER_ADD_ZERO_PACKET;
    }
    ~Panel()
    {
        libusb_release_interface(handle, PanelLink::interfaceNumber);
        libusb_close(handle);
        libusb_free_transfer(in);
        libusb_free_transfer(out);
    }
    Panel(const Panel&) = delete;
    Panel& operator=(const Panel&) = delete;

    alignas(pageSize) unsigned char toPanel[PanelPacket::limit];
    BareLink& link;
    std::vector<unsigned char> fromPanel;
    libusb_device_handle* handle = nullptr;
    libusb_transfer* in = libusb_alloc_transfer(0);
    libusb_transfer* out = libusb_alloc_transfer(0);
    std::mutex mutex; // over the send
    bool isSending = false;
};

BareLink::BareLink(Use use) : m_use(std::move(use))
{
    require(libusb_init(&m_context) == 0, "init");
    m_start = Clock::now();
    libusb_hotplug_register_callback(m_context, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED, LIBUSB_HOTPLUG_ENUMERATE,
                                     PanelLink::developmentVendorId, PanelLink::productId, LIBUSB_HOTPLUG_MATCH_ANY,
                                     onArrival, this, &m_hotplug);
    m_thread = std::thread(&BareLink::runEvents, this);
}

BareLink::~BareLink()
{
    m_ending = true;
    libusb_interrupt_event_handler(m_context);
    m_thread.join();
    libusb_hotplug_deregister_callback(m_context, m_hotplug);
    m_panels.clear();
    libusb_exit(m_context);
}

void BareLink::wake()
{
    if (!m_panels.empty())
        send(*m_panels.front());
}

int BareLink::onArrival(libusb_context* /*context*/, libusb_device* device, libusb_hotplug_event /*event*/,
                        void* userData)
{
    static_cast<BareLink*>(userData)->open(device);
    return 0;
}

void BareLink::open(libusb_device* device)
{
    m_panels.push_back(std::make_unique<Panel>(*this, device));
    submit(m_panels.back()->in);
    m_arrived.add(1);
    send(*m_panels.back());
}

void BareLink::send(Panel& panel)
{
    const std::lock_guard<std::mutex> lock(panel.mutex);
    if (!m_use.fill || panel.isSending || m_ending)
        return;
    panel.out->length = m_use.fill(panel.out->buffer);
    panel.isSending = panel.out->length != 0;
    if (panel.isSending)
        submit(panel.out);
}

void BareLink::onSent(libusb_transfer* transfer)
{
    auto& panel = *static_cast<Panel*>(transfer->user_data);
    --panel.link.m_inFlight;
    require(transfer->status == LIBUSB_TRANSFER_COMPLETED || panel.link.m_ending, "send");
    {
        const std::lock_guard<std::mutex> lock(panel.mutex);
        panel.isSending = false;
    }
    panel.link.send(panel);
    panel.link.m_sent.add(1);
}

void BareLink::onReceived(libusb_transfer* transfer)
{
    const auto& panel = *static_cast<Panel*>(transfer->user_data);
    BareLink& link = panel.link;
    --link.m_inFlight;
    if (transfer->status == LIBUSB_TRANSFER_COMPLETED && link.m_use.received)
        link.m_use.received(transfer->buffer, transfer->actual_length);
    if (!link.m_ending)
        link.submit(transfer);
}

void BareLink::submit(libusb_transfer* transfer)
{
    ++m_inFlight;
    require(libusb_submit_transfer(transfer) == 0, "submit");
}

void BareLink::runEvents()
{
    timeval patience{10, 0};
    while (!m_ending)
        libusb_handle_events_timeout_completed(m_context, &patience, nullptr);
    cancel();
    while (m_inFlight > 0)
        libusb_handle_events_timeout_completed(m_context, &patience, nullptr);
}

void BareLink::cancel()
{
    for (const auto& panel : m_panels) {
        libusb_cancel_transfer(panel->in);
        libusb_cancel_transfer(panel->out);
    }
}

} // namespace Vantor
