#include "panel2mqtt/panels/PanelEvents.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

namespace Vantor {

PanelEvents::PanelEvents() : m_signal(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (m_signal < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
}

PanelEvents::~PanelEvents()
{
    close(m_signal);
}

PanelEvents::Batch PanelEvents::take()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    eventfd_t count = 0;
    eventfd_read(m_signal, &count);
    m_records = 0;
    m_bytes = 0;
    return std::exchange(m_batch, {});
}

std::uint64_t PanelEvents::getDropped() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_dropped;
}

void PanelEvents::add(Event event)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_batch.events.push_back(std::move(event));
    eventfd_write(m_signal, 1);
}

void PanelEvents::onDeviceAdded(std::uint16_t uid)
{
    add({Event::Kind::Added, uid, {}, {}});
}

void PanelEvents::onDeviceRemoved(std::uint16_t uid)
{
    add({Event::Kind::Removed, uid, {}, {}});
}

void PanelEvents::onParsedPacket(std::uint16_t uid, const PacketType& type, const DataPacketUnion& data,
                                 unsigned int length)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        // What the panel says of itself is no flood, and nothing begins without it.
        if (type != PacketType::DeviceInformation && (m_records == mostRecords || m_bytes + length > mostBytes)) {
            ++m_dropped;
            return;
        }
        ++m_records;
        m_bytes += length;
    }
    const auto* const bytes = reinterpret_cast<const char*>(payloadOf(data));
    add({Event::Kind::Record, uid, type, std::string(bytes, length)});
}

void PanelEvents::onSendEnded(std::uint16_t uid)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_batch.sends.insert(uid);
    eventfd_write(m_signal, 1);
}

} // namespace Vantor
