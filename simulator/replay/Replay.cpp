#include "simulator/replay/Replay.h"

#include "simulator/replay/RecordName.h"

#include <algorithm>
#include <utility>

namespace Vantor {

namespace {

std::string describeGiven(const PanelPlayer& player)
{
    const std::size_t all = player.countAnswers();
    const std::size_t given = player.countGivenAnswers();
    return "of " + std::to_string(all) + (all == 1 ? " answer, " : " answers, ") +
           (given == 0 ? "none" : std::to_string(given)) + (given <= 1 ? " was given" : " were given");
}

// Of a panel that has nothing more to say; empty when nobody has asked it for more.
std::string describeSilence(const PanelPlayer& player)
{
    std::string requests;
    for (const auto& [type, count] : player.getLateRequests())
        requests += (requests.empty() ? "" : ", ") + std::to_string(count) + " of " + nameOfType(type);
    if (requests.empty())
        return requests;
    const std::size_t all = player.countAnswers();
    if (all == 0)
        return "the capture has no answer; the host has sent " + requests;
    return (all == 1 ? "the only answer" : "all " + std::to_string(all) + " answers") + " had been given by " +
           nameOfTime(player.getLastAnswerTime()) + "; the host has sent " + requests + " after that";
}

} // namespace

Replay::Replay(const RecordedSession& session, bool isFast, std::set<PacketType> ignored, Tell tell)
    : m_session(session), m_pace{isFast, std::move(ignored), std::nullopt}, m_tell(std::move(tell))
{
    for (const RecordedSession::Panel& panel : session.panels) {
        const bool isFirst = panel.lives.front().begin.count() <= 0;
        m_panels.push_back({&panel, {}, isFirst ? std::size_t{1} : std::size_t{0}});
    }
}

std::vector<unsigned int> Replay::getFirstPanels() const
{
    std::vector<unsigned int> first;
    for (std::size_t panel = 0; panel < m_panels.size(); ++panel)
        if (m_panels[panel].recorded->lives.front().begin.count() <= 0)
            first.push_back(static_cast<unsigned int>(panel));
    return first;
}

void Replay::prepare(unsigned int panel, PanelModel::Options& options)
{
    if (m_session.announcedLimit)
        options.maxPacketSize = *m_session.announcedLimit;
    const std::string name = "panel " + std::to_string(panel) + ": ";
    const auto tell = [this, name](const std::string& line) { m_tell(name + line); };
    if (panel >= m_panels.size()) {
        options.script = std::make_shared<PanelPlayer>(m_nothing, m_pace, tell);
        return;
    }
    Panel& played = m_panels[panel];
    const auto& lives = played.recorded->lives;
    const bool isRecorded = played.players.size() < lives.size();
    const RecordedSession::Life& life = isRecorded ? lives[played.players.size()] : m_nothing;
    const RecordedSession::Life& looks = isRecorded ? life : lives.back();
    options.descriptors = looks.descriptors;
    options.strings = looks.strings;
    const auto player = std::make_shared<PanelPlayer>(life, m_pace, tell);
    if (isRecorded)
        played.players.push_back(player);
    played.ordered = std::max(played.ordered, played.players.size());
    options.script = player;
}

// Null when the panel is there, or does not come back.
std::optional<std::chrono::nanoseconds> Replay::findPlugTime(const Panel& panel) const
{
    const auto& lives = panel.recorded->lives;
    if (!m_pace.start || panel.ordered == lives.size() || panel.players.size() < panel.ordered)
        return std::nullopt;
    const std::chrono::nanoseconds begin = lives[panel.ordered].begin;
    if (panel.players.empty())
        return m_pace.isFast ? *m_pace.start : *m_pace.start + begin;
    const auto departure = panel.players.back()->getDeparture();
    if (!departure || m_pace.isFast)
        return departure;
    return *departure + (begin - lives[panel.ordered - 1].steps.back().time);
}

std::optional<PanelOrder> Replay::takeDue(std::chrono::nanoseconds now)
{
    for (std::size_t number = 0; number < m_panels.size(); ++number) {
        const auto time = findPlugTime(m_panels[number]);
        if (!time || *time > now)
            continue;
        ++m_panels[number].ordered;
        return PlugOrder{static_cast<unsigned int>(number)};
    }
    return std::nullopt;
}

std::optional<std::chrono::nanoseconds> Replay::getNextTime() const
{
    std::optional<std::chrono::nanoseconds> next;
    for (const Panel& panel : m_panels) {
        const auto time = findPlugTime(panel);
        if (time && (!next || *time < *next))
            next = time;
    }
    return next;
}

std::vector<std::string> Replay::describeRest() const
{
    std::vector<std::string> lines;
    for (std::size_t number = 0; number < m_panels.size(); ++number) {
        const Panel& panel = m_panels[number];
        const std::string name = "panel " + std::to_string(number) + ": replay: ";
        const auto& lives = panel.recorded->lives;
        const RecordedSession::Step* const next =
            panel.players.empty() ? nullptr : panel.players.back()->getNextAnswer();
        if (next != nullptr)
            lines.push_back(name + "it went no further than frame " + std::to_string(next->frame) + ": " +
                            describeGiven(*panel.players.back()));
        else if (panel.players.size() < lives.size())
            lines.push_back(name + "of " + std::to_string(lives.size()) + " times, it was plugged in " +
                            std::to_string(panel.players.size()));
        else if (const std::string silence = describeSilence(*panel.players.back()); !silence.empty())
            lines.push_back(name + silence);
    }
    return lines;
}

} // namespace Vantor
