#include "panel2mqtt/desk/HostPresence.h"

#include <algorithm>
#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

using Stage = HostPresence::Stage;

constexpr const char* stateTopic = "panel/1/shop/state";
constexpr const char* claimTopic = "panel/1/shop/claim";

class PresenceOutbox : public Outbox {
public:
    void publish(Kind kind, Message message) override
    {
        EXPECT_EQ(kind, message.isRetained ? Kind::State : Kind::Answer);
        EXPECT_EQ(message.isRetained, message.topic == stateTopic);
        m_sent.push_back(std::move(message));
    }
    std::vector<std::string> take()
    {
        std::vector<std::string> lines;
        for (const Message& message : std::exchange(m_sent, {}))
            lines.push_back(message.topic.substr(13) + " " + message.payload);
        return lines;
    }

    std::vector<Message> m_sent;
};

Message presenceMessageOf(const char* topic, std::string payload)
{
    Message message;
    message.topic = topic;
    message.payload = std::move(payload);
    return message;
}

std::string stateOf(bool isOnline, std::uint64_t epoch, const std::string& run)
{
    return DeskJson::write(HostState{isOnline, epoch, run, "v"});
}

std::string claimOf(const std::string& run, std::uint64_t since, bool isServing)
{
    return DeskJson::write(HostClaim{run, since, isServing});
}

// Run "r", started at 500, with epoch 1000.
class HostPresenceTest : public testing::Test {
protected:
    HostPresenceTest() { m_presence.planWill(1000); }

    void connect()
    {
        m_presence.beginConnection();
        m_presence.onConnected(m_now);
    }
    void serve()
    {
        connect();
        m_presence.endTelling(m_now);
        m_outbox.take();
    }
    void hearState(bool isOnline, std::uint64_t epoch, const std::string& run)
    {
        EXPECT_TRUE(m_presence.receive(presenceMessageOf(stateTopic, stateOf(isOnline, epoch, run)), m_now));
    }
    void hearClaim(const std::string& run, std::uint64_t since, bool isServing)
    {
        EXPECT_TRUE(m_presence.receive(presenceMessageOf(claimTopic, claimOf(run, since, isServing)), m_now));
    }

    PresenceOutbox m_outbox;
    HostPresence m_presence{"shop", "r", "v", 500, m_outbox};
    HostPresence::TimePoint m_now{seconds(100)};
    const std::string m_birth = "state " + stateOf(true, 1000, "r");
    const std::string m_claim = "claim " + claimOf("r", 500, true);
    const std::string m_question = "claim " + claimOf("r", 500, false);
};

} // namespace

TEST_F(HostPresenceTest, will_isTheDeathOfItsConnection)
{
    const Message will = m_presence.planWill(2000);
    EXPECT_EQ(will.topic, stateTopic);
    EXPECT_EQ(will.payload, stateOf(false, 2000, "r"));
    EXPECT_EQ(will.qos, 1);
    EXPECT_TRUE(will.isRetained);
    EXPECT_EQ(m_presence.getEpoch(), 2000u);
}

TEST_F(HostPresenceTest, epochs_growThoughTheClockStepsBack)
{
    EXPECT_EQ(m_presence.getEpoch(), 1000u);
    m_presence.planWill(10);
    EXPECT_EQ(m_presence.getEpoch(), 1001u);
    m_presence.planWill(1001);
    EXPECT_EQ(m_presence.getEpoch(), 1002u);
    m_presence.planWill(5000);
    EXPECT_EQ(m_presence.getEpoch(), 5000u);
}

TEST_F(HostPresenceTest, whereNobodyIs_servesWhenAllIsTold)
{
    EXPECT_EQ(m_presence.getStage(), Stage::Away);
    connect();
    EXPECT_EQ(m_presence.getStage(), Stage::Asking);
    EXPECT_THAT(m_outbox.take(), IsEmpty());
    m_presence.endTelling(m_now);
    EXPECT_EQ(m_presence.getStage(), Stage::Serving);
    EXPECT_THAT(m_outbox.take(), ElementsAre(m_claim, m_birth));
    EXPECT_EQ(m_presence.getNextDue(), HostPresence::TimePoint::max());
}

TEST_F(HostPresenceTest, connectionThatComesUnannounced_isAskedOver)
{
    m_presence.onConnected(m_now);
    EXPECT_EQ(m_presence.getStage(), Stage::Asking);
}

TEST_F(HostPresenceTest, whatIsRetainedBeforeTheConnectionIsKnown_counts)
{
    m_presence.beginConnection();
    hearState(true, 900, "other");
    m_presence.onConnected(m_now);
    m_presence.endTelling(m_now);
    EXPECT_EQ(m_presence.getStage(), Stage::Asking);
}

TEST_F(HostPresenceTest, otherTopics_areNotItsOwn)
{
    connect();
    EXPECT_FALSE(m_presence.receive(presenceMessageOf("panel/1/shop/1-4/state", "{}"), m_now));
    EXPECT_FALSE(m_presence.receive(presenceMessageOf("panel/1/other/state", "{}"), m_now));
    EXPECT_FALSE(m_presence.receive(presenceMessageOf("panel/1/shop/claims", "{}"), m_now));
}

TEST_F(HostPresenceTest, staleOnlineOfACrash_isServedOverAfterASecond)
{
    connect();
    hearState(true, 900, "crashed");
    m_presence.endTelling(m_now);
    EXPECT_EQ(m_presence.getStage(), Stage::Asking);
    EXPECT_THAT(m_outbox.take(), ElementsAre(m_question));
    EXPECT_EQ(m_presence.getNextDue(), m_now + seconds(1));
    m_now += seconds(1) - nanoseconds(1);
    m_presence.poll(m_now);
    EXPECT_EQ(m_presence.getStage(), Stage::Asking);
    m_now += nanoseconds(1);
    m_presence.poll(m_now);
    EXPECT_EQ(m_presence.getStage(), Stage::Serving);
    EXPECT_THAT(m_outbox.take(), ElementsAre(m_claim, m_birth));
}

TEST_F(HostPresenceTest, disputeOfAnEarlierConnection_isOver)
{
    connect();
    hearState(true, 900, "other");
    m_presence.endTelling(m_now);
    m_presence.onDisconnected();
    m_presence.beginConnection();
    EXPECT_EQ(m_presence.getNextDue(), HostPresence::TimePoint::max());
    m_presence.onConnected(m_now);
    m_presence.endTelling(m_now);
    EXPECT_EQ(m_presence.getStage(), Stage::Serving);
}

TEST_F(HostPresenceTest, deathThatIsRetained_isNoDispute)
{
    connect();
    hearState(false, 900, "other");
    m_presence.endTelling(m_now);
    EXPECT_EQ(m_presence.getStage(), Stage::Serving);
}

TEST_F(HostPresenceTest, retainedStateOfItsOwnRun_isNoDispute)
{
    connect();
    hearState(true, 900, "r");
    m_presence.endTelling(m_now);
    EXPECT_EQ(m_presence.getStage(), Stage::Serving);
}

TEST_F(HostPresenceTest, retainedStateThatCantBeRead_isNoDispute)
{
    connect();
    m_presence.receive(presenceMessageOf(stateTopic, "x"), m_now);
    m_presence.receive(presenceMessageOf(claimTopic, "x"), m_now);
    m_presence.endTelling(m_now);
    EXPECT_EQ(m_presence.getStage(), Stage::Serving);
}

TEST_F(HostPresenceTest, retainedEpochAtOrAboveItsOwn_isReconnectedOver)
{
    for (const std::uint64_t epoch : {1000u, 2000u}) {
        for (const bool isOnline : {true, false}) {
            HostPresence presence("shop", "r", "v", 500, m_outbox);
            presence.planWill(1000);
            presence.beginConnection();
            presence.onConnected(m_now);
            presence.receive(presenceMessageOf(stateTopic, stateOf(isOnline, epoch, "other")), m_now);
            EXPECT_EQ(presence.getStage(), Stage::Renewing);
            presence.endTelling(m_now);
            EXPECT_EQ(presence.getStage(), Stage::Renewing);
            presence.planWill(1500);
            EXPECT_EQ(presence.getEpoch(), std::max<std::uint64_t>(1500, epoch + 1));
        }
    }
    EXPECT_THAT(m_outbox.take(), IsEmpty());
}

TEST_F(HostPresenceTest, epochJustBelowItsOwn_isNot)
{
    connect();
    hearState(false, 999, "other");
    EXPECT_EQ(m_presence.getStage(), Stage::Asking);
}

TEST_F(HostPresenceTest, lateWillOfItsEarlierConnection_isOvercome)
{
    serve();
    m_presence.onDisconnected();
    EXPECT_EQ(m_presence.getStage(), Stage::Away);
    m_presence.planWill(1001);
    connect();
    EXPECT_EQ(m_presence.getStage(), Stage::Serving); // at once
    EXPECT_THAT(m_outbox.take(), ElementsAre(m_claim, "state " + stateOf(true, 1001, "r")));
    hearState(false, 1000, "r");
    EXPECT_EQ(m_presence.getStage(), Stage::Serving);
    EXPECT_THAT(m_outbox.take(), ElementsAre("state " + stateOf(true, 1001, "r")));
}

TEST_F(HostPresenceTest, lateWillAboveItsOwnEpoch_isReconnectedOver)
{
    serve();
    hearState(false, 1001, "other");
    EXPECT_EQ(m_presence.getStage(), Stage::Renewing);
    m_presence.onDisconnected();
    m_presence.planWill(10);
    EXPECT_EQ(m_presence.getEpoch(), 1002u);
    connect();
    EXPECT_EQ(m_presence.getStage(), Stage::Serving);
}

// The will is planned before what the earlier connection has brought is read.
TEST_F(HostPresenceTest, birth_hasTheEpochOfTheWillWhateverIsHeardBetween)
{
    serve();
    m_presence.planWill(2000);
    hearState(false, 3000, "other");
    m_presence.onDisconnected();
    connect();
    EXPECT_THAT(m_outbox.take(), ElementsAre(m_claim, "state " + stateOf(true, 2000, "r")));
    hearState(false, 3000, "other");
    EXPECT_EQ(m_presence.getStage(), Stage::Renewing);
    m_presence.planWill(2001);
    EXPECT_EQ(m_presence.getEpoch(), 3001u);
}

TEST_F(HostPresenceTest, birthThatIsClearedOrGarbled_isToldAgain)
{
    serve();
    m_presence.receive(presenceMessageOf(stateTopic, ""), m_now);
    EXPECT_THAT(m_outbox.take(), ElementsAre(m_birth));
    m_presence.receive(presenceMessageOf(stateTopic, "x"), m_now);
    EXPECT_THAT(m_outbox.take(), ElementsAre(m_birth));
}

TEST_F(HostPresenceTest, itsOwnBirth_isNoNews)
{
    serve();
    hearState(true, 1000, "r");
    EXPECT_THAT(m_outbox.take(), IsEmpty());
    EXPECT_EQ(m_presence.getStage(), Stage::Serving);
}

TEST_F(HostPresenceTest, birthOfAnotherBelowItsEpoch_isOvercome)
{
    serve();
    hearState(true, 900, "other");
    EXPECT_EQ(m_presence.getStage(), Stage::Serving);
    EXPECT_THAT(m_outbox.take(), ElementsAre(m_claim, m_birth));
}

// Its own will has a lower epoch: consumers would ignore its death.
TEST_F(HostPresenceTest, birthOfAnotherAboveItsEpoch_isReconnectedOver)
{
    serve();
    hearState(true, 1001, "other");
    EXPECT_EQ(m_presence.getStage(), Stage::Renewing);
    EXPECT_THAT(m_outbox.take(), ElementsAre(m_claim));
    m_presence.onDisconnected();
    EXPECT_EQ(DeskJson::readHostState(m_presence.planWill(10).payload)->epoch, 1002u);
}

TEST_F(HostPresenceTest, whoServes_objectsToWhoAsks)
{
    serve();
    hearClaim("other", 1, false); // older, but not serving
    EXPECT_EQ(m_presence.getStage(), Stage::Serving);
    EXPECT_THAT(m_outbox.take(), ElementsAre(m_claim));
    hearClaim("r", 1, true); // its own
    EXPECT_THAT(m_outbox.take(), IsEmpty());
}

TEST_F(HostPresenceTest, whoAsks_givesWayToWhoServes)
{
    connect();
    hearClaim("other", 900, true);
    EXPECT_EQ(m_presence.getStage(), Stage::Yielding);
    m_presence.endTelling(m_now);
    m_presence.poll(m_now + seconds(5));
    EXPECT_EQ(m_presence.getStage(), Stage::Yielding);
    EXPECT_THAT(m_outbox.take(), IsEmpty());
}

TEST_F(HostPresenceTest, ofTwoThatAsk_theOlderStays)
{
    connect();
    hearClaim("other", 501, false);
    EXPECT_EQ(m_presence.getStage(), Stage::Asking);
    EXPECT_THAT(m_outbox.take(), ElementsAre(m_question));
    hearClaim("other", 499, false);
    EXPECT_EQ(m_presence.getStage(), Stage::Yielding);
}

TEST_F(HostPresenceTest, ofTwoThatServe_theOlderStays)
{
    serve();
    hearClaim("other", 501, true);
    EXPECT_EQ(m_presence.getStage(), Stage::Serving);
    EXPECT_THAT(m_outbox.take(), ElementsAre(m_claim));
    hearClaim("other", 499, true);
    EXPECT_EQ(m_presence.getStage(), Stage::Yielding);
}

TEST_F(HostPresenceTest, whoHasGivenWay_asksWhenItComesBack)
{
    serve();
    hearClaim("other", 499, true);
    m_presence.onDisconnected();
    m_presence.planWill(2000);
    connect();
    EXPECT_EQ(m_presence.getStage(), Stage::Asking);
    EXPECT_THAT(m_outbox.take(), IsEmpty());
}

TEST_F(HostPresenceTest, whoIsAway_hearsNothing)
{
    hearClaim("other", 1, true);
    hearState(true, 9000, "other");
    m_presence.endTelling(m_now);
    m_presence.poll(m_now);
    EXPECT_EQ(m_presence.getStage(), Stage::Away);
    EXPECT_EQ(m_presence.getEpoch(), 1000u);
    EXPECT_THAT(m_outbox.take(), IsEmpty());
}

TEST_F(HostPresenceTest, leave_tellsTheDeathOfWhoServes)
{
    serve();
    m_presence.leave();
    EXPECT_THAT(m_outbox.take(), ElementsAre("state " + stateOf(false, 1000, "r")));
    EXPECT_EQ(m_presence.getStage(), Stage::Away);
    m_presence.leave();
    EXPECT_THAT(m_outbox.take(), IsEmpty());
}

TEST_F(HostPresenceTest, leave_ofWhoAsks_tellsNothing)
{
    connect();
    m_presence.leave();
    EXPECT_THAT(m_outbox.take(), IsEmpty());
}

namespace {

// A broker and gateways with one name, whose messages travel in the order that `choose` has.
// Connections that end without a word leave their will, which comes at any time later.
class PresenceWorld {
public:
    struct Gateway {
        std::string run;
        std::unique_ptr<PresenceOutbox> outbox;
        std::unique_ptr<HostPresence> presence;
        std::uint64_t clock = 0;
        bool isConnected = false;
        bool hasCrashed = false;
        unsigned int connections = 0;
        std::optional<HostPresence::TimePoint> comesBack;
        Message will;
        std::deque<std::optional<Message>> in; // nothing: all has been told
    };

    // `areOrderly`: who gives way says so; otherwise its connection may be lost first.
    explicit PresenceWorld(unsigned int seed, bool areOrderly = false) : m_random(seed), m_areOrderly(areOrderly) {}

    void add(const std::string& run, std::uint64_t since, std::uint64_t clock)
    {
        Gateway gateway;
        gateway.run = run;
        gateway.clock = clock;
        gateway.outbox = std::make_unique<PresenceOutbox>();
        gateway.presence = std::make_unique<HostPresence>("shop", run, "v", since, *gateway.outbox);
        gateway.comesBack = m_now;
        m_gateways.push_back(std::move(gateway));
    }
    Gateway& at(std::size_t i) { return m_gateways.at(i); }
    std::size_t size() const { return m_gateways.size(); }

    void connect(Gateway& gateway)
    {
        gateway.comesBack.reset();
        if (gateway.isConnected || gateway.hasCrashed || !m_isUp)
            return;
        ++gateway.connections;
        gateway.isConnected = true;
        gateway.will = gateway.presence->planWill(gateway.clock++);
        gateway.presence->beginConnection();
        if (m_retained)
            gateway.in.push_back(*m_retained);
        gateway.in.push_back(std::nullopt);
        gateway.presence->onConnected(m_now);
        flush(gateway);
    }
    void disconnect(Gateway& gateway, bool isOrderly)
    {
        if (!gateway.isConnected)
            return;
        flush(gateway);
        gateway.isConnected = false;
        gateway.in.clear();
        gateway.outbox->m_sent.clear();
        if (!isOrderly)
            m_wills.push_back(gateway.will);
        gateway.presence->onDisconnected();
    }
    void crash(Gateway& gateway)
    {
        disconnect(gateway, false);
        gateway.hasCrashed = true;
        gateway.comesBack.reset();
    }
    void stopBroker()
    {
        for (Gateway& gateway : m_gateways) {
            if (!gateway.isConnected)
                continue;
            disconnect(gateway, true); // a broker that dies tells no wills
            gateway.comesBack = m_now;
        }
        m_isUp = false;
    }
    void startBroker(bool hasForgotten)
    {
        m_isUp = true;
        m_wills.clear();
        if (hasForgotten)
            m_retained.reset();
        for (Gateway& gateway : m_gateways)
            gateway.comesBack = m_now;
    }
    // False when nothing moves any more but time.
    bool step()
    {
        std::vector<std::size_t> movable;
        for (std::size_t i = 0; i < m_gateways.size(); ++i) {
            const Gateway& gateway = m_gateways[i];
            if (!gateway.in.empty() || (m_isUp && gateway.comesBack && *gateway.comesBack <= m_now))
                movable.push_back(i);
        }
        const std::size_t choices = movable.size() + (m_wills.empty() || !m_isUp ? 0 : 1);
        if (choices == 0)
            return false;
        const std::size_t chosen = m_random() % choices;
        if (chosen == movable.size()) {
            const Message will = m_wills.front();
            m_wills.pop_front();
            route(will, nullptr);
        } else {
            move(m_gateways[movable[chosen]]);
        }
        return true;
    }
    void pass(nanoseconds time)
    {
        m_now += time;
        for (Gateway& gateway : m_gateways) {
            gateway.presence->poll(m_now);
            flush(gateway);
            follow(gateway);
        }
    }
    void settle()
    {
        for (int round = 0; round < 200; ++round) {
            for (int steps = 0; step(); ++steps)
                ASSERT_LT(steps, 1000) << "they never come to rest";
            pass(milliseconds(500));
        }
    }
    unsigned int random() { return static_cast<unsigned int>(m_random()); }
    const std::optional<Message>& getRetained() const { return m_retained; }

    std::vector<Gateway*> serving()
    {
        std::vector<Gateway*> all;
        for (Gateway& gateway : m_gateways) {
            if (gateway.isConnected && gateway.presence->getStage() == Stage::Serving)
                all.push_back(&gateway);
        }
        return all;
    }

private:
    void move(Gateway& gateway)
    {
        if (gateway.in.empty()) {
            connect(gateway);
        } else {
            const auto message = gateway.in.front();
            gateway.in.pop_front();
            if (message)
                gateway.presence->receive(*message, m_now);
            else
                gateway.presence->endTelling(m_now);
            flush(gateway);
        }
        follow(gateway);
    }
    void follow(Gateway& gateway)
    {
        const Stage stage = gateway.presence->getStage();
        if (!gateway.isConnected || (stage != Stage::Yielding && stage != Stage::Renewing))
            return;
        disconnect(gateway, m_areOrderly || random() % 2 == 0);
        gateway.comesBack = m_now + (stage == Stage::Yielding ? milliseconds(30000) : milliseconds(100));
    }
    void flush(Gateway& gateway)
    {
        for (const Message& message : std::exchange(gateway.outbox->m_sent, {})) {
            if (gateway.isConnected)
                route(message, &gateway);
        }
    }
    void route(const Message& message, const Gateway* from)
    {
        if (message.isRetained)
            m_retained = message;
        for (Gateway& gateway : m_gateways) {
            if (&gateway != from && gateway.isConnected)
                gateway.in.emplace_back(message);
        }
    }

    std::minstd_rand m_random;
    std::vector<Gateway> m_gateways;
    std::deque<Message> m_wills;
    std::optional<Message> m_retained;
    bool m_isUp = true;
    const bool m_areOrderly;
    HostPresence::TimePoint m_now{seconds(1000)};
};

// Exactly one serves, and what is retained is its birth, with its connection's epoch.
void expectOneServes(PresenceWorld& world, const std::string& what)
{
    const auto serving = world.serving();
    ASSERT_EQ(serving.size(), 1u) << what;
    ASSERT_TRUE(world.getRetained()) << what;
    const auto state = DeskJson::readHostState(world.getRetained()->payload);
    ASSERT_TRUE(state) << what;
    EXPECT_TRUE(state->isOnline) << what;
    EXPECT_EQ(state->run, serving[0]->run) << what;
    EXPECT_EQ(state->epoch, DeskJson::readHostState(serving[0]->will.payload)->epoch) << what;
    EXPECT_EQ(state->epoch, serving[0]->presence->getEpoch()) << what;
}

constexpr unsigned int worlds = 400;

} // namespace

TEST(HostPresences, twoThatStartTogether_oneServes)
{
    for (unsigned int seed = 0; seed < worlds; ++seed) {
        PresenceWorld world(seed);
        world.add("a", 10, 1000 + seed % 3);
        world.add("b", 10 + seed % 2, 1001);
        world.settle();
        expectOneServes(world, "seed " + std::to_string(seed));
    }
}

TEST(HostPresences, secondThatComesLater_givesWayForGood)
{
    for (unsigned int seed = 0; seed < worlds; ++seed) {
        PresenceWorld world(seed, true);
        world.add("a", 10, 1000);
        world.settle();
        world.add("b", seed % 2 == 0 ? 5 : 20, seed % 3 == 0 ? 1 : 5000); // its clock may be behind
        world.settle();
        expectOneServes(world, "seed " + std::to_string(seed));
        EXPECT_EQ(world.serving()[0]->run, "a");
        EXPECT_EQ(world.at(0).connections, 1u) << "it isn't fought with, seed " << seed;
        world.crash(world.at(0));
        world.settle();
        expectOneServes(world, "after the crash, seed " + std::to_string(seed));
        EXPECT_EQ(world.serving()[0]->run, "b");
    }
}

TEST(HostPresences, oneThatIsCutOff_comesBackAndOneServes)
{
    for (unsigned int seed = 0; seed < worlds; ++seed) {
        PresenceWorld world(seed, true);
        world.add("a", 10, 1000);
        world.settle();
        world.disconnect(world.at(0), seed % 2 == 0);
        world.add("b", 20, seed % 3 == 0 ? 1 : 5000);
        world.settle();
        expectOneServes(world, "while one is away, seed " + std::to_string(seed));
        EXPECT_EQ(world.serving()[0]->run, "b");
        world.connect(world.at(0));
        world.settle();
        expectOneServes(world, "seed " + std::to_string(seed));
        const unsigned int before = world.at(0).connections + world.at(1).connections;
        const std::string run = world.serving()[0]->run;
        world.settle(); // 100 s: the other has asked three times
        expectOneServes(world, "later, seed " + std::to_string(seed));
        EXPECT_EQ(world.serving()[0]->run, run);
        EXPECT_LE(world.at(0).connections + world.at(1).connections, before + 4) << "seed " << seed;
    }
}

TEST(HostPresences, brokerThatRestarts_hasOneThatServes)
{
    for (unsigned int seed = 0; seed < worlds; ++seed) {
        PresenceWorld world(seed);
        world.add("a", 10, 1000);
        world.add("b", 20, 3000);
        for (unsigned int i = seed % 17; i > 0; --i)
            world.step();
        if (seed % 2 == 0)
            world.settle();
        world.stopBroker();
        world.pass(seconds(seed % 4));
        world.startBroker(seed % 3 == 0);
        world.settle();
        expectOneServes(world, "seed " + std::to_string(seed));
    }
}

TEST(HostPresences, crashAtAnyTime_leavesOneThatServes)
{
    for (unsigned int seed = 0; seed < worlds; ++seed) {
        PresenceWorld world(seed);
        world.add("a", 10, 1000);
        world.add("b", 20, 900);
        for (unsigned int i = seed % 23; i > 0; --i)
            world.step();
        world.crash(world.at(seed % 2));
        world.settle();
        expectOneServes(world, "seed " + std::to_string(seed));
    }
}

TEST(HostPresences, threeWithAnythingThatHappens_endWithOne)
{
    for (unsigned int seed = 0; seed < worlds; ++seed) {
        PresenceWorld world(seed);
        for (const char* const run : {"a", "b", "c"})
            world.add(run, world.random() % 3, world.random() % 5000);
        for (int event = 0; event < 12; ++event) {
            for (unsigned int i = world.random() % 8; i > 0; --i)
                world.step();
            PresenceWorld::Gateway& gateway = world.at(world.random() % world.size());
            const unsigned int chosen = world.random() % 5;
            if (chosen == 0) {
                world.disconnect(gateway, false);
            } else if (chosen == 1) {
                world.connect(gateway);
            } else if (chosen == 2) {
                world.stopBroker();
                world.startBroker(world.random() % 2 == 0);
            } else if (chosen == 3) {
                world.pass(milliseconds(world.random() % 2000));
            } else {
                gateway.clock -= std::min<std::uint64_t>(gateway.clock, 1000);
            }
        }
        world.startBroker(false);
        world.settle();
        expectOneServes(world, "seed " + std::to_string(seed));
    }
}

} // namespace Vantor
