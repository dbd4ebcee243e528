// What has an answer "taken" was in the panel, whatever happens to whom; what the simulated
// panels have received tells.
#include "tests/mqtt/GatewayHost.h"

#include "tests/mqtt/MqttPeer.h"
#include "tests/mqtt/NumberingPublisher.h"

#include <atomic>
#include <csignal>
#include <map>
#include <memory>
#include <set>
#include <thread>

#include <gmock/gmock.h>

namespace Vantor {

namespace {

using testing::IsEmpty;
using testing::IsSubsetOf;

class GatewayOracle : public testing::Test {
protected:
    static void await(const MosquittoBroker& broker, const GatewayHost& host)
    {
        MqttPeer peer(broker.getSettings());
        host.awaitPanels(peer);
    }
};

} // namespace

TEST_F(GatewayOracle, threePublishersOnThreeHosts_everyTakenIsThereOnceAndInOrder)
{
    MosquittoBroker broker;
    std::vector<std::unique_ptr<GatewayHost>> hosts;
    std::vector<const GatewayHost*> all;
    for (const char* const name : {"one", "two", "three"}) {
        hosts.push_back(std::make_unique<GatewayHost>(broker, GatewayHost::Options{name, 8, {}, ""}));
        all.push_back(hosts.back().get());
    }
    for (const auto& host : hosts)
        await(broker, *host);
    std::vector<NumberingPublisher> publishers;
    std::vector<std::thread> threads;
    for (const char name : {'a', 'b', 'c'})
        publishers.emplace_back(broker, name);
    for (NumberingPublisher& publisher : publishers)
        threads.emplace_back([&publisher, &all] { publisher.run(all, 8, 5, 20); });
    for (std::thread& thread : threads)
        thread.join();
    for (const auto& host : hosts) {
        for (unsigned int panel = 0; panel < 8; ++panel) {
            const auto records = host->readRecords(panel, 5);
            EXPECT_EQ(records.size(), 60U);
            for (NumberingPublisher& publisher : publishers) {
                const auto& taken = publisher.taken[host->topicOf(std::to_string(panel))];
                EXPECT_EQ(taken.size(), 20U);
                EXPECT_EQ(ofPublisher(records, taken.at(0)[0]), taken) << host->topicOf(std::to_string(panel));
            }
        }
    }
}

TEST_F(GatewayOracle, brokerKilledAgainAndAgain_everyTakenIsThereOnceAndInOrder)
{
    MosquittoBroker broker; // keeps nothing
    const GatewayHost host(broker, {"shop", 2, {}, ""});
    await(broker, host);
    NumberingPublisher publisher(broker, 'a');
    std::thread thread([&] { publisher.run({&host}, 2, 5, 150); });
    for (const int signal : {SIGKILL, SIGTERM, SIGKILL}) {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        broker.stop(signal);
        broker.start();
        await(broker, host);
    }
    thread.join();
    for (unsigned int panel = 0; panel < 2; ++panel) {
        EXPECT_EQ(publisher.taken[host.topicOf(std::to_string(panel))].size(), 150U);
        EXPECT_EQ(host.readRecords(panel, 5), publisher.taken[host.topicOf(std::to_string(panel))]);
    }
}

TEST_F(GatewayOracle, gatewayKilledAHundredTimes_everyTakenIsThere)
{
    MosquittoBroker broker;
    GatewayHost host(broker, {"shop", 2, {}, ""});
    await(broker, host);
    NumberingPublisher publisher(broker, 'a');
    std::atomic<bool> goesOn{true};
    std::thread thread([&] {
        for (unsigned int begin = 0; goesOn; begin += 10)
            publisher.run({&host}, 2, 5, begin + 10, begin);
    });
    constexpr unsigned int kills = 100;
    for (unsigned int kill = 0; kill < kills; ++kill) {
        host.kill();
        std::this_thread::sleep_for(std::chrono::milliseconds(7 * (kill % 16)));
    }
    goesOn = false;
    thread.join();
    await(broker, host);
    for (unsigned int panel = 0; panel < 2; ++panel) {
        const auto& taken = publisher.taken[host.topicOf(std::to_string(panel))];
        const auto records = host.readRecords(panel, 5);
        EXPECT_GE(taken.size(), 10U);
        // One that was under way at the end of a run may be there twice.
        EXPECT_EQ(withoutDoubles(records), taken);
        EXPECT_LE(records.size(), taken.size() + 2 * kills);
    }
}

TEST_F(GatewayOracle, recordsThatNobodyWaitsFor_keepTheOrderOfTypeAndPublisher)
{
    const MosquittoBroker broker;
    const GatewayHost host(broker, {});
    await(broker, host);
    std::vector<std::unique_ptr<MqttPeer>> peers;
    for (int count = 0; count < 3; ++count)
        peers.push_back(std::make_unique<MqttPeer>(broker.getSettings()));
    for (const auto& peer : peers)
        peer->subscribe(host.topicOf("answer/test"));
    constexpr unsigned int each = 80; // of all together 256 may wait
    for (unsigned int number = 0; number < each; ++number) {
        for (std::size_t publisher = 0; publisher < peers.size(); ++publisher) {
            // Of keyed ones the library would send the lowest key first, and all before those without.
            const unsigned int key = 1000 * static_cast<unsigned int>(publisher + 1) - number;
            const std::string rest = number % 3 == 0 ? "1-1/do/send/5" : "1-1/do/set/5/" + std::to_string(key);
            const std::string name = std::string(1, static_cast<char>('a' + publisher)) + std::to_string(number);
            Message record = makeCommand(host, rest, name, name);
            record.qos = 0;
            peers[publisher]->publish(record);
        }
    }
    for (unsigned int count = 0; count < each * peers.size(); ++count) {
        const auto answer = peers[0]->await(host.topicOf("answer/test"));
        ASSERT_TRUE(answer) << count;
        ASSERT_EQ(wordOf(*answer), "taken");
    }
    const auto records = host.readRecords(0, 5);
    EXPECT_EQ(records.size(), each * peers.size());
    for (std::size_t publisher = 0; publisher < peers.size(); ++publisher) {
        const char letter = static_cast<char>('a' + publisher);
        std::vector<std::string> published;
        for (unsigned int number = 0; number < each; ++number)
            published.push_back(letter + std::to_string(number));
        EXPECT_EQ(ofPublisher(records, letter), published);
    }
}

TEST_F(GatewayOracle, panelUnpluggedInMidBatch_whatIsNotTakenHasAnotherAnswer)
{
    const MosquittoBroker broker;
    const GatewayHost host(broker, {});
    await(broker, host);
    MqttPeer peer(broker.getSettings());
    peer.subscribe(host.topicOf("answer/test"));
    constexpr unsigned int count = 240;
    std::map<std::string, std::string> words;
    for (unsigned int number = 0; number < count; ++number) {
        Message record = makeCommand(host, "1-1/do/send/5", std::to_string(number), std::to_string(number));
        record.payload.resize(900, '.'); // a batch has nine
        record.qos = 0;
        peer.publish(record);
        if (number == count / 2)
            host.tell("unplug 0");
    }
    while (words.size() < count) {
        const auto answer = peer.await(host.topicOf("answer/test"));
        ASSERT_TRUE(answer) << words.size();
        EXPECT_TRUE(words.emplace(*answer->correlation, wordOf(*answer)).second) << "answered twice";
    }
    std::set<std::string> had; // of long ones the log has the beginning
    for (const std::string& record : host.readRecords(0, 5))
        had.insert(record.substr(0, record.find('.')));
    std::map<std::string, unsigned int> counts;
    for (const auto& [id, word] : words) {
        ++counts[word];
        EXPECT_TRUE(word != "taken" || had.count(id) == 1) << id << " is not there";
        EXPECT_THAT(word, testing::AnyOf("taken", "offline"));
    }
    EXPECT_GT(counts["taken"], 0U);
    EXPECT_GT(counts["offline"], 0U);
    // At the most a batch was under way: what it had of it, nobody knows.
    EXPECT_LE(had.size(), counts["taken"] + 64);
}

TEST_F(GatewayOracle, panelUnpluggedInMidBatch_everyTakenIsThere)
{
    MosquittoBroker broker;
    GatewayHost host(broker, {"shop", 1, {}, ""});
    await(broker, host);
    NumberingPublisher publisher(broker, 'a');
    std::thread thread([&] { publisher.run({&host}, 1, 5, 200); });
    for (int time = 0; time < 10; ++time) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        host.tell("unplug 0");
        host.tell("plug 0");
    }
    thread.join();
    EXPECT_THAT(publisher.taken[host.topicOf("0")], testing::SizeIs(200));
    EXPECT_EQ(withoutDoubles(host.readRecords(0, 5)), publisher.taken[host.topicOf("0")]);
}

TEST_F(GatewayOracle, floodForAPanelThatTakesNothing_isBusyAndDelaysNoOther)
{
    MosquittoBroker broker;
    GatewayHost host(broker, {"shop", 2, {}, ""});
    await(broker, host);
    host.tell("fault 0 out silent sticky");
    MqttPeer peer(broker.getSettings());
    peer.subscribe(host.topicOf("answer/test"));
    const std::string payload(1000, 'f');
    const auto flood = [&] {
        for (unsigned int number = 0; number < 4000; ++number) {
            Message record = makeCommand(host, "1-1/do/send/5", payload, "");
            record.correlation = "flood";
            record.userProperties.emplace_back("id", std::to_string(number));
            record.qos = 0;
            peer.publish(record);
        }
    };
    flood();
    EXPECT_EQ(wordOf(*peer.await(host.topicOf("answer/test"))), "busy");
    const std::size_t before = memoryOf(host.getProcess());
    for (int time = 0; time < 5; ++time)
        flood();
    // The broker keeps no more than a thousand answers for one that is behind with its reading.
    MqttPeer other(broker.getSettings());
    other.subscribe(host.topicOf("answer/other"));
    Message quick = makeCommand(host, "1-2/do/send/5", "quick", "q");
    quick.responseTopic = host.topicOf("answer/other");
    // The broker drops what it has no room for, this too: whoever has no answer asks again.
    std::optional<Message> answer;
    for (int time = 0; time < 40 && !answer; ++time) {
        other.publish(quick);
        answer = other.await(quick.responseTopic, std::chrono::milliseconds(500));
        if (answer && wordOf(*answer) == "busy")
            answer.reset();
    }
    ASSERT_TRUE(answer);
    EXPECT_EQ(wordOf(*answer), "taken");
    // 20 MB more have come. What waits for the gateway's loop, and for the broker, may be 4,096 messages.
    EXPECT_LT(memoryOf(host.getProcess()), before + 12 * 1024); // KiB
    EXPECT_EQ(host.readRecords(1, 5), std::vector<std::string>{"quick"});
}

} // namespace Vantor
