#include "demo/DemoCommand.h"

#include "demo/DemoFormat.h"
#include "demo/Latency.h"
#include "demo/PictureScene.h"
#include "demo/Throughput.h"
#include "demo/UnplugScene.h"
#include "libMorvaneHostUsb/UsbManager.h"
#include "panelctl/session/Diagnosis.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Output.h"
#include "panelctl/terminal/Wording.h"

#include <algorithm>
#include <string>

namespace Vantor {

namespace {

using Clock = Session::Clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr std::chrono::seconds informationLimit{10};
constexpr std::size_t latencyRecords = 200;
constexpr std::size_t latencyPayload = 64;
constexpr std::uint32_t throughputRecords = 2000; // for each panel
constexpr std::uint64_t expectedPackets = 10;     // from each panel
constexpr std::chrono::seconds receiveLimit{5};

// What the simulator's panels are called.
bool isSimulated(const Panel& panel)
{
    return panel.getDescription().compare(0, 9, "Simulated") == 0;
}

} // namespace

DemoCommand::DemoCommand(bool anyPanel) : m_anyPanel(anyPanel) {}

void DemoCommand::run(Session& session, Output& output)
{
    const auto start = Clock::now();
    findPanels(session, output);
    refuseRealPanels(session);
    measureLatency(session, output);
    measureThroughput(session, output);
    receive(session, output);
    output.line("5. Each panel gets %u records every %.0f ms, while one is unplugged and plugged",
                LoadStream::batchSize, Milliseconds(LoadStream::batchPeriod).count());
    output.line("   back: by you, or by ./run-demo. The demo waits up to %s for each.",
                formatSeconds(UnplugScene::patience).c_str());
    UnplugScene(session, output, m_accounts, start).play();
    PictureScene::play(session, output);

    const auto stop = Clock::now();
    session.stop();
    output.line("7. The library has stopped, in %.0f ms", Milliseconds(Clock::now() - stop).count());
    // Whatever came until then counts too.
    while (const auto event = session.nextEvent(Clock::now()))
        m_accounts[event->uid].count(*event);
    summarise(output);
}

void DemoCommand::findPanels(Session& session, Output& output)
{
    output.line("1. Panels on the bus");
    const std::vector<Panel> panels = session.getPanels();
    if (panels.empty())
        throw Failure(ExitCode::NoPanel, explainNoPanel() + "\nWithout hardware, ./run-demo plugs in simulated ones.");
    for (const Panel& panel : panels)
        output.line("   %s is at bus and port %s", panel.getUidText().c_str(), panel.getPlace().c_str());
    for (const Panel& panel : panels) {
        const auto asked = Clock::now();
        const Panel known = session.awaitInformation(panel, informationLimit);
        output.line("   %s says: \"%s\", packets of up to %u bytes (%.1f ms)", known.getUidText().c_str(),
                    known.getDescription().c_str(), known.getPacketLimit(), Milliseconds(Clock::now() - asked).count());
    }
}

// Who knows what these records would make a real panel do.
void DemoCommand::refuseRealPanels(const Session& session) const
{
    for (const Panel& panel : session.getPanels())
        if (!m_anyPanel && !isSimulated(panel))
            throw Failure(ExitCode::Failed, panel.getName() + " does not call itself simulated, and the demo sends "
                                                              "made-up records.\nUse ./run-demo, or allow it with "
                                                              "--any-panel.");
}

void DemoCommand::measureLatency(Session& session, Output& output)
{
    output.line("2. Latency: %zu records of %zu bytes to each panel, one at a time, from", latencyRecords,
                latencyPayload);
    output.line("   addStructData until the panel's byte counter shows the record taken");
    for (const Panel& panel : session.getPanels()) {
        const Latency latency = Latency::measure(session, panel, latencyRecords, latencyPayload);
        output.line("   %s: median %.2f ms, 99 %% within %.2f ms, longest %.2f ms", panel.getUidText().c_str(),
                    latency.median, latency.nearlyAll, latency.longest);
        m_accounts[panel.getUid()].given += latencyRecords;
        m_accounts[panel.getUid()].taken += latencyRecords;
    }
}

void DemoCommand::measureThroughput(Session& session, Output& output)
{
    output.line("3. Throughput: %s records to each panel, queued as fast as it goes: types",
                formatCount(throughputRecords).c_str());
    output.line("   5 and 29 in order, 12 and 20 each with a key; 128 to 511 bytes");
    const Throughput all = Throughput::measure(session, throughputRecords);
    output.line("   %s records, %s bytes in %s packets, taken in %.3f s:", formatCount(all.records).c_str(),
                formatCount(all.bytes).c_str(), formatCount(all.packets).c_str(), all.seconds);
    const double rate = static_cast<double>(all.records) / all.seconds;
    output.line("   %s records/s, %.1f MB/s", formatCount(static_cast<std::uint64_t>(rate)).c_str(),
                static_cast<double>(all.bytes) / all.seconds / 1e6);
    for (auto& [uid, account] : m_accounts) {
        account.given += throughputRecords;
        account.taken += throughputRecords;
    }
}

void DemoCommand::receive(Session& session, Output& output)
{
    output.line("4. Packets received from the panels so far");
    const auto deadline = Clock::now() + receiveLimit;
    const auto hasEnough = [this] {
        return std::all_of(m_accounts.begin(), m_accounts.end(),
                           [](const auto& entry) { return entry.second.getPackets() >= expectedPackets; });
    };
    while (!hasEnough()) {
        const std::optional<PanelEvent> event = session.nextEvent(deadline);
        if (!event)
            break;
        m_accounts[event->uid].count(*event);
    }
    for (const auto& [uid, account] : m_accounts)
        output.line("   %s: %s", formatUid(uid).c_str(), account.describeReceived().c_str());
}

void DemoCommand::summarise(Output& output) const
{
    output.line("8. Summary         records                    packets");
    output.line("   panel     given     taken      lost     received");
    std::uint64_t lost = 0;
    for (const auto& [uid, account] : m_accounts) {
        output.line("   %-5s %9s %9s %9s %12s", formatUid(uid).c_str(), formatCount(account.given).c_str(),
                    formatCount(account.taken).c_str(), formatCount(account.given - account.taken).c_str(),
                    formatCount(account.getPackets()).c_str());
        lost += account.given - account.taken;
    }
    if (lost != 0) {
        output.line("   Lost: given, and not known to be taken when the panel left. They were on");
        output.line("   their way or waited behind such: at most a batch of %u each time.", LoadStream::batchSize);
    }
}

} // namespace Vantor
