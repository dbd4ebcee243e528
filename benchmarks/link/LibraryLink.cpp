#include "benchmarks/link/LibraryLink.h"

#include <utility>

namespace Vantor {

LibraryLink::LibraryLink(Use use) : m_use(std::move(use)), m_manager(UsbManager::getUsbManager())
{
    m_manager->registerObserver(this);
    m_start = Clock::now();
    m_manager->initialise();
}

LibraryLink::~LibraryLink()
{
    UsbManager::destroyUsbManager();
}

void LibraryLink::awaitPacketLimits(std::uint64_t panels)
{
    m_arrived.await(panels, "panels");
    for (const auto& panel : m_manager->getDeviceListSafe())
        panel->getPacker().addData(ReqDeviceInfo{1});
    m_informations.await(panels, "device informations");
}

std::shared_ptr<UsbDevice> LibraryLink::getPanel() const
{
    return m_manager->getDeviceListSafe().at(0);
}

void LibraryLink::onDeviceAdded(std::uint16_t uid)
{
    const auto panel = m_use.arrived ? m_manager->getDevice(uid) : nullptr;
    if (panel)
        m_use.arrived(*panel);
    m_arrived.add(1);
}

void LibraryLink::onDeviceRemoved(std::uint16_t /*uid*/) {}

void LibraryLink::onParsedPacket(std::uint16_t /*uid*/, const PacketType& type, const DataPacketUnion& /*data*/,
                                 unsigned int /*length*/)
{
    if (m_use.received)
        m_use.received(type);
    (type == PacketType::DeviceInformation ? m_informations : m_records).add(1);
}

} // namespace Vantor
