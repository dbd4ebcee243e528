#include "panel2mqtt/broker/BrokerLink.h"

#include "tests/mqtt/MosquittoBroker.h"
#include "tests/mqtt/MqttPeer.h"
#include "tests/mqtt/QuickLink.h"
#include "tests/mqtt/StubbornPort.h"

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace Vantor {

namespace {

using Kind = BrokerLink::Kind;
using Manner = StubbornPort::Manner;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

BrokerSettings settingsFor(std::uint16_t port)
{
    BrokerSettings settings;
    settings.port = port;
    return settings;
}

// As if this process had died, for the other side.
void cutConnectionsTo(std::uint16_t port)
{
    for (int descriptor = 3; descriptor < 1000; ++descriptor) {
        sockaddr_in address = {};
        socklen_t size = sizeof address;
        if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
            ntohs(address.sin_port) == port)
            shutdown(descriptor, SHUT_RDWR);
    }
}

double measure(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST(BrokerLinkFailure, connectionThatDies_leavesTheWillOfItsPlan)
{
    const MosquittoBroker broker;
    QuickLink quick(broker.getSettings());
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    cutConnectionsTo(broker.getPort());
    ASSERT_TRUE(quick.listener.awaitReasons(1));
    EXPECT_EQ(quick.listener.get().disconnected[0], "the broker has ended the connection");
    MqttPeer peer(broker.getSettings());
    peer.subscribe("will");
    const std::optional<Message> will = peer.await("will");
    ASSERT_TRUE(will);
    EXPECT_EQ(will->payload, "1");
    EXPECT_TRUE(will->isRetained);
    ASSERT_TRUE(quick.listener.awaitConnections(2));
    EXPECT_EQ(quick.listener.get().plans, 2U);
}

TEST(BrokerLinkFailure, brokerThatEndsOrDies_isComeBackTo)
{
    MosquittoBroker broker;
    QuickLink quick(broker.getSettings());
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    broker.stop(SIGTERM);
    ASSERT_TRUE(quick.listener.awaitReasons(1));
    EXPECT_THAT(quick.listener.get().disconnected[0],
                testing::AnyOf("the broker is shutting down", "the broker has ended the connection"));
    ASSERT_TRUE(quick.listener.awaitReason("127.0.0.1 can't be reached: Connection refused"));
    broker.start();
    ASSERT_TRUE(quick.listener.awaitConnections(2));
    broker.stop(SIGKILL);
    ASSERT_TRUE(quick.listener.awaitReason("127.0.0.1 can't be reached: Connection refused"));
    broker.start();
    ASSERT_TRUE(quick.listener.awaitConnections(3));
}

TEST(BrokerLinkFailure, fiftyBrokersThatEnd_leaveNothing)
{
    const auto countDescriptors = [] {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    };
    MosquittoBroker broker;
    QuickLink quick(broker.getSettings());
    std::ptrdiff_t before = 0;
    for (std::size_t number = 1; number <= 50; ++number) {
        ASSERT_TRUE(quick.listener.awaitConnections(number));
        if (number == 1)
            before = countDescriptors();
        broker.stop(number % 2 == 0 ? SIGTERM : SIGKILL);
        ASSERT_TRUE(quick.listener.awaitReasons(number));
        broker.start();
    }
    ASSERT_TRUE(quick.listener.awaitConnections(51));
    EXPECT_EQ(countDescriptors(), before);
}

TEST(BrokerLinkFailure, brokerThatHangs_isGivenUpAndComeBackTo)
{
    MosquittoBroker broker;
    BrokerSettings settings = broker.getSettings();
    settings.keepAlive = std::chrono::seconds(1); // the least that MQTT's library has is 5
    QuickLink quick(settings);
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    broker.tell(SIGSTOP);
    const auto hasEnded = [](const auto& told) { return !told.disconnected.empty(); };
    ASSERT_TRUE(quick.listener.await(hasEnded, std::chrono::seconds(15)));
    EXPECT_EQ(quick.listener.get().disconnected[0], "the broker no longer answers");
    ASSERT_TRUE(quick.listener.awaitReason("127.0.0.1 takes the connection and then says nothing of MQTT within 1 s"));
    broker.tell(SIGCONT);
    EXPECT_TRUE(quick.listener.awaitConnections(2));
}

TEST(BrokerLinkFailure, wrongPassword_isToldAndTakenWhenMended)
{
    MosquittoBroker::Options options;
    options.user = "gateway";
    options.password = "right";
    const MosquittoBroker broker(options);
    BrokerSettings settings = broker.getSettings();
    const TemporaryFile file("wrong\n");
    settings.passwordFile = file.getPath();
    QuickLink quick(settings);
    ASSERT_TRUE(quick.listener.awaitReasons(2));
    EXPECT_EQ(quick.listener.get().disconnected[0],
              "the broker refuses this host, or its password: what it is sent is the user name 'gateway' and the "
              "password in " +
                  file.getPath());
    EXPECT_THAT(quick.listener.get().connected, IsEmpty());
    file.write(std::string("right\nanything\n"));
    EXPECT_TRUE(quick.listener.awaitConnections(1));
}

TEST(BrokerLinkFailure, missingPasswordFile_isToldAndTakenWhenItComes)
{
    MosquittoBroker::Options options;
    options.user = "gateway";
    options.password = "right";
    const MosquittoBroker broker(options);
    BrokerSettings settings = broker.getSettings();
    const TemporaryFolder folder;
    settings.passwordFile = folder / "password";
    QuickLink quick(settings);
    ASSERT_TRUE(quick.listener.awaitReasons(1));
    EXPECT_EQ(quick.listener.get().disconnected[0],
              "the password in " + settings.passwordFile + " can't be read: No such file or directory");
    writeFile(settings.passwordFile, std::string("right"));
    EXPECT_TRUE(quick.listener.awaitConnections(1));
}

TEST(BrokerLinkFailure, subscriptionThatIsRefused_isNamed)
{
    const TemporaryFolder folder;
    writeFile(folder / "security.json", std::string(R"({
        "defaultACLAccess": {"publishClientSend": true, "publishClientReceive": true, "subscribe": false,
                             "unsubscribe": true},
        "clients": [],
        "groups": [{"groupname": "anybody", "roles": [{"rolename": "reader", "priority": 0}]}],
        "roles": [{"rolename": "reader", "acls": [
            {"acltype": "subscribePattern", "topic": "granted/#", "priority": 0, "allow": true}]}],
        "anonymousGroup": "anybody"})"));
    MosquittoBroker::Options options;
    options.further =
        "plugin " MORVANE_MOSQUITTO_SECURITY "\nplugin_opt_config_file " + folder / "security.json" + "\n";
    const MosquittoBroker broker(options);
    QuickLink quick(broker.getSettings(), {{"granted/#", 1, false, false}, {"other/#", 1, false, false}});
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    EXPECT_THAT(quick.listener.get().connected[0], ElementsAre("other/#"));
}

TEST(BrokerLinkFailure, messageThatIsRefused_isCountedAndToldOnce)
{
    MosquittoBroker::Options options;
    options.accessList = "topic readwrite own/#\n";
    const MosquittoBroker broker(options);
    QuickLink quick(broker.getSettings());
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    quick.publish(Kind::Event, "foreign/1", "x");
    quick.publish(Kind::State, "foreign/2", "x");
    quick.publish(Kind::Answer, "own/1", "x");
    quick.publish(Kind::Answer, "no/#", "x"); // no topic
    ASSERT_TRUE(quick.awaitCounts([](const auto& counts) { return counts.refused == 3 && counts.published == 1; }));
    EXPECT_EQ(quick.link.getCounts().waiting, 0U);
    const auto refused = quick.listener.get().refused;
    ASSERT_EQ(refused.size(), 2U);
    EXPECT_THAT(refused,
                testing::UnorderedElementsAre("foreign/1: the broker's access list does not let this host publish",
                                              HasSubstr("no/#: ")));
    EXPECT_THAT(quick.listener.get().disconnected, IsEmpty());
}

TEST(BrokerLinkFailure, stateThatIsRefused_isToldWhenTheAccessListIsMended)
{
    MosquittoBroker::Options options;
    options.accessList = "topic read #\n";
    const MosquittoBroker broker(options);
    BrokerPace pace = QuickLink::getPace();
    pace.refusalInterval = milliseconds(50);
    QuickLink quick(broker.getSettings(), {}, pace);
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    const auto retain = [&quick](const std::string& topic, const std::string& payload) {
        Message state = messageOf(topic, payload);
        state.isRetained = true;
        quick.link.publish(Kind::State, std::move(state));
    };
    retain("a", "1");
    retain("b", "1");
    quick.publish(Kind::Event, "event", "1");
    quick.publish(Kind::State, "not retained", "1");
    ASSERT_TRUE(quick.awaitCounts([](const auto& counts) { return counts.refused >= 8; })); // again and again
    retain("b", "2");
    MqttPeer peer(broker.getSettings());
    peer.subscribe("#");
    broker.setAccessList("topic readwrite #\n");
    broker.tell(SIGHUP);
    std::string texts;
    for (int number = 0; number < 2; ++number) {
        const auto message = peer.await([](const Message&) { return true; });
        ASSERT_TRUE(message);
        texts += message->topic + message->payload;
    }
    EXPECT_THAT(texts, testing::AnyOf("a1b2", "b2a1"));
    EXPECT_THAT(peer.takeAll(milliseconds(200)), IsEmpty());
    EXPECT_EQ(quick.link.getCounts().connections, 1U);
}

TEST(BrokerLinkFailure, stopWithAStateUntold_leavesTheWill)
{
    const MosquittoBroker broker;
    BrokerPace pace = QuickLink::getPace();
    pace.stopTime = milliseconds(0);
    MqttPeer peer(broker.getSettings());
    peer.subscribe("will");
    QuickLink quick(broker.getSettings(), {}, pace);
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    for (int number = 0; number < 4000; ++number)
        quick.publish(Kind::Answer, "answer", "x");
    quick.publish(Kind::State, "last", "x"); // behind more than is handed over at a time
    quick.link.stop();
    EXPECT_TRUE(peer.await("will"));
}

TEST(BrokerLinkFailure, messageLargerThanTheBrokerTakes_isLeftOut)
{
    MosquittoBroker::Options options;
    options.further = "max_packet_size 20000\n";
    const MosquittoBroker broker(options);
    QuickLink quick(broker.getSettings());
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    for (std::size_t size = 19900; size < 20100; ++size)
        quick.publish(Kind::Answer, "size", std::string(size, 'x'));
    // Of this size libmosquitto finds out too late, and keeps it for ever among those that it sends.
    for (std::size_t number = 0; number < 100; ++number)
        quick.publish(Kind::Answer, "size", std::string(19989, 'x'));
    quick.publish(Kind::State, "last", "x");
    ASSERT_TRUE(quick.awaitCounts([](const auto& counts) { return counts.published + counts.refused == 301; }));
    EXPECT_GE(quick.link.getCounts().refused, 100U + 111U); // from 19989 bytes on
    EXPECT_GE(quick.link.getCounts().published, 1U + 80U);
    EXPECT_EQ(quick.link.getCounts().connections, 1U);
    EXPECT_THAT(quick.listener.get().refused, ElementsAre(HasSubstr("larger than the broker takes")));
}

TEST(BrokerLinkFailure, messageLargerThanTheBrokersLimitOfPayloads_isRefused)
{
    MosquittoBroker::Options options;
    options.further = "message_size_limit 1000\n"; // of which it does not tell beforehand
    const MosquittoBroker broker(options);
    QuickLink quick(broker.getSettings());
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    quick.publish(Kind::State, "large", std::string(1001, 'x'));
    quick.publish(Kind::State, "small", std::string(1000, 'x'));
    ASSERT_TRUE(quick.awaitCounts([](const auto& counts) { return counts.refused == 1 && counts.published == 1; }));
    EXPECT_THAT(quick.listener.get().refused, ElementsAre("large: larger than the broker takes"));
}

TEST(BrokerLinkFailure, statesThatWait_goOutWhenTheBrokerIsBack)
{
    MosquittoBroker broker;
    QuickLink quick(broker.getSettings());
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    quick.publish(Kind::State, "confirmed", "1");
    ASSERT_TRUE(quick.awaitCounts([](const auto& counts) { return counts.published == 1; }));
    broker.tell(SIGSTOP); // what is written now is never confirmed
    quick.publish(Kind::State, "a", "1");
    quick.publish(Kind::State, "b", "1");
    quick.publish(Kind::Event, "event", "1");
    quick.publish(Kind::Answer, "answer", "1");
    ASSERT_TRUE(quick.awaitCounts([](const auto& counts) { return counts.waiting == 0; }));
    broker.stop(SIGKILL);
    ASSERT_TRUE(quick.listener.awaitReasons(1));
    quick.publish(Kind::State, "b", "2");
    quick.publish(Kind::Answer, "answer", "2");
    EXPECT_EQ(quick.link.getCounts().droppedEvents, 1U);
    EXPECT_EQ(quick.link.getCounts().droppedAnswers, 2U);
    EXPECT_EQ(quick.link.getCounts().waiting, 2U);

    broker.start();
    MqttPeer peer(broker.getSettings());
    peer.subscribe("#");
    ASSERT_TRUE(quick.awaitCounts([](const auto& counts) { return counts.published == 3; }));
    std::vector<std::string> texts; // where the peer was later, nothing: they are not retained
    for (const Message& message : peer.takeAll(milliseconds(200)))
        texts.push_back(message.topic + message.payload);
    for (const std::string& text : texts)
        EXPECT_THAT(text, testing::AnyOf("a1", "b2"));
    EXPECT_EQ(quick.link.getCounts().waiting, 0U);
}

TEST(BrokerLinkFailure, brokerThatTakesNothing_hasTheOldestDropped)
{
    MosquittoBroker broker;
    QuickLink quick(broker.getSettings());
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    broker.tell(SIGSTOP);
    for (int number = 0; number < 64; ++number)
        quick.publish(Kind::Event, "event", "handed over");
    ASSERT_TRUE(quick.awaitCounts([](const auto& now) { return now.waiting == 0; }));
    for (int number = 0; number < 10000; ++number)
        quick.publish(Kind::Event, "event", "x");
    const BrokerLink::Counts counts = quick.link.getCounts();
    EXPECT_EQ(counts.waiting, 4096U);
    EXPECT_EQ(counts.droppedEvents, 10000U - 4096U);
    broker.tell(SIGCONT);
    EXPECT_TRUE(quick.awaitCounts([](const auto& now) { return now.published == 4096 + 64; }));
}

TEST(BrokerLinkFailure, portThatSwallowsConnections_isGivenUp)
{
    const StubbornPort port(Manner::SwallowsSyn);
    QuickLink quick(settingsFor(port.getPort()));
    ASSERT_TRUE(quick.listener.awaitReasons(2));
    EXPECT_EQ(quick.listener.get().disconnected[0], "127.0.0.1 can't be reached: nothing answers within 1 s");
    EXPECT_LT(measure([&] { quick.link.stop(); }), 1.0);
}

TEST(BrokerLinkFailure, portThatSaysNothing_isGivenUp)
{
    const StubbornPort port(Manner::SaysNothing);
    QuickLink quick(settingsFor(port.getPort()));
    ASSERT_TRUE(quick.listener.awaitReasons(2));
    EXPECT_EQ(
        quick.listener.get().disconnected[0],
        "127.0.0.1 takes the connection and then says nothing of MQTT within 1 s: does it expect TLS on this port?");
    EXPECT_LT(measure([&] { quick.link.stop(); }), 1.0);
}

TEST(BrokerLinkFailure, portOfSomethingElse_isToldToBeThat)
{
    StubbornPort port(Manner::SpeaksNonsense);
    QuickLink quick(settingsFor(port.getPort()));
    port.accept();
    ASSERT_TRUE(quick.listener.awaitReasons(1));
    EXPECT_EQ(quick.listener.get().disconnected[0],
              "what answers is no broker of MQTT 5. It may expect TLS on this port");
}

TEST(BrokerLinkFailure, connecting_announcesTheLargestPacket)
{
    StubbornPort port(Manner::SaysNothing);
    QuickLink quick(settingsFor(port.getPort()));
    // Property 0x27, 17 MiB.
    EXPECT_THAT(port.accept(), HasSubstr(std::string("\x27\x01\x10\x00\x00", 5)));
}

TEST(BrokerLinkFailure, brokerThatConfirmsNothing_isGivenUpAndConnectedAnew)
{
    StubbornPort port(Manner::SaysNothing);
    BrokerPace pace = QuickLink::getPace();
    pace.confirmTime = std::chrono::milliseconds(900);
    QuickLink quick(settingsFor(port.getPort()), {}, pace);
    port.accept();
    port.say(std::string("\x20\x03\x00\x00\x00", 5)); // the connection is accepted
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    quick.publish(Kind::Answer, "answer", "a");
    ASSERT_TRUE(quick.listener.awaitReasons(1));
    EXPECT_EQ(quick.listener.get().disconnected[0], "the broker has not confirmed what was published within 1 s");
    EXPECT_THAT(port.accept(), HasSubstr("MQTT"));
}

TEST(BrokerLinkFailure, confirmationThatALaterOneOvertakes_isLostAndTheConnectionMadeAnew)
{
    StubbornPort port(Manner::SaysNothing);
    BrokerPace pace = QuickLink::getPace();
    pace.overtakenTime = milliseconds(200);
    QuickLink quick(settingsFor(port.getPort()), {}, pace);
    port.accept();
    port.say(std::string("\x20\x03\x00\x00\x00", 5)); // the connection is accepted
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    quick.publish(Kind::Answer, "answer", "a");
    quick.publish(Kind::Answer, "answer", "b");
    ASSERT_TRUE(quick.awaitCounts([](const auto& counts) { return counts.waiting == 0; }));
    port.say(std::string("\x40\x02\x00\x02", 4)); // the second is confirmed, so that the first was taken
    ASSERT_TRUE(quick.awaitCounts([](const auto& counts) { return counts.published == 2; }));
    ASSERT_TRUE(quick.listener.awaitReasons(1));
    EXPECT_EQ(quick.listener.get().disconnected[0], "the broker has dropped what it had for this host");
    EXPECT_THAT(port.accept(), HasSubstr("MQTT"));
}

// A broker that does not give back what is published to `echo`, and a link that looks at it.
class DeafLink {
    static MosquittoBroker::Options getOptions()
    {
        MosquittoBroker::Options options;
        options.accessList = "topic readwrite much\ntopic write echo\n";
        return options;
    }

    const MosquittoBroker m_broker{getOptions()};

public:
    explicit DeafLink(int qos) : quick(m_broker.getSettings(), {{"much", qos, false, false}, echoed}, getPace(), "echo")
    {
        EXPECT_TRUE(quick.listener.awaitConnections(1));
        for (int number = 0; number < 64; ++number)
            quick.publish(Kind::Answer, "much", "x");
    }

    static BrokerPace getPace()
    {
        BrokerPace pace = QuickLink::getPace();
        pace.echoTime = milliseconds(150);
        return pace;
    }

    static const inline BrokerLink::Subscription echoed{"echo", 1, true, false};
    QuickLink quick;
};

TEST(BrokerLinkFailure, brokerThatDeliversNoMore_isGivenUpAndConnectedAnew)
{
    DeafLink deaf(0);
    ASSERT_TRUE(deaf.quick.listener.awaitReasons(1));
    EXPECT_EQ(deaf.quick.listener.get().disconnected[0], "the broker no longer delivers what is published to echo");
    EXPECT_TRUE(deaf.quick.listener.awaitConnections(2));
}

TEST(BrokerLinkFailure, brokerThatDeliversOthersOfQosOne_isNotGivenUp)
{
    DeafLink deaf(1);
    // Each has a pass of its thread, in which it could be given up.
    const auto end = std::chrono::steady_clock::now() + milliseconds(1500);
    while (std::chrono::steady_clock::now() < end) {
        deaf.quick.publish(Kind::Answer, "much", "x");
        EXPECT_FALSE(
            deaf.quick.listener.await([](const auto& told) { return !told.disconnected.empty(); }, milliseconds(20)));
    }
}

TEST(BrokerLinkFailure, brokerThatDelivers_isTriedAgainAndAgainAndTheListenerHearsNothingOfIt)
{
    const MosquittoBroker broker;
    MqttPeer peer(broker.getSettings());
    peer.subscribe("echo");
    QuickLink quick(broker.getSettings(), {{"much", 0, false, false}, DeafLink::echoed}, DeafLink::getPace(), "echo");
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    for (std::uint64_t round = 1; round <= 5; ++round) { // more than may be unheard
        for (int number = 0; number < 64; ++number)
            quick.publish(Kind::Answer, "much", "x");
        ASSERT_TRUE(quick.awaitCounts([round](const auto& counts) { return counts.received == 64 * round; }));
        ASSERT_TRUE(peer.await("echo"));
    }
    quick.publish(Kind::Answer, "echo", "another's");
    ASSERT_TRUE(quick.awaitCounts([](const auto& counts) { return counts.received == 321; }));
    EXPECT_EQ(quick.listener.get().messages.back().payload, "another's");
    EXPECT_EQ(quick.link.getCounts().connections, 1U);
}

TEST(BrokerLinkFailure, stateThatIsRefusedAfterALaterOneWentOut_isNotTriedAgain)
{
    StubbornPort port(Manner::SaysNothing);
    BrokerPace pace = QuickLink::getPace();
    pace.refusalInterval = std::chrono::milliseconds(0);
    QuickLink quick(settingsFor(port.getPort()), {}, pace);
    port.accept();
    port.say(std::string("\x20\x03\x00\x00\x00", 5)); // the connection is accepted
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    for (const char* const payload : {"earlier", "later"}) {
        Message state = messageOf("state", payload);
        state.isRetained = true;
        quick.link.publish(Kind::State, std::move(state));
        ASSERT_TRUE(quick.awaitCounts([](const auto& counts) { return counts.waiting == 0; })); // it is under way
    }
    port.say(std::string("\x40\x03\x00\x01\x87", 5)); // the first is not authorised
    ASSERT_TRUE(quick.awaitCounts([](const auto& counts) { return counts.refused == 1; }));
    const auto passes = quick.link.getCounts().passes;
    ASSERT_TRUE(quick.awaitCounts([passes](const auto& counts) { return counts.passes >= passes + 2; }));
    port.say(std::string("\x40\x02\x00\x02\x40\x02\x00\x03", 8)); // the second is, and what else there may be
    ASSERT_TRUE(quick.awaitCounts([passes](const auto& counts) { return counts.passes >= passes + 5; }));
    EXPECT_EQ(quick.link.getCounts().published, 1U);
}

TEST(BrokerLinkFailure, brokerThatTakesNothing_delaysNoStop)
{
    MosquittoBroker broker;
    QuickLink quick(broker.getSettings());
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    broker.tell(SIGSTOP);
    for (int number = 0; number < 100; ++number)
        quick.publish(Kind::Answer, "answer", std::string(100000, 'x'));
    EXPECT_LT(measure([&] { quick.link.stop(); }), 1.5);
}

TEST(BrokerLinkFailure, nameWithoutAddress_isTold)
{
    BrokerSettings settings;
    settings.address = "broker.invalid";
    settings.usesTls = true;
    QuickLink quick(settings);
    ASSERT_TRUE(quick.listener.awaitReasons(1));
    EXPECT_THAT(quick.listener.get().disconnected[0], HasSubstr("no address of broker.invalid is found: "));
    EXPECT_LT(measure([&] { quick.link.stop(); }), 0.5);
}

TEST(BrokerLinkFailure, brokerElsewhereWithoutTls_isRefused)
{
    BrokerSettings settings;
    settings.address = "192.0.2.1";
    QuickLink quick(settings);
    ASSERT_TRUE(quick.listener.awaitReasons(1));
    EXPECT_EQ(quick.listener.get().disconnected[0],
              "without TLS a broker must be on this machine, and 192.0.2.1 is not");
}

} // namespace

} // namespace Vantor
