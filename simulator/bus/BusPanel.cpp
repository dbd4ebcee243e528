#include "simulator/bus/BusPanel.h"

#include "simulator/bus/PanelRack.h"
#include "simulator/bus/QuantityText.h"

#include <algorithm>
#include <vector>

namespace Vantor {

namespace {

constexpr std::size_t longestLoggedPayload = 32;

// Only the first bytes of a long one.
std::string describeRecord(const PanelModel::Record& record)
{
    std::string line = "record type " + std::to_string(static_cast<int>(record.type)) + ", " +
                       formatBytes(record.payload.size()) + ":";
    for (std::size_t i = 0; i < std::min(record.payload.size(), longestLoggedPayload); ++i)
        line += " " + formatHex(record.payload[i]);
    return record.payload.size() > longestLoggedPayload ? line + " ..." : line;
}

} // namespace

BusPanel::BusPanel(PanelRack& rack, unsigned int number)
    : m_rack(rack), m_number(number), m_model(rack.makeModel(number))
{
    BusWatcher* const watcher = rack.getWatcher();
    if (rack.isLogged() || rack.isObserved() || watcher != nullptr)
        m_model.setRecordObserver([this, watcher](const PanelModel::Record& record) {
            if (m_rack.isLogged())
                log(describeRecord(record));
            if (watcher != nullptr)
                watcher->onRecord(m_number, record);
            m_rack.observe(m_number, record);
        });
    if (watcher != nullptr) {
        m_model.setDrawObserver(
            [this, watcher](const PanelModel::Drawing& drawing) { watcher->onDrawn(m_number, drawing); });
        m_model.setGivenObserver([this, watcher](PacketType type, const std::vector<std::uint8_t>& payload) {
            watcher->onGiven(m_number, type, payload);
        });
    }
    rack.enter(*this);
}

BusPanel::~BusPanel()
{
    m_rack.leave(*this);
}

void BusPanel::act(const std::function<void(PanelModel&)>& action)
{
    action(m_model);
    settle();
}

void BusPanel::settle()
{
    handOn(m_model);
    const auto& violations = m_model.getViolations();
    for (; m_loggedViolations < violations.size(); ++m_loggedViolations) {
        log("violation: " + violations[m_loggedViolations]);
        if (BusWatcher* const watcher = m_rack.getWatcher())
            watcher->onViolation(m_number, violations[m_loggedViolations]);
    }
}

std::optional<std::chrono::nanoseconds> BusPanel::getNextTimeOfBus() const
{
    return m_rack.getNextTime();
}

void BusPanel::log(const std::string& line) const
{
    m_rack.log(m_number, line);
}

} // namespace Vantor
