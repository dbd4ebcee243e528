#include "simulator/usbip/UsbIpBus.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <system_error>
#include <utility>

namespace Vantor {

UsbIpBus::UsbIpBus(Options options, KernelPorts& ports)
    : m_tell(std::move(options.tell)), m_ports(ports), m_rack(std::move(options))
{}

UsbIpBus::~UsbIpBus() = default;

void UsbIpBus::plug(unsigned int panel)
{
    if (!m_rack.canPlug(panel))
        return;
    const auto last = m_panels.find(panel);
    const auto port = last != m_panels.end() ? std::optional(last->second->getPort()) : std::nullopt;
    auto plugged = std::make_unique<UsbIpConnection>(m_rack, panel);
    plugged->plug(m_ports, port);
    tell(panel, "attached at vhci port " + std::to_string(plugged->getPort()));
    m_panels[panel] = std::move(plugged);
}

void UsbIpBus::unplug(unsigned int panel)
{
    if (m_rack.canUnplug(panel))
        remove(*m_panels.at(panel));
}

void UsbIpBus::unplugAll()
{
    for (const auto& [number, panel] : m_panels)
        if (panel->isPlugged())
            m_rack.attempt(number, [this, &plugged = *panel] { remove(plugged); });
}

// Waits for the port, so that the panel finds it free when it comes back at once.
void UsbIpBus::remove(UsbIpConnection& panel)
{
    m_rack.tellUnplug(panel.getNumber());
    panel.unplug();
    m_ports.awaitFree(panel.getPort());
    m_rack.keepFlash(panel);
}

void UsbIpBus::execute(const PanelOrder& order)
{
    m_rack.logOrder(order);
    if (!PanelRack::plugOrUnplug(*this, order))
        m_rack.execute(order);
}

void UsbIpBus::serve(std::vector<pollfd>& others)
{
    while (const auto order = m_rack.takeDue())
        m_rack.attempt(panelOf(*order), [this, &order] { execute(*order); });
    std::vector<pollfd> descriptors = others;
    std::vector<UsbIpConnection*> panels;
    for (const auto& [number, panel] : m_panels) {
        if (!panel->isPlugged())
            continue;
        panels.push_back(panel.get());
        descriptors.push_back({panel->getSocket(), panel->getEvents(), 0});
    }
    wait(descriptors);
    std::copy_n(descriptors.begin(), others.size(), others.begin());
    for (std::size_t i = 0; i < panels.size(); ++i)
        attend(*panels[i], descriptors[others.size() + i].revents);
}

void UsbIpBus::wait(std::vector<pollfd>& descriptors) const
{
    timespec timeout{};
    const auto next = m_rack.getNextTime();
    if (next) {
        const auto left = std::max(*next - m_rack.now(), std::chrono::nanoseconds(0));
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        timeout.tv_sec = static_cast<std::time_t>(seconds.count());
        timeout.tv_nsec = static_cast<long>((left - seconds).count());
    }
    if (ppoll(descriptors.data(), descriptors.size(), next ? &timeout : nullptr, nullptr) < 0 && errno != EINTR)
        throw std::system_error(errno, std::generic_category(), "ppoll");
}

// Time may have come for something even if the kernel has said nothing.
void UsbIpBus::attend(UsbIpConnection& panel, short events)
{
    const bool wasConfigured = panel.isConfigured();
    panel.settle();
    const bool isThere = (events == 0 && panel.getEvents() == POLLIN) || panel.serve();
    if (!wasConfigured && panel.isConfigured())
        greet(panel);
    if (!isThere)
        m_rack.complain(panel.getNumber(), panel.getReason());
    if (!isThere || panel.getModel().isUnplugged())
        m_rack.attempt(panel.getNumber(), [this, &panel] { remove(panel); });
}

void UsbIpBus::greet(const UsbIpConnection& panel) const
{
    const std::string device = m_ports.findDevice(panel.getPort());
    tell(panel.getNumber(), "found by the kernel" + (device.empty() ? "" : ", which calls it " + device));
}

void UsbIpBus::tell(unsigned int panel, const std::string& line) const
{
    m_rack.log(panel, line);
    if (m_tell)
        m_tell("panel " + std::to_string(panel) + ": " + line);
}

} // namespace Vantor
