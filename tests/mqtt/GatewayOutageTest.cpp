// The broker, the connection or the gateway is away for a while: what is true afterwards.
#include "tests/mqtt/GatewayHost.h"
#include "tests/mqtt/MqttPeer.h"
#include "tests/mqtt/NumberingPublisher.h"

#include <algorithm>
#include <csignal>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

namespace Vantor {

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Message makeRetained(const std::string& topic, const std::string& payload)
{
    Message message;
    message.topic = topic;
    message.payload = payload;
    message.qos = 1;
    message.isRetained = true;
    return message;
}

MosquittoBroker::Options optionsOf(bool persists)
{
    MosquittoBroker::Options options;
    options.persists = persists;
    return options;
}

// What the broker retains of a host, and whether that is what it should be.
class RetainedStates {
public:
    RetainedStates(const MosquittoBroker& broker, const GatewayHost& host)
        : m_host(host), m_topics(readRetained(broker, host.topicOf("#")))
    {}

    bool areOfOnePresentGateway(unsigned int panels) const
    {
        const std::string epoch = getEpoch();
        if (!has("state", "\"online\":true"))
            return false;
        for (unsigned int panel = 1; panel <= panels; ++panel) {
            const std::string place = "1-" + std::to_string(panel);
            if (!has(place + "/state", "\"online\":true,\"epoch\":" + epoch + ",") || !has(place + "/info", place))
                return false;
        }
        const auto told = std::count_if(m_topics.begin(), m_topics.end(), [](const auto& topic) {
            return topic.first.find("/want/") == std::string::npos;
        });
        return told == 1 + 2 * static_cast<int>(panels);
    }
    bool has(const std::string& rest, const std::string& text) const
    {
        const auto found = m_topics.find(m_host.topicOf(rest));
        return found != m_topics.end() && found->second.find(text) != std::string::npos;
    }
    std::string getEpoch() const
    {
        const auto found = m_topics.find(m_host.topicOf("state"));
        return found != m_topics.end() ? fieldOf(found->second, "epoch") : "none";
    }
    std::string print() const { return testing::PrintToString(m_topics); }

private:
    const GatewayHost& m_host;
    const std::map<std::string, std::string> m_topics;
};

} // namespace

class GatewayOutage : public testing::Test {
protected:
    static void await(const MosquittoBroker& broker, const GatewayHost& host)
    {
        MqttPeer peer(broker.getSettings());
        host.awaitPanels(peer);
    }
    // Taken, so that all before it has been.
    static void passBarrier(const MosquittoBroker& broker, const GatewayHost& host, const std::string& id)
    {
        MqttPeer peer(broker.getSettings());
        peer.subscribe(host.topicOf("answer/test"));
        std::string word;
        EXPECT_TRUE(eventually([&] {
            peer.publish(makeCommand(host, "1-1/do/send/8", id, id));
            const auto answer =
                peer.await([&](const Message& message) { return message.correlation == id; }, milliseconds(500));
            word = answer ? wordOf(*answer) : "none";
            return word == "taken";
        })) << word;
    }
    static void expectPresent(const MosquittoBroker& broker, const GatewayHost& host, unsigned int panels)
    {
        EXPECT_TRUE(eventually([&] { return RetainedStates(broker, host).areOfOnePresentGateway(panels); }))
            << RetainedStates(broker, host).print();
    }
};

// How the broker ends, and whether it keeps what it has.
class GatewayOutageOfBroker : public GatewayOutage, public testing::WithParamInterface<std::tuple<int, bool>> {};

TEST_P(GatewayOutageOfBroker, underTraffic_takenIsThereStatesAreRightAndWishesAreAsTheBrokerHasThem)
{
    const auto [signal, persists] = GetParam();
    MosquittoBroker broker(optionsOf(persists));
    const GatewayHost host(broker, {"shop", 2, {}, ""});
    await(broker, host);
    MqttPeer(broker.getSettings()).publish(makeRetained(host.topicOf("1-1/want/7/3"), "wished"));
    passBarrier(broker, host, "before");
    NumberingPublisher publisher(broker, 'a');
    std::thread thread([&] { publisher.run({&host}, 2, 5, 80); });
    for (int time = 0; time < 2; ++time) {
        std::this_thread::sleep_for(milliseconds(20)); // into the traffic
        broker.stop(signal);
        broker.start();
        await(broker, host);
    }
    thread.join();
    for (unsigned int panel = 0; panel < 2; ++panel) {
        EXPECT_EQ(publisher.taken[host.topicOf(std::to_string(panel))].size(), 80U);
        EXPECT_EQ(host.readRecords(panel, 5), publisher.taken[host.topicOf(std::to_string(panel))]);
    }
    if (!persists) // a wish lives in the broker alone
        MqttPeer(broker.getSettings()).publish(makeRetained(host.topicOf("1-2/want/7/3"), "told since"));
    host.tell("unplug 0");
    host.tell("plug 0");
    expectPresent(broker, host, 2);
    passBarrier(broker, host, "after");
    const std::vector<std::string> kept{"wished", "wished"};
    EXPECT_EQ(host.readRecords(0, 7), persists ? kept : std::vector<std::string>{"wished"});
    const std::vector<std::string> said =
        persists ? std::vector<std::string>{} : std::vector<std::string>{"told since"};
    EXPECT_TRUE(eventually([&] { return host.readRecords(1, 7) == said; }));
}

INSTANTIATE_TEST_SUITE_P(EveryWay, GatewayOutageOfBroker,
                         testing::Combine(testing::Values(SIGTERM, SIGKILL), testing::Bool()), [](const auto& way) {
                             return std::string(std::get<0>(way.param) == SIGTERM ? "byTerm" : "byKill") +
                                    (std::get<1>(way.param) ? "AndKeeps" : "AndForgets");
                         });

TEST_F(GatewayOutage, panelsThatCameAndWentMeanwhile_areToldAsTheyAre)
{
    MosquittoBroker broker(optionsOf(true));
    GatewayHost host(broker, {"shop", 3, {}, "[panels]\nforget_after = 1\n"});
    await(broker, host);
    expectPresent(broker, host, 3);
    broker.stop(SIGKILL);
    host.tell("unplug 2");
    EXPECT_TRUE(eventually([&] { return host.readErrors().find("the panel at 1-3 has gone") != std::string::npos; }));
    broker.start();
    expectPresent(broker, host, 2); // 1-3 is forgotten by now, or soon
    host.stop(SIGKILL);
    host.tell("unplug 1");
    host.tell("plug 2");
    host.start();
    EXPECT_TRUE(eventually([&] {
        const RetainedStates states(broker, host);
        return states.has("1-1/state", "\"online\":true") && states.has("1-3/state", "\"online\":true") &&
               !states.has("1-2/state", "") && !states.has("1-2/info", "");
    })) << RetainedStates(broker, host).print();
}

TEST_F(GatewayOutage, commandsWhileTheGatewayIsAway_areNeverObeyed)
{
    MosquittoBroker broker(optionsOf(true));
    GatewayHost host(broker, {});
    await(broker, host);
    EXPECT_EQ(host.stop(), 0);
    MqttPeer peer(broker.getSettings());
    for (const int qos : {0, 1, 2}) {
        Message command = makeCommand(host, "1-1/do/send/5", "late", "late" + std::to_string(qos));
        command.qos = qos;
        peer.publish(command);
        command.topic = host.topicOf("all/do/set/5/1");
        peer.publish(command);
    }
    for (const char* const rest : {"1-1/do/send/5", "all/do/send/5", "1-1/do/set/5/1"})
        peer.publish(makeRetained(host.topicOf(rest), "retained"));
    peer.publish(makeRetained("panel/1/all/all/do/send/5", "retained"));
    host.start();
    passBarrier(broker, host, "first");
    broker.stop(SIGKILL); // and not with its next connection
    broker.start();
    passBarrier(broker, host, "second");
    EXPECT_THAT(host.readRecords(0, 5), IsEmpty());
    EXPECT_THAT(host.readRecords(0, 8), ElementsAre("first", "second"));
}

TEST_F(GatewayOutage, commandWithQosTwo_isInThePanelOnce)
{
    const MosquittoBroker broker;
    const GatewayHost host(broker, {});
    await(broker, host);
    MqttPeer peer(broker.getSettings());
    peer.subscribe(host.topicOf("answer/test"), 2);
    Message command = makeCommand(host, "1-1/do/send/5", "once", "a");
    command.qos = 2;
    peer.publish(command);
    EXPECT_EQ(awaitAnswer(peer, "a"), "taken");
    passBarrier(broker, host, "b");
    EXPECT_THAT(host.readRecords(0, 5), ElementsAre("once"));
}

TEST_F(GatewayOutage, willsThatComeLate_areOvercome)
{
    const MosquittoBroker broker;
    const GatewayHost host(broker, {});
    await(broker, host);
    MqttPeer peer(broker.getSettings());
    const std::string death = R"({"online":false,"epoch":1,"run":"0123456789abcdef","version":"1"})";
    peer.publish(makeRetained(host.topicOf("state"), death));
    expectPresent(broker, host, 1);
    const std::string later = R"({"online":false,"epoch":9000000000000,"run":"0123456789abcdef","version":"1"})";
    peer.publish(makeRetained(host.topicOf("state"), later));
    expectPresent(broker, host, 1);
    EXPECT_GT(std::stoull(RetainedStates(broker, host).getEpoch()), 9000000000000U);
}

TEST_F(GatewayOutage, epochThatCannotGrow_isNone)
{
    const MosquittoBroker broker;
    const GatewayHost host(broker, {});
    await(broker, host);
    MqttPeer peer(broker.getSettings());
    for (const char* const epoch : {"18446744073709551615", "18446744073709551614"}) {
        peer.publish(makeRetained(host.topicOf("state"), std::string(R"({"online":true,"epoch":)") + epoch +
                                                             R"(,"run":"0123456789abcdef","version":"1"})"));
        expectPresent(broker, host, 1);
    }
    passBarrier(broker, host, "a");
}

TEST_F(GatewayOutage, gatewayStoppedLongerThanItsKeepAlive_isDeadAndComesBack)
{
    const MosquittoBroker broker;
    const GatewayHost host(broker, {"shop", 2, {}, "keep_alive = 5\n"});
    await(broker, host);
    expectPresent(broker, host, 2);
    const std::string before = RetainedStates(broker, host).getEpoch();
    kill(host.getProcess(), SIGSTOP);
    MqttPeer peer(broker.getSettings());
    peer.subscribe(host.topicOf("state"));
    EXPECT_TRUE(peer.await(
        [&](const Message& message) { return message.payload.find("\"online\":false,\"epoch\":" + before) == 1; },
        std::chrono::seconds(20)));
    host.tell("unplug 1");
    kill(host.getProcess(), SIGCONT);
    EXPECT_TRUE(eventually([&] {
        const RetainedStates states(broker, host);
        return states.has("state", "\"online\":true") &&
               states.has("1-1/state", "\"online\":true,\"epoch\":" + states.getEpoch() + ",") &&
               states.has("1-2/state", "\"online\":false,\"epoch\":" + states.getEpoch() + ",");
    })) << RetainedStates(broker, host).print();
    EXPECT_GT(std::stoull(RetainedStates(broker, host).getEpoch()), std::stoull(before));
    passBarrier(broker, host, "a");
}

TEST_F(GatewayOutage, brokerStoppedLongerThanTheKeepAlive_isComeBackTo)
{
    const MosquittoBroker broker;
    const GatewayHost host(broker, {"shop", 1, {}, "keep_alive = 5\n"});
    await(broker, host);
    broker.tell(SIGSTOP);
    EXPECT_TRUE(eventually([&] {
        return host.readErrors().find("no connection with the broker: the broker no longer answers") !=
               std::string::npos;
    }));
    broker.tell(SIGCONT); // it has a will to publish
    expectPresent(broker, host, 1);
    passBarrier(broker, host, "a");
}

TEST_F(GatewayOutage, fourThousandWishes_areAllAppliedByAGatewayThatComes)
{
    MosquittoBroker broker(optionsOf(false));
    GatewayHost host(broker, {});
    await(broker, host);
    host.stop();
    MqttPeer peer(broker.getSettings());
    constexpr unsigned int most = 4096;
    for (unsigned int key = 0; key < most; ++key) {
        Message wish = makeRetained(host.topicOf("1-1/want/7/" + std::to_string(key)), std::to_string(key));
        wish.qos = 0;
        peer.publish(wish);
    }
    peer.publish(makeRetained("unrelated", "")); // so that the broker has them all
    host.start();
    EXPECT_TRUE(eventually([&] { return host.readRecords(0, 7).size() == most; })) << host.readRecords(0, 7).size();
    passBarrier(broker, host, "a");
    std::vector<std::string> records = host.readRecords(0, 7);
    std::sort(records.begin(), records.end(), [](const auto& one, const auto& other) {
        return std::make_pair(one.size(), one) < std::make_pair(other.size(), other);
    });
    ASSERT_EQ(records.size(), most);
    for (unsigned int key = 0; key < most; ++key)
        ASSERT_EQ(records[key], std::to_string(key));
}

TEST_F(GatewayOutage, twoThatStartTogetherTwentyTimes_oneServesEachTime)
{
    const MosquittoBroker broker;
    GatewayHost one(broker, {"shop", 1, {}, ""});
    GatewayHost other(broker, {"shop", 1, {}, ""});
    MqttPeer peer(broker.getSettings());
    peer.subscribe(one.topicOf("answer/test"));
    const std::string gaveWay = "another gateway serves panel/1/shop/";
    unsigned int served = 0;
    for (unsigned int time = 1; time <= 20; ++time) {
        if (time > 1) {
            one.start();
            other.start();
        }
        const auto givenWay = [&] { return countOf(one.readErrors(), gaveWay) + countOf(other.readErrors(), gaveWay); };
        ASSERT_TRUE(eventually([&] { return givenWay() >= time; })) << one.readErrors() << other.readErrors();
        // The one that is left has its panel ready.
        std::string word;
        const std::string payload = "n" + std::to_string(time);
        ASSERT_TRUE(eventually([&] {
            const std::string id = payload + "+" + std::to_string(++served);
            peer.publish(makeCommand(one, "1-1/do/send/5", payload, id));
            word = awaitAnswer(peer, id, milliseconds(5000));
            return word == "taken";
        })) << word;
        EXPECT_EQ(givenWay(), time) << one.readErrors() << other.readErrors();
        const auto isIn = [&](const GatewayHost& host) {
            const auto records = host.readRecords(0, 5);
            return std::count(records.begin(), records.end(), payload);
        };
        EXPECT_EQ(isIn(one) + isIn(other), 1);
        // By turns orderly and not.
        const int signal = time % 2 == 0 ? SIGTERM : SIGKILL;
        std::thread both([&] { one.stop(signal); });
        other.stop(signal);
        both.join();
    }
}

} // namespace Vantor
