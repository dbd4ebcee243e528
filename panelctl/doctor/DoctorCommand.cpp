#include "panelctl/doctor/DoctorCommand.h"

#include "panelctl/doctor/Judgement.h"
#include "panelctl/session/Diagnosis.h"
#include "panelctl/session/Session.h"
#include "panelctl/session/UsbIds.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Output.h"
#include "panelctl/terminal/Report.h"
#include "panelctl/terminal/Wording.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>

#include <libusb-1.0/libusb.h>

namespace Vantor {

namespace {

class Diagnosed : public Failure {
public:
    explicit Diagnosed(const Finding& worst) : Diagnosed(worst.severity, rowOf(*worst.ailment)) {}

private:
    Diagnosed(Finding::Severity severity, const AilmentRow& row)
        : Failure(row.exitCode, row.name,
                  std::string(severity == Finding::Severity::Error ? "a panel can't be used: "
                                                                   : "panels can be used, but something is amiss: ") +
                      row.name + ".")
    {}
};

void addState(PanelFacts& facts, const Session& session, std::chrono::nanoseconds limit)
{
    using State = PanelFacts::State;
    const std::vector<Panel> panels = session.getPanels();
    const auto panel = std::find_if(panels.begin(), panels.end(),
                                    [&facts](const Panel& known) { return known.getPlace() == facts.place; });
    if (panel == panels.end())
        return;
    if (!panel->isAlive()) {
        const DeviceFailure failure = panel->getDevice().getFailure();
        facts.state = session.wasUsable(facts.place) ? State::GivenUp : State::NeverOpened;
        facts.failure = failure.toString();
        facts.isBusy = failure.operation == DeviceFailure::Operation::Claim && failure.code == LIBUSB_ERROR_BUSY;
    } else if (!panel->getInformation()) {
        facts.state = State::Silent;
        facts.silence = explainNoInformation(*panel, limit);
    } else {
        facts.state = State::Described;
        facts.description = panel->getDescription();
        facts.packetLimit = panel->getPacketLimit();
        facts.announcedLimit = panel->getInformation()->maxPacketSize;
    }
}

// One that is pulled has lost its link, then its node, and sysfs knows it still for a moment.
constexpr std::chrono::seconds leaveTime{1};
constexpr std::chrono::milliseconds leaveStep{20};

bool mayBeLeaving(const PanelFacts& panel)
{
    return panel.node.error == ENOENT || panel.state == PanelFacts::State::NotListed ||
           panel.state == PanelFacts::State::GivenUp;
}

// For people, and for programs.
struct Words {
    const char* text;
    const char* json;
};

Words wordsOf(Finding::Severity severity)
{
    switch (severity) {
    case Finding::Severity::Ok:
        return {"ok", "ok"};
    case Finding::Severity::Warning:
        return {"warning", "warning"};
    case Finding::Severity::Error:
        return {"error", "error"};
    case Finding::Severity::Unknown:
        break;
    }
    return {"-", "unknown"};
}

std::string indent(const std::string& text)
{
    std::string indented;
    for (const char character : text)
        indented += character == '\n' ? std::string("\n           ") : std::string(1, character);
    return indented;
}

class FindingReport final : public Report {
public:
    explicit FindingReport(const Finding& finding) : m_finding(finding) {}

    std::string asText() const override
    {
        const std::string place = m_finding.place.empty() ? "" : m_finding.place + ": ";
        std::string text =
            formatText("%-7s  %s%s\n", wordsOf(m_finding.severity).text, place.c_str(), m_finding.text.c_str());
        if (!m_finding.reason.empty())
            text += "           " + indent(m_finding.reason) + "\n";
        for (const std::string& command : m_finding.commands)
            text += "           $ " + command + "\n";
        return text;
    }

    JsonObject asJson() const override
    {
        JsonObject object("finding");
        object.add("check", m_finding.check)
            .add("severity", wordsOf(m_finding.severity).json)
            .add("kind", m_finding.ailment ? std::optional(rowOf(*m_finding.ailment).name) : std::nullopt)
            .add("place", m_finding.place.empty() ? std::nullopt : std::optional(m_finding.place))
            .add("text", m_finding.text)
            .add("hint", m_finding.reason)
            .add("commands", m_finding.commands);
        return object;
    }

private:
    const Finding& m_finding;
};

} // namespace

void DoctorCommand::beforeStart()
{
    m_atStart = SystemFacts(m_options.places).listPanels(UsbIds::list());
}

void DoctorCommand::run(Session& session, Output& output)
{
    conclude(gather(session), output);
}

bool DoctorCommand::runWithoutLibrary(const NoLibusb& failure, Output& output)
{
    const SystemFacts system(m_options.places);
    DoctorFacts facts;
    facts.libusbError = failure.getCode();
    facts.knownIds = UsbIds::list();
    system.addSystem(facts);
    system.addDevices(facts);
    system.sortOut(facts, m_atStart);
    conclude(facts, output);
    return true;
}

void DoctorCommand::conclude(const DoctorFacts& facts, Output& output)
{
    const std::vector<Finding> findings = judge(facts);
    for (const Finding& finding : findings)
        output.report(FindingReport(finding));
    if (const Finding* const worst = findWorst(findings); worst != nullptr)
        throw Diagnosed(*worst);
    output.line("Nothing is amiss.");
}

// The holders behind the library's attempt to claim the panels: who kept it from that is
// there still. Who has left is looked for last, as anything before may be due to it.
DoctorFacts DoctorCommand::gather(Session& session) const
{
    const SystemFacts system(m_options.places);
    DoctorFacts facts;
    facts.hasHotplug = libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG) != 0;
    facts.knownIds = UsbIds::list();
    session.awaitInformation(m_options.timeout);
    system.addSystem(facts);
    system.addDevices(facts);
    for (PanelFacts& panel : facts.panels)
        addState(panel, session, m_options.timeout);
    system.addHolders(facts);
    session.waitUntil(Session::Clock::now() + leaveTime, leaveStep, [this, &system, &facts] {
        system.sortOut(facts, m_atStart);
        return std::none_of(facts.panels.begin(), facts.panels.end(), mayBeLeaving);
    });
    return facts;
}

} // namespace Vantor
