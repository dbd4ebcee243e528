#include "simulator/bus/BusPanel.h"

#include "simulator/bus/PanelRack.h"
#include "simulator/bus/QuantityText.h"

#include <algorithm>

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
    if (rack.isLogged() || rack.isObserved())
        m_model.setRecordObserver([this](const PanelModel::Record& record) {
            if (m_rack.isLogged())
                log(describeRecord(record));
            m_rack.observe(m_number, record);
        });
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
    for (; m_loggedViolations < violations.size(); ++m_loggedViolations)
        log("violation: " + violations[m_loggedViolations]);
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
