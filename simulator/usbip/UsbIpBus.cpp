#include "simulator/usbip/UsbIpBus.h"

#include "simulator/bus/OrderExecution.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <exception>
#include <system_error>
#include <utility>

namespace Vantor {

namespace {

PanelModel::Clock startClock()
{
    const auto start = std::chrono::steady_clock::now();
    return [start] { return std::chrono::steady_clock::now() - start; };
}

} // namespace

UsbIpBus::UsbIpBus(Options options, KernelPorts& ports)
    : m_options(std::move(options)), m_ports(ports), m_clock(startClock())
{}

UsbIpBus::~UsbIpBus() = default;

void UsbIpBus::setFlash(unsigned int panel, BootLoader::Flash flash)
{
    m_flash[panel] = std::move(flash);
}

BootLoader::Flash UsbIpBus::takeFlash(unsigned int panel)
{
    if (auto set = m_flash.extract(panel))
        return std::move(set.mapped());
    UsbIpConnection* const last = findLast(panel);
    return last != nullptr ? last->getModel().takeFlash() : BootLoader::Flash{};
}

void UsbIpBus::plug(unsigned int panel)
{
    if (panel >= maxPanels)
        return complain(panel, "has no port");
    if (findPlugged(panel) != nullptr)
        return complain(panel, "is plugged already");
    const UsbIpConnection* const last = findLast(panel);
    const auto port = last != nullptr ? std::optional(last->getPort()) : std::nullopt;
    PanelModel::Options options = m_options.panel;
    options.seed += panel;
    auto plugged = std::make_unique<UsbIpConnection>(panel, std::move(options), m_clock, takeFlash(panel),
                                                     [this, panel](const std::string& line) { log(panel, line); });
    plugged->plug(m_ports, port);
    tell(panel, "attached at vhci port " + std::to_string(plugged->getPort()));
    forgetLast(panel);
    m_panels.push_back(std::move(plugged));
}

void UsbIpBus::forgetLast(unsigned int panel)
{
    const auto last = std::find_if(m_panels.begin(), m_panels.end(),
                                   [panel](const auto& known) { return known->getNumber() == panel; });
    if (last == m_panels.end())
        return;
    m_pastViolations.keep(panel, (*last)->getModel());
    m_panels.erase(last);
}

void UsbIpBus::unplug(unsigned int panel)
{
    UsbIpConnection* const plugged = findPlugged(panel);
    if (plugged == nullptr)
        return complain(panel, "is not plugged");
    remove(*plugged);
}

void UsbIpBus::unplugAll()
{
    for (const auto& panel : m_panels)
        if (panel->isPlugged())
            attempt(panel->getNumber(), [this, &panel] { remove(*panel); });
}

// Waits for the port, so that the panel finds it free when it comes back at once.
void UsbIpBus::remove(UsbIpConnection& panel)
{
    log(panel.getNumber(), "unplug");
    panel.unplug();
    m_ports.awaitFree(panel.getPort());
    if (m_options.keepFlash)
        m_options.keepFlash(panel.getNumber(), panel.getModel().getBootLoader().getFlash());
}

void UsbIpBus::execute(const PanelOrder& command)
{
    if (const auto* const plugIn = std::get_if<PlugOrder>(&command))
        plug(plugIn->panel);
    else if (const auto* const pullOut = std::get_if<UnplugOrder>(&command))
        unplug(pullOut->panel);
    else
        apply(command);
}

void UsbIpBus::apply(const PanelOrder& command)
{
    const unsigned int panel = OrderExecution::panelOf(command);
    const std::string line = OrderExecution::describe(command);
    UsbIpConnection* const plugged = findPlugged(panel);
    if (plugged != nullptr) {
        log(panel, line);
        OrderExecution::carryOut(command, plugged->getModel());
        plugged->settle();
    } else if (OrderExecution::needsPanel(command)) {
        complain(panel, "is not plugged: " + line);
    } else {
        log(panel, "is not plugged: " + line);
    }
    if (const auto rest = OrderExecution::restOf(command))
        schedule(rest->every, *rest);
}

void UsbIpBus::schedule(std::chrono::nanoseconds delay, const PanelOrder& command)
{
    m_timeline.add(m_clock() + delay, command);
}

bool UsbIpBus::visit(unsigned int panel, const std::function<void(PanelModel&)>& visitor)
{
    UsbIpConnection* const last = findLast(panel);
    if (last == nullptr)
        return false;
    visitor(last->getModel());
    last->settle();
    return true;
}

std::vector<std::string> UsbIpBus::getViolations() const
{
    std::vector<std::string> violations = m_pastViolations.getLines();
    for (const auto& panel : m_panels)
        PastViolations::append(panel->getNumber(), panel->getModel(), violations);
    return violations;
}

void UsbIpBus::serve(std::vector<pollfd>& others)
{
    executeDue();
    std::vector<pollfd> descriptors = others;
    std::vector<UsbIpConnection*> panels;
    for (const auto& panel : m_panels) {
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
    const auto next = getNextTime();
    if (next) {
        const auto left = std::max(*next - m_clock(), std::chrono::nanoseconds(0));
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        timeout.tv_sec = static_cast<std::time_t>(seconds.count());
        timeout.tv_nsec = static_cast<long>((left - seconds).count());
    }
    if (ppoll(descriptors.data(), descriptors.size(), next ? &timeout : nullptr, nullptr) < 0 && errno != EINTR)
        throw std::system_error(errno, std::generic_category(), "ppoll");
}

std::optional<std::chrono::nanoseconds> UsbIpBus::getNextTime() const
{
    auto next = m_timeline.getNextTime();
    for (const auto& panel : m_panels) {
        const auto deadline = panel->isPlugged() ? panel->getModel().nextDeadline() : std::nullopt;
        if (deadline && (!next || *deadline < *next))
            next = deadline;
    }
    return next;
}

void UsbIpBus::executeDue()
{
    while (const auto command = m_timeline.takeDue(m_clock()))
        attempt(OrderExecution::panelOf(*command), [this, &command] { execute(*command); });
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
        complain(panel.getNumber(), panel.getReason());
    if (!isThere || panel.getModel().isUnplugged())
        attempt(panel.getNumber(), [this, &panel] { remove(panel); });
}

void UsbIpBus::greet(const UsbIpConnection& panel) const
{
    const std::string device = m_ports.findDevice(panel.getPort());
    tell(panel.getNumber(), "found by the kernel" + (device.empty() ? "" : ", which calls it " + device));
}

// There is nobody to throw to.
void UsbIpBus::attempt(unsigned int panel, const std::function<void()>& action) const
{
    try {
        action();
    } catch (const std::exception& error) {
        complain(panel, error.what());
    }
}

UsbIpConnection* UsbIpBus::findPlugged(unsigned int panel) const
{
    UsbIpConnection* const last = findLast(panel);
    return last != nullptr && last->isPlugged() ? last : nullptr;
}

// Plugged in last under this number.
UsbIpConnection* UsbIpBus::findLast(unsigned int panel) const
{
    const auto found = std::find_if(m_panels.begin(), m_panels.end(),
                                    [panel](const auto& known) { return known->getNumber() == panel; });
    return found != m_panels.end() ? found->get() : nullptr;
}

void UsbIpBus::complain(unsigned int panel, const std::string& line) const
{
    log(panel, line);
    if (m_options.complain)
        m_options.complain("panel " + std::to_string(panel) + ": " + line);
}

void UsbIpBus::tell(unsigned int panel, const std::string& line) const
{
    log(panel, line);
    if (m_options.tell)
        m_options.tell("panel " + std::to_string(panel) + ": " + line);
}

void UsbIpBus::log(unsigned int panel, const std::string& line) const
{
    if (m_options.log)
        m_options.log("panel " + std::to_string(panel) + ": " + line);
}

} // namespace Vantor
