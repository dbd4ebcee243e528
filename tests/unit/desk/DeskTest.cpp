#include "panel2mqtt/desk/Desk.h"
#include "tests/unit/desk/FakeLine.h"

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using Kind = Outbox::Kind;

class RecordingOutbox : public Outbox {
public:
    struct Sent {
        Kind kind;
        Message message;
    };

    void publish(Kind kind, Message message) override { m_sent.push_back({kind, std::move(message)}); }

    std::vector<Sent> m_sent;
};

constexpr const char* root = "panel/1/shop/";

// A gateway "shop" of run "r1", which serves with epoch 5 unless a test begins otherwise.
class DeskTest : public testing::Test {
protected:
    Desk::Options optionsOf()
    {
        Desk::Options options;
        options.host = "shop";
        options.run = "r1";
        options.clock = [this] { return m_time; };
        options.complain = [this](const std::string& text) { m_complaints.push_back(text); };
        return options;
    }
    void make(Desk::Options options)
    {
        m_desk = std::make_unique<Desk>(std::move(options), m_outbox,
                                        [](const std::string& place) { return "counts of " + place; });
    }
    void serve()
    {
        m_desk->beginConnection();
        m_desk->serve(5, m_now);
        m_desk->endTelling(m_now);
    }
    void SetUp() override
    {
        make(optionsOf());
        serve();
    }
    std::shared_ptr<FakeLine> plug(const std::string& place)
    {
        auto line = std::make_shared<FakeLine>();
        m_desk->onPanelReady(place, line, {"Panel", 1024, 1013}, m_now);
        return line;
    }
    static Message commandOf(const std::string& rest, const std::string& payload, const std::string& to = "me")
    {
        Message command;
        command.topic = "panel/1/" + rest;
        command.payload = payload;
        command.responseTopic = to;
        return command;
    }
    void receive(const std::string& rest, const std::string& payload, const std::string& to = "me")
    {
        m_desk->receive(commandOf(rest, payload, to), m_now);
    }
    void receiveRetained(const std::string& rest, const std::string& payload, const std::string& to = "me")
    {
        Message message = commandOf(rest, payload, to);
        message.isRetained = true;
        m_desk->receive(message, m_now);
    }
    void takeAll(const std::string& place, FakeLine& line)
    {
        do {
            line.takeAll();
            m_desk->onProgress(place, m_now);
        } while (line.getProgress().isUnderWay);
    }
    // And forgets them.
    std::vector<std::string> takeSent()
    {
        std::vector<std::string> lines;
        for (const auto& sent : std::exchange(m_outbox.m_sent, {}))
            lines.push_back(sent.message.topic + " " + sent.message.payload);
        return lines;
    }
    static std::string answerOf(const std::string& word, const std::string& place, const std::string& reason = "",
                                const std::string& to = "me")
    {
        return to + R"( {"answer":")" + word + R"(","host":"shop","place":")" + place +
               (reason.empty() ? "\"}" : R"(","reason":")" + reason + "\"}");
    }
    static std::string stateOf(const std::string& place, bool isOnline, int epoch, const std::string& since,
                               const std::string& reason = "")
    {
        return root + place + R"(/state {"online":)" + (isOnline ? "true" : "false") +
               ",\"epoch\":" + std::to_string(epoch) + R"(,"since":")" + since +
               (reason.empty() ? "\"}" : R"(","reason":")" + reason + "\"}");
    }
    static std::string infoOf(const std::string& place)
    {
        return root + place + R"(/info {"place":")" + place +
               R"(","description":"Panel","maxPacketSize":1024,"payloadLimit":1013})";
    }

    std::string m_time = "T0";
    std::vector<std::string> m_complaints;
    RecordingOutbox m_outbox;
    std::unique_ptr<Desk> m_desk;
    Desk::TimePoint m_now{hours(100)};
};

constexpr const char* notThere = "it was not there when the gateway came";

} // namespace

TEST_F(DeskTest, panelThatComes_isToldAndGoesAgain)
{
    plug("1-4.2");
    ASSERT_EQ(m_outbox.m_sent.size(), 2u);
    for (const auto& sent : m_outbox.m_sent) {
        EXPECT_TRUE(sent.message.isRetained);
        EXPECT_EQ(sent.message.qos, 1);
        EXPECT_EQ(sent.kind, Kind::State);
    }
    EXPECT_THAT(takeSent(), ElementsAre(stateOf("1-4.2", true, 5, "T0"), infoOf("1-4.2")));
    m_time = "T1";
    m_desk->onPanelAway("1-4.2", "unplugged", m_now);
    EXPECT_THAT(takeSent(), ElementsAre(stateOf("1-4.2", false, 5, "T1", "unplugged"), infoOf("1-4.2")));
}

TEST_F(DeskTest, panelThatCantBeUsed_isToldWithoutInfo)
{
    m_desk->onPanelAway("1-4", "it can't be used", m_now);
    EXPECT_THAT(takeSent(), ElementsAre(stateOf("1-4", false, 5, "T0", "it can't be used")));
    receive("shop/1-4/do/send/5", "a");
    EXPECT_THAT(takeSent(), ElementsAre(answerOf("offline", "1-4")));
}

TEST_F(DeskTest, everyAnswer_goesOutAsAnAnswer)
{
    const auto line = plug("1-4");
    m_outbox.m_sent.clear();
    Message command = commandOf("shop/1-4/do/send/5", "a");
    command.correlation = std::string("\0x", 2);
    m_desk->receive(command, m_now);
    takeAll("1-4", *line);
    ASSERT_EQ(m_outbox.m_sent.size(), 1u);
    EXPECT_EQ(m_outbox.m_sent[0].kind, Kind::Answer);
    EXPECT_EQ(m_outbox.m_sent[0].message.qos, 1);
    EXPECT_FALSE(m_outbox.m_sent[0].message.isRetained);
    EXPECT_EQ(m_outbox.m_sent[0].message.correlation, std::string("\0x", 2));
    EXPECT_THAT(takeSent(), ElementsAre(answerOf("taken", "1-4")));
}

TEST_F(DeskTest, commandToAPlaceNobodyKnows_isOffline)
{
    receive("shop/1-9/do/send/5", "a");
    EXPECT_THAT(takeSent(), ElementsAre(answerOf("offline", "1-9")));
}

TEST_F(DeskTest, commandWithoutResponseTopic_isObeyedWithoutAnswer)
{
    const auto line = plug("1-4");
    m_outbox.m_sent.clear();
    receive("shop/1-4/do/set/5/1", "a", "");
    receive("shop/1-4/do/send/999", "a", "");
    takeAll("1-4", *line);
    EXPECT_THAT(line->getTaken(), ElementsAre("a"));
    EXPECT_THAT(takeSent(), IsEmpty());
}

TEST_F(DeskTest, topicThatAsksForNothing_isRefused)
{
    receive("shop/1-4/do/send/999", "a");
    receive("shop/whatever", "a");
    EXPECT_THAT(takeSent(), ElementsAre(answerOf("refused", "", "the type must be a number from 0 to 255"),
                                        answerOf("refused", "", "the topic is none of this host's")));
}

TEST_F(DeskTest, retainedCommand_isRefused)
{
    const auto line = plug("1-4");
    m_outbox.m_sent.clear();
    for (const char* const rest : {"do/send/5", "do/set/5/1", "do/draw/0", "do/flash", "do/stats", "do/forget"}) {
        receiveRetained(std::string("shop/1-4/") + rest, "a");
        EXPECT_THAT(
            takeSent(),
            ElementsAre(answerOf("refused", "1-4", "a retained command is not carried out; publish it without retain")))
            << rest;
    }
    EXPECT_EQ(line->getAdded(), 0u);
}

TEST_F(DeskTest, wishWithoutRetain_isRefused)
{
    const auto line = plug("1-4");
    m_outbox.m_sent.clear();
    receive("shop/1-4/want/5/1", "a");
    EXPECT_THAT(takeSent(), ElementsAre(answerOf("refused", "1-4", "a wish must be retained")));
    receiveRetained("shop/1-4/want/5/1", "b");
    receive("shop/1-4/want/5/1", "");
    takeAll("1-4", *line);
    EXPECT_THAT(takeSent(),
                ElementsAre(answerOf("refused", "1-4", "a wish must be retained"), answerOf("taken", "1-4")));
    plug("1-4")->takeAll();
    EXPECT_THAT(line->getTaken(), ElementsAre("b"));
}

TEST_F(DeskTest, commandForAnotherRun_isUnknown)
{
    const auto line = plug("1-4");
    m_outbox.m_sent.clear();
    Message command = commandOf("shop/1-4/do/send/5", "a");
    command.userProperties.emplace_back("run", "r0");
    m_desk->receive(command, m_now);
    EXPECT_THAT(takeSent(), ElementsAre(answerOf("unknown", "1-4", "the gateway was started anew")));
    EXPECT_EQ(line->getAdded(), 0u);
    command.userProperties[0].second = "r1";
    m_desk->receive(command, m_now);
    takeAll("1-4", *line);
    EXPECT_THAT(takeSent(), ElementsAre(answerOf("taken", "1-4")));
}

TEST_F(DeskTest, commandToAll_isAnsweredByEachPanelThatIsThere)
{
    const auto one = plug("1-4");
    const auto other = plug("1-5");
    plug("1-6");
    m_desk->onPanelAway("1-6", "unplugged", m_now);
    m_outbox.m_sent.clear();
    receive("shop/all/do/send/5", "a");
    takeAll("1-5", *other);
    takeAll("1-4", *one);
    EXPECT_THAT(takeSent(), ElementsAre(answerOf("taken", "1-5"), answerOf("taken", "1-4")));
    receive("all/all/do/send/5", "b");
    receive("all/1-4/do/send/5", "c");
    takeAll("1-4", *one);
    takeAll("1-5", *other);
    EXPECT_THAT(one->getTaken(), ElementsAre("a", "b", "c"));
    EXPECT_THAT(other->getTaken(), ElementsAre("a", "b"));
}

TEST_F(DeskTest, commandToAllWhereNoneIs_isOffline)
{
    receive("shop/all/do/send/5", "a");
    EXPECT_THAT(takeSent(), ElementsAre(answerOf("offline", "", "no panel is there")));
}

TEST_F(DeskTest, idsOfEachPlace_areItsOwn)
{
    const auto one = plug("1-4");
    const auto other = plug("1-5");
    m_outbox.m_sent.clear();
    Message command = commandOf("shop/1-4/do/send/5", "a");
    command.userProperties.emplace_back("id", "1");
    m_desk->receive(command, m_now);
    command.topic = "panel/1/shop/1-5/do/send/5";
    m_desk->receive(command, m_now);
    takeAll("1-4", *one);
    takeAll("1-5", *other);
    EXPECT_THAT(takeSent(), ElementsAre(answerOf("taken", "1-4"), answerOf("taken", "1-5")));
}

TEST_F(DeskTest, panelThatTakesNothing_delaysNoOther)
{
    plug("1-4");
    const auto other = plug("1-5");
    m_outbox.m_sent.clear();
    for (int i = 0; i < 300; ++i)
        receive("shop/1-4/do/send/5", std::to_string(i), "");
    receive("shop/1-4/do/send/5", "a");
    receive("shop/1-5/do/send/5", "b");
    takeAll("1-5", *other);
    EXPECT_THAT(takeSent(), ElementsAre(answerOf("busy", "1-4"), answerOf("taken", "1-5")));
}

TEST_F(DeskTest, answersBelowPanel_goOnlyBelowAnswer)
{
    for (const auto& [asked, given] : std::map<std::string, std::string>{
             {"panel/1/all/answer/x", "panel/1/shop/answer/x"},
             {"panel/1/shop/answer/x/y", "panel/1/shop/answer/x/y"},
             {"panel/1/shop/state", ""},
             {"panel/1/shop/1-4/do/send/5", ""},
             {"panel/1/shop/answer", ""},
             {"panel/1/other/answer/x", ""},
             {"panel/1/all/state", ""},
             {"panel/2/all/answer/x", ""},
             {"panel/", ""},
             {"panel", "panel"},
             {"panels/x", "panels/x"},
             {"a/+/b", ""},
             {"a/#", ""},
             {"", ""},
         }) {
        receive("shop/1-4/do/send/5", "a", asked);
        if (given.empty())
            EXPECT_THAT(takeSent(), IsEmpty()) << asked;
        else
            EXPECT_THAT(takeSent(), ElementsAre(answerOf("offline", "1-4", "", given))) << asked;
        receive("shop/1-4/do/stats", "", asked);
        takeSent();
    }
}

TEST_F(DeskTest, refuseBusy_answersWithoutAPlace)
{
    m_desk->refuseBusy(commandOf("shop/1-4/do/send/5", "a"));
    EXPECT_EQ(m_outbox.m_sent.at(0).kind, Kind::Busy);
    EXPECT_THAT(takeSent(), ElementsAre(answerOf("busy", "", "the gateway has too much to do")));
}

TEST_F(DeskTest, flash_isRefusedUntilThereIsOne)
{
    plug("1-4");
    m_outbox.m_sent.clear();
    receive("shop/1-4/do/flash", "a");
    EXPECT_THAT(takeSent(), ElementsAre(answerOf("refused", "1-4", "this gateway has no firmware upgrade")));
}

TEST_F(DeskTest, beforeItServes_nothingIsPublishedOrObeyed)
{
    make(optionsOf());
    const auto line = plug("1-4");
    m_desk->onPanelAway("1-5", "unplugged", m_now);
    m_desk->beginConnection();
    receiveRetained("shop/1-4/want/5/7", "w");
    receiveRetained("shop/1-9/state", R"({"online":true,"since":"s"})", "");
    receiveRetained("shop/1-8/info", "{}", "");
    receive("shop/1-4/want/5/7", "x");
    receive("shop/1-4/do/send/5", "a");
    receive("shop/1-4/do/send/999", "a");
    receive("shop/1-5/do/forget", "");
    m_desk->onRecord("1-4", 5, "p");
    m_desk->endTelling(m_now);
    plug("1-6");
    m_now += hours(25);
    m_desk->poll(m_now);
    EXPECT_THAT(takeSent(), IsEmpty());
    EXPECT_EQ(line->getAdded(), 0u);
    EXPECT_EQ(m_desk->getNextDue(), Desk::TimePoint::max());
    m_desk->serve(7, m_now);
    EXPECT_EQ(line->getAdded(), 1u);
    EXPECT_THAT(takeSent(),
                ElementsAre(stateOf("1-4", true, 7, "T0"), infoOf("1-4"), stateOf("1-5", false, 7, "T0", "unplugged"),
                            stateOf("1-6", true, 7, "T0"), infoOf("1-6"), stateOf("1-9", false, 7, "T0", notThere),
                            "panel/1/shop/1-8/info "));
}

TEST_F(DeskTest, connectionThatComes_hasAllPlacesToldAnew)
{
    plug("1-4");
    m_desk->onPanelAway("1-4", "unplugged", m_now);
    m_outbox.m_sent.clear();
    m_time = "T1";
    m_desk->beginConnection();
    m_desk->serve(6, m_now);
    EXPECT_THAT(takeSent(), ElementsAre(stateOf("1-4", false, 6, "T0", "unplugged"), infoOf("1-4")));
    m_desk->endTelling(m_now);
    EXPECT_THAT(takeSent(), IsEmpty());
}

TEST_F(DeskTest, whatAnEarlierRunLeft_isTakenOverOrCleared)
{
    make(optionsOf());
    m_desk->beginConnection();
    const auto tell = [this](const std::string& rest, const std::string& payload) {
        receiveRetained("shop/" + rest, payload, "");
    };
    m_time = "T9";
    tell("1-2/info", "an info");
    tell("1-2/state", R"({"online":true,"epoch":3,"since":"T1"})");
    tell("1-3/state", R"({"online":false,"epoch":3,"since":"T2","reason":"unplugged"})");
    tell("1-4/state", "no JSON");
    tell("1-5/info", "without a state");
    tell("1-6/job/17", "{}");
    tell("1-7/state", R"({"online":true,"epoch":3,"since":"T1"})");
    tell("1-7/info", "older");
    tell("1-8/state", "");
    plug("1-7");
    m_desk->serve(5, m_now);
    takeSent();
    m_desk->endTelling(m_now);
    EXPECT_THAT(takeSent(), testing::UnorderedElementsAre("panel/1/shop/1-4/state ", "panel/1/shop/1-5/info ",
                                                          "panel/1/shop/1-6/job/17 "));
    m_desk->beginConnection();
    m_desk->serve(6, m_now);
    EXPECT_THAT(takeSent(),
                ElementsAre(stateOf("1-2", false, 6, "T9", notThere), stateOf("1-3", false, 6, "T2", notThere),
                            stateOf("1-7", true, 6, "T9"), infoOf("1-7")));
    m_desk->endTelling(m_now);
    m_now += hours(24);
    m_desk->poll(m_now);
    EXPECT_THAT(takeSent(), testing::Contains("panel/1/shop/1-2/info "));
}

TEST_F(DeskTest, placeThatIsToldWhileItServes_isTakenOverAtOnce)
{
    receiveRetained("shop/1-2/state", R"({"online":false,"epoch":3,"since":"T2"})", "");
    EXPECT_THAT(takeSent(), ElementsAre(stateOf("1-2", false, 5, "T2", notThere)));
}

TEST_F(DeskTest, placeThatIsAway_isForgottenInTime)
{
    plug("1-4");
    m_desk->onPanelAway("1-4", "unplugged", m_now);
    EXPECT_EQ(m_desk->getNextDue(), m_now + minutes(1)); // stats
    m_outbox.m_sent.clear();
    m_now += hours(24) - nanoseconds(1);
    m_desk->poll(m_now);
    EXPECT_THAT(takeSent(), ElementsAre("panel/1/shop/stats counts of "));
    EXPECT_EQ(m_desk->getNextDue(), m_now + nanoseconds(1));
    m_now += nanoseconds(1);
    m_desk->poll(m_now);
    ASSERT_EQ(m_outbox.m_sent.size(), 2u);
    EXPECT_TRUE(m_outbox.m_sent[0].message.isRetained);
    EXPECT_THAT(takeSent(), ElementsAre("panel/1/shop/1-4/state ", "panel/1/shop/1-4/info "));
    EXPECT_GT(m_desk->getNextDue(), m_now);
}

TEST_F(DeskTest, placeOfAPanelThatCameBack_isNotForgotten)
{
    plug("1-4");
    m_desk->onPanelAway("1-4", "unplugged", m_now);
    plug("1-4");
    m_outbox.m_sent.clear();
    m_now += hours(25);
    m_desk->poll(m_now);
    EXPECT_THAT(takeSent(), ElementsAre("panel/1/shop/stats counts of ", "panel/1/shop/1-4/stats counts of 1-4"));
}

TEST_F(DeskTest, wishThatCannotBe_isComplainedOf)
{
    plug("1-4");
    Message wish = commandOf("shop/1-4/want/lcd/0", "no picture");
    wish.isRetained = true;
    m_desk->receive(wish, m_now);
    ASSERT_EQ(m_complaints.size(), 1u);
    EXPECT_THAT(m_complaints[0], testing::StartsWith("panel/1/shop/1-4/want/lcd/0, for 1-4: refused: "));
    receive("shop/1-4/do/draw/0", "no picture");
    EXPECT_EQ(m_complaints.size(), 1u) << "whoever commands is answered";
    receive("shop/1-4/do/draw/0", "no picture", "");
    EXPECT_EQ(m_complaints.size(), 2u) << "unless he names no topic";
}

TEST_F(DeskTest, panels_areSaidToBeGoneWhenTheGatewayEnds)
{
    plug("1-4");
    m_desk->onPanelAway("1-5", "unplugged", m_now);
    m_outbox.m_sent.clear();
    m_time = "T9";
    m_desk->leave();
    EXPECT_THAT(takeSent(), Contains(stateOf("1-4", false, 5, "T9", "the gateway has ended")));
    EXPECT_THAT(takeSent(), IsEmpty());
    receive("shop/1-4/do/send/5", "late");
    EXPECT_THAT(takeSent(), IsEmpty());
}

TEST_F(DeskTest, placeForgottenDuringAnOutage_isClearedAfterIt)
{
    plug("1-4");
    m_desk->onPanelAway("1-4", "unplugged", m_now);
    m_outbox.m_sent.clear();
    m_desk->beginConnection();
    m_now += hours(25);
    m_desk->poll(m_now);
    EXPECT_THAT(takeSent(), IsEmpty());
    EXPECT_EQ(m_desk->getNextDue(), Desk::TimePoint::max()); // nothing to spin for
    m_desk->serve(6, m_now);
    takeSent();
    m_desk->poll(m_now);
    EXPECT_THAT(takeSent(), ElementsAre("panel/1/shop/1-4/state ", "panel/1/shop/1-4/info "));
}

TEST_F(DeskTest, forget_clearsThePlaceOfAPanelThatIsAway)
{
    plug("1-4");
    m_outbox.m_sent.clear();
    receive("shop/1-4/do/forget", "");
    EXPECT_THAT(takeSent(), ElementsAre(answerOf("refused", "1-4", "the panel is there")));
    m_desk->onPanelAway("1-4", "unplugged", m_now);
    m_outbox.m_sent.clear();
    receive("shop/1-4/do/forget", "");
    EXPECT_THAT(takeSent(), ElementsAre("panel/1/shop/1-4/state ", "panel/1/shop/1-4/info ", answerOf("taken", "1-4")));
    receive("shop/1-4/do/forget", "");
    EXPECT_THAT(takeSent(), ElementsAre(answerOf("offline", "1-4")));
}

TEST_F(DeskTest, placesAreBounded_panelsThatAreThereComeFirst)
{
    for (int i = 0; i < 1024; ++i) {
        const std::string place = std::to_string(i / 256) + "-" + std::to_string(i % 256);
        m_desk->onPanelAway(place, "unplugged", m_now);
        m_now += nanoseconds(1);
    }
    m_outbox.m_sent.clear();
    m_desk->onPanelAway("9-1", "unplugged", m_now);
    EXPECT_THAT(takeSent(), IsEmpty());
    receiveRetained("shop/9-1/state", R"({"online":true,"since":"s"})", "");
    EXPECT_THAT(takeSent(), IsEmpty());
    plug("9-1");
    EXPECT_THAT(takeSent(), ElementsAre("panel/1/shop/0-0/state ", "panel/1/shop/0-0/info ",
                                        stateOf("9-1", true, 5, "T0"), infoOf("9-1")));
}

TEST_F(DeskTest, placesWithPanels_areBoundedAsWell)
{
    for (int i = 0; i < 1024; ++i)
        plug(std::to_string(i / 256) + "-" + std::to_string(i % 256));
    m_outbox.m_sent.clear();
    plug("9-1");
    m_desk->onPanelAway("9-1", "unplugged", m_now);
    EXPECT_THAT(takeSent(), IsEmpty());
}

TEST_F(DeskTest, records_arePublishedWithTheirNumber)
{
    plug("1-4");
    m_outbox.m_sent.clear();
    m_desk->onRecord("1-4", 0, "what it said of itself");
    m_desk->onRecord("1-4", 7, std::string("a\0b", 3));
    m_desk->onRecord("1-4", 255, "");
    m_desk->onRecord("1-5", 7, "of nobody");
    ASSERT_EQ(m_outbox.m_sent.size(), 2u);
    EXPECT_EQ(m_outbox.m_sent[0].kind, Kind::Event);
    EXPECT_EQ(m_outbox.m_sent[0].message.payload, std::string("a\0b", 3));
    EXPECT_EQ(m_outbox.m_sent[0].message.qos, 0);
    EXPECT_FALSE(m_outbox.m_sent[0].message.isRetained);
    ASSERT_NE(m_outbox.m_sent[0].message.findProperty("n"), nullptr);
    EXPECT_EQ(*m_outbox.m_sent[0].message.findProperty("n"), "1");
    EXPECT_EQ(*m_outbox.m_sent[1].message.findProperty("n"), "2");
    EXPECT_EQ(m_outbox.m_sent[0].message.topic, "panel/1/shop/1-4/got/7");
    EXPECT_EQ(m_outbox.m_sent[1].message.topic, "panel/1/shop/1-4/got/255");
}

TEST_F(DeskTest, recordsThatAreAskedFor_areAllThatArePublished)
{
    Desk::Options options = optionsOf();
    options.got = {0, 9};
    options.gotQos = 1;
    make(options);
    serve();
    plug("1-4");
    m_outbox.m_sent.clear();
    for (const unsigned int type : {0u, 7u, 9u})
        m_desk->onRecord("1-4", type, "p");
    ASSERT_EQ(m_outbox.m_sent.size(), 2u);
    EXPECT_EQ(m_outbox.m_sent[1].message.qos, 1);
    EXPECT_THAT(takeSent(), ElementsAre("panel/1/shop/1-4/got/0 p", "panel/1/shop/1-4/got/9 p"));
}

TEST_F(DeskTest, stats_areToldOfPanelsThatAreThere)
{
    plug("1-4");
    plug("1-5");
    m_desk->onPanelAway("1-5", "unplugged", m_now);
    m_outbox.m_sent.clear();
    m_now += minutes(1) - nanoseconds(1);
    m_desk->poll(m_now);
    EXPECT_THAT(takeSent(), IsEmpty());
    EXPECT_EQ(m_desk->getNextDue(), m_now + nanoseconds(1));
    m_now += nanoseconds(1);
    m_desk->poll(m_now);
    ASSERT_EQ(m_outbox.m_sent.size(), 2u);
    EXPECT_EQ(m_outbox.m_sent[0].kind, Kind::Event);
    EXPECT_FALSE(m_outbox.m_sent[0].message.isRetained);
    EXPECT_THAT(takeSent(), ElementsAre("panel/1/shop/stats counts of ", "panel/1/shop/1-4/stats counts of 1-4"));
    EXPECT_EQ(m_desk->getNextDue(), m_now + minutes(1));
    m_desk->poll(m_now);
    EXPECT_THAT(takeSent(), IsEmpty());
}

TEST_F(DeskTest, statsDuringAnOutage_areNone)
{
    plug("1-4");
    m_desk->beginConnection();
    m_outbox.m_sent.clear();
    m_now += minutes(5);
    m_desk->poll(m_now);
    EXPECT_THAT(takeSent(), IsEmpty());
    EXPECT_EQ(m_desk->getNextDue(), Desk::TimePoint::max());
}

TEST_F(DeskTest, statsThatAreNotWanted_areNone)
{
    Desk::Options options = optionsOf();
    options.statsEvery = Desk::Duration::zero();
    make(options);
    serve();
    plug("1-4");
    m_outbox.m_sent.clear();
    m_now += hours(1);
    m_desk->poll(m_now);
    EXPECT_THAT(takeSent(), IsEmpty());
    EXPECT_EQ(m_desk->getNextDue(), Desk::TimePoint::max());
}

TEST_F(DeskTest, statsOnDemand_areToldToAllAndToWhoAsked)
{
    plug("1-4");
    plug("1-5");
    m_outbox.m_sent.clear();
    Message question = commandOf("shop/1-4/do/stats", "");
    question.correlation = "c";
    m_desk->receive(question, m_now);
    ASSERT_EQ(m_outbox.m_sent.size(), 2u);
    EXPECT_EQ(m_outbox.m_sent[0].kind, Kind::Answer);
    EXPECT_EQ(m_outbox.m_sent[0].message.correlation, "c");
    EXPECT_EQ(m_outbox.m_sent[0].message.qos, 1);
    EXPECT_EQ(m_outbox.m_sent[1].message.correlation, std::nullopt);
    EXPECT_THAT(takeSent(), ElementsAre("me counts of 1-4", "panel/1/shop/1-4/stats counts of 1-4"));
    receive("shop/all/do/stats", "", "");
    EXPECT_THAT(takeSent(),
                ElementsAre("panel/1/shop/1-4/stats counts of 1-4", "panel/1/shop/1-5/stats counts of 1-5"));
    receive("shop/1-4/do/stats", "", "panel/1/shop/state");
    EXPECT_THAT(takeSent(), ElementsAre("panel/1/shop/1-4/stats counts of 1-4"));
    receive("shop/1-4/do/stats", "", "panel/1/all/answer/x");
    EXPECT_THAT(takeSent(), testing::Contains("panel/1/shop/answer/x counts of 1-4"));
}

TEST_F(DeskTest, wishes_areAppliedWhenPublishedAndToEachPanelThatComes)
{
    const auto one = plug("1-4");
    const auto other = plug("1-5");
    receiveRetained("all/all/want/5/7", "fleet");
    receiveRetained("shop/1-4/want/5/7", "place");
    takeAll("1-4", *one);
    takeAll("1-5", *other);
    EXPECT_THAT(one->getTaken(), ElementsAre("fleet", "place"));
    EXPECT_THAT(other->getTaken(), ElementsAre("fleet"));
    const auto replaced = plug("1-4");
    takeAll("1-4", *replaced);
    EXPECT_THAT(replaced->getTaken(), ElementsAre("place"));
}

TEST_F(DeskTest, wishesToldAnew_areNotAppliedAnew)
{
    const auto line = plug("1-4");
    receiveRetained("shop/1-4/want/5/7", "w");
    takeAll("1-4", *line);
    m_desk->beginConnection();
    m_desk->serve(6, m_now);
    receiveRetained("shop/1-4/want/5/7", "w");
    m_desk->endTelling(m_now);
    takeAll("1-4", *line);
    EXPECT_EQ(line->getAdded(), 1u);
    receiveRetained("shop/1-4/want/5/7", "w"); // somebody publishes it again
    EXPECT_EQ(line->getAdded(), 2u);
}

TEST_F(DeskTest, wishesChangedDuringAnOutage_areAppliedAfterItAtTheirLevel)
{
    const auto line = plug("1-4");
    receiveRetained("shop/1-4/want/5/1", "kept");
    receiveRetained("shop/1-4/want/5/2", "old");
    receiveRetained("shop/1-4/want/5/3", "dropped");
    takeAll("1-4", *line);
    m_desk->beginConnection();
    m_desk->serve(6, m_now);
    receiveRetained("all/all/want/5/2", "of all");
    receiveRetained("shop/1-4/want/5/2", "new");
    receiveRetained("shop/1-4/want/5/1", "kept");
    EXPECT_EQ(line->getAdded(), 3u); // until all are told
    m_desk->endTelling(m_now);
    takeAll("1-4", *line);
    EXPECT_THAT(line->getTaken(), ElementsAre("kept", "old", "dropped", "new"));
    const auto replaced = plug("1-4");
    takeAll("1-4", *replaced);
    EXPECT_THAT(replaced->getTaken(), ElementsAre("kept", "new"));
}

TEST_F(DeskTest, panelThatComesDuringAnOutage_hasWhatWasWished)
{
    receiveRetained("shop/1-4/want/5/7", "w");
    m_desk->beginConnection();
    const auto line = plug("1-4");
    EXPECT_EQ(line->getAdded(), 1u);
}

TEST_F(DeskTest, panelThatComesWhileWishesAreToldForTheFirstTime_waitsForAll)
{
    make(optionsOf());
    m_desk->beginConnection();
    m_desk->serve(5, m_now);
    receiveRetained("all/all/want/5/7", "fleet");
    const auto line = plug("1-4");
    EXPECT_EQ(line->getAdded(), 0u);
    receiveRetained("shop/1-4/want/5/7", "place");
    m_desk->endTelling(m_now);
    takeAll("1-4", *line);
    EXPECT_THAT(line->getTaken(), ElementsAre("place"));
}

TEST_F(DeskTest, wishesForWhichThereIsNoRoom_areRefused)
{
    for (int key = 0; key < 4096; ++key)
        receiveRetained("shop/1-4/want/5/" + std::to_string(key), "w");
    EXPECT_THAT(takeSent(), IsEmpty());
    receiveRetained("shop/1-4/want/6/0", "w");
    EXPECT_THAT(takeSent(), ElementsAre(answerOf("refused", "1-4", "there are too many wishes")));
}

TEST_F(DeskTest, whatIsPending_isPolledAndDue)
{
    plug("1-4");
    receive("shop/1-4/do/send/5", "a");
    Message command = commandOf("shop/1-4/do/send/5", "b");
    command.expirySeconds = 3;
    m_desk->receive(command, m_now);
    EXPECT_EQ(m_desk->getNextDue(), m_now + seconds(3));
    m_outbox.m_sent.clear();
    m_now += seconds(3);
    m_desk->poll(m_now);
    EXPECT_THAT(takeSent(), ElementsAre(answerOf("expired", "1-4")));
}

TEST_F(DeskTest, progressOfAPlaceNobodyKnows_isIgnored)
{
    m_desk->onProgress("1-4", m_now);
    EXPECT_THAT(takeSent(), IsEmpty());
}

TEST_F(DeskTest, publishedByOthersUnderItsPlaces_isNotObeyed)
{
    const auto line = plug("1-4");
    m_outbox.m_sent.clear();
    receiveRetained("shop/1-4/state", R"({"online":false,"since":"s"})", "");
    receiveRetained("shop/1-4/info", "x", "");
    EXPECT_THAT(takeSent(), IsEmpty());
    receive("shop/1-4/do/send/5", "a", "");
    EXPECT_EQ(line->getAdded(), 1u);
}

} // namespace Vantor
