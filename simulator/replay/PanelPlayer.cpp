#include "simulator/replay/PanelPlayer.h"

#include "simulator/replay/RecordName.h"

#include <algorithm>
#include <utility>

namespace Vantor {

namespace {

bool isDelay(const RecordedSession::Step& step)
{
    const auto* const fault = std::get_if<PanelFault>(&step.deed);
    return fault != nullptr && fault->kind == PanelFault::Kind::Delay;
}

} // namespace

PanelPlayer::PanelPlayer(const RecordedSession::Life& life, ReplayPace& pace, Tell tell)
    : m_life(life), m_pace(pace), m_tell(std::move(tell))
{
    for (const RecordedSession::Step& step : life.steps) {
        if (!std::holds_alternative<PanelFault>(step.deed))
            m_answers.steps.push_back(&step);
        else if (!m_pace.isFast || !isDelay(step))
            m_faults.steps.push_back(&step);
    }
    count(m_answers);
    count(m_faults);
}

const RecordedSession::Step* PanelPlayer::getNextAnswer() const
{
    return m_answers.isOver() ? nullptr : &m_answers.front();
}

// The records that the next step is behind.
void PanelPlayer::count(Line& line) const
{
    for (; !line.isOver() && line.records < line.front().records; ++line.records) {
        const RecordedSession::HostRecord& record = m_life.records[line.records];
        if (isSlice(record.type) || m_pace.ignored.count(record.type) != 0)
            continue;
        ++line.needed[record.type];
        line.lastRecord = &record;
    }
}

std::size_t PanelPlayer::countReceived(PacketType type) const
{
    const auto received = m_received.find(type);
    return received != m_received.end() ? received->second.size() : 0;
}

bool PanelPlayer::isMet(const Line& line) const
{
    return std::all_of(line.needed.begin(), line.needed.end(),
                       [this](const auto& needed) { return countReceived(needed.first) >= needed.second; });
}

PanelScript::Deed PanelPlayer::take(Line& line)
{
    Deed deed = line.front().deed;
    ++line.next;
    count(line);
    return deed;
}

void PanelPlayer::onTransfer(std::chrono::nanoseconds now)
{
    if (!m_pace.start)
        m_pace.start = now;
    if (m_begin)
        return;
    m_begin = now;
    m_lastEvent = now;
}

void PanelPlayer::onRecord(PacketType type, std::chrono::nanoseconds now)
{
    m_received[type].push_back(now);
    if (m_answers.isOver() && isRequest(type))
        ++m_lateRequests[type];
    m_lastEvent = now;
}

// When the next answer would be due at the capture's pace if the host had sent nothing
// before it.
PanelPlayer::Time PanelPlayer::findTimeWithoutRecords() const
{
    const Time time = m_answers.front().time;
    if (m_answers.next == 0)
        return *m_begin + (time - m_life.firstTransfer);
    return m_lastAnswer + (time - m_answers.steps[m_answers.next - 1]->time);
}

// When the next answer is due if all that it is behind has come.
PanelPlayer::Time PanelPlayer::findTime() const
{
    if (m_pace.isFast)
        return *m_begin;
    const RecordedSession::HostRecord* const record = m_answers.lastRecord;
    if (record == nullptr || (m_answers.next > 0 && record->time < m_answers.steps[m_answers.next - 1]->time))
        return findTimeWithoutRecords();
    const std::size_t number = m_answers.needed.at(record->type);
    return m_received.at(record->type)[number - 1] + (m_answers.front().time - record->time);
}

// When the next answer is to be given if nothing else happens until then.
std::optional<PanelPlayer::Time> PanelPlayer::findAnswerTime(bool isBeingRead) const
{
    if (!m_begin || m_answers.isOver())
        return std::nullopt;
    const RecordedSession::Step& step = m_answers.front();
    if (!isBeingRead && !std::holds_alternative<Leave>(step.deed))
        return std::nullopt;
    if (isMet(m_answers) && (isBeingRead || !step.meetsRead))
        return findTime();
    return std::max(findTimeWithoutRecords(), m_lastEvent) + patience;
}

void PanelPlayer::giveUpWaiting(Time now)
{
    for (const auto& [type, needed] : m_answers.needed) {
        const std::size_t received = countReceived(type);
        if (received >= needed)
            continue;
        const std::size_t missing = needed - received;
        m_tell("replay: waited " + std::to_string(patience.count()) + " s in vain for " + std::to_string(missing) +
               (missing == 1 ? " record of " : " records of ") + nameOfType(type) +
               ", which the capture has before frame " + std::to_string(m_answers.front().frame) +
               "; it goes on without");
        m_received[type].resize(needed, now);
    }
}

std::optional<PanelScript::Deed> PanelPlayer::takeDue(std::chrono::nanoseconds now, bool isBeingRead)
{
    if (!m_faults.isOver() && isMet(m_faults))
        return take(m_faults);
    const auto time = findAnswerTime(isBeingRead);
    if (!time || *time > now)
        return std::nullopt;
    giveUpWaiting(now);
    m_lastEvent = now;
    m_lastAnswer = now;
    return take(m_answers);
}

std::optional<std::chrono::nanoseconds> PanelPlayer::getNextTime(bool isBeingRead) const
{
    return findAnswerTime(isBeingRead);
}

std::optional<std::chrono::nanoseconds> PanelPlayer::getDeparture() const
{
    return m_life.isLeft && m_answers.isOver() ? std::optional(m_lastAnswer) : std::nullopt;
}

} // namespace Vantor
