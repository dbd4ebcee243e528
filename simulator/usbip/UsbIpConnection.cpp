#include "simulator/usbip/UsbIpConnection.h"

#include "simulator/bus/PanelRack.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Vantor {

namespace {

constexpr std::size_t readSize = 65536;

// As long as the kernel leaves that much unread, nothing more is taken from it.
constexpr std::size_t enoughOutput = std::size_t{1} << 20;

bool isLater(int error)
{
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

} // namespace

UsbIpConnection::UsbIpConnection(PanelRack& rack, unsigned int number)
    : BusPanel(rack, number), m_usbIp(servedModel(), rack.tapLink())
{}

UsbIpConnection::~UsbIpConnection()
{
    if (m_socket >= 0)
        close(m_socket);
}

void UsbIpConnection::plug(KernelPorts& ports, std::optional<unsigned int> preferredPort)
{
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        throw std::system_error(errno, std::generic_category(), "socketpair");
    m_socket = ends[0];
    try {
        m_port = ports.attach(ends[1], preferredPort);
    } catch (...) {
        close(ends[1]);
        throw;
    }
    close(ends[1]);
}

// What the panel has said before that still arrives.
void UsbIpConnection::unplug()
{
    if (!getModel().isUnplugged())
        static_cast<void>(send());
    close(m_socket);
    m_socket = -1;
    act([](PanelModel& model) { model.unplug(); });
}

short UsbIpConnection::getEvents() const
{
    return static_cast<short>((m_output.size() < enoughOutput ? POLLIN : 0) | (m_output.empty() ? 0 : POLLOUT));
}

bool UsbIpConnection::serve()
{
    return receive() && send();
}

// Once: whoever else waits has a turn.
bool UsbIpConnection::receive()
{
    if ((getEvents() & POLLIN) == 0)
        return true;
    std::array<std::uint8_t, readSize> buffer;
    const ssize_t size = recv(m_socket, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (size == 0)
        return end("the kernel has let go of it");
    if (size < 0)
        return isLater(errno) || end("the connection to the kernel: " + std::generic_category().message(errno));
    bool isUnderstood = false;
    act([this, &buffer, size, &isUnderstood](PanelModel& /*model*/) {
        isUnderstood = m_usbIp.receive(buffer.data(), static_cast<std::size_t>(size));
    });
    return isUnderstood || end("the kernel sent " + m_usbIp.getError());
}

bool UsbIpConnection::send()
{
    std::size_t sent = 0;
    ssize_t size = 0;
    while (size >= 0 && sent < m_output.size()) {
        size = ::send(m_socket, m_output.data() + sent, m_output.size() - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (size < 0 && !isLater(errno))
            return end("the connection to the kernel: " + std::generic_category().message(errno));
        sent += size > 0 ? static_cast<std::size_t>(size) : 0;
    }
    m_output.erase(m_output.begin(), m_output.begin() + static_cast<std::ptrdiff_t>(sent));
    return true;
}

bool UsbIpConnection::end(const std::string& reason)
{
    m_reason = reason;
    return false;
}

void UsbIpConnection::handOn(PanelModel& /*model*/)
{
    m_usbIp.settle();
    const std::vector<std::uint8_t> output = m_usbIp.takeOutput();
    m_output.insert(m_output.end(), output.begin(), output.end());
    if (isConfigured() != m_wasConfigured)
        log(isConfigured() ? "configured" : "no longer configured");
    m_wasConfigured = isConfigured();
}

} // namespace Vantor
