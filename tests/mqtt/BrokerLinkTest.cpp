#include "panel2mqtt/broker/BrokerLink.h"

#include "tests/mqtt/MosquittoBroker.h"
#include "tests/mqtt/MqttPeer.h"
#include "tests/mqtt/QuickLink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

namespace {

using Kind = BrokerLink::Kind;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

double secondsOf(Clock::duration time)
{
    return std::chrono::duration<double>(time).count();
}

TEST(BrokerLink, broker_isConnectedToAndTold)
{
    const MosquittoBroker broker;
    QuickLink quick(broker.getSettings(), {{"a/#", 1, false, false}, {"b", 0, false, false}});
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    EXPECT_THAT(quick.listener.get().connected[0], IsEmpty());
    EXPECT_THAT(quick.listener.get().disconnected, IsEmpty());
    EXPECT_EQ(quick.link.getCounts().connections, 1U);
    EXPECT_THAT(broker.readLog(), HasSubstr(" as host-"));
}

TEST(BrokerLink, brokerByName_isConnectedToAtTheAddressThatAnswers)
{
    const MosquittoBroker broker; // on 127.0.0.1 alone, where the name may be ::1 first
    BrokerSettings settings = broker.getSettings();
    settings.address = "localhost";
    QuickLink quick(settings);
    EXPECT_TRUE(quick.listener.awaitConnections(1));
}

TEST(BrokerLink, message_goesOutWithItsProperties)
{
    const MosquittoBroker broker;
    MqttPeer peer(broker.getSettings());
    peer.subscribe("#");
    QuickLink quick(broker.getSettings());
    ASSERT_TRUE(quick.listener.awaitConnections(1));

    Message message = messageOf("out", std::string("a\0b", 3));
    message.responseTopic = "back";
    message.correlation = std::string("\0\xff", 2);
    message.expirySeconds = 1000;
    message.userProperties = {{"name", "one"}, {"name", "two"}, {"", ""}};
    quick.link.publish(Kind::Answer, message);
    const std::optional<Message> received = peer.await("out");
    ASSERT_TRUE(received);
    EXPECT_EQ(received->payload, std::string("a\0b", 3));
    EXPECT_EQ(received->qos, 1);
    EXPECT_FALSE(received->isRetained);
    EXPECT_EQ(received->responseTopic, "back");
    EXPECT_EQ(received->correlation, std::string("\0\xff", 2));
    EXPECT_GT(received->expirySeconds.value_or(0), 990U);
    EXPECT_EQ(received->userProperties, message.userProperties);
    EXPECT_TRUE(quick.awaitCounts([](const BrokerLink::Counts& counts) { return counts.published == 1; }));
}

TEST(BrokerLink, subscriptionWhenItIsUp_bringsWhatIsRetainedBeforeWhatIsPublishedNext)
{
    const MosquittoBroker broker;
    MqttPeer peer(broker.getSettings());
    for (int number = 0; number < 3; ++number) {
        Message message = messageOf("kept/" + std::to_string(number), "x");
        message.isRetained = true;
        peer.publish(message);
    }
    QuickLink quick(broker.getSettings(), {{"mark", 0, false, false}});
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    quick.link.subscribe({{"kept/#", 0, false, false}, {"no/#/filter", 0, false, false}});
    quick.publish(Kind::Answer, "mark", "");
    ASSERT_TRUE(quick.listener.await([](const RecordingListener::Told& told) { return told.messages.size() == 4; }));
    EXPECT_EQ(quick.listener.get().messages.back().topic, "mark");
    EXPECT_THAT(quick.listener.get().refused, ElementsAre(HasSubstr("no/#/filter: ")));
}

TEST(BrokerLink, subscriptionWhenItIsUp_isForgottenWithItsConnection)
{
    const MosquittoBroker broker;
    MqttPeer peer(broker.getSettings());
    QuickLink quick(broker.getSettings(), {{"mark", 0, false, false}});
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    quick.link.subscribe({{"more", 0, false, false}});
    quick.link.reconnectIn(0);
    ASSERT_TRUE(quick.listener.awaitConnections(2));
    peer.publish(messageOf("more", ""));
    peer.publish(messageOf("mark", ""));
    ASSERT_TRUE(quick.listener.await([](const RecordingListener::Told& told) { return !told.messages.empty(); }));
    EXPECT_EQ(quick.listener.get().messages.front().topic, "mark");
}

TEST(BrokerLink, message_comesInWithItsProperties)
{
    const MosquittoBroker broker;
    QuickLink quick(broker.getSettings(), {{"in/#", 1, false, false}});
    ASSERT_TRUE(quick.listener.awaitConnections(1));

    MqttPeer peer(broker.getSettings());
    Message message = messageOf("in/1", std::string("\0\n\xff", 3), 0);
    message.responseTopic = "back";
    message.correlation = "";
    message.expirySeconds = 1000;
    message.userProperties = {{"b", "1"}, {"a", "2"}};
    peer.publish(message);
    peer.publish(messageOf("in/2", ""));
    ASSERT_TRUE(quick.listener.await([](const auto& told) { return told.messages.size() == 2; }));
    const std::vector<Message> received = quick.listener.get().messages;
    EXPECT_EQ(received[0].topic, "in/1");
    EXPECT_EQ(received[0].payload, message.payload);
    EXPECT_EQ(received[0].qos, 0);
    EXPECT_EQ(received[0].responseTopic, "back");
    EXPECT_EQ(received[0].correlation, "");
    EXPECT_GT(received[0].expirySeconds.value_or(0), 990U);
    EXPECT_EQ(received[0].userProperties, message.userProperties);
    EXPECT_EQ(received[1].topic, "in/2");
    EXPECT_EQ(received[1].payload, "");
    EXPECT_EQ(received[1].qos, 1);
    EXPECT_EQ(received[1].correlation, std::nullopt);
    EXPECT_EQ(received[1].expirySeconds, std::nullopt);
    EXPECT_EQ(quick.link.getCounts().received, 2U);
}

TEST(BrokerLink, retainedMessage_hasItsFlagOrIsLeftOut)
{
    const MosquittoBroker broker;
    MqttPeer peer(broker.getSettings());
    Message retained = messageOf("want/1", "old");
    retained.isRetained = true;
    peer.publish(retained);
    retained.topic = "do/1";
    peer.publish(retained);

    QuickLink quick(broker.getSettings(), {{"want/#", 1, false, false}, {"do/#", 1, true, false}});
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    retained.payload = "new"; // the flag as it was published, also where somebody listens already
    peer.publish(retained);
    peer.publish(messageOf("want/1", "plain"));
    ASSERT_TRUE(quick.listener.await([](const auto& told) { return told.messages.size() == 3; }));
    std::vector<std::string> texts;
    for (const Message& message : quick.listener.get().messages)
        texts.push_back(message.topic + " " + message.payload + (message.isRetained ? " retained" : ""));
    EXPECT_THAT(texts, ElementsAre("want/1 old retained", "do/1 new retained", "want/1 plain"));
}

TEST(BrokerLink, ownMessage_isLeftOutWhereThatIsWished)
{
    const MosquittoBroker broker;
    QuickLink quick(broker.getSettings(), {{"quiet", 1, false, true}, {"loud", 1, false, false}});
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    quick.publish(Kind::Event, "quiet", "1");
    quick.publish(Kind::Event, "loud", "2");
    ASSERT_TRUE(quick.listener.await([](const auto& told) { return !told.messages.empty(); }));
    EXPECT_EQ(quick.listener.get().messages[0].topic, "loud");
}

TEST(BrokerLink, oneMessage_reachesABrokerAtOnce)
{
    const MosquittoBroker broker;
    QuickLink quick(broker.getSettings(), {{"echo", 1, false, false}});
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    std::vector<double> times;
    for (std::size_t number = 1; number <= 51; ++number) {
        const Clock::time_point start = Clock::now();
        quick.publish(Kind::Event, "echo", "x");
        ASSERT_TRUE(quick.listener.await([&](const auto& told) { return told.messages.size() == number; }));
        times.push_back(secondsOf(Clock::now() - start));
    }
    std::sort(times.begin(), times.end());
    EXPECT_LT(times[25], 0.01) << "half a loop's time-out, or Nagle's 40 ms, would be more";
}

TEST(BrokerLink, manyMessages_goOutInTheirOrder)
{
    const MosquittoBroker broker;
    constexpr std::size_t count = 3000;
    QuickLink quick(broker.getSettings(), {{"many", 1, false, false}});
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    for (std::size_t number = 0; number < count; ++number)
        quick.publish(Kind::Answer, "many", std::to_string(number));
    ASSERT_TRUE(quick.listener.await([](const auto& told) { return told.messages.size() == count; }));
    const std::vector<Message> received = quick.listener.get().messages;
    for (std::size_t number = 0; number < count; ++number)
        ASSERT_EQ(received[number].payload, std::to_string(number));
    EXPECT_TRUE(quick.awaitCounts([](const auto& counts) { return counts.published == count; }));
    EXPECT_EQ(quick.link.getCounts().droppedAnswers, 0U);
}

TEST(BrokerLink, stop_sendsWhatWaitsAndNoWill)
{
    const MosquittoBroker broker;
    MqttPeer peer(broker.getSettings());
    peer.subscribe("#");
    QuickLink quick(broker.getSettings());
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    for (int number = 0; number < 500; ++number)
        quick.publish(Kind::Answer, "many", std::to_string(number));
    quick.publish(Kind::State, "last", "state");
    quick.link.stop();
    EXPECT_TRUE(peer.await("last"));
    EXPECT_EQ(peer.takeAll(milliseconds(100)).size(), 500U);
    EXPECT_THAT(quick.listener.get().disconnected, IsEmpty());
    EXPECT_FALSE(peer.await("will", milliseconds(0)));
}

TEST(BrokerLink, stopWhileMuchComesIn_leavesNoWill)
{
    const MosquittoBroker broker;
    MqttPeer peer(broker.getSettings());
    for (int round = 0; round < 5; ++round) {
        QuickLink quick(broker.getSettings(), {{"flood", 0, false, false}});
        ASSERT_TRUE(quick.listener.awaitConnections(1));
        for (int number = 0; number < 300; ++number)
            peer.publish(messageOf("flood", std::string(20000, 'x'), 0));
        quick.link.stop();
    }
    peer.subscribe("will");
    EXPECT_FALSE(peer.await("will", milliseconds(200)));
}

TEST(BrokerLink, reconnectIn_endsWithoutWillAndComesBack)
{
    const MosquittoBroker broker;
    MqttPeer peer(broker.getSettings());
    peer.subscribe("will");
    QuickLink quick(broker.getSettings());
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    const Clock::time_point start = Clock::now();
    quick.link.reconnectIn(0.3);
    ASSERT_TRUE(quick.listener.awaitReason("to come back later"));
    ASSERT_TRUE(quick.listener.awaitConnections(2));
    EXPECT_GE(secondsOf(Clock::now() - start), 0.3);
    EXPECT_EQ(quick.listener.get().plans, 2U);
    EXPECT_FALSE(peer.await("will", milliseconds(100)));
}

TEST(BrokerLink, passes_goOnWithAndWithoutBroker)
{
    MosquittoBroker broker;
    QuickLink quick(broker.getSettings());
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    const auto before = quick.link.getCounts().passes;
    EXPECT_TRUE(quick.awaitCounts([=](const auto& counts) { return counts.passes >= before + 2; }));
    broker.stop();
    const auto after = quick.link.getCounts().passes;
    EXPECT_TRUE(quick.awaitCounts([=](const auto& counts) { return counts.passes >= after + 2; }));
}

TEST(BrokerLink, idleLink_doesNotSpin)
{
    const MosquittoBroker broker;
    QuickLink quick(broker.getSettings());
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    std::this_thread::sleep_for(milliseconds(50));
    const auto before = quick.link.getCounts().passes;
    std::this_thread::sleep_for(milliseconds(1200));
    EXPECT_LT(quick.link.getCounts().passes - before, 20U);
}

} // namespace

} // namespace Vantor
