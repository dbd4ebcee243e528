#include "simulator/panelsim/CaptureUse.h"

#include "simulator/bus/UserText.h"
#include "simulator/replay/SessionReader.h"

#include <stdexcept>
#include <utility>

namespace Vantor {

namespace {

constexpr std::size_t mostDifferences = 20;

std::string nameOf(const std::string& path)
{
    return "capture '" + UserText::shown(path) + "'";
}

RecordedSession readSession(const std::string& path)
{
    try {
        return SessionReader::readFile(path);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(nameOf(path) + ": " + error.what());
    }
}

// Bytes that the capture lacks can be neither given nor compared.
void requireWhole(const std::string& path, const std::string& missing)
{
    if (!missing.empty())
        throw std::runtime_error(nameOf(path) + ": " + missing + "; take it with whole frames (tcpdump -s 0)");
}

void tellNotes(const std::string& path, const RecordedSession& session, const CaptureUse::Complain& complain)
{
    for (const std::string& note : session.notes)
        complain(nameOf(path) + ": " + note);
}

} // namespace

CaptureUse::CaptureUse(const PanelsimOptions& options, const Complain& complain) : m_options(options)
{
    if (!options.replayFile.empty()) {
        m_replayed = readSession(options.replayFile);
        requireWhole(options.replayFile, m_replayed->missingFromPanels);
        tellNotes(options.replayFile, *m_replayed, complain);
        if (m_replayed->isSplit && options.scatterGather)
            complain(nameOf(options.replayFile) +
                     ": a packet is split over transfers; replay it with --no-scatter-gather");
    }
    if (options.expectFile.empty())
        return;
    m_expected = readSession(options.expectFile);
    requireWhole(options.expectFile, m_expected->missingFromHost);
    if (options.expectFile != options.replayFile)
        tellNotes(options.expectFile, *m_expected, complain);
    for (std::size_t panel = 0; panel < m_expected->panels.size(); ++panel)
        if (m_expected->panels[panel].isOpen)
            complain(nameOf(options.expectFile) + ": panel " + std::to_string(panel) +
                     ": it ends while the panel is in use; what comes behind is not compared");
    m_comparison = std::make_unique<RecordComparison>(
        *m_expected, RecordComparison::Options{options.wholeOrder, options.ignoredTypes});
}

void CaptureUse::setUp(PanelBus::Options& bus, const Replay::Tell& tell)
{
    if (m_replayed) {
        m_replay = std::make_shared<Replay>(*m_replayed, m_options.fast, m_options.ignoredTypes, tell);
        bus.script = m_replay;
    }
    if (m_comparison)
        bus.observeRecord = [this](unsigned int panel, const PanelModel::Record& record) {
            m_comparison->add(panel, record.type, record.payload, record.time);
        };
}

std::optional<std::vector<unsigned int>> CaptureUse::getFirstPanels() const
{
    return m_replay ? std::optional(m_replay->getFirstPanels()) : std::nullopt;
}

void CaptureUse::report(std::vector<std::string>& rest, std::vector<std::string>& differences) const
{
    if (m_replay)
        rest = m_replay->describeRest();
    if (m_comparison)
        differences = m_comparison->describeDifferences();
}

bool CaptureUse::finish(PanelBus& bus, const Complain& complain) const
{
    std::vector<std::string> rest;
    std::vector<std::string> differences;
    // Nothing happens on the bus meanwhile.
    if (!bus.visit(0, [this, &rest, &differences](PanelModel& /*model*/) { report(rest, differences); }))
        report(rest, differences);
    for (const std::string& line : rest)
        complain(line);
    for (std::size_t i = 0; i < differences.size() && i < mostDifferences; ++i)
        complain("difference: " + differences[i]);
    if (differences.size() > mostDifferences)
        complain("difference: " + std::to_string(differences.size() - mostDifferences) + " more");
    return differences.empty();
}

} // namespace Vantor
