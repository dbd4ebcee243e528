// The host's time of day steps: what the gateway promises does not.
#include "tests/mqtt/GatewayHost.h"
#include "tests/mqtt/MqttPeer.h"

#include <string>

#include <gmock/gmock.h>

namespace Vantor {

namespace {

using testing::ElementsAre;
using testing::StartsWith;

constexpr long hours = 3600;

class GatewayClock : public testing::Test {
protected:
    // Before the host, which reads it.
    void step(long seconds) const { writeFile(m_folder / "offset", std::to_string(seconds)); }

    GatewayHost::Options getOptions(const std::string& settings = "") const
    {
        GatewayHost::Options options;
        options.settings = settings;
        options.environment =
            "LD_PRELOAD=\"$LD_PRELOAD:" MORVANE_STEPPED_CLOCK "\" STEPPED_CLOCK=\"" + (m_folder / "offset") + '"';
        return options;
    }
    std::uint64_t awaitEpochAbove(const GatewayHost& host, std::uint64_t epoch) const
    {
        std::uint64_t now = 0;
        EXPECT_TRUE(eventually([&] {
            const auto topics = readRetained(m_broker, host.topicOf("#"));
            const auto state = topics.find(host.topicOf("state"));
            const auto panel = topics.find(host.topicOf("1-1/state"));
            if (state == topics.end() || panel == topics.end() ||
                state->second.find("\"online\":true") == std::string::npos ||
                panel->second.find("\"online\":true") == std::string::npos)
                return false;
            now = std::stoull(fieldOf(state->second, "epoch"));
            return now > epoch && fieldOf(panel->second, "epoch") == std::to_string(now);
        })) << now
            << " after " << epoch;
        return now;
    }
    std::string sinceOf(const GatewayHost& host) const
    {
        const std::string state = readRetained(m_broker, host.topicOf("1-1/state"))[host.topicOf("1-1/state")];
        const auto at = state.find("\"since\":\"");
        return at == std::string::npos ? state : state.substr(at + 9, 20);
    }
    static std::string textOf(std::time_t time)
    {
        std::tm parts{};
        char text[32] = {};
        std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", gmtime_r(&time, &parts));
        return text;
    }

    const TemporaryFolder m_folder;
    MosquittoBroker m_broker;
};

} // namespace

TEST_F(GatewayClock, stepsAcrossStartsAndConnections_epochGrowsAllTheSame)
{
    step(0);
    GatewayHost host(m_broker, getOptions());
    std::uint64_t epoch = awaitEpochAbove(host, 0);
    for (const long offset : {6 * hours, -6 * hours, -30 * 24 * hours}) {
        step(offset);
        host.stop(offset > 0 ? SIGTERM : SIGKILL);
        host.start();
        epoch = awaitEpochAbove(host, epoch);
    }
    step(-300 * 24 * hours); // while it runs, and then comes a connection
    m_broker.stop();
    m_broker.start();
    awaitEpochAbove(host, epoch);
}

TEST_F(GatewayClock, since_isTheTimeOfDayAsItIsThen)
{
    step(0);
    const GatewayHost host(m_broker, getOptions());
    awaitEpochAbove(host, 0);
    for (const long offset : {6 * hours, -6 * hours}) {
        step(offset);
        const std::time_t before = std::time(nullptr) + offset;
        host.tell("unplug 0");
        EXPECT_TRUE(eventually([&] {
            const std::string since = sinceOf(host);
            return since >= textOf(before) && since <= textOf(std::time(nullptr) + offset);
        })) << sinceOf(host)
            << ", not " << textOf(before);
        host.tell("plug 0");
        awaitEpochAbove(host, 0);
    }
}

TEST_F(GatewayClock, whatTakesItsTime_takesNoMoreAndNoLess)
{
    step(0);
    const GatewayHost host(m_broker, getOptions("[panels]\nforget_after = \"5h\"\nwait = 2\n"));
    MqttPeer peer(m_broker.getSettings());
    peer.subscribe(host.topicOf("answer/test"));
    awaitEpochAbove(host, 0);
    peer.publish(makeCommand(host, "1-1/do/send/5", "once", "a"));
    EXPECT_EQ(awaitAnswer(peer, "a"), "taken");

    // An id is known for ten minutes, and a command waits for two seconds.
    step(6 * hours);
    peer.publish(makeCommand(host, "1-1/do/send/5", "once", "a"));
    EXPECT_EQ(awaitAnswer(peer, "a"), "taken");
    EXPECT_THAT(host.readRecords(0, 5), ElementsAre("once"));
    host.tell("fault 0 out silent sticky");
    peer.publish(makeCommand(host, "1-1/do/send/5", "waits", "b"));
    step(-6 * hours);
    EXPECT_EQ(awaitAnswer(peer, "b"), "expired");

    // A place is kept for five hours.
    host.tell("unplug 0");
    EXPECT_TRUE(eventually(
        [&] { return readRetained(m_broker, host.topicOf("1-1/state")).count(host.topicOf("1-1/state")) == 1; }));
    step(20 * 24 * hours);
    peer.publish(makeCommand(host, "1-1/do/send/5", "x", "c"));
    EXPECT_EQ(awaitAnswer(peer, "c"), "offline");
    EXPECT_EQ(readRetained(m_broker, host.topicOf("1-1/+")).size(), 2U);
}

TEST_F(GatewayClock, certificateThatIsOutOfItsTimeByAWrongClock_isToldSoAndTakenWhenItIsRight)
{
    const TestAuthority authority;
    MosquittoBroker::Options secure;
    secure.authority = &authority;
    const MosquittoBroker broker(secure);
    step(-24 * hours);
    const GatewayHost host(broker, getOptions("tls = true\nauthority = \"" + authority.getFile() + "\"\n"));
    EXPECT_TRUE(eventually([&] {
        return host.readErrors().find("the broker's certificate is not valid yet: is this host's clock right?") !=
               std::string::npos;
    })) << host.readErrors();
    step(0);
    MqttPeer peer(broker.getSettings());
    EXPECT_NO_THROW(host.awaitPanels(peer));
}

} // namespace Vantor
