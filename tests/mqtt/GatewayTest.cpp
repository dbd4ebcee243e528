// The gateway as it is used: a broker, simulated panels, other clients.
#include "tests/mqtt/GatewayHost.h"

#include "panelctl/picture/PngReader.h"
#include "tests/mqtt/MqttPeer.h"

#include <csignal>
#include <fstream>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace Vantor {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr const char* checks = "\x80\x40\x20\x10\x08\x04\x02\x01"; // a diagonal of 8 x 8

class Gateway : public testing::Test {
protected:
    MosquittoBroker m_broker;
    MqttPeer m_peer{m_broker.getSettings()};

    void listen(const GatewayHost& host)
    {
        m_peer.subscribe(host.topicOf("answer/#"));
        host.awaitPanels(m_peer);
    }

    std::string ask(const GatewayHost& host, const std::string& rest, const std::string& payload, const std::string& id)
    {
        m_peer.publish(makeCommand(host, rest, payload, id));
        return awaitAnswer(m_peer, id);
    }

    static Message makeWish(const GatewayHost& host, const std::string& rest, const std::string& payload)
    {
        Message wish;
        wish.topic = host.topicOf(rest);
        wish.payload = payload;
        wish.qos = 1;
        wish.isRetained = true;
        return wish;
    }

    static Message makeDiagonal(Message message)
    {
        message.payload = std::string(checks, 8);
        message.userProperties = {{"format", "bits"}, {"width", "8"}, {"height", "8"}};
        return message;
    }
};

// Black pixels, row by row.
std::vector<std::string> rowsOf(const std::string& file)
{
    const GreyPicture picture = PngReader::read(file);
    std::vector<std::string> rows;
    for (unsigned int y = 0; y < picture.getHeight(); ++y) {
        std::string row;
        for (unsigned int x = 0; x < picture.getWidth(); ++x)
            row += picture.getPixels()[std::size_t{y} * picture.getWidth() + x] < 128 ? '#' : '.';
        rows.push_back(row);
    }
    return rows;
}

auto isDiagonal()
{
    return ElementsAre("#.......", ".#......", "..#.....", "...#....", "....#...", ".....#..", "......#.", ".......#");
}

} // namespace

TEST_F(Gateway, record_isTakenAndWasInThePanel)
{
    GatewayHost host(m_broker, {});
    listen(host);
    EXPECT_EQ(ask(host, "1-1/do/send/5", "hello", "a"), "taken");
    EXPECT_EQ(ask(host, "1-1/do/set/7/4294967295", "key", "b"), "taken");
    EXPECT_THAT(host.readRecords(0, 5), ElementsAre("hello"));
    EXPECT_THAT(host.readRecords(0, 7), ElementsAre("key"));
}

TEST_F(Gateway, stats_countWhatWasAnsweredAndWhatThePanelGot)
{
    GatewayHost host(m_broker, {});
    listen(host);
    EXPECT_EQ(ask(host, "1-1/do/send/5", "hello", "a"), "taken");
    m_peer.publish(makeCommand(host, "1-1/do/stats", "", "b"));
    const auto answer = m_peer.await(host.topicOf("answer/test"));
    ASSERT_TRUE(answer);
    const auto counts = nlohmann::json::parse(answer->payload);
    EXPECT_EQ(counts["host"], "shop");
    EXPECT_EQ(counts["place"], "1-1");
    EXPECT_EQ(counts["commands"], (nlohmann::json{{"taken", 1}, {"busy", 0}, {"expired", 0}, {"waiting", 0}}));
    EXPECT_GE(counts["sent"]["records"], 2) << "hello, and what the gateway asked the panel";
    EXPECT_EQ(counts["sent"]["failures"], 0);
    EXPECT_GE(counts["received"]["records"], 1);
}

TEST_F(Gateway, repeatedId_getsTheAnswerAgainAndThePanelNothing)
{
    GatewayHost host(m_broker, {});
    listen(host);
    for (int time = 0; time < 3; ++time)
        EXPECT_EQ(ask(host, "1-1/do/send/5", "once", "a"), "taken");
    EXPECT_EQ(ask(host, "1-1/do/send/5", "other", "a"), "refused");
    EXPECT_THAT(host.readRecords(0, 5), ElementsAre("once"));
}

TEST_F(Gateway, everyPanel_answersForItself)
{
    GatewayHost host(m_broker, {"shop", 2, {}, ""});
    listen(host);
    m_peer.publish(makeCommand(host, "all/do/send/5", "both", "a"));
    const auto first = m_peer.await(host.topicOf("answer/test"));
    const auto second = m_peer.await(host.topicOf("answer/test"));
    ASSERT_TRUE(first && second);
    EXPECT_THAT((std::vector<std::string>{first->payload, second->payload}),
                UnorderedElementsAre(R"({"answer":"taken","host":"shop","place":"1-1"})",
                                     R"({"answer":"taken","host":"shop","place":"1-2"})"));
    EXPECT_THAT(host.readRecords(0, 5), ElementsAre("both"));
    EXPECT_THAT(host.readRecords(1, 5), ElementsAre("both"));
}

TEST_F(Gateway, manyCommands_areFollowedByALookAtWhetherTheBrokerStillDelivers)
{
    const GatewayHost host(m_broker, {});
    listen(host);
    m_peer.subscribe(host.topicOf("told"));
    for (unsigned int number = 0; number < 64; ++number)
        m_peer.publish(makeCommand(host, "1-9/do/send/5", "x", std::to_string(number)));
    EXPECT_TRUE(m_peer.await([](const Message& message) { return message.payload.substr(0, 5) == "echo "; }));
    EXPECT_EQ(ask(host, "1-1/do/send/5", "x", "a"), "taken");
}

TEST_F(Gateway, whatCannotBe_isAnsweredWithTheReason)
{
    GatewayHost host(m_broker, {});
    listen(host);
    EXPECT_EQ(ask(host, "1-7/do/send/5", "x", "a"), "offline");
    EXPECT_EQ(ask(host, "1-1/do/send/5", std::string(8182, 'x'), "b"), "too-large");
    EXPECT_EQ(ask(host, "1-1/do/send/5", std::string(8181, 'x'), "c"), "taken");
    EXPECT_EQ(ask(host, "1-1/do/send/44", "x", "d"), "refused"); // a chunk of firmware
    EXPECT_EQ(ask(host, "1-1/do/sing/5", "x", "e"), "refused");
    EXPECT_EQ(ask(host, "1-1/want/5/0", "not retained", "f"), "refused");
    Message retained = makeCommand(host, "1-1/do/send/5", "retained", "g");
    retained.isRetained = true;
    m_peer.publish(retained);
    EXPECT_EQ(awaitAnswer(m_peer, "g"), "refused");
    Message ofAnotherRun = makeCommand(host, "1-1/do/send/5", "late", "h");
    ofAnotherRun.userProperties.emplace_back("run", "0123456789abcdef");
    m_peer.publish(ofAnotherRun);
    EXPECT_EQ(awaitAnswer(m_peer, "h"), "unknown");
    EXPECT_THAT(host.readRecords(0, 5), testing::SizeIs(1));
}

TEST_F(Gateway, exampleInPython_isAnswered)
{
    GatewayHost host(m_broker, {});
    listen(host);
    const std::string port = std::to_string(m_broker.getPort());
    const auto send = [&](const std::string& place) {
        return runTool({"/usr/bin/python3", MORVANE_MQTT_EXAMPLE, port, "shop", place, "5", "from Python"});
    };
    EXPECT_EQ(send("1-1").output, "taken\n");
    EXPECT_EQ(send("1-9").output, "offline\n");
    EXPECT_THAT(host.readRecords(0, 5), ElementsAre("from Python"));
}

TEST_F(Gateway, recordOfAPanel_isPublished)
{
    GatewayHost host(m_broker, {});
    listen(host);
    m_peer.subscribe(host.topicOf("+/got/#"));
    host.tell("emit 0 type=20 hex=000102");
    const auto got = m_peer.await(host.topicOf("1-1/got/20"));
    ASSERT_TRUE(got);
    EXPECT_EQ(got->payload, std::string("\0\1\2", 3));
    EXPECT_FALSE(got->isRetained);
}

TEST_F(Gateway, wishes_areAppliedAgainWhenThePanelComesBack)
{
    GatewayHost host(m_broker, {"shop", 1, {"--lcd", "0=8x8"}, ""});
    m_peer.publish(makeDiagonal(makeWish(host, "all/want/lcd/0", "")));
    m_peer.publish(makeWish(host, "1-1/want/7/3", "wished"));
    listen(host);
    EXPECT_EQ(ask(host, "1-1/do/send/5", "first", "a"), "taken");
    host.tell("unplug 0");
    ASSERT_TRUE(m_peer.await(
        [](const Message& message) { return message.payload.find("\"online\":false") != std::string::npos; }));
    EXPECT_EQ(ask(host, "1-1/do/send/5", "gone", "b"), "offline");
    host.tell("plug 0");
    ASSERT_TRUE(m_peer.await(host.topicOf("1-1/state")));
    EXPECT_EQ(ask(host, "1-1/do/send/5", "last", "c"), "taken");
    EXPECT_EQ(ask(host, "1-1/do/set/8/0", "", "d"), "taken");
    host.end();
    EXPECT_THAT(host.readRecords(0, 7), ElementsAre("wished", "wished"));
    EXPECT_THAT(rowsOf(host.pathOf("pngs/panel0-lcd0.png")), isDiagonal());
}

TEST_F(Gateway, brokerThatComesBack_getsTheStateAndThePanelsNothingTwice)
{
    MosquittoBroker::Options kept;
    kept.persists = true;
    MosquittoBroker broker(kept);
    GatewayHost host(broker, {});
    {
        MqttPeer peer(broker.getSettings());
        peer.subscribe(host.topicOf("answer/#"));
        host.awaitPanels(peer);
        peer.publish(makeWish(host, "1-1/want/7/3", "wished"));
        peer.publish(makeCommand(host, "1-1/do/send/5", "x", "a"));
        EXPECT_EQ(awaitAnswer(peer, "a"), "taken");
    }
    broker.stop(SIGKILL);
    broker.start();
    MqttPeer peer(broker.getSettings());
    peer.subscribe(host.topicOf("state"));
    peer.subscribe(host.topicOf("answer/#"));
    // Answered once it is back.
    std::string word;
    for (int time = 0; time < 20 && word != "taken"; ++time) {
        const std::string id = "b" + std::to_string(time);
        peer.publish(makeCommand(host, "1-1/do/send/5", id, id));
        const auto answer = peer.await([&id](const Message& message) { return message.correlation == id; },
                                       std::chrono::milliseconds(500));
        word = answer ? wordOf(*answer) : "none";
    }
    EXPECT_EQ(word, "taken");
    EXPECT_THAT(host.readRecords(0, 7), ElementsAre("wished"));
}

TEST_F(Gateway, secondOneOfAHost_givesWay)
{
    GatewayHost first(m_broker, {"shop", 1, {}, ""});
    listen(first);
    GatewayHost second(m_broker, {"shop", 2, {}, ""});
    for (int time = 0; time < 400 && second.readErrors().find("another gateway serves") == std::string::npos; ++time)
        m_peer.takeAll(std::chrono::milliseconds(50));
    EXPECT_THAT(second.readErrors(), HasSubstr("another gateway serves panel/1/shop/"));
    EXPECT_EQ(ask(first, "1-2/do/send/5", "x", "a"), "offline") << "only the second has a panel there";
    EXPECT_EQ(ask(first, "1-1/do/send/5", "y", "b"), "taken");
    EXPECT_THAT(first.readRecords(0, 5), ElementsAre("y"));
    EXPECT_THAT(second.readRecords(0, 5), IsEmpty());
}

TEST_F(Gateway, endOfTheProcess_isTold)
{
    m_peer.subscribe("panel/1/shop/state");
    {
        GatewayHost host(m_broker, {});
        host.awaitPanels(m_peer);
        host.kill();
        const auto death = m_peer.await([](const Message& message) {
            return message.topic == "panel/1/shop/state" && message.payload.find("\"online\":false") == 1;
        });
        EXPECT_TRUE(death);
        EXPECT_TRUE(m_peer.await([](const Message& message) {
            return message.topic == "panel/1/shop/state" && message.payload.find("\"online\":true") == 1;
        }));
    }
    EXPECT_TRUE(m_peer.await([](const Message& message) {
        return message.topic == "panel/1/shop/state" && message.payload.find("\"online\":false") == 1;
    }));
}

} // namespace Vantor
