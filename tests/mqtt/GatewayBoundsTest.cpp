// Whatever comes, and however often: memory and descriptors stay where they are, and what finds
// no room is counted.
#include "tests/mqtt/GatewayHost.h"
#include "tests/mqtt/MqttPeer.h"

#include <csignal>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace Vantor {

namespace {

using std::chrono::milliseconds;

class GatewayBounds : public testing::Test {
protected:
    void await(const GatewayHost& host)
    {
        m_peer.subscribe(host.topicOf("answer/test"));
        host.awaitPanels(m_peer);
    }
    void publishUnheeded(Message message)
    {
        message.qos = 0;
        m_peer.publish(message);
    }
    // Of the next counts that the gateway, or a panel's place, tells.
    std::uint64_t awaitCount(const std::string& topic, const std::string& name)
    {
        const auto stats = m_peer.await(topic);
        return stats ? std::stoull("0" + fieldOf(stats->payload, name)) : 0;
    }

    MosquittoBroker m_broker;
    MqttPeer m_peer{m_broker.getSettings()};
};

} // namespace

TEST_F(GatewayBounds, commandsForAPanelThatTakesNothing_areBusyAndCounted)
{
    const GatewayHost host(m_broker, {"shop", 2, {}, ""});
    await(host);
    host.tell("fault 0 out silent sticky");
    for (unsigned int number = 0; number < 500; ++number)
        publishUnheeded(makeCommand(host, "1-1/do/send/5", "x", std::to_string(number)));
    std::map<std::string, unsigned int> words;
    while (words["busy"] < 500 - 256 - 64) {
        const auto answer = m_peer.await(host.topicOf("answer/test"));
        ASSERT_TRUE(answer);
        ++words[wordOf(*answer)];
    }
    m_peer.subscribe(host.topicOf("+/stats"));
    publishUnheeded(makeCommand(host, "1-1/do/stats", "", ""));
    const auto stats = m_peer.await(host.topicOf("1-1/stats"));
    ASSERT_TRUE(stats);
    while (const auto answer = m_peer.await(host.topicOf("answer/test"), milliseconds(100)))
        ++words[wordOf(*answer)];
    EXPECT_EQ(fieldOf(stats->payload, "busy"), std::to_string(words["busy"])) << stats->payload;
    EXPECT_EQ(fieldOf(stats->payload, "waiting"), "256") << stats->payload;
    for (unsigned int number = 0; number < 20; ++number) {
        const std::string id = "other" + std::to_string(number);
        m_peer.publish(makeCommand(host, "1-2/do/send/5", "x", id));
        EXPECT_EQ(awaitAnswer(m_peer, id), "taken");
    }
}

TEST_F(GatewayBounds, recordsOfAPanelForABrokerThatTakesNothing_areDroppedAndCounted)
{
    const GatewayHost host(m_broker, {"shop", 2, {}, "[panels]\nstats_every = 1\n"});
    await(host);
    const std::size_t before = memoryOf(host.getProcess());
    m_broker.tell(SIGSTOP);
    // 36 MB, as fast as they are read; 16 MiB are what may wait for the broker.
    host.tell("emit 0 type=20 size=8000 count=4500 every=1");
    ASSERT_TRUE(eventually([&] { return countOf(contentOf(host.pathOf("log")), ": emit type 20,") == 4500; }));
    EXPECT_LT(memoryOf(host.getProcess()), before + 32 * 1024);
    m_broker.tell(SIGCONT);
    m_peer.subscribe(host.topicOf("stats"));
    EXPECT_TRUE(eventually([&] { return awaitCount(host.topicOf("stats"), "droppedEvents") > 500; }));
    m_peer.publish(makeCommand(host, "1-1/do/send/5", "x", "x"));
    EXPECT_EQ(awaitAnswer(m_peer, "x"), "taken");
}

TEST_F(GatewayBounds, moreThanTheGatewayCanLookAt_isBusyAndCounted)
{
    const TemporaryFolder folder;
    writeFile(folder / "large", std::string(16 << 20, 'l'));
    GatewayHost host(m_broker,
                     {"shop", 1, {}, "[panels]\nstats_every = 1\n[firmware]\nfolder = \"" + folder.getPath() + "\"\n"});
    await(host);
    // To read one takes its time, and each of these is refused for its sum.
    for (unsigned int number = 0; number < 20; ++number) {
        Message slow = makeCommand(host, "1-1/do/flash", "", "slow" + std::to_string(number));
        slow.userProperties = {{"main", "large"}, {"sha256-main", std::string(64, '0')}};
        publishUnheeded(slow);
    }
    const std::size_t before = memoryOf(host.getProcess());
    m_peer.subscribe(host.topicOf("stats"));
    for (unsigned int number = 0; number < 8000; ++number)
        publishUnheeded(makeCommand(host, "1-1/do/send/5", std::string(1000, 'x'), "x" + std::to_string(number)));
    const auto busy = m_peer.await([&](const Message& message) {
        return message.payload.find("the gateway has too much to do") != std::string::npos;
    });
    ASSERT_TRUE(busy);
    EXPECT_EQ(wordOf(*busy), "busy");
    EXPECT_LT(memoryOf(host.getProcess()), before + 64 * 1024);
    EXPECT_TRUE(eventually([&] { return awaitCount(host.topicOf("stats"), "busy") > 0; }));
    EXPECT_TRUE(eventually([&] {
        // Under the flood the broker drops commands and answers.
        m_peer.publish(makeCommand(host, "1-1/do/send/6", "last", "last"));
        return awaitAnswer(m_peer, "last", milliseconds(2000)) == "taken";
    }));
    host.stop(); // what no line has told yet is told then
    EXPECT_THAT(host.readErrors(), testing::ContainsRegex("lost: .*[0-9]+ commands, answered busy"));
}

TEST_F(GatewayBounds, idsThatNeverComeAgain_takeNoMemory)
{
    const GatewayHost host(m_broker, {});
    await(host);
    const auto sendMany = [&](unsigned int begin, unsigned int end) {
        for (unsigned int number = begin; number < end; ++number) {
            const std::string id = std::to_string(number) + std::string(50, 'i');
            publishUnheeded(makeCommand(host, "1-1/do/set/5/1", "x", id));
            if (number % 50 == 49) {
                EXPECT_NE(awaitAnswer(m_peer, id), "none");
            }
        }
        m_peer.takeAll(milliseconds(0));
    };
    sendMany(0, 2000);
    const std::size_t before = memoryOf(host.getProcess());
    sendMany(2000, 12000);
    EXPECT_LT(memoryOf(host.getProcess()), before + 2 * 1024);
}

TEST_F(GatewayBounds, panelsThatComeAndGo_leaveNothing)
{
    constexpr int panels = 10;
    const GatewayHost host(m_broker, {"shop", panels, {}, ""});
    await(host);
    const auto cycle = [&] {
        for (const char* const order : {"unplug ", "plug "}) {
            std::vector<std::string> orders;
            for (int panel = 0; panel < panels; ++panel)
                orders.push_back(order + std::to_string(panel));
            host.tell(orders);
            const std::string online = order[0] == 'u' ? "\"online\":false" : "\"online\":true";
            for (int panel = 0; panel < panels; ++panel) {
                ASSERT_TRUE(m_peer.await([&](const Message& message) {
                    return message.topic == host.topicOf("1-" + std::to_string(panel + 1) + "/state") &&
                           message.payload.find(online) != std::string::npos;
                }));
            }
        }
    };
    for (int time = 0; time < 4; ++time)
        cycle();
    const int process = host.getProcess();
    const std::size_t memory = memoryOf(process);
    const std::size_t descriptors = countDescriptorsOf(process);
    for (int time = 0; time < 20 && !HasFailure(); ++time)
        cycle();
    EXPECT_LT(memoryOf(process), memory + 2 * 1024);
    EXPECT_TRUE(eventually([&] { return countDescriptorsOf(process) <= descriptors; }))
        << countDescriptorsOf(process) << " descriptors, and before " << descriptors;
    EXPECT_EQ(host.getProcess(), process);
}

} // namespace Vantor
