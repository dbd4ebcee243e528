#include "demo/UnplugScene.h"

#include "demo/DemoFormat.h"
#include "libMorvaneHostUsb/Log.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Output.h"
#include "panelctl/terminal/Wording.h"

#include <algorithm>

namespace Vantor {

namespace {

using Clock = Session::Clock;

constexpr std::chrono::seconds loadAfterReturn{2};
constexpr std::chrono::seconds finishLimit{15};
constexpr std::chrono::seconds reportPeriod{1};
constexpr std::chrono::microseconds loadStep{200};

} // namespace

UnplugScene::UnplugScene(Session& session, Output& output, DemoAccounts& accounts, Clock::time_point start)
    : m_session(session), m_output(output), m_accounts(accounts), m_start(start), m_deadline(Clock::now() + patience)
{}

void UnplugScene::play()
{
    for (const Panel& panel : m_session.getPanels())
        m_streams.emplace(panel.getUid(), panel);
    load();
    if (m_act != Act::Back)
        report(m_act == Act::BeforeDeparture ? "no panel was unplugged; going on without"
                                             : "the panel did not come back; going on without");
    finish();
}

void UnplugScene::load()
{
    auto nextReport = Clock::now() + reportPeriod;
    while (Clock::now() < m_deadline) {
        for (auto& [uid, stream] : m_streams)
            stream.step();
        if (const auto event = m_session.nextEvent(Clock::now() + loadStep))
            handle(*event);
        if (Clock::now() >= nextReport) {
            report(describeLoad());
            nextReport += reportPeriod;
        }
    }
}

void UnplugScene::handle(const PanelEvent& event)
{
    switch (event.kind) {
    case PanelEvent::Kind::Departed:
        handleDeparture(event.uid);
        break;
    case PanelEvent::Kind::Arrived:
        handleArrival(event.uid);
        break;
    case PanelEvent::Kind::Malformed:
    case PanelEvent::Kind::Packet:
        m_accounts[event.uid].count(event);
        if (event.type == PacketType::DeviceInformation)
            handleInformation(event.uid);
        break;
    }
}

void UnplugScene::handleDeparture(std::uint16_t uid)
{
    const auto stream = m_streams.find(uid);
    if (stream == m_streams.end())
        return;
    const std::uint64_t lost = stream->second.getGiven() - stream->second.getTaken();
    report(formatUid(uid) + " has left, with " + formatCount(lost) + " records on their way");
    if (logLevel >= LogLevel::Error)
        m_output.line("             (any LIBUSB_ERROR_NO_DEVICE in the library's log comes from that)");
    settle(uid);
    if (m_act == Act::BeforeDeparture) {
        m_act = Act::Away;
        m_deadline = Clock::now() + patience;
    }
}

void UnplugScene::handleArrival(std::uint16_t uid)
{
    if (m_streams.count(uid) != 0) // from before the scene
        return;
    report(formatUid(uid) + " is back; the library asks it for its information in 2 s");
    m_act = Act::Unannounced;
}

void UnplugScene::handleInformation(std::uint16_t uid)
{
    const std::optional<Panel> panel = m_session.findPanel(uid);
    if (m_act != Act::Unannounced || !panel || m_streams.count(uid) != 0)
        return;
    report(formatUid(uid) + " says: \"" + panel->getDescription() + "\"; its load starts again");
    m_streams.emplace(uid, *panel);
    m_act = Act::Back;
    m_deadline = Clock::now() + loadAfterReturn;
}

// Nothing new, and everything given is taken.
void UnplugScene::finish()
{
    for (auto& [uid, stream] : m_streams)
        stream.finish();
    const bool inTime = m_session.waitUntil(Clock::now() + finishLimit, loadStep, [this] {
        for (auto& [uid, stream] : m_streams)
            stream.step();
        return std::all_of(m_streams.begin(), m_streams.end(), [](const auto& entry) { return entry.second.isIdle(); });
    });
    report(describeLoad());
    while (!m_streams.empty())
        settle(m_streams.begin()->first);
    if (!inTime)
        throw Failure(ExitCode::TimedOut, "not everything was taken within " + formatSeconds(finishLimit) +
                                              " of the end of the load. Has a panel stalled, or left?");
}

// Its handle goes too: the panel can only come back under its uid without it.
void UnplugScene::settle(std::uint16_t uid)
{
    const LoadStream& stream = m_streams.at(uid);
    m_accounts[uid].given += stream.getGiven();
    m_accounts[uid].taken += stream.getTaken();
    m_streams.erase(uid);
}

void UnplugScene::report(const std::string& text) const
{
    m_output.line("   %6.1f s  %s", std::chrono::duration<double>(Clock::now() - m_start).count(), text.c_str());
}

std::string UnplugScene::describeLoad() const
{
    std::string text;
    for (const auto& [uid, stream] : m_streams)
        text += (text.empty() ? "" : ", ") + formatUid(uid) + " has taken " + formatCount(stream.getTaken());
    return text + " records";
}

} // namespace Vantor
