#include "panelfleet/rollout/Rollout.h"

#include <algorithm>
#include <utility>

namespace Vantor {

namespace {

std::string describeMinutes(std::chrono::minutes time)
{
    return std::to_string(time.count()) + " min";
}

bool isSame(const JobState& one, const JobState& other)
{
    return one.state == other.state && one.bytesWritten == other.bytesWritten && one.since == other.since;
}

std::uint32_t quarterOf(const JobState& job)
{
    return job.totalBytes == 0 ? 0 : static_cast<std::uint32_t>(std::uint64_t{job.bytesWritten} * 4 / job.totalBytes);
}

bool isActive(const Rollout::Panel& panel)
{
    return panel.state == Rollout::State::Asked || panel.state == Rollout::State::UnderWay;
}

std::string describeAnswer(const Answer& answer)
{
    return std::string(DeskJson::nameOf(answer.word)) + (answer.reason.empty() ? "" : ": " + answer.reason);
}

} // namespace

Rollout::Rollout(Options options, const FleetView& view) : m_options(std::move(options)), m_view(view) {}

void Rollout::resume(TimePoint now)
{
    m_isTold = true;
    m_idleSince = now;
    if (m_isBegun)
        m_gatheringEnd = now + gathering;
    else
        begin();
    for (Panel& panel : m_panels) {
        // What it answered meanwhile is lost.
        panel.m_asks = 0;
        panel.m_awaySince.reset();
        if (!isStopped()) // else it is not asked again
            panel.m_deadline = std::min(panel.m_deadline, now + settling);
        panel.m_changed = now;
    }
    poll(now);
}

void Rollout::begin()
{
    m_isBegun = true;
    for (const auto& [host, known] : m_view.getHosts()) {
        for (const auto& [place, panel] : known.panels) {
            if (m_options.selection.matches(host, place))
                add(host, place);
        }
    }
    for (const std::string& name : m_options.selection.listNamed()) {
        const std::size_t slash = name.find('/');
        add(name.substr(0, slash), name.substr(slash + 1));
    }
}

void Rollout::add(const std::string& host, const std::string& place)
{
    Panel panel;
    panel.host = host;
    panel.place = place;
    if (m_indices.emplace(panel.getName(), m_panels.size()).second)
        m_panels.push_back(std::move(panel));
}

void Rollout::receiveAnswer(const std::string& host, const std::string& place, const Answer& answer, TimePoint now)
{
    const auto found = m_indices.find(host + "/" + place);
    if (found == m_indices.end())
        return;
    Panel& panel = m_panels[found->second];
    if (answer.word == Answer::Word::Taken && (isActive(panel) || panel.state == State::Unknown))
        change(panel, State::Done);
    else if (isActive(panel))
        panel.m_answer = {answer, now + jobAfterAnswer};
}

bool Rollout::isStopped() const
{
    const auto failures = std::count_if(m_panels.begin(), m_panels.end(), [](const Panel& panel) {
        return panel.state == State::Failed || panel.state == State::Unknown;
    });
    return m_isStopping || static_cast<std::size_t>(failures) >= m_options.stopAfter;
}

void Rollout::poll(TimePoint now)
{
    if (!m_isTold)
        return;
    for (Panel& panel : m_panels)
        look(panel, now);
    if (std::any_of(m_panels.begin(), m_panels.end(), isActive))
        m_idleSince = now;
}

void Rollout::look(Panel& panel, TimePoint now)
{
    if (panel.state == State::Done || panel.state == State::Failed || lookAtJob(panel, now))
        return;
    if (panel.m_answer && (now >= panel.m_answer->second || panel.m_answer->first.word == Answer::Word::Busy))
        applyAnswer(panel, now);
    else if (panel.state == State::Asked)
        checkAsked(panel, now);
    else if (panel.state == State::UnderWay)
        checkUnderWay(panel, now);
    else if (getPresence(panel) != FleetView::Presence::There)
        panel.m_busySince.reset();
}

// Whether it says all that there is to say. A job that goes on does not, once there is an answer.
bool Rollout::lookAtJob(Panel& panel, TimePoint now)
{
    const FleetView::Panel* const known = m_view.findPanel(panel.host, panel.place);
    if (known == nullptr || !known->job)
        return false;
    const JobState& job = *known->job;
    if (isOfAnother(job)) {
        change(panel, State::Failed,
               "the id was used for another image, of " + std::to_string(job.totalBytes) + " bytes");
        return true;
    }
    if (!job.isOver()) {
        follow(panel, job, now);
        return false;
    }
    panel.job = job;
    if (job.state == "answering")
        change(panel, State::Done);
    else
        change(panel, State::Failed, job.reason.empty() ? job.state : job.reason);
    return true;
}

bool Rollout::isOfAnother(const JobState& job) const
{
    if (m_options.imageSize && job.totalBytes != *m_options.imageSize)
        return true;
    if (job.mainSum.empty() && job.servoSum.empty())
        return false; // it does not say
    return (!m_options.mainSum.empty() && job.mainSum != m_options.mainSum) ||
           (!m_options.servoSum.empty() && job.servoSum != m_options.servoSum);
}

void Rollout::follow(Panel& panel, const JobState& job, TimePoint now)
{
    if (panel.job && isSame(*panel.job, job))
        return;
    const bool isWorthTelling = panel.state != State::UnderWay || !panel.job || panel.job->state != job.state ||
                                quarterOf(*panel.job) != quarterOf(job);
    panel.job = job;
    panel.m_changed = now;
    panel.m_isAskedAgain = false;
    if (isWorthTelling)
        change(panel, State::UnderWay);
}

void Rollout::applyAnswer(Panel& panel, TimePoint now)
{
    const Answer answer = std::exchange(panel.m_answer, std::nullopt)->first;
    const bool isBegun = panel.state == State::UnderWay;
    if (answer.word == Answer::Word::Busy && isBegun)
        return; // too many ask for it
    if (!isBegun && (answer.word == Answer::Word::Busy || answer.word == Answer::Word::Offline))
        postpone(panel, describeAnswer(answer), now);
    else
        change(panel, State::Failed, describeAnswer(answer));
}

void Rollout::postpone(Panel& panel, const std::string& reason, TimePoint now)
{
    panel.m_busySince = panel.m_busySince.value_or(now);
    if (now - *panel.m_busySince >= busyPatience) {
        change(panel, State::Failed, reason + " (for " + describeMinutes(busyPatience) + ")");
        return;
    }
    const bool isFirst = now == *panel.m_busySince;
    panel.m_busyDelay = isFirst ? Duration(firstBusyDelay) : std::min(panel.m_busyDelay * 2, Duration(lastBusyDelay));
    panel.m_nextTry = now + panel.m_busyDelay;
    panel.m_asks = 0;
    change(panel, State::Waiting, reason);
}

void Rollout::checkAsked(Panel& panel, TimePoint now)
{
    if (isHostAway(panel, now))
        return;
    const std::uint64_t epoch = getEpoch(panel);
    if (std::exchange(panel.m_epoch, epoch) != epoch && !isStopped()) // it may not have had it
        panel.m_deadline = std::min(panel.m_deadline, now + settling);
    if (now < panel.m_deadline)
        return;
    if (isStopped() || panel.m_asks >= mostAsks)
        change(panel, State::Unknown, "no answer");
    else
        panel.m_isAskedAgain = true;
}

void Rollout::checkUnderWay(Panel& panel, TimePoint now)
{
    if (!isHostAway(panel, now) && now - panel.m_changed >= jobPatience)
        change(panel, State::Unknown, "its job has said nothing new for " + describeMinutes(jobPatience));
}

bool Rollout::isHostAway(Panel& panel, TimePoint now)
{
    const FleetView::Host* const host = m_view.findHost(panel.host);
    if (host != nullptr && host->state && host->state->isOnline) {
        if (std::exchange(panel.m_awaySince, std::nullopt))
            panel.m_changed = now;
        return false;
    }
    panel.m_awaySince = panel.m_awaySince.value_or(now);
    if (now - *panel.m_awaySince >= hostPatience)
        change(panel, State::Unknown,
               "its gateway went away in the middle, and has not come back within " + describeMinutes(hostPatience));
    return true;
}

const Rollout::Panel* Rollout::takeNext(TimePoint now)
{
    if (!m_isTold)
        return nullptr;
    std::size_t active = 0;
    const bool mayBegin = !isStopped();
    for (Panel& panel : m_panels) {
        active += isActive(panel) ? 1 : 0;
        if (mayBegin && panel.state == State::Asked && panel.m_isAskedAgain)
            return ask(panel, now);
    }
    if (!mayBegin || active >= m_options.atOnce)
        return nullptr;
    for (Panel& panel : m_panels) {
        if (panel.state == State::Waiting && now >= panel.m_nextTry && getPresence(panel) == FleetView::Presence::There)
            return ask(panel, now);
    }
    return nullptr;
}

const Rollout::Panel* Rollout::ask(Panel& panel, TimePoint now)
{
    ++panel.m_asks;
    panel.m_isAskedAgain = false;
    panel.m_epoch = getEpoch(panel);
    panel.m_awaySince.reset();
    panel.m_answer.reset();
    panel.m_deadline = now + answerPatience + std::chrono::seconds(m_options.imageSize.value_or(0) / bytesASecond);
    m_idleSince = now;
    change(panel, State::Asked);
    return &panel;
}

bool Rollout::isOver(TimePoint now) const
{
    if (!m_isTold || std::any_of(m_panels.begin(), m_panels.end(), isActive))
        return false;
    return isStopped() ||
           std::none_of(m_panels.begin(), m_panels.end(), [&](const Panel& panel) { return isAwaited(panel, now); });
}

bool Rollout::isAwaited(const Panel& panel, TimePoint now) const
{
    if (panel.state != State::Waiting)
        return false;
    switch (getPresence(panel)) {
    case FleetView::Presence::There:
        return true;
    case FleetView::Presence::Unsettled:
        return now - m_idleSince < std::max<Duration>(m_options.wait, settling);
    case FleetView::Presence::HostAway:
    case FleetView::Presence::PanelAway:
    case FleetView::Presence::NeverHeardOf:
        break;
    }
    return now < m_gatheringEnd || now - m_idleSince < m_options.wait;
}

void Rollout::change(Panel& panel, State state, const std::string& reason)
{
    panel.state = state;
    panel.reason = reason;
    if (!std::exchange(panel.m_hasChanged, true))
        m_changed.push_back(static_cast<std::size_t>(&panel - m_panels.data()));
}

std::vector<const Rollout::Panel*> Rollout::takeChanged()
{
    std::vector<const Panel*> changed;
    for (const std::size_t index : std::exchange(m_changed, {})) {
        m_panels[index].m_hasChanged = false;
        changed.push_back(&m_panels[index]);
    }
    return changed;
}

Rollout::Counts Rollout::count() const
{
    Counts counts;
    for (const Panel& panel : m_panels) {
        switch (panel.state) {
        case State::Waiting:
            ++(getPresence(panel) == FleetView::Presence::There ? counts.waiting : counts.away);
            break;
        case State::Asked:
        case State::UnderWay:
            ++counts.underWay;
            break;
        case State::Done:
            ++counts.done;
            break;
        case State::Failed:
            ++counts.failed;
            break;
        case State::Unknown:
            ++counts.unknown;
            break;
        }
    }
    return counts;
}

std::optional<std::string> Rollout::explainAway(const Panel& panel) const
{
    switch (getPresence(panel)) {
    case FleetView::Presence::There:
        return std::nullopt;
    case FleetView::Presence::Unsettled:
        return "its gateway has not told it since it came back";
    case FleetView::Presence::HostAway:
        return "its gateway is away";
    case FleetView::Presence::PanelAway: {
        const std::string& reason = m_view.findPanel(panel.host, panel.place)->state->reason;
        return reason.empty() ? "no panel is there" : reason;
    }
    case FleetView::Presence::NeverHeardOf:
        break;
    }
    return "nothing has been heard of it";
}

std::uint64_t Rollout::getEpoch(const Panel& panel) const
{
    const FleetView::Host* const host = m_view.findHost(panel.host);
    return host != nullptr && host->state ? host->state->epoch : 0;
}

} // namespace Vantor
