#include "panelfleet/rollout/FleetReports.h"

#include "panelctl/terminal/JsonObject.h"
#include "panelctl/terminal/Wording.h"

#include <utility>

namespace Vantor {

namespace {

constexpr int longestReason = 400;

std::string shown(const std::string& text)
{
    return makePrintable(text, longestReason);
}

std::optional<std::string> unlessEmpty(const std::string& text)
{
    return text.empty() ? std::nullopt : std::optional(text);
}

} // namespace

HostReport::HostReport(std::string host, const FleetView::Host& known)
    : m_host(std::move(host)), m_state(known.state.value_or(HostState()))
{}

std::string HostReport::asText() const
{
    const std::string version = m_state.version.empty() ? "" : ", gateway " + shown(m_state.version);
    return m_host + ": " + (m_state.isOnline ? "there, without panels" : "away") + version + "\n";
}

JsonObject HostReport::asJson() const
{
    JsonObject object("host");
    object.add("host", m_host).add("isThere", m_state.isOnline).add("version", unlessEmpty(m_state.version));
    return object;
}

PlaceReport::PlaceReport(std::string host, std::string place, const FleetView& view)
    : m_host(std::move(host)), m_place(std::move(place)), m_panel(*view.findPanel(m_host, m_place)),
      m_presence(view.getPresence(m_host, m_place)),
      m_version(view.findHost(m_host)->state.value_or(HostState()).version)
{}

std::string PlaceReport::asText() const
{
    std::string text = m_host + "/" + m_place + ": ";
    const PlaceState state = m_panel.state.value_or(PlaceState());
    switch (m_presence) {
    case FleetView::Presence::There:
        text += "there since " + shown(state.since);
        break;
    case FleetView::Presence::Unsettled:
        text += "not told since its gateway came back";
        break;
    case FleetView::Presence::HostAway:
        text += "its gateway is away";
        break;
    case FleetView::Presence::PanelAway:
        text += "away since " + shown(state.since) + (state.reason.empty() ? "" : ": " + shown(state.reason));
        break;
    case FleetView::Presence::NeverHeardOf:
        text += "not told";
        break;
    }
    text += m_version.empty() ? "" : ", gateway " + shown(m_version);
    if (m_panel.info)
        text += ", " + quote(m_panel.info->description) + ", packets of " +
                std::to_string(m_panel.info->maxPacketSize) + " bytes";
    return text + "\n";
}

JsonObject PlaceReport::asJson() const
{
    const PlaceState state = m_panel.state.value_or(PlaceState());
    JsonObject object("panel");
    object.add("host", m_host)
        .add("place", m_place)
        .add("isThere", m_presence == FleetView::Presence::There)
        .add("since", unlessEmpty(state.since))
        .add("reason", m_presence == FleetView::Presence::HostAway ? std::optional<std::string>("its gateway is away")
                                                                   : unlessEmpty(state.reason))
        .add("version", unlessEmpty(m_version))
        .add("description", m_panel.info ? std::optional(m_panel.info->description) : std::nullopt)
        .add("maxPacketSize", m_panel.info ? std::optional(m_panel.info->maxPacketSize) : std::nullopt);
    return object;
}

ProgressReport::ProgressReport(const Rollout::Panel& panel, std::optional<std::string> away)
    : m_panel(panel), m_away(std::move(away))
{}

const char* ProgressReport::getWord() const
{
    switch (m_panel.state) {
    case Rollout::State::Waiting:
        return m_away ? "away" : "waiting";
    case Rollout::State::Asked:
        return "asked";
    case Rollout::State::UnderWay:
        return m_panel.job && m_panel.job->state == "queued"    ? "queued"
               : m_panel.job && m_panel.job->state == "written" ? "written"
                                                                : "writing";
    case Rollout::State::Done:
        return "answering";
    case Rollout::State::Failed:
        return m_panel.job && m_panel.job->state == "interrupted" ? "interrupted" : "failed";
    case Rollout::State::Unknown:
        break;
    }
    return "unknown";
}

std::string ProgressReport::describe() const
{
    const std::string word = getWord();
    if (m_panel.state == Rollout::State::Done)
        return "done";
    if (m_away && m_panel.state == Rollout::State::Waiting)
        return "away: " + shown(*m_away);
    if (word == "writing" && m_panel.job && m_panel.job->totalBytes != 0)
        return "writing, " + std::to_string(std::uint64_t{m_panel.job->bytesWritten} * 100 / m_panel.job->totalBytes) +
               " %";
    const std::string said = m_panel.state == Rollout::State::Unknown                             ? "not known"
                             : m_panel.state == Rollout::State::Waiting && m_panel.reason.empty() ? "not begun"
                                                                                                  : word;
    return said + (m_panel.reason.empty() ? "" : ": " + shown(m_panel.reason));
}

std::string ProgressReport::asText() const
{
    return makePrintable(m_panel.getName(), longestReason) + ": " + describe() + "\n";
}

JsonObject ProgressReport::asJson() const
{
    const bool isAway = m_away && m_panel.state == Rollout::State::Waiting;
    JsonObject object("progress");
    object.add("host", m_panel.host)
        .add("place", m_panel.place)
        .add("state", getWord())
        .add("bytesWritten", m_panel.job ? std::optional(m_panel.job->bytesWritten) : std::nullopt)
        .add("totalBytes", m_panel.job ? std::optional(m_panel.job->totalBytes) : std::nullopt)
        .add("reason", isAway ? m_away : unlessEmpty(m_panel.reason));
    return object;
}

SummaryReport::SummaryReport(std::string id, const Rollout::Counts& counts, bool isStopped)
    : m_id(std::move(id)), m_counts(counts), m_isStopped(isStopped)
{}

std::string SummaryReport::asText() const
{
    std::string text = m_id + ": " + std::to_string(m_counts.done) + " done, " + std::to_string(m_counts.failed) +
                       " failed, " + std::to_string(m_counts.unknown) + " not known, " +
                       std::to_string(m_counts.underWay) + " under way, " + std::to_string(m_counts.away) + " away, " +
                       std::to_string(m_counts.waiting) + " not begun\n";
    return text;
}

JsonObject SummaryReport::asJson() const
{
    JsonObject object("summary");
    object.add("id", m_id)
        .add("done", m_counts.done)
        .add("failed", m_counts.failed)
        .add("unknown", m_counts.unknown)
        .add("underWay", m_counts.underWay)
        .add("away", m_counts.away)
        .add("waiting", m_counts.waiting)
        .add("isStopped", m_isStopped);
    return object;
}

std::string NoteReport::asText() const
{
    return "(" + shown(m_text) + ")\n";
}

JsonObject NoteReport::asJson() const
{
    JsonObject object("note");
    object.add("text", m_text);
    return object;
}

} // namespace Vantor
