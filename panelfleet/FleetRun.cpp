#include "panelfleet/FleetRun.h"

#include "panel2mqtt/broker/BrokerSettings.h"
#include "panelctl/terminal/Wording.h"
#include "panelfleet/FleetImage.h"
#include "panelfleet/rollout/FleetReports.h"

#include <algorithm>
#include <limits>
#include <utility>

#include <poll.h>

namespace Vantor {

namespace {

constexpr std::chrono::milliseconds passTime(1000); // at the most
constexpr std::chrono::milliseconds gatherTime(20); // of what comes together
constexpr std::size_t mostNames = 20;               // in a message

FleetFailure selectionFailure()
{
    return {FleetExit::NothingSelected, "nothing-selected",
            "nothing is selected: `panelfleet list` shows what there is"};
}

FleetFailure brokerFailure(const std::string& text)
{
    return {FleetExit::NoBroker, "no-broker", text};
}

Rollout::Options rolloutOptions(const CommandLine& line, const FleetImage* image)
{
    Rollout::Options options;
    options.selection = line.selection;
    options.selection.isAll = line.selection.isAll || (image == nullptr && line.selection.isEmpty());
    options.id = line.id;
    options.atOnce = line.atOnce;
    options.stopAfter = image != nullptr ? line.stopAfter : std::numeric_limits<std::size_t>::max();
    options.wait = line.wait;
    if (image != nullptr) {
        options.imageSize = image->size;
        options.mainSum = image->mainSum;
        options.servoSum = image->servoSum;
    }
    return options;
}

bool isUnderWay(const Rollout::Panel& panel)
{
    return panel.state == Rollout::State::Asked || panel.state == Rollout::State::UnderWay;
}

bool isFailure(const Rollout::Panel& panel)
{
    return panel.state == Rollout::State::Failed || panel.state == Rollout::State::Unknown;
}

} // namespace

FleetRun::FleetRun(const CommandLine& line, Output& output, const Interrupt& interrupt)
    : m_line(line), m_output(output), m_interrupt(interrupt)
{}

FleetExit FleetRun::run(const BrokerSettings& settings)
{
    const bool isList = m_line.command == CommandLine::Command::List;
    const bool isFlash = m_line.command == CommandLine::Command::Flash;
    const FleetImage image = isFlash ? FleetImage::make(m_line) : FleetImage();
    Selection selection = m_line.selection;
    selection.isAll = selection.isAll || selection.isEmpty();
    m_client.emplace(settings, selection, m_line.id,
                     std::vector<std::string>{"+/state", isList ? "+/info" : "+/job/" + m_line.id});
    m_client->start();
    awaitTelling();
    noteLeftOut();
    return isList ? list() : isFlash ? flash(image) : showStatus();
}

void FleetRun::awaitTelling()
{
    while (true) {
        Interrupt::check();
        const FleetClient::News news = m_client->takeNews();
        if (!news.refusal.empty())
            throw brokerFailure(news.refusal);
        if (news.isLost)
            throw brokerFailure("no connection with the broker: " + news.reason);
        if (news.isComplete)
            return;
        if (Clock::now() - m_client->getLastHeard() > tellingPatience)
            throw brokerFailure(std::string("the broker does not deliver what is published to ") +
                                FleetReader::markerTopic + ".\nLet this user read and write it: docs/panelfleet.md.");
        wait(passTime);
    }
}

void FleetRun::noteLeftOut()
{
    std::uint64_t leftOut = 0;
    std::uint64_t senseless = 0;
    m_client->look([&](const FleetView& view) {
        leftOut = view.getLeftOut();
        senseless = view.getSenseless();
    });
    if (leftOut != 0)
        note(std::to_string(leftOut) + " messages are left out: more than " + std::to_string(FleetView::maxHosts) +
             " hosts or " + std::to_string(FleetView::maxPanels) + " panels");
    if (senseless != 0)
        note(std::to_string(senseless) + " messages made no sense, and are left out");
}

void FleetRun::wait(std::chrono::milliseconds time)
{
    pollfd entries[2] = {{m_interrupt.getDescriptor(), POLLIN, 0}, {m_client->getDescriptor(), POLLIN, 0}};
    poll(entries, 2, static_cast<int>(time.count()));
    if (entries[0].revents == 0 && entries[1].revents != 0)
        poll(entries, 1, static_cast<int>(gatherTime.count()));
    m_interrupt.drain();
}

FleetExit FleetRun::list()
{
    Reports reports;
    m_client->look([&](const FleetView& view) {
        for (const auto& [host, known] : view.getHosts()) {
            for (const auto& [place, panel] : known.panels)
                reports.push_back(std::make_unique<PlaceReport>(host, place, view));
            if (known.panels.empty())
                reports.push_back(std::make_unique<HostReport>(host, known));
        }
    });
    if (reports.empty())
        throw selectionFailure();
    tell(reports);
    return FleetExit::Success;
}

FleetExit FleetRun::showStatus()
{
    Rollout rollout(rolloutOptions(m_line, nullptr), m_client->getView());
    Reports reports;
    Rollout::Counts counts;
    m_client->look([&](const FleetView&) {
        rollout.resume(Clock::now());
        counts = rollout.count();
        for (const Rollout::Panel& panel : rollout.getPanels()) {
            if (panel.state != Rollout::State::Waiting)
                reports.push_back(std::make_unique<ProgressReport>(panel, std::nullopt));
        }
    });
    if (reports.empty())
        throw FleetFailure(FleetExit::NothingSelected, "nothing-selected", "no panel has a job " + m_line.id);
    if (m_line.selection.isEmpty()) // those without a job may never have been meant
        counts.waiting = counts.away = 0;
    reports.push_back(std::make_unique<SummaryReport>(m_line.id, counts, false));
    tell(reports);
    if (counts.failed + counts.unknown != 0)
        return FleetExit::PanelFailed;
    return counts.underWay != 0 ? FleetExit::NotAllThere : FleetExit::Success;
}

FleetExit FleetRun::flash(const FleetImage& image)
{
    Rollout rollout(rolloutOptions(m_line, &image), m_client->getView());
    m_client->look([&](const FleetView&) { rollout.resume(Clock::now()); });
    if (rollout.getPanels().empty())
        throw selectionFailure();
    if (m_line.isDryRun)
        return rehearse(rollout);
    try {
        const Interrupt::Reprieve reprieve;
        rollOut(rollout, image);
    } catch (const Interrupted& interrupted) {
        throw Interrupted(interrupted.getSignal(), "interrupted" + explainEnd(rollout));
    }
    const FleetExit exit = summarise(rollout, Clock::now());
    if (m_signal != 0)
        throw Interrupted(m_signal, "interrupted" + explainEnd(rollout));
    return exit;
}

FleetExit FleetRun::rehearse(Rollout& rollout)
{
    Reports reports;
    m_client->look([&](const FleetView&) {
        for (const Rollout::Panel& panel : rollout.getPanels())
            reports.push_back(std::make_unique<ProgressReport>(panel, rollout.explainAway(panel)));
        reports.push_back(std::make_unique<SummaryReport>(m_line.id, rollout.count(), rollout.isStopped()));
    });
    tell(reports);
    return FleetExit::Success;
}

void FleetRun::rollOut(Rollout& rollout, const FleetImage& image)
{
    bool isOver = false;
    while (!isOver) {
        checkSignal(rollout);
        take(m_client->takeNews(), rollout);
        checkBroker(rollout);
        m_client->look([&](const FleetView&) {
            rollout.poll(Clock::now());
            command(rollout, image);
            isOver = rollout.isOver(Clock::now());
        });
        tellChanges(rollout);
        if (!isOver)
            wait(passTime);
    }
}

void FleetRun::take(FleetClient::News news, Rollout& rollout)
{
    if (!news.refusal.empty())
        throw brokerFailure(news.refusal + explainEnd(rollout));
    const auto now = Clock::now();
    if (news.isLost) {
        rollout.pause();
        if (!m_lostSince)
            note("the connection with the broker is lost: " + news.reason);
        m_lostSince = m_lostSince.value_or(now);
        m_lostReason = news.reason;
    }
    m_client->look([&](const FleetView&) {
        for (const FleetClient::Reply& reply : news.replies)
            rollout.receiveAnswer(reply.host, reply.place, reply.answer, now);
        if (news.isComplete)
            rollout.resume(now);
    });
    if (news.isComplete && std::exchange(m_lostSince, std::nullopt))
        note("the connection with the broker is there again");
}

void FleetRun::checkBroker(const Rollout& rollout)
{
    if (m_lostSince && Clock::now() - *m_lostSince > brokerPatience)
        throw brokerFailure("no connection with the broker for " + std::to_string(brokerPatience.count()) +
                            " min: " + m_lostReason + explainEnd(rollout));
}

// The first one; a second one is thrown.
void FleetRun::checkSignal(Rollout& rollout)
{
    Interrupt::check();
    if (m_signal != 0 || !Interrupt::Reprieve::isUsed())
        return;
    m_signal = Interrupt::getSignal();
    rollout.stop();
    note("interrupted: no more is begun, and " + std::to_string(rollout.count().underWay) +
         " under way are waited for; another signal ends at once");
}

// One after another, so that not many images are in memory.
void FleetRun::command(Rollout& rollout, const FleetImage& image)
{
    while (m_client->mayPublish()) {
        const Rollout::Panel* const panel = rollout.takeNext(Clock::now());
        if (panel == nullptr)
            return;
        m_client->command(panel->host, panel->place, image.command);
    }
}

void FleetRun::tellChanges(Rollout& rollout)
{
    Reports reports;
    m_client->look([&](const FleetView&) {
        for (const Rollout::Panel* const panel : rollout.takeChanged())
            reports.push_back(std::make_unique<ProgressReport>(*panel, rollout.explainAway(*panel)));
    });
    tell(reports);
}

FleetExit FleetRun::summarise(const Rollout& rollout, Clock::time_point /*now*/)
{
    Reports reports;
    Rollout::Counts counts;
    m_client->look([&](const FleetView&) {
        counts = rollout.count();
        for (const Rollout::Panel& panel : rollout.getPanels()) {
            const auto away = rollout.explainAway(panel);
            if (panel.state == Rollout::State::Waiting && away)
                reports.push_back(std::make_unique<ProgressReport>(panel, away));
        }
        reports.push_back(std::make_unique<SummaryReport>(m_line.id, counts, rollout.isStopped()));
    });
    tell(reports);
    for (const Rollout::Panel& panel : rollout.getPanels()) {
        if (isFailure(panel))
            m_output.text(ProgressReport(panel, std::nullopt).asText());
    }
    if (counts.failed + counts.unknown != 0)
        return FleetExit::PanelFailed;
    return counts.away + counts.waiting != 0 ? FleetExit::NotAllThere : FleetExit::Success;
}

// Further lines of a message.
std::string FleetRun::explainEnd(const Rollout& rollout) const
{
    const auto& panels = rollout.getPanels();
    const auto count = static_cast<std::size_t>(std::count_if(panels.begin(), panels.end(), isUnderWay));
    std::string text;
    std::size_t named = 0;
    for (const Rollout::Panel& panel : panels) {
        if (isUnderWay(panel) && named++ < mostNames)
            text += (text.empty() ? "" : ", ") + panel.getName();
    }
    if (count != 0)
        text = "\nUnder way, which goes on in the gateways: " + text +
               (count > mostNames ? " and " + std::to_string(count - mostNames) + " more" : "") + ".";
    return text + "\nThe same command with --id " + m_line.id + " goes on with the rest.";
}

void FleetRun::tell(const Reports& reports)
{
    for (const auto& report : reports)
        m_output.report(*report);
}

void FleetRun::note(const std::string& text)
{
    m_output.report(NoteReport(text));
}

} // namespace Vantor
