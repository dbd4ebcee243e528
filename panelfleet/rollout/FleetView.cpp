#include "panelfleet/rollout/FleetView.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>
#include <vector>

namespace Vantor {

namespace {

constexpr std::size_t longestHost = 64;
constexpr std::size_t longestPlace = 64;
constexpr std::size_t longestText = 400; // of what is kept to be shown

bool isHost(const std::string& text)
{
    return !text.empty() && text.size() <= longestHost && text != "all" &&
           std::all_of(text.begin(), text.end(), [](char c) {
               return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                      c == '_' || c == '.';
           });
}

// The levels of a topic; none when there are more than any of ours has.
std::vector<std::string> levelsOf(const std::string& topic)
{
    std::vector<std::string> levels;
    for (std::size_t begin = 0; begin <= topic.size();) {
        if (levels.size() == 6)
            return {};
        const std::size_t end = std::min(topic.find('/', begin), topic.size());
        levels.push_back(topic.substr(begin, end - begin));
        begin = end + 1;
    }
    return levels;
}

bool isJobWord(const std::string& word)
{
    constexpr std::array<std::string_view, 6> words{"queued",    "writing", "written",
                                                    "answering", "failed",  "interrupted"};
    return std::find(words.begin(), words.end(), word) != words.end();
}

void shorten(std::string& text)
{
    if (text.size() > longestText)
        text.resize(longestText);
}

} // namespace

FleetView::FleetView(Selection selection, std::string id) : m_selection(std::move(selection)), m_id(std::move(id)) {}

void FleetView::beginTelling()
{
    ++m_telling;
}

void FleetView::endTelling()
{
    for (auto& [name, host] : m_hosts) {
        if (host.m_telling != m_telling)
            host.state.reset();
        for (auto& [place, panel] : host.panels) {
            if (panel.m_stateTelling != m_telling)
                panel.state.reset();
            if (panel.m_infoTelling != m_telling)
                panel.info.reset();
            if (panel.m_jobTelling != m_telling)
                panel.job.reset();
        }
    }
    dropEmpty();
}

void FleetView::dropEmpty()
{
    for (auto host = m_hosts.begin(); host != m_hosts.end();) {
        auto& panels = host->second.panels;
        for (auto panel = panels.begin(); panel != panels.end();) {
            const Panel& one = panel->second;
            const bool isEmpty = !one.state && !one.info && !one.job;
            m_panels -= isEmpty ? 1 : 0;
            panel = isEmpty ? panels.erase(panel) : std::next(panel);
        }
        host = panels.empty() && !host->second.state ? m_hosts.erase(host) : std::next(host);
    }
}

bool FleetView::receive(const std::string& topic, const std::string& payload)
{
    const std::vector<std::string> levels = levelsOf(topic);
    const bool isOfHost = levels.size() == 4 && levels[3] == "state";
    const bool isOfPanel = levels.size() == 5 && (levels[4] == "state" || levels[4] == "info");
    const bool isOfJob = levels.size() == 6 && levels[4] == "job" && levels[5] == m_id;
    const bool isOurs = (isOfHost || isOfPanel || isOfJob) && levels[0] == "panel" && levels[1] == "1" &&
                        isHost(levels[2]) && (isOfHost || isPlace(levels[3]));
    if (!isOurs || payload.size() > maxPayload) {
        ++m_senseless;
        return false;
    }
    if (isOfHost)
        return receiveHost(levels[2], payload);
    return receivePanel(levels[2], levels[3], levels[4], payload);
}

bool FleetView::receiveHost(const std::string& name, const std::string& payload)
{
    if (!m_selection.matchesHost(name))
        return false;
    Host* const host = makeHost(name);
    if (host == nullptr)
        return false;
    auto state = DeskJson::readHostState(payload);
    m_senseless += state || payload.empty() ? 0 : 1;
    if (state) {
        shorten(state->run);
        shorten(state->version);
        const bool isLate = !state->isOnline && host->state && host->state->isOnline &&
                            state->epoch < host->state->epoch && host->m_telling == m_telling;
        if (isLate) // the death of an earlier connection
            return true;
    }
    host->state = std::move(state);
    host->m_telling = m_telling;
    return true;
}

bool FleetView::receivePanel(const std::string& host, const std::string& place, const std::string& kind,
                             const std::string& payload)
{
    if (!m_selection.matches(host, place))
        return false;
    Panel* const panel = makePanel(host, place);
    if (panel == nullptr)
        return false;
    tellPanel(*panel, kind, payload);
    return true;
}

void FleetView::tellPanel(Panel& panel, const std::string& kind, const std::string& payload)
{
    bool isRead = true;
    if (kind == "state") {
        panel.state = DeskJson::readPlaceState(payload);
        panel.m_stateTelling = m_telling;
        isRead = panel.state.has_value();
        if (isRead)
            shorten(panel.state->reason);
    } else if (kind == "info") {
        panel.info = DeskJson::readPanelInfo(payload);
        panel.m_infoTelling = m_telling;
        isRead = panel.info.has_value();
        if (isRead)
            shorten(panel.info->description);
    } else {
        panel.job = DeskJson::readJobState(payload);
        if (panel.job && !isJobWord(panel.job->state))
            panel.job.reset();
        panel.m_jobTelling = m_telling;
        isRead = panel.job.has_value();
        if (isRead) {
            shorten(panel.job->reason);
            shorten(panel.job->since);
        }
    }
    m_senseless += isRead || payload.empty() ? 0 : 1;
}

FleetView::Host* FleetView::makeHost(const std::string& name)
{
    const auto known = m_hosts.find(name);
    if (known != m_hosts.end())
        return &known->second;
    if (m_hosts.size() == maxHosts) {
        ++m_leftOut;
        return nullptr;
    }
    return &m_hosts[name];
}

FleetView::Panel* FleetView::makePanel(const std::string& name, const std::string& place)
{
    Host* const host = makeHost(name);
    if (host == nullptr)
        return nullptr;
    const auto known = host->panels.find(place);
    if (known != host->panels.end())
        return &known->second;
    if (m_panels == maxPanels) {
        ++m_leftOut;
        return nullptr;
    }
    ++m_panels;
    return &host->panels[place];
}

const FleetView::Host* FleetView::findHost(const std::string& host) const
{
    const auto found = m_hosts.find(host);
    return found != m_hosts.end() ? &found->second : nullptr;
}

const FleetView::Panel* FleetView::findPanel(const std::string& host, const std::string& place) const
{
    const Host* const known = findHost(host);
    if (known == nullptr)
        return nullptr;
    const auto found = known->panels.find(place);
    return found != known->panels.end() ? &found->second : nullptr;
}

FleetView::Presence FleetView::getPresence(const std::string& host, const std::string& place) const
{
    const Host* const known = findHost(host);
    const Panel* const panel = findPanel(host, place);
    if (panel == nullptr || !panel->state)
        return Presence::NeverHeardOf;
    if (!known->state || !known->state->isOnline)
        return Presence::HostAway;
    if (!panel->state->isOnline)
        return Presence::PanelAway;
    return panel->state->epoch < known->state->epoch ? Presence::Unsettled : Presence::There;
}

// "1-4.2"
bool FleetView::isPlace(const std::string& text)
{
    const std::size_t dash = text.find('-');
    if (dash == std::string::npos || text.size() > longestPlace)
        return false;
    const auto isNumber = [](const std::string& part) {
        return !part.empty() && part.find_first_not_of("0123456789") == std::string::npos;
    };
    if (!isNumber(text.substr(0, dash)))
        return false;
    for (std::size_t begin = dash + 1; begin <= text.size();) {
        const std::size_t end = std::min(text.find('.', begin), text.size());
        if (!isNumber(text.substr(begin, end - begin)))
            return false;
        begin = end + 1;
    }
    return true;
}

} // namespace Vantor
