// What has an answer "taken" was in the panel, whatever happens to whom; what the simulated
// panels have received tells.
#include "tests/mqtt/GatewayHost.h"

#include "tests/mqtt/MqttPeer.h"

#include <atomic>
#include <csignal>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <thread>

#include <gmock/gmock.h>

namespace Vantor {

namespace {

using testing::IsEmpty;
using testing::IsSubsetOf;

constexpr std::chrono::milliseconds quiet{150};

// "b-17"
std::string nameOf(char publisher, unsigned int number)
{
    return std::string{publisher, '-'} + std::to_string(number);
}

// Publishes numbered records to panels, all of one type, and repeats what is not answered.
//
// Threads: one, each its own.
class Publisher {
public:
    Publisher(const MosquittoBroker& broker, char name) : m_broker(broker), m_name(name) {}

    // A window of so many records at a time to each of the hosts' panels, one record after the
    // other for each.
    void run(const std::vector<const GatewayHost*>& hosts, unsigned int panels, unsigned int type, unsigned int end,
             unsigned int begin = 0)
    {
        connect(hosts);
        for (unsigned int number = begin; number < end; ++number) {
            std::map<std::string, Message> open;
            for (const GatewayHost* const host : hosts) {
                for (unsigned int panel = 0; panel < panels; ++panel)
                    open.emplace(idOf(*host, panel, number), makeRecord(*host, panel, type, number));
            }
            settle(open, hosts);
        }
    }

    // By host and panel: the records that were answered "taken".
    std::map<std::string, std::vector<std::string>> taken;

private:
    void connect(const std::vector<const GatewayHost*>& hosts)
    {
        for (int time = 0;; ++time) {
            try {
                m_peer = std::make_unique<MqttPeer>(m_broker.getSettings());
                for (const GatewayHost* const host : hosts)
                    m_peer->subscribe(host->topicOf("answer/") + m_name);
                return;
            } catch (const std::runtime_error&) {
                if (time == 100)
                    throw;
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            }
        }
    }

    std::string idOf(const GatewayHost& host, unsigned int panel, unsigned int number) const
    {
        return host.topicOf(std::to_string(panel)) + " " + nameOf(m_name, number);
    }

    Message makeRecord(const GatewayHost& host, unsigned int panel, unsigned int type, unsigned int number) const
    {
        const std::string place = "1-" + std::to_string(panel + 1);
        Message record = makeCommand(host, place + "/do/send/" + std::to_string(type), nameOf(m_name, number),
                                     idOf(host, panel, number));
        record.responseTopic = host.topicOf("answer/") + m_name;
        return record;
    }

    void settle(std::map<std::string, Message>& open, const std::vector<const GatewayHost*>& hosts)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!open.empty()) {
            ASSERT_LT(std::chrono::steady_clock::now(), end) << open.begin()->first << " is not taken";
            const std::size_t before = open.size();
            try {
                for (const auto& [id, record] : open)
                    m_peer->publish(record, quiet);
                while (!open.empty() && takeAnswer(open)) {
                }
            } catch (const std::runtime_error&) {
                // The connection is lost; so it is, perhaps, when nobody answers.
            }
            if (open.size() == before)
                connect(hosts);
        }
    }

    // False: none has come for a while.
    bool takeAnswer(std::map<std::string, Message>& open)
    {
        const auto answer =
            m_peer->await([](const Message& message) { return message.correlation.has_value(); }, quiet);
        if (!answer)
            return false;
        const auto known = open.find(*answer->correlation);
        if (known == open.end())
            return true;
        if (wordOf(*answer) != "taken") { // for good: what follows is a new attempt
            auto again = open.extract(known);
            again.key() += '+';
            again.mapped().correlation = again.key();
            open.insert(std::move(again));
            return true;
        }
        taken[known->first.substr(0, known->first.find(' '))].push_back(known->second.payload);
        open.erase(known);
        return true;
    }

    const MosquittoBroker& m_broker;
    const char m_name;
    std::unique_ptr<MqttPeer> m_peer;
};

// Only this publisher's.
std::vector<std::string> ofPublisher(const std::vector<std::string>& records, char publisher)
{
    std::vector<std::string> own;
    for (const std::string& record : records) {
        if (record[0] == publisher)
            own.push_back(record);
    }
    return own;
}

std::vector<std::string> withoutDoubles(const std::vector<std::string>& records)
{
    std::vector<std::string> once;
    std::set<std::string> seen;
    for (const std::string& record : records) {
        if (seen.insert(record).second)
            once.push_back(record);
    }
    return once;
}

std::size_t memoryOf(int process)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string word; status >> word;) {
        std::size_t kibibytes = 0;
        if (word == "VmRSS:" && status >> kibibytes)
            return kibibytes;
    }
    return 0;
}

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
    std::vector<Publisher> publishers;
    std::vector<std::thread> threads;
    for (const char name : {'a', 'b', 'c'})
        publishers.emplace_back(broker, name);
    for (Publisher& publisher : publishers)
        threads.emplace_back([&publisher, &all] { publisher.run(all, 8, 5, 20); });
    for (std::thread& thread : threads)
        thread.join();
    for (const auto& host : hosts) {
        for (unsigned int panel = 0; panel < 8; ++panel) {
            const auto records = host->readRecords(panel, 5);
            EXPECT_EQ(records.size(), 60U);
            for (Publisher& publisher : publishers) {
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
    Publisher publisher(broker, 'a');
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
    Publisher publisher(broker, 'a');
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

TEST_F(GatewayOracle, panelUnpluggedInMidBatch_everyTakenIsThere)
{
    MosquittoBroker broker;
    GatewayHost host(broker, {"shop", 1, {}, ""});
    await(broker, host);
    Publisher publisher(broker, 'a');
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
