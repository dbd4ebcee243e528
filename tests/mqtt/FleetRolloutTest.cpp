// Roll-outs by panelfleet over hosts with gateways and simulated panels. What the panels' flash
// memory holds is the oracle, and what the jobs' topics say to somebody else.
#include "tests/mqtt/GatewayHost.h"
#include "tests/mqtt/MqttPeer.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

namespace Vantor {

namespace {

using testing::HasSubstr;
using testing::Not;

// Bytes that differ from chunk to chunk.
std::string makeFleetImage(std::size_t size, unsigned int seed)
{
    std::string image;
    for (std::uint32_t state = seed; image.size() < size;) {
        state = state * 1664525u + 1013904223u;
        image += static_cast<char>(state >> 24);
    }
    return image;
}

class FleetRollout : public testing::Test {
protected:
    static MosquittoBroker::Options persistent()
    {
        MosquittoBroker::Options options;
        options.persists = true;
        return options;
    }

    // One chunk: the library forgives a machine that is busy for a second only then.
    FleetRollout()
    {
        useImage(4000);
        std::filesystem::create_directory(m_files / "shelf");
        m_peer.subscribe("panel/1/+/+/job/+");
    }

    void useImage(std::size_t size)
    {
        m_image = makeFleetImage(size, 1);
        writeFile(m_files / "main.bin", m_image);
    }

    GatewayHost& start(const std::string& name, unsigned int panels, std::vector<std::string> bus = {})
    {
        std::filesystem::create_directory(m_files / name);
        GatewayHost::Options options;
        options.name = name;
        options.panels = panels;
        options.bus = std::move(bus);
        options.bus.insert(options.bus.end(), {"--flash-dir", m_files / name});
        options.settings = "[firmware]\nfolder = \"" + (m_files / "shelf") + "\"\n";
        m_hosts.push_back(std::make_unique<GatewayHost>(m_broker, options));
        m_hosts.back()->awaitPanels(m_peer);
        return *m_hosts.back();
    }

    ToolRun::Arguments fleet(ToolRun::Arguments arguments) const
    {
        arguments.insert(arguments.begin(), MORVANE_PANELFLEET);
        arguments.insert(arguments.end(), {"--broker", "127.0.0.1:" + std::to_string(m_broker.getPort())});
        return arguments;
    }
    ToolResult run(ToolRun::Arguments arguments) const { return runTool(fleet(std::move(arguments))); }
    ToolRun::Arguments flash(ToolRun::Arguments more) const
    {
        ToolRun::Arguments arguments{"flash", "--id", "j", "--main", m_files / "main.bin"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return fleet(arguments);
    }

    // Once the hosts have ended.
    std::string flashOf(const std::string& host, unsigned int panel) const
    {
        return contentOf(m_files / (host + "/panel" + std::to_string(panel) + "-main.bin"));
    }
    void expectFlashed(const std::string& host, unsigned int panels)
    {
        for (unsigned int panel = 0; panel < panels; ++panel)
            EXPECT_TRUE(flashOf(host, panel) == m_image) << host << ' ' << panel;
    }
    void endHosts()
    {
        for (const auto& host : m_hosts)
            host->end();
    }

    // Of the jobs, as the peer heard of them.
    struct Heard {
        std::size_t mostAtOnce = 0;
        std::map<std::string, unsigned int> begun; // by topic
    };
    Heard hear()
    {
        Heard heard;
        std::set<std::string> active;
        for (const Message& message : m_peer.takeAll(std::chrono::milliseconds(300))) {
            if (message.topic.find("/job/") == std::string::npos)
                continue;
            const bool isGoing = message.payload.find("queued") != std::string::npos ||
                                 message.payload.find("writing") != std::string::npos ||
                                 message.payload.find("written") != std::string::npos;
            if (!isGoing)
                active.erase(message.topic);
            else if (active.insert(message.topic).second)
                ++heard.begun[message.topic];
            heard.mostAtOnce = std::max(heard.mostAtOnce, active.size());
        }
        return heard;
    }

    const TemporaryFolder m_files;
    MosquittoBroker m_broker{persistent()};
    MqttPeer m_peer{m_broker.getSettings()};
    std::string m_image;
    std::vector<std::unique_ptr<GatewayHost>> m_hosts;
};

} // namespace

TEST_F(FleetRollout, overTwoHosts_isInEachPanelAndNeverMoreThanAllowedAtOnce)
{
    start("a", 3);
    start("b", 2);
    const ToolResult result = runTool(flash({"--all", "--at-once", "2"}));
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(result.output, HasSubstr("j: 5 done, 0 failed, 0 not known, 0 under way, 0 away, 0 not begun\n"));
    const Heard heard = hear();
    EXPECT_EQ(heard.mostAtOnce, 2u);
    EXPECT_EQ(heard.begun.size(), 5u);
    const ToolResult again = runTool(flash({"--all"}));
    EXPECT_EQ(again.exitCode, 0);
    EXPECT_THAT(again.output, Not(HasSubstr("asked")));
    EXPECT_TRUE(hear().begun.empty());
    endHosts();
    expectFlashed("a", 3);
    expectFlashed("b", 2);
}

TEST_F(FleetRollout, selectedPanels_areFlashedAndNoOthers)
{
    start("a", 2);
    start("b", 2);
    EXPECT_EQ(runTool(flash({"--host", "[ab]", "--place", "1-2", "a/1-1"})).exitCode, 0);
    endHosts();
    expectFlashed("a", 2);
    EXPECT_TRUE(flashOf("b", 0).empty());
    EXPECT_TRUE(flashOf("b", 1) == m_image);
}

TEST_F(FleetRollout, filesOfTheHosts_areFlashedByTheirNames)
{
    writeFile(m_files / "shelf/servo.bin", m_image);
    start("a", 1);
    const ToolResult result = run({"flash", "--id", "j", "--file-servo", "servo.bin", "--all"});
    EXPECT_EQ(result.exitCode, 0) << result.output << result.errors;
    const ToolResult wrong =
        run({"flash", "--id", "k", "--file-servo", "servo.bin", "--sha256-servo", std::string(64, '0'), "--all"});
    EXPECT_EQ(wrong.exitCode, 5);
    EXPECT_THAT(wrong.output, HasSubstr("a/1-1: failed: refused: sha256-servo is not that of the image"));
    endHosts();
    EXPECT_TRUE(contentOf(m_files / "a/panel0-servo.bin") == m_image);
}

TEST_F(FleetRollout, failures_stopItAndAnotherIdGoesOn)
{
    useImage(40000);
    GatewayHost& host =
        start("a", 4, {"--at", "0", "fault 0 boot unplug skip=5", "--at", "0", "fault 1 boot unplug skip=5"});
    const ToolResult result = runTool(flash({"--all", "--at-once", "1", "--stop-after", "2"}));
    EXPECT_EQ(result.exitCode, 5) << result.errors;
    EXPECT_THAT(result.output, HasSubstr("a/1-1: failed: the panel left at 16384 of 40000 bytes: flash it again\n"));
    EXPECT_THAT(result.output, HasSubstr("j: 0 done, 2 failed, 0 not known, 0 under way, 0 away, 2 not begun\n"));
    EXPECT_EQ(hear().begun.size(), 2u);
    const ToolResult same = runTool(flash({"--all"}));
    EXPECT_EQ(same.exitCode, 5);
    EXPECT_TRUE(hear().begun.empty()); // the failures count for this run, too
    host.tell("plug 0");
    host.tell("plug 1");
    const ToolResult other = run({"flash", "--id", "k", "--main", m_files / "main.bin", "--all", "--wait", "20s"});
    EXPECT_EQ(other.exitCode, 0) << other.output << other.errors;
    endHosts();
    expectFlashed("a", 4);
}

TEST_F(FleetRollout, killedInTheMiddle_goesOnWhereItWas)
{
    start("a", 4);
    {
        ToolRun killed(flash({"--all", "--at-once", "2"}));
        killed.awaitOutput("a/1-1: done\n");
        killed.awaitOutput("a/1-3: writing");
        killed.sendSignal(SIGKILL);
        EXPECT_EQ(killed.finish(), -SIGKILL);
    }
    const ToolResult result = runTool(flash({"--all", "--at-once", "2"}));
    EXPECT_EQ(result.exitCode, 0) << result.output << result.errors;
    EXPECT_THAT(result.output, Not(HasSubstr("a/1-1: asked")));
    EXPECT_THAT(result.output, Not(HasSubstr("a/1-3: asked")));
    const Heard heard = hear();
    EXPECT_EQ(heard.mostAtOnce, 2u);
    for (const auto& [topic, times] : heard.begun)
        EXPECT_EQ(times, 1u) << topic;
    endHosts();
    expectFlashed("a", 4);
}

TEST_F(FleetRollout, twoOfOneIdAtATime_flashNoPanelTwice)
{
    start("a", 3);
    ToolRun one(flash({"--all", "--at-once", "1"}));
    ToolRun other(flash({"--all", "--at-once", "1"}));
    EXPECT_EQ(one.finish(), 0) << one.getOutput();
    EXPECT_EQ(other.finish(), 0) << other.getOutput();
    const Heard heard = hear();
    EXPECT_EQ(heard.begun.size(), 3u);
    for (const auto& [topic, times] : heard.begun)
        EXPECT_EQ(times, 1u) << topic;
    endHosts();
    expectFlashed("a", 3);
}

TEST_F(FleetRollout, gatewayKilledInTheMiddle_isAFailureAndOthersGoOn)
{
    useImage(40000);
    GatewayHost& host = start("a", 1, {"--chunk-time", "500"});
    start("b", 2);
    ToolRun rollout(flash({"--all", "--at-once", "1", "--stop-after", "2"}));
    const auto written = m_peer.await([](const Message& message) {
        return message.topic == "panel/1/a/1-1/job/j" && message.payload.find("writing") != std::string::npos &&
               message.payload.find("\"bytesWritten\":0,") == std::string::npos;
    });
    ASSERT_TRUE(written);
    host.kill();
    EXPECT_EQ(rollout.finish(), 5);
    EXPECT_THAT(rollout.getOutput(), HasSubstr("a/1-1: interrupted: the gateway ended at "));
    EXPECT_THAT(rollout.getOutput(), HasSubstr("j: 2 done, 1 failed,"));
    EXPECT_EQ(run({"status", "--id", "j"}).exitCode, 5);
    const ToolResult other = run({"flash", "--id", "k", "--main", m_files / "main.bin", "a/1-1", "--wait", "20s"});
    EXPECT_EQ(other.exitCode, 0) << other.output << other.errors;
    endHosts();
    expectFlashed("a", 1);
    expectFlashed("b", 2);
}

TEST_F(FleetRollout, brokerStartedAnewInTheMiddle_goesOn)
{
    start("a", 3);
    ToolRun rollout(flash({"--all", "--at-once", "1"}));
    rollout.awaitOutput("a/1-2: writing");
    m_broker.stop();
    m_broker.start();
    EXPECT_EQ(rollout.finish(), 0) << rollout.getErrors();
    EXPECT_THAT(rollout.getOutput(), HasSubstr("(the connection with the broker is there again)\n"));
    EXPECT_THAT(rollout.getOutput(), HasSubstr("j: 3 done,"));
    endHosts();
    expectFlashed("a", 3);
}

TEST_F(FleetRollout, brokerThatForgets_isToldAgainByTheGateways)
{
    start("a", 3);
    ToolRun rollout(flash({"--all", "--at-once", "1"}));
    rollout.awaitOutput("a/1-1: done");
    m_broker.stop(SIGKILL);
    EXPECT_TRUE(std::filesystem::remove(m_broker.pathOf("mosquitto.db")));
    m_broker.start();
    EXPECT_EQ(rollout.finish(), 0) << rollout.getErrors();
    EXPECT_THAT(rollout.getOutput(), HasSubstr("j: 3 done,"));
    endHosts();
    expectFlashed("a", 3);
}

TEST_F(FleetRollout, firstSignal_waitsForWhatIsUnderWayAndBeginsNoMore)
{
    start("a", 3);
    ToolRun rollout(flash({"--all", "--at-once", "1"}));
    rollout.awaitOutput("a/1-1: writing");
    rollout.sendSignal(SIGINT);
    EXPECT_EQ(rollout.finish(), 130);
    EXPECT_THAT(rollout.getOutput(), HasSubstr("j: 1 done, 0 failed, 0 not known, 0 under way, 0 away, 2 not begun\n"));
    EXPECT_EQ(runTool(flash({"--all"})).exitCode, 0);
    endHosts();
    expectFlashed("a", 3);
}

TEST_F(FleetRollout, secondSignal_endsItAndTheGatewayGoesOn)
{
    useImage(40000);
    start("a", 2, {"--chunk-time", "400"});
    ToolRun rollout(flash({"--all", "--at-once", "1"}));
    rollout.awaitOutput("a/1-1: writing");
    rollout.sendSignal(SIGTERM);
    rollout.awaitOutput("(interrupted: no more is begun, and 1 under way are waited for");
    rollout.let(std::chrono::milliseconds(600));
    rollout.sendSignal(SIGTERM);
    EXPECT_EQ(rollout.finish(), 143);
    EXPECT_LT(rollout.getSeconds(), 2);
    EXPECT_THAT(rollout.getErrors(), HasSubstr("Under way, which goes on in the gateways: a/1-1.\n"));
    EXPECT_THAT(rollout.getErrors(), HasSubstr("The same command with --id j goes on with the rest.\n"));
    EXPECT_EQ(runTool(flash({"--all"})).exitCode, 0);
    for (const auto& [topic, times] : hear().begun)
        EXPECT_EQ(times, 1u) << topic;
    endHosts();
    expectFlashed("a", 2);
}

TEST_F(FleetRollout, panelThatIsBusy_isTriedAgain)
{
    start("a", 2);
    ToolRun other(fleet({"flash", "--id", "k", "--main", m_files / "main.bin", "a/1-1"}));
    other.awaitOutput("a/1-1: writing");
    const ToolResult result = runTool(flash({"--all", "--at-once", "1"}));
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_THAT(result.output, HasSubstr("a/1-1: waiting: busy: job k is under way\n"));
    EXPECT_EQ(other.finish(), 0);
    endHosts();
    expectFlashed("a", 2);
}

TEST_F(FleetRollout, panelThatIsAway_isReported)
{
    GatewayHost& host = start("a", 2);
    host.tell("unplug 1");
    const auto gone = m_peer.await([](const Message& message) {
        return message.topic == "panel/1/a/1-2/state" && message.payload.find("\"online\":false") != std::string::npos;
    });
    ASSERT_TRUE(gone);
    const ToolResult result = runTool(flash({"--all"}));
    EXPECT_EQ(result.exitCode, 6);
    EXPECT_THAT(result.output, HasSubstr("a/1-2: away: "));
    EXPECT_THAT(result.output, HasSubstr("j: 1 done, 0 failed, 0 not known, 0 under way, 1 away, 0 not begun\n"));
    const ToolResult listed = run({"list"});
    EXPECT_THAT(listed.output, HasSubstr("a/1-1: there since "));
    EXPECT_THAT(listed.output, HasSubstr("a/1-2: away since "));
}

TEST_F(FleetRollout, gatewayThatHasEnded_isAwayThoughItsPanelsStatesAreAsTheyWere)
{
    Message state;
    state.topic = "panel/1/dead/state";
    state.payload = R"({"online":false,"epoch":7,"run":"x","version":"1.2.1"})";
    state.isRetained = true;
    state.qos = 1;
    m_peer.publish(state);
    state.topic = "panel/1/dead/1-1/state";
    state.payload = R"({"online":true,"epoch":7,"since":"2026-11-22T22:19:31Z"})";
    m_peer.publish(state);
    EXPECT_EQ(run({"list"}).output, "dead/1-1: its gateway is away, gateway 1.2.1\n");
    const ToolResult result = runTool(flash({"--all"}));
    EXPECT_EQ(result.exitCode, 6);
    EXPECT_THAT(result.output, HasSubstr("dead/1-1: away: its gateway is away\n"));
}

TEST_F(FleetRollout, largestImage_goesToSeveralPanelsAtOnce)
{
    start("a", 3);
    writeFile(m_files / "large.bin", makeFleetImage(16777216, 2));
    ToolRun rollout(fleet({"flash", "--id", "l", "--main", m_files / "large.bin", "--all"}));
    for (const char* const panel : {"a/1-1: writing", "a/1-2: writing", "a/1-3: writing"})
        rollout.awaitOutput(panel);
    rollout.sendSignal(SIGKILL);
    rollout.finish();
    EXPECT_EQ(run({"status", "--id", "l"}).exitCode, 6);
}

} // namespace Vantor
