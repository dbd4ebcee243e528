#include "simulator/usbfs/UsbfsFile.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <utility>

#include <linux/usb/ch9.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

namespace Vantor {

namespace {

constexpr std::uint32_t longestTransfer = 16 * 1024 * 1024; // the kernel's own limit for all of usbfs

} // namespace

bool UsbfsFile::Urb::isIn() const
{
    return (endpoint & USB_DIR_IN) != 0;
}

bool UsbfsFile::Urb::isContinuation() const
{
    return (flags & USBDEVFS_URB_BULK_CONTINUATION) != 0;
}

LinkTap::Transfer UsbfsFile::Urb::describe() const
{
    return {static_cast<std::uint32_t>(id), endpoint, flags, length, std::nullopt};
}

UsbfsFile::UsbfsFile(PanelModel& model, ControlEndpoint& control, const LinkTap& tap, std::uint32_t capabilities,
                     PanelModel::UrbId& lastUrb)
    : m_model(model), m_control(control), m_tap(tap), m_capabilities(capabilities), m_lastUrb(lastUrb)
{}

// A kernel kills what a closed file has left.
UsbfsFile::~UsbfsFile()
{
    m_model.closeOwner(this);
    for (const auto& [id, urb] : m_pending)
        m_tap.complete(urb.describe(), -ENOENT, 0, {});
    for (const auto& [endpoint, held] : m_held)
        for (const Urb& urb : held)
            m_tap.complete(urb.describe(), -ENOENT, 0, {});
}

int UsbfsFile::handle(unsigned long request, const ClientMemory& argument)
{
    if (request == USBDEVFS_REAPURB || request == USBDEVFS_REAPURBNDELAY)
        return reap(argument);
    if (!m_connected)
        return -ENODEV;

    switch (request) {
    case USBDEVFS_GET_CAPABILITIES:
        argument.follow(0, sizeof m_capabilities).write(0, m_capabilities);
        return 0;
    case USBDEVFS_CLAIMINTERFACE:
        return m_model.claimInterface(this, argument.follow(0, sizeof(unsigned int)).read<unsigned int>());
    case USBDEVFS_DISCONNECT_CLAIM:
        return m_model.claimInterface(this, argument.follow(0, sizeof(usbdevfs_disconnect_claim))
                                                .read<unsigned int>(offsetof(usbdevfs_disconnect_claim, interface)));
    case USBDEVFS_RELEASEINTERFACE:
        return m_model.releaseInterface(this, argument.follow(0, sizeof(unsigned int)).read<unsigned int>());
    case USBDEVFS_CLEAR_HALT:
        return clearHalt(static_cast<std::uint8_t>(argument.follow(0, sizeof(unsigned int)).read<unsigned int>()));
    case USBDEVFS_GETDRIVER:
        return -ENODATA; // no kernel driver is ever bound
    case USBDEVFS_IOCTL: // binding one finds none, unbinding has nothing to do
        return argument.follow(0, sizeof(usbdevfs_ioctl)).read<int>(offsetof(usbdevfs_ioctl, ioctl_code)) ==
                       static_cast<int>(USBDEVFS_CONNECT)
                   ? 0
                   : -ENODATA;
    case USBDEVFS_SETCONFIGURATION:
        return setConfiguration(argument);
    case USBDEVFS_SETINTERFACE:
        return setInterface(argument);
    case USBDEVFS_RESET:
        return 0;
    case USBDEVFS_SUBMITURB:
        return submit(argument);
    case USBDEVFS_DISCARDURB:
        return discard(argument.read<std::uintptr_t>());
    default:
        return -ENOTTY;
    }
}

int UsbfsFile::clearHalt(std::uint8_t endpoint)
{
    const int result = m_model.clearHalt(endpoint);
    if (result == 0)
        tellRequest({USB_RECIP_ENDPOINT, USB_REQ_CLEAR_FEATURE, USB_ENDPOINT_HALT, 0, endpoint, 0, 0, 0});
    return result;
}

int UsbfsFile::setInterface(const ClientMemory& argument)
{
    const auto wanted = argument.follow(0, sizeof(usbdevfs_setinterface)).read<usbdevfs_setinterface>();
    tellRequest({USB_RECIP_INTERFACE, USB_REQ_SET_INTERFACE, static_cast<std::uint8_t>(wanted.altsetting), 0,
                 static_cast<std::uint8_t>(wanted.interface), 0, 0, 0});
    return 0;
}

int UsbfsFile::setConfiguration(const ClientMemory& argument)
{
    const auto wanted = argument.follow(0, sizeof(unsigned int)).read<unsigned int>();
    tellRequest({USB_RECIP_DEVICE, USB_REQ_SET_CONFIGURATION, static_cast<std::uint8_t>(wanted), 0, 0, 0, 0, 0});
    return 0;
}

// The request that a kernel makes of an ioctl.
void UsbfsFile::tellRequest(const ControlEndpoint::Setup& setup)
{
    m_tap.exchange(static_cast<std::uint32_t>(++m_lastUrb), setup, {}, {0, {}});
}

int UsbfsFile::submit(const ClientMemory& argument)
{
    const ClientMemory memory = argument.follow(0, sizeof(usbdevfs_urb));
    const auto request = memory.read<usbdevfs_urb>();
    const auto length = static_cast<std::uint32_t>(request.buffer_length);
    if (request.buffer_length < 0 || length > longestTransfer)
        return -EINVAL;
    Urb urb{memory, request.endpoint, request.flags, length, ++m_lastUrb, {}};

    if (request.type == USBDEVFS_URB_TYPE_CONTROL && length >= ControlEndpoint::setupSize) {
        const ClientMemory buffer = memory.follow(offsetof(usbdevfs_urb, buffer), length);
        const auto setup = buffer.read<ControlEndpoint::Setup>();
        const std::size_t wanted = static_cast<std::size_t>(setup[6] | setup[7] << 8);
        if ((setup[0] & USB_DIR_IN) == 0)
            urb.data = buffer.readBytes(setup.size(), std::min(wanted, length - setup.size()));
        return submitControl(std::move(urb), setup);
    }
    if (request.type != USBDEVFS_URB_TYPE_BULK)
        return -EINVAL;
    if (!urb.isIn() && length > 0)
        urb.data = memory.follow(offsetof(usbdevfs_urb, buffer), length).readBytes(0, length);
    return submitBulk(std::move(urb));
}

int UsbfsFile::submitControl(Urb urb, const ControlEndpoint::Setup& setup)
{
    ControlEndpoint::Answer answer = m_control.answer(setup);
    m_tap.exchange(static_cast<std::uint32_t>(urb.id), setup, urb.data, answer);
    urb.actualLength = static_cast<std::uint32_t>(answer.data.size());
    urb.data = std::move(answer.data);
    urb.dataOffset = ControlEndpoint::setupSize;
    finish(std::move(urb), answer.status);
    return 0;
}

int UsbfsFile::submitBulk(Urb urb)
{
    const std::uint8_t endpoint = urb.endpoint;
    const LinkTap::Transfer transfer = urb.describe();
    const std::vector<std::uint8_t> data = m_tap.isOpen() ? urb.data : std::vector<std::uint8_t>();
    if (!urb.isContinuation()) {
        m_broken.erase(endpoint);
    } else if (m_broken.count(endpoint) != 0) {
        // The kernel refuses it. But on a real bus a program has submitted all pieces
        // long before the first can fail, and this one is quicker than any program.
        m_tap.submit(transfer, data);
        giveBack(std::move(urb), -ECONNRESET);
        return 0;
    }
    // What is refused has not been submitted; what is taken completes later than here.
    const int result = startOrHold(std::move(urb));
    if (result == 0)
        m_tap.submit(transfer, data);
    return result;
}

int UsbfsFile::startOrHold(Urb urb)
{
    std::deque<Urb>& held = m_held[urb.endpoint];
    if (held.empty() && !(urb.isContinuation() && isPending(urb.endpoint)))
        return start(urb);
    held.push_back(std::move(urb));
    return 0;
}

// Takes the URB over if it succeeds.
int UsbfsFile::start(Urb& urb)
{
    const PanelModel::UrbId id = urb.id;
    const int result = urb.isIn() ? m_model.submitIn(this, id, urb.length)
                                  : m_model.submitOut(this, id, std::exchange(urb.data, {}),
                                                      (urb.flags & USBDEVFS_URB_ZERO_PACKET) != 0);
    if (result == 0)
        m_pending.emplace(id, std::move(urb));
    return result;
}

int UsbfsFile::discard(std::uintptr_t address)
{
    const auto isIt = [address](const Urb& urb) { return urb.memory.getAddress() == address; };
    for (auto& [endpoint, held] : m_held) {
        const auto found = std::find_if(held.begin(), held.end(), isIt);
        if (found == held.end())
            continue;
        Urb urb = std::move(*found);
        held.erase(found);
        giveBack(std::move(urb), -ENOENT);
        return 0;
    }
    const auto found =
        std::find_if(m_pending.begin(), m_pending.end(), [&isIt](const auto& entry) { return isIt(entry.second); });
    return found != m_pending.end() && m_model.cancel(found->first) ? 0 : -EINVAL;
}

bool UsbfsFile::complete(const PanelModel::Completion& completion)
{
    const auto found = m_pending.find(completion.urb);
    if (found == m_pending.end())
        return false;
    Urb urb = std::move(found->second);
    m_pending.erase(found);
    const std::uint8_t endpoint = urb.endpoint;
    const bool whole = completion.actualLength == urb.length;
    const bool cancelled = completion.status == -ENOENT;
    const bool tooShort = completion.status == 0 && !whole && (urb.flags & USBDEVFS_URB_SHORT_NOT_OK) != 0;

    urb.actualLength = completion.actualLength;
    urb.data = completion.data;
    giveBack(std::move(urb), tooShort ? -EREMOTEIO : completion.status);
    if (!cancelled && (completion.status != 0 || !whole))
        breakOff(endpoint);
    goOn(endpoint);
    return true;
}

// Gives back the continuations of a transfer that has failed.
void UsbfsFile::breakOff(std::uint8_t endpoint)
{
    std::deque<Urb>& held = m_held[endpoint];
    while (!held.empty() && held.front().isContinuation()) {
        Urb urb = std::move(held.front());
        held.pop_front();
        giveBack(std::move(urb), -ECONNRESET);
    }
    if (held.empty())
        m_broken.insert(endpoint);
    if ((endpoint & USB_DIR_IN) == 0)
        m_model.breakOffOut();
}

// Starts what has waited for the URB that is done.
void UsbfsFile::goOn(std::uint8_t endpoint)
{
    std::deque<Urb>& held = m_held[endpoint];
    while (!held.empty() && !(held.front().isContinuation() && isPending(endpoint))) {
        Urb urb = std::move(held.front());
        held.pop_front();
        if (const int result = start(urb); result != 0)
            giveBack(std::move(urb), result);
    }
}

bool UsbfsFile::isPending(std::uint8_t endpoint) const
{
    return std::any_of(m_pending.begin(), m_pending.end(),
                       [endpoint](const auto& entry) { return entry.second.endpoint == endpoint; });
}

void UsbfsFile::giveBack(Urb urb, int status)
{
    m_tap.complete(urb.describe(), status, urb.actualLength, urb.data);
    finish(std::move(urb), status);
}

void UsbfsFile::finish(Urb urb, int status)
{
    urb.status = status;
    m_done.push_back(std::move(urb));
}

int UsbfsFile::reap(const ClientMemory& argument)
{
    if (m_done.empty())
        return m_connected || !m_pending.empty() ? -EAGAIN : -ENODEV;
    Urb urb = std::move(m_done.front());
    m_done.pop_front();
    if (!urb.data.empty())
        urb.memory.follow(offsetof(usbdevfs_urb, buffer), urb.dataOffset + urb.data.size())
            .writeBytes(urb.dataOffset, urb.data.data(), urb.data.size());
    urb.memory.write(offsetof(usbdevfs_urb, status), urb.status);
    urb.memory.write(offsetof(usbdevfs_urb, actual_length), static_cast<int>(urb.actualLength));
    argument.follow(0, sizeof(void*)).point(0, urb.memory);
    return 0;
}

void UsbfsFile::disconnect()
{
    m_connected = false;
}

} // namespace Vantor
