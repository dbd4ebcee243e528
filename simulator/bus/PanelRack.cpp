#include "simulator/bus/PanelRack.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace Vantor {

namespace {

std::string withNumber(unsigned int panel, const std::string& line)
{
    return "panel " + std::to_string(panel) + ": " + line;
}

void append(const BusPanel& panel, std::vector<std::string>& lines)
{
    for (const std::string& violation : panel.getModel().getViolations())
        lines.push_back(withNumber(panel.getNumber(), violation));
}

// What is left of a repeated emission.
bool isBegun(const PanelOrder& order)
{
    const auto* const emission = std::get_if<EmitOrder>(&order);
    return emission != nullptr && emission->isBegun;
}

// Whether a panel that is not plugged is worth a complaint: a fault that meets nobody and
// an emission by nobody are somebody's mistake; a panel that leaves within a repeated
// emission, or with faults, is not.
bool needsPanel(const PanelOrder& order)
{
    return !isBegun(order) && !std::holds_alternative<ClearFaultsOrder>(order);
}

struct Deed {
    PanelModel& model;

    void operator()(const FaultOrder& order) const { model.inject(order.fault); }
    void operator()(const BootFaultOrder& order) const { model.inject(order.fault); }
    void operator()(const ClearFaultsOrder& /*order*/) const { model.clearFaults(); }
    void operator()(const EmitOrder& order) const { model.emit(order.type, order.payload); }
    void operator()(const EmitRawOrder& order) const { model.emitRaw(order.bytes); }
    void operator()(const PlugOrder& /*order*/) const {}
    void operator()(const UnplugOrder& /*order*/) const {}
};

} // namespace

PanelModel::Clock PanelRack::startClock()
{
    const auto start = std::chrono::steady_clock::now();
    return [start] { return std::chrono::steady_clock::now() - start; };
}

PanelRack::PanelRack(PanelBus::Options options, PanelModel::Clock clock)
    : m_options(std::move(options)), m_clock(std::move(clock))
{}

void PanelRack::keepFlash(const BusPanel& panel) const
{
    if (m_options.keepFlash)
        m_options.keepFlash(panel.getNumber(), panel.getModel().getBootLoader().getFlash());
}

PanelModel PanelRack::makeModel(unsigned int panel)
{
    PanelModel::Options options = m_options.panel;
    options.seed += panel;
    if (m_options.script)
        m_options.script->prepare(panel, options);
    auto flash = m_flash.extract(panel);
    BusPanel* const last = findLast(panel);
    if (flash)
        return {std::move(options), m_clock, std::move(flash.mapped())};
    return {std::move(options), m_clock, last != nullptr ? last->takeFlash() : BootLoader::Flash{}};
}

void PanelRack::enter(BusPanel& panel)
{
    m_panels.push_back(&panel);
    if (m_options.watcher != nullptr)
        m_options.watcher->onPlugged(panel.getNumber(), panel.getModel());
}

void PanelRack::tellUnplug(unsigned int panel) const
{
    log(panel, "unplug");
    if (m_options.watcher != nullptr)
        m_options.watcher->onUnplugged(panel);
}

void PanelRack::leave(BusPanel& panel)
{
    if (findLast(panel.getNumber()) == &panel) { // nobody has it yet
        setFlash(panel.getNumber(), panel.takeFlash());
        if (m_options.watcher != nullptr)
            m_options.watcher->onUnplugged(panel.getNumber());
    }
    m_panels.erase(std::find(m_panels.begin(), m_panels.end(), &panel));

    // Of all together no more lines than one panel has.
    append(panel, m_pastViolations);
    if (m_pastViolations.size() <= PanelModel::maxViolations)
        return;
    m_pastViolations.resize(PanelModel::maxViolations);
    m_pastViolations.emplace_back("further violations of panels that were plugged back are not listed");
}

LinkTap PanelRack::tapLink(std::optional<LinkTap::Address> address)
{
    // A bus has devices 1 to 127, the first of them being its root hub.
    constexpr std::uint32_t firstDevice = 2;
    constexpr std::uint32_t devices = 126;
    const std::uint32_t plug = m_plugs++;
    const LinkTap::Address chosen{1, static_cast<std::uint8_t>(firstDevice + plug % devices)};
    return {m_options.record, address.value_or(chosen), plug + 1};
}

std::vector<std::string> PanelRack::getViolations() const
{
    std::vector<std::string> violations = m_pastViolations;
    for (const BusPanel* const panel : m_panels)
        append(*panel, violations);
    return violations;
}

bool PanelRack::canPlug(unsigned int panel) const
{
    if (panel >= PanelBus::maxPanels)
        complain(panel, "has no port");
    else if (isPlugged(panel))
        complain(panel, "is plugged already");
    else
        return true;
    return false;
}

bool PanelRack::canUnplug(unsigned int panel) const
{
    if (!isPlugged(panel))
        complain(panel, "is not plugged");
    return isPlugged(panel);
}

bool PanelRack::plugOrUnplug(PanelBus& bus, const PanelOrder& order)
{
    if (const auto* const plugIn = std::get_if<PlugOrder>(&order))
        bus.plug(plugIn->panel);
    else if (const auto* const pullOut = std::get_if<UnplugOrder>(&order))
        bus.unplug(pullOut->panel);
    else
        return false;
    return true;
}

void PanelRack::execute(const PanelOrder& order)
{
    const unsigned int panel = panelOf(order);
    const std::string line = describe(order);
    if (isPlugged(panel)) {
        log(panel, line);
        findLast(panel)->act([&order](PanelModel& model) { std::visit(Deed{model}, order); });
    } else if (needsPanel(order)) {
        complain(panel, "is not plugged: " + line);
    } else {
        log(panel, "is not plugged: " + line);
    }

    const auto* const emission = std::get_if<EmitOrder>(&order);
    if (emission == nullptr || emission->count <= 1)
        return;
    EmitOrder rest = *emission;
    --rest.count;
    rest.isBegun = true;
    schedule(rest.every, rest);
}

void PanelRack::schedule(std::chrono::nanoseconds delay, const PanelOrder& order)
{
    m_orders.emplace(m_clock() + delay, TimedOrder{delay, order});
}

std::vector<TimedOrder> PanelRack::takePending()
{
    std::vector<TimedOrder> pending;
    for (const auto& [due, timed] : std::exchange(m_orders, {}))
        if (!isBegun(timed.order))
            pending.push_back(timed);
    return pending;
}

std::optional<PanelOrder> PanelRack::takeDue()
{
    if (m_orders.empty() || m_orders.begin()->first > m_clock())
        return m_options.script ? m_options.script->takeDue(m_clock()) : std::nullopt;
    return m_orders.extract(m_orders.begin()).mapped().order;
}

std::optional<std::chrono::nanoseconds> PanelRack::getNextTime() const
{
    auto next = m_orders.empty() ? std::nullopt : std::optional(m_orders.begin()->first);
    for (const BusPanel* const panel : m_panels) {
        const auto deadline = panel->getModel().nextDeadline();
        if (deadline && (!next || *deadline < *next))
            next = deadline;
    }
    const auto scripted = m_options.script ? m_options.script->getNextTime() : std::nullopt;
    return scripted && (!next || *scripted < *next) ? scripted : next;
}

void PanelRack::settle() const
{
    for (BusPanel* const panel : m_panels)
        panel->settle();
}

bool PanelRack::visit(unsigned int panel, const std::function<void(PanelModel&)>& visitor) const
{
    BusPanel* const last = findLast(panel);
    if (last != nullptr)
        last->act(visitor);
    return last != nullptr;
}

BusPanel* PanelRack::findLast(unsigned int panel) const
{
    const auto found = std::find_if(m_panels.rbegin(), m_panels.rend(),
                                    [panel](const BusPanel* known) { return known->getNumber() == panel; });
    return found != m_panels.rend() ? *found : nullptr;
}

bool PanelRack::isPlugged(unsigned int panel) const
{
    const BusPanel* const last = findLast(panel);
    return last != nullptr && last->isPlugged();
}

void PanelRack::attempt(unsigned int panel, const std::function<void()>& action) const
{
    try {
        action();
    } catch (const std::exception& error) {
        complain(panel, error.what());
    }
}

void PanelRack::logOrder(const PanelOrder& order) const
{
    if ((!isLogged() && m_options.watcher == nullptr) || isBegun(order))
        return;
    const std::string line = formatPanelOrder(order);
    if (isLogged())
        m_options.log("order: " + line);
    if (m_options.watcher != nullptr)
        m_options.watcher->onOrder(line);
}

void PanelRack::observe(unsigned int panel, const PanelModel::Record& record) const
{
    if (isObserved())
        m_options.observeRecord(panel, record);
}

void PanelRack::log(unsigned int panel, const std::string& line) const
{
    if (isLogged())
        m_options.log(withNumber(panel, line));
}

void PanelRack::complain(unsigned int panel, const std::string& line) const
{
    log(panel, line);
    if (m_options.complain)
        m_options.complain(withNumber(panel, line));
}

} // namespace Vantor
