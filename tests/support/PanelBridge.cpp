#include "tests/support/PanelBridge.h"

#include "tests/support/VirtualClock.h"

#include <algorithm>
#include <cerrno>

namespace Vantor::Test {

namespace {

// As libusb translates what the kernel says.
int transferStatus(int error)
{
    switch (error) {
    case 0:
        return LIBUSB_TRANSFER_COMPLETED;
    case -EPIPE:
        return LIBUSB_TRANSFER_STALL;
    case -EOVERFLOW:
        return LIBUSB_TRANSFER_OVERFLOW;
    case -ESHUTDOWN:
        return LIBUSB_TRANSFER_NO_DEVICE;
    case -ENOENT:
        return LIBUSB_TRANSFER_CANCELLED;
    default:
        return LIBUSB_TRANSFER_ERROR;
    }
}

} // namespace

PanelBridge::PanelBridge(FakeLibusb& usb, libusb_device* device, PanelModel& model)
    : m_usb(usb), m_device(device), m_model(model)
{}

std::chrono::nanoseconds PanelBridge::time()
{
    return VirtualClock::now().time_since_epoch();
}

void PanelBridge::pumpUntil(std::chrono::nanoseconds end)
{
    while (!pump() && time() < end) {
        const auto next = std::min(nextDeadline().value_or(end), end);
        VirtualClock::advance(std::max(next - time(), std::chrono::nanoseconds(1)));
    }
}

// True when a completion waits for the host.
bool PanelBridge::pump()
{
    submit(FakeLibusb::outEndpoint);
    submit(FakeLibusb::inEndpoint);
    for (Pending& pending : m_pending)
        expire(pending);
    bool completed = false;
    for (const PanelModel::Completion& completion : m_model.takeCompletions())
        completed = complete(completion) || completed;
    return completed;
}

void PanelBridge::submit(std::uint8_t endpoint)
{
    for (FakeLibusb::Submission& submission : m_usb.takeSubmissions(m_device, endpoint)) {
        const PanelModel::UrbId urb = ++m_lastUrb;
        m_pending.push_back({endpoint, urb, time() + std::chrono::milliseconds(submission.timeout)});
        if (endpoint == FakeLibusb::inEndpoint) {
            m_model.submitIn(this, urb, static_cast<std::uint32_t>(submission.length));
            continue;
        }
        if (onSend)
            onSend(submission.bytes);
        m_model.submitOut(this, urb, std::move(submission.bytes),
                          (submission.flags & LIBUSB_TRANSFER_ADD_ZERO_PACKET) != 0);
    }
}

void PanelBridge::expire(Pending& pending)
{
    if (time() < pending.timeout || !m_model.cancel(pending.urb))
        return;
    m_expired.push_back(pending.urb);
}

bool PanelBridge::complete(const PanelModel::Completion& completion)
{
    const auto pending = std::find_if(m_pending.begin(), m_pending.end(),
                                      [&completion](const Pending& one) { return one.urb == completion.urb; });
    const std::uint8_t endpoint = pending->endpoint;
    m_pending.erase(pending);
    const auto expired = std::find(m_expired.begin(), m_expired.end(), completion.urb);
    if (expired != m_expired.end()) {
        m_expired.erase(expired);
        return m_usb.complete(m_device, endpoint, LIBUSB_TRANSFER_TIMED_OUT, 0);
    }
    if (endpoint == FakeLibusb::inEndpoint && completion.status == 0)
        return completeRead(completion);
    return m_usb.complete(m_device, endpoint, transferStatus(completion.status),
                          static_cast<int>(completion.actualLength));
}

bool PanelBridge::completeRead(const PanelModel::Completion& completion)
{
    Bytes bytes = completion.data;
    if (onReceive)
        onReceive(bytes);
    return m_usb.receive(m_device, bytes);
}

// When the next thing happens by time alone.
std::optional<std::chrono::nanoseconds> PanelBridge::nextDeadline() const
{
    auto deadline = m_model.nextDeadline();
    for (const Pending& pending : m_pending)
        deadline = std::min(deadline.value_or(pending.timeout), pending.timeout);
    return deadline;
}

} // namespace Vantor::Test
