#include "panel2mqtt/desk/PanelDesk.h"
#include "tests/unit/desk/FakeLine.h"

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include <malloc.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* laterValue = "refused: a later value took its place";
constexpr const char* laterPicture = "refused: a later picture took its place";

// Answers are told apart by the response topics of what they answer.
class PanelDeskTest : public testing::Test {
protected:
    PanelDeskTest() { arrive(); }

    void arrive(unsigned int limit = 1024)
    {
        m_line = std::make_shared<FakeLine>(limit);
        m_desk.arrive(m_line, m_now);
        m_desk.refreshWishes(m_now);
    }

    static Order orderOf(const std::string& rest)
    {
        return std::get<Order>(Order::parse("panel/1/shop/1-4/" + rest, "shop"));
    }
    static Message commandOf(const std::string& rest, const std::string& payload, const std::string& name)
    {
        Message command;
        command.topic = "panel/1/shop/1-4/" + rest;
        command.payload = payload;
        command.responseTopic = name;
        return command;
    }
    void add(const std::string& rest, const Message& command) { m_desk.add(orderOf(rest), command, m_now); }
    // Payload and name are the same.
    void send(const std::string& rest, const std::string& payload)
    {
        add("do/" + rest, commandOf("do/" + rest, payload, payload));
    }
    void draw(unsigned int lcd, const std::string& name, const std::string& lock = "", unsigned int side = 8)
    {
        const std::string rest = "do/draw/" + std::to_string(lcd);
        add(rest, pictureOf(rest, name, lock, side));
    }
    static Message pictureOf(const std::string& rest, const std::string& name, const std::string& lock,
                             unsigned int side)
    {
        Message command = commandOf(rest, std::string(std::size_t{(side + 7) / 8} * side, name[0]), name);
        const std::string text = std::to_string(side);
        command.userProperties = {{"format", "bits"}, {"width", text}, {"height", text}};
        if (!lock.empty())
            command.userProperties.emplace_back("lock", lock);
        return command;
    }
    void wish(const std::string& rest, Message message)
    {
        message.isRetained = true;
        ASSERT_TRUE(m_wishes.put(orderOf(rest), std::move(message)));
        m_desk.refreshWish(orderOf(rest).getSubject(), m_now);
    }
    void wish(const std::string& rest, const std::string& payload)
    {
        wish("want/" + rest, commandOf("want/" + rest, payload, payload));
    }
    void poll() { m_desk.poll(m_now); }
    // Until all is still.
    void takeAll()
    {
        do {
            m_line->takeAll();
            poll();
        } while (m_line->getProgress().isUnderWay);
    }
    void pass(nanoseconds time)
    {
        m_now += time;
        poll();
    }
    std::string answerTo(const std::string& name) const
    {
        const auto answer = m_answers.find(name);
        if (answer == m_answers.end())
            return "none";
        EXPECT_EQ(answer->second.size(), 1u) << name;
        return answer->second.back();
    }
    std::string drawn(std::size_t i) const
    {
        std::string firsts;
        for (const ClientLcdBitmap& layer : m_line->getPictures().at(i).layers)
            firsts += static_cast<char>(layer.buffer.at(0));
        return firsts;
    }

    std::map<std::string, std::vector<std::string>> m_answers;
    WishBook m_wishes;
    PanelDesk m_desk{
        "1-4", m_wishes, seconds(60), [this](const Message& command, const Answer& answer) {
            const char* const words[] = {"taken", "busy", "too-large", "offline", "expired", "refused", "unknown"};
            m_answers[command.responseTopic].push_back(words[static_cast<int>(answer.word)] +
                                                       (answer.reason.empty() ? "" : ": " + answer.reason));
        }};
    std::shared_ptr<FakeLine> m_line;
    PanelDesk::TimePoint m_now{seconds(1000)};
};

} // namespace

TEST_F(PanelDeskTest, record_isTakenWhenItsPacketHasEnded)
{
    send("send/5", "a");
    EXPECT_EQ(m_line->getAdded(), 1u);
    poll();
    EXPECT_EQ(answerTo("a"), "none");
    m_line->take();
    EXPECT_EQ(answerTo("a"), "none");
    poll();
    EXPECT_EQ(answerTo("a"), "taken");
    EXPECT_EQ(m_desk.getCounts().taken, 1u);
    ASSERT_EQ(m_line->getRecords().size(), 1u);
    EXPECT_EQ(m_line->getRecords()[0].type, 5);
    EXPECT_EQ(m_line->getRecords()[0].key, std::nullopt);
}

TEST_F(PanelDeskTest, keyedRecord_goesOutWithItsKey)
{
    send("set/7/4294967295", "a");
    takeAll();
    EXPECT_EQ(m_line->getRecords().at(0).type, 7);
    EXPECT_EQ(m_line->getRecords().at(0).key, 4294967295u);
    EXPECT_EQ(answerTo("a"), "taken");
}

TEST_F(PanelDeskTest, emptyRecord_isOneLikeAnother)
{
    add("do/send/5", commandOf("do/send/5", "", "empty"));
    takeAll();
    EXPECT_EQ(answerTo("empty"), "taken");
    EXPECT_THAT(m_line->getTaken(), ElementsAre(""));
}

TEST_F(PanelDeskTest, packetUnderWayWithoutIt_isNotItsEnd)
{
    m_line->setSlices(3);
    draw(0, "p");
    send("send/5", "a"); // the packet under way has a slice alone
    m_line->take();
    poll();
    EXPECT_EQ(answerTo("a"), "none");
    EXPECT_THAT(m_line->getTaken(), IsEmpty());
    m_line->take();
    poll();
    EXPECT_EQ(answerTo("a"), "taken");
    EXPECT_THAT(m_line->getTaken(), ElementsAre("a"));
    EXPECT_EQ(answerTo("p"), "none");
    m_line->take();
    poll();
    EXPECT_EQ(answerTo("p"), "taken");
}

TEST_F(PanelDeskTest, picturesThatStream_delayNoAnswerForRecords)
{
    m_line->setSlices(1000);
    draw(0, "p");
    for (int i = 0; i < 20; ++i) {
        const std::string name = "r" + std::to_string(i);
        send("send/5", name);
        m_line->take();
        poll();
        m_line->take();
        poll();
        EXPECT_EQ(answerTo(name), "taken");
    }
    EXPECT_EQ(answerTo("p"), "none");
}

TEST_F(PanelDeskTest, recordsThatStream_delayNoAnswerForPictures)
{
    draw(0, "p");
    for (int i = 0; i < 4; ++i) {
        send("send/5", "r" + std::to_string(i));
        m_line->take();
        poll();
    }
    EXPECT_EQ(answerTo("p"), "taken");
}

TEST_F(PanelDeskTest, lastOfSeveralPackets_decidesForAll)
{
    send("send/5", "first");
    send("send/5", std::string(600, 'b'));
    send("send/5", std::string(600, 'c'));
    m_line->take();
    poll(); // b and c don't go into a packet together: two batches
    m_line->take();
    poll();
    EXPECT_EQ(answerTo(std::string(600, 'b')), "taken");
    EXPECT_EQ(answerTo(std::string(600, 'c')), "none");
    m_line->take();
    poll();
    EXPECT_EQ(answerTo(std::string(600, 'c')), "taken");
}

TEST_F(PanelDeskTest, batch_isNoMoreThanAPacket)
{
    send("send/5", "first");
    // 1,024 bytes are a header of 8, and two records of 3 + 505.
    const std::string half(505, 'h');
    add("do/send/5", commandOf("do/send/5", half, "one"));
    add("do/send/5", commandOf("do/send/5", half, "two"));
    add("do/send/5", commandOf("do/send/5", "", "three"));
    m_line->take();
    poll();
    EXPECT_EQ(m_line->getAdded(), 3u);
    EXPECT_EQ(m_desk.getWaitingRecords(), 1u);
    takeAll();
    EXPECT_EQ(answerTo("three"), "taken");
}

TEST_F(PanelDeskTest, batch_isNoMoreThan64Records)
{
    for (int i = 0; i < 66; ++i)
        send("send/5", "r" + std::to_string(i));
    EXPECT_EQ(m_line->getAdded(), 1u);
    m_line->take();
    poll();
    EXPECT_EQ(m_line->getAdded(), 65u);
    takeAll();
    EXPECT_EQ(m_line->getAdded(), 66u);
}

TEST_F(PanelDeskTest, recordAsLargeAsThePanelTakes_isTaken)
{
    add("do/send/5", commandOf("do/send/5", std::string(1013, 'x'), "fits"));
    add("do/send/5", commandOf("do/send/5", std::string(1014, 'x'), "large"));
    add("do/set/5/1", commandOf("do/set/5/1", std::string(1014, 'x'), "keyed"));
    EXPECT_EQ(answerTo("large"), "too-large: the panel takes 1013 bytes in a record");
    EXPECT_EQ(answerTo("keyed"), "too-large: the panel takes 1013 bytes in a record");
    takeAll();
    EXPECT_EQ(answerTo("fits"), "taken");
}

TEST_F(PanelDeskTest, panelThatTakesLessThanItDid_holdsNothingBack)
{
    arrive(2048);
    send("send/5", "first");
    add("do/send/5", commandOf("do/send/5", std::string(1500, 'x'), "large"));
    send("send/5", "last");
    m_line->setPacketLimit(1024);
    takeAll();
    EXPECT_EQ(answerTo("large"), "too-large: the panel takes 1013 bytes in a record");
    EXPECT_EQ(answerTo("last"), "taken");
    EXPECT_THAT(m_line->getTaken(), ElementsAre("first", "last"));
}

TEST_F(PanelDeskTest, recordsBeyond256_areBusy)
{
    send("send/5", "on its way");
    for (int i = 0; i < 256; ++i)
        send("send/5", "r" + std::to_string(i));
    EXPECT_EQ(m_desk.getWaitingRecords(), 256u);
    EXPECT_TRUE(m_answers.empty());
    send("send/5", "too many");
    send("set/5/1", "keyed");
    EXPECT_EQ(answerTo("too many"), "busy");
    EXPECT_EQ(answerTo("keyed"), "busy");
    EXPECT_EQ(m_desk.getCounts().busy, 2u);
    takeAll();
    EXPECT_EQ(answerTo("r255"), "taken");
    EXPECT_EQ(m_desk.getCounts().taken, 257u);
    EXPECT_EQ(m_line->getTaken().size(), 257u);
}

TEST_F(PanelDeskTest, bytesBeyond1MiB_areBusy)
{
    arrive(65535);
    send("send/5", "on its way");
    for (int i = 0; i < 16; ++i)
        add("do/send/5", commandOf("do/send/5", std::string(65524, 'x'), "r" + std::to_string(i)));
    // 1,048,576 - 16 * 65,524 = 192.
    add("do/send/5", commandOf("do/send/5", std::string(193, 'x'), "too much"));
    EXPECT_EQ(answerTo("too much"), "busy");
    add("do/send/5", commandOf("do/send/5", std::string(192, 'x'), "fits"));
    EXPECT_EQ(answerTo("fits"), "none");
    add("do/send/5", commandOf("do/send/5", "x", "full"));
    EXPECT_EQ(answerTo("full"), "busy");
    takeAll();
    EXPECT_EQ(answerTo("fits"), "taken");
    EXPECT_EQ(answerTo("r15"), "taken");
    // All that has left counts no more.
    add("do/send/5", commandOf("do/send/5", std::string(65524, 'x'), "again"));
    EXPECT_EQ(answerTo("again"), "none");
}

TEST_F(PanelDeskTest, fullDesk_stillTakesAValueInPlaceOfAnother)
{
    send("send/5", "on its way");
    send("set/6/1", "earlier");
    for (int i = 0; i < 255; ++i)
        send("send/5", "r" + std::to_string(i));
    send("set/6/1", "later");
    EXPECT_EQ(answerTo("earlier"), laterValue);
    EXPECT_EQ(answerTo("later"), "none");
    takeAll();
    EXPECT_EQ(answerTo("later"), "taken");
}

TEST_F(PanelDeskTest, valueThatIsBusyItself_takesNoPlace)
{
    arrive(65535);
    send("send/5", "on its way");
    send("set/6/1", "earlier");
    for (int i = 0; i < 16; ++i)
        add("do/send/5", commandOf("do/send/5", std::string(65524, 'x'), "r" + std::to_string(i)));
    add("do/set/6/1", commandOf("do/set/6/1", std::string(193, 'x'), "later"));
    EXPECT_EQ(answerTo("later"), "busy");
    EXPECT_EQ(answerTo("earlier"), "none");
    takeAll();
    EXPECT_EQ(answerTo("earlier"), "taken");
}

TEST_F(PanelDeskTest, bytesOfWhatIsSuperseded_areFreeAgain)
{
    send("send/5", "on its way");
    for (int i = 0; i < 2000; ++i)
        add("do/set/6/1", commandOf("do/set/6/1", std::string(1000, 'x'), "v" + std::to_string(i)));
    EXPECT_EQ(answerTo("v1998"), laterValue);
    EXPECT_EQ(answerTo("v1999"), "none");
}

TEST_F(PanelDeskTest, valueThatWaits_isSuperseded)
{
    send("send/5", "on its way");
    send("set/5/1", "a");
    send("set/5/2", "other key");
    send("set/6/1", "other type");
    send("send/5", "no key");
    send("set/5/1", "b");
    EXPECT_EQ(answerTo("a"), laterValue);
    takeAll();
    EXPECT_EQ(answerTo("b"), "taken");
    EXPECT_THAT(m_line->getTaken(),
                testing::UnorderedElementsAre("on its way", "other key", "other type", "no key", "b"));
}

TEST_F(PanelDeskTest, valueOnItsWay_isNotSuperseded)
{
    send("set/5/1", "a");
    send("set/5/1", "b");
    EXPECT_EQ(answerTo("a"), "none");
    takeAll();
    EXPECT_EQ(answerTo("a"), "taken");
    EXPECT_EQ(answerTo("b"), "taken");
    EXPECT_THAT(m_line->getTaken(), ElementsAre("a", "b"));
}

// With the packer, where a packet under way has none of it.
TEST_F(PanelDeskTest, valueGivenToTheLibrary_isNotSuperseded)
{
    m_line->setSlices(2);
    draw(0, "p");
    send("set/5/1", "a");
    send("set/5/1", "b");
    EXPECT_EQ(m_line->getAdded(), 1u);
    takeAll();
    EXPECT_EQ(answerTo("a"), "taken");
    EXPECT_THAT(m_line->getTaken(), ElementsAre("a", "b"));
}

TEST_F(PanelDeskTest, supersededValueThatIsRepeated_doesNotComeBehindTheLater)
{
    send("send/5", "on its way");
    Message earlier = commandOf("do/set/5/1", "a", "earlier");
    earlier.userProperties.emplace_back("id", "1");
    add("do/set/5/1", earlier);
    send("set/5/1", "b");
    earlier.responseTopic = "repetition";
    add("do/set/5/1", earlier);
    EXPECT_EQ(answerTo("earlier"), laterValue);
    EXPECT_EQ(answerTo("repetition"), laterValue);
    takeAll();
    EXPECT_THAT(m_line->getTaken(), ElementsAre("on its way", "b"));
}

// The library has keyed records first, and the lower key.
TEST_F(PanelDeskTest, recordsOfOneType_keepTheirOrderWhateverTheirKeys)
{
    m_line->setSlices(2);
    draw(0, "p"); // all wait for the packet
    send("send/5", "1");
    send("set/5/9", "2");
    send("set/5/3", "3");
    send("set/5/4", "4");
    send("send/5", "5");
    send("set/5/4", "6");
    takeAll();
    EXPECT_EQ(answerTo("4"), laterValue);
    EXPECT_THAT(m_line->getTaken(), ElementsAre("1", "2", "3", "5", "6"));
}

TEST_F(PanelDeskTest, risingKeysAndOtherTypes_shareABatch)
{
    m_line->setSlices(9);
    draw(0, "p");
    send("send/5", "a"); // waits for the packet
    m_line->take();
    send("set/6/1", "b");
    send("set/6/2", "c");
    send("send/6", "d");
    send("set/7/1", "e");
    m_line->take();
    poll();
    EXPECT_EQ(m_line->getAdded(), 5u);
}

TEST_F(PanelDeskTest, cutPacket_isUnknown)
{
    send("send/5", "a");
    send("send/5", "b");
    m_line->cut();
    poll();
    EXPECT_EQ(answerTo("a"), "unknown: the panel took a packet in part, which may have had this");
    takeAll();
    EXPECT_EQ(answerTo("b"), "taken");
    EXPECT_EQ(m_desk.getCounts().taken, 1u);
}

TEST_F(PanelDeskTest, cutPacketOfAnEarlierBatch_leavesTheLaterAlone)
{
    send("send/5", "a");
    m_line->cut();
    poll();
    send("send/5", "b");
    takeAll();
    EXPECT_EQ(answerTo("b"), "taken");
}

TEST_F(PanelDeskTest, cutPicture_isUnknown)
{
    m_line->setSlices(3);
    draw(0, "p");
    m_line->take();
    m_line->cut();
    m_line->take();
    poll();
    EXPECT_EQ(answerTo("p"), "unknown: the panel took a packet in part, which may have had this");
    EXPECT_EQ(m_line->getPictures().size(), 1u);
}

TEST_F(PanelDeskTest, panelThatIsAway_isOffline)
{
    m_desk.leave(m_now);
    send("send/5", "a");
    draw(0, "p");
    EXPECT_EQ(answerTo("a"), "offline");
    EXPECT_EQ(answerTo("p"), "offline");
    EXPECT_FALSE(m_desk.isThere());
}

TEST_F(PanelDeskTest, whatWaitsWhenThePanelLeaves_isOffline)
{
    send("send/5", "flies");
    send("send/5", "waits");
    draw(0, "p");
    draw(0, "q");
    draw(1, "held", "hold");
    m_desk.leave(m_now);
    EXPECT_EQ(answerTo("flies"), "offline: the panel left before it had taken this whole");
    EXPECT_EQ(answerTo("waits"), "offline: the panel has left");
    EXPECT_EQ(answerTo("p"), "offline: the panel left before it had taken this whole");
    EXPECT_EQ(answerTo("q"), "offline: the panel has left");
    EXPECT_EQ(answerTo("held"), "offline: the panel has left");
    EXPECT_EQ(m_desk.getWaitingRecords(), 0u);
    EXPECT_EQ(m_desk.getNextDue(), PanelDesk::TimePoint::max());
}

TEST_F(PanelDeskTest, whatFlewWhenThePanelLeft_isRememberedAndWhatWaitedIsNot)
{
    Message flies = commandOf("do/send/5", "f", "flies");
    flies.userProperties.emplace_back("id", "f");
    Message waits = commandOf("do/send/5", "w", "waits");
    waits.userProperties.emplace_back("id", "w");
    add("do/send/5", flies);
    add("do/send/5", waits);
    m_desk.leave(m_now);
    arrive();
    flies.responseTopic = "flies again";
    add("do/send/5", flies);
    EXPECT_EQ(answerTo("flies again"), "offline: the panel left before it had taken this whole");
    waits.responseTopic = "waits again";
    add("do/send/5", waits);
    takeAll();
    EXPECT_EQ(answerTo("waits again"), "taken");
    EXPECT_THAT(m_line->getTaken(), ElementsAre("w"));
}

TEST_F(PanelDeskTest, panelThatComesWithoutHavingLeft_hasNothingOfWhatWaited)
{
    send("send/5", "flies");
    send("send/5", "waits");
    const auto earlier = m_line;
    arrive();
    EXPECT_EQ(answerTo("flies"), "offline: the panel left before it had taken this whole");
    EXPECT_EQ(answerTo("waits"), "offline: the panel has left");
    earlier->takeAll();
    send("send/5", "new");
    takeAll();
    EXPECT_THAT(m_line->getTaken(), ElementsAre("new"));
    EXPECT_THAT(earlier->getTaken(), ElementsAre("flies"));
}

TEST_F(PanelDeskTest, repetitions_areInThePanelOnce)
{
    Message command = commandOf("do/send/5", "a", "first");
    command.userProperties.emplace_back("id", "1");
    add("do/send/5", command);
    command.responseTopic = "while it flies";
    add("do/send/5", command);
    takeAll();
    command.responseTopic = "after";
    add("do/send/5", command);
    takeAll();
    EXPECT_EQ(answerTo("first"), "taken");
    EXPECT_EQ(answerTo("while it flies"), "taken");
    EXPECT_EQ(answerTo("after"), "taken");
    EXPECT_EQ(m_line->getAdded(), 1u);
    EXPECT_EQ(m_desk.getCounts().taken, 1u);
}

TEST_F(PanelDeskTest, repetitionAfterBusy_isANewAttempt)
{
    for (int i = 0; i < 257; ++i)
        send("send/5", "r" + std::to_string(i));
    Message command = commandOf("do/send/5", "a", "first");
    command.userProperties.emplace_back("id", "1");
    add("do/send/5", command);
    EXPECT_EQ(answerTo("first"), "busy");
    takeAll();
    command.responseTopic = "again";
    add("do/send/5", command);
    takeAll();
    EXPECT_EQ(answerTo("again"), "taken");
    EXPECT_EQ(m_line->getTaken().back(), "a");
}

TEST_F(PanelDeskTest, whatWaitsLongerThanItMay_isExpired)
{
    send("send/5", "flies");
    Message hurried = commandOf("do/send/5", "h", "hurried");
    hurried.expirySeconds = 2;
    add("do/send/5", hurried);
    send("send/5", "patient");
    EXPECT_EQ(m_desk.getNextDue(), m_now + seconds(2));
    pass(seconds(2) - nanoseconds(1));
    EXPECT_EQ(answerTo("hurried"), "none");
    pass(nanoseconds(1));
    EXPECT_EQ(answerTo("hurried"), "expired");
    EXPECT_EQ(m_desk.getNextDue(), m_now + seconds(58));
    pass(seconds(58));
    EXPECT_EQ(answerTo("patient"), "expired");
    EXPECT_EQ(answerTo("flies"), "expired: it is on its way, and the panel may yet take it");
    EXPECT_EQ(m_desk.getNextDue(), PanelDesk::TimePoint::max());
    EXPECT_EQ(m_desk.getCounts().expired, 3u);
    takeAll();
    EXPECT_THAT(m_line->getTaken(), ElementsAre("flies"));
    EXPECT_EQ(answerTo("flies"), "expired: it is on its way, and the panel may yet take it");
}

TEST_F(PanelDeskTest, wait_endsLongerExpiry)
{
    send("send/5", "flies");
    Message command = commandOf("do/send/5", "c", "command");
    command.expirySeconds = UINT32_MAX;
    add("do/send/5", command);
    EXPECT_EQ(m_desk.getNextDue(), m_now + seconds(60));
    pass(seconds(60));
    EXPECT_EQ(answerTo("command"), "expired");
}

TEST_F(PanelDeskTest, commandWithoutTimeLeft_neverLeaves)
{
    Message command = commandOf("do/send/5", "c", "command");
    command.expirySeconds = 0;
    add("do/send/5", command);
    EXPECT_EQ(answerTo("command"), "expired");
    EXPECT_EQ(m_line->getAdded(), 0u);
    Message picture = pictureOf("do/draw/0", "p", "", 8);
    picture.expirySeconds = 0;
    add("do/draw/0", picture);
    EXPECT_EQ(answerTo("p"), "expired");
    EXPECT_FALSE(m_line->getProgress().isUnderWay);
}

TEST_F(PanelDeskTest, whatHasExpired_isNotBusy)
{
    for (int i = 0; i < 257; ++i)
        send("send/5", "r" + std::to_string(i));
    m_now += seconds(60);
    send("send/5", "later");
    EXPECT_EQ(answerTo("r256"), "expired");
    EXPECT_EQ(answerTo("later"), "none");
}

TEST_F(PanelDeskTest, expiredFlight_isRememberedAndFollowedOnlyWhenItHasLanded)
{
    Message command = commandOf("do/send/5", "a", "first");
    command.userProperties.emplace_back("id", "1");
    add("do/send/5", command);
    pass(seconds(60));
    command.responseTopic = "again";
    add("do/send/5", command);
    EXPECT_EQ(answerTo("again"), "expired: it is on its way, and the panel may yet take it");
    send("send/5", "b");
    EXPECT_EQ(m_line->getAdded(), 1u);
    m_line->take();
    poll();
    EXPECT_EQ(m_line->getAdded(), 2u);
    takeAll();
    EXPECT_EQ(answerTo("b"), "taken");
    EXPECT_THAT(m_line->getTaken(), ElementsAre("a", "b"));
}

TEST_F(PanelDeskTest, bytesOfWhatHasExpired_areFreeAgain)
{
    arrive(65535);
    send("send/5", "flies");
    for (int i = 0; i < 16; ++i)
        add("do/send/5", commandOf("do/send/5", std::string(65524, 'x'), "r" + std::to_string(i)));
    pass(seconds(60));
    m_answers.clear();
    for (int i = 0; i < 16; ++i)
        add("do/send/5", commandOf("do/send/5", std::string(65524, 'x'), "s" + std::to_string(i)));
    EXPECT_TRUE(m_answers.empty());
    add("do/send/5", commandOf("do/send/5", std::string(193, 'x'), "too much"));
    EXPECT_EQ(answerTo("too much"), "busy");
}

TEST_F(PanelDeskTest, picture_isTakenWithItsLastSlice)
{
    m_line->setSlices(2);
    draw(3, "p");
    m_line->take();
    poll();
    EXPECT_EQ(answerTo("p"), "none");
    m_line->take();
    poll();
    EXPECT_EQ(answerTo("p"), "taken");
    EXPECT_EQ(m_line->getPictures().at(0).lcd, 3);
}

TEST_F(PanelDeskTest, ofPicturesThatWait_theLatestWins)
{
    m_line->setSlices(2);
    draw(0, "a");
    draw(0, "b");
    draw(1, "c");
    draw(0, "d");
    EXPECT_EQ(answerTo("a"), "none"); // on its way
    EXPECT_EQ(answerTo("b"), laterPicture);
    takeAll();
    for (const char* const name : {"a", "c", "d"})
        EXPECT_EQ(answerTo(name), "taken");
    ASSERT_EQ(m_line->getPictures().size(), 3u);
    EXPECT_EQ(drawn(0), "a");
    EXPECT_EQ(drawn(1), "d");
    EXPECT_EQ(drawn(2), "c");
}

TEST_F(PanelDeskTest, heldPictures_areShownWithTheLater)
{
    draw(0, "a", "hold");
    draw(0, "b", "hold");
    draw(1, "x");
    takeAll();
    EXPECT_EQ(answerTo("a"), "none");
    EXPECT_EQ(answerTo("x"), "taken");
    draw(0, "c", "release");
    EXPECT_EQ(answerTo("a"), "none");
    takeAll();
    for (const char* const name : {"a", "b", "c"})
        EXPECT_EQ(answerTo(name), "taken");
    ASSERT_EQ(m_line->getPictures().size(), 2u);
    EXPECT_EQ(drawn(1), "abc");
}

TEST_F(PanelDeskTest, heldPicture_takesThePlaceOfOneThatWaits)
{
    m_line->setSlices(2);
    draw(0, "a");
    draw(0, "b");
    draw(0, "c", "hold");
    EXPECT_EQ(answerTo("b"), laterPicture);
    draw(0, "d");
    takeAll();
    EXPECT_EQ(drawn(1), "cd");
}

TEST_F(PanelDeskTest, supersededPictureThatIsRepeated_doesNotComeBehindTheLater)
{
    m_line->setSlices(2);
    draw(0, "a");
    Message earlier = pictureOf("do/draw/0", "b", "", 8);
    earlier.userProperties.emplace_back("id", "1");
    add("do/draw/0", earlier);
    draw(0, "c");
    earlier.responseTopic = "again";
    add("do/draw/0", earlier);
    EXPECT_EQ(answerTo("again"), laterPicture);
    takeAll();
    EXPECT_EQ(m_line->getPictures().size(), 2u);
}

TEST_F(PanelDeskTest, whatIsHeld_isBounded)
{
    // 248 x 248 bits are 7,688 bytes and a layer's own.
    const std::size_t bytes = 248 / 8 * 248 + sizeof(ClientLcdBitmap);
    const std::size_t most = PanelDesk::mostBytes / bytes;
    for (std::size_t i = 0; i < most; ++i)
        draw(0, "h" + std::to_string(i), "hold", 248);
    EXPECT_TRUE(m_answers.empty());
    draw(0, "more", "", 248);
    EXPECT_EQ(answerTo("more"), "busy: too much is held for this LCD");
    draw(0, "less", "", 8);
    takeAll();
    EXPECT_EQ(answerTo("less"), "taken");
    EXPECT_EQ(m_line->getPictures().at(0).layers.size(), most + 1);
}

TEST_F(PanelDeskTest, smallPicturesThatAreHeld_areBoundedByTheirNumber)
{
    for (unsigned int i = 0; i < 4096; ++i)
        draw(i % 2, "h" + std::to_string(i), "hold", 1);
    EXPECT_TRUE(m_answers.empty());
    draw(0, "more", "hold", 1);
    EXPECT_EQ(answerTo("more"), "busy: too many pictures wait for this panel");
    draw(2, "another LCD's", "", 1);
    EXPECT_EQ(answerTo("another LCD's"), "none");
    draw(0, "release", "", 1);
    takeAll();
    EXPECT_EQ(answerTo("release"), "taken");
    draw(0, "later", "hold", 1);
    EXPECT_EQ(answerTo("later"), "none");
}

TEST_F(PanelDeskTest, picturesFor256Lcds_wait)
{
    for (unsigned int lcd = 0; lcd < 256; ++lcd)
        draw(lcd, "h" + std::to_string(lcd), "hold");
    EXPECT_TRUE(m_answers.empty());
    draw(256, "more");
    EXPECT_EQ(answerTo("more"), "busy: too many pictures wait for this panel");
    draw(255, "one of them", "hold");
    EXPECT_EQ(answerTo("one of them"), "none");
    draw(255, "release");
    takeAll();
    draw(256, "now");
    EXPECT_EQ(answerTo("now"), "none");
}

TEST_F(PanelDeskTest, picturesBeyond8MiB_areBusyUntilSomeHaveLeft)
{
    const std::size_t bytes = 248 / 8 * 248 + sizeof(ClientLcdBitmap);
    const std::size_t most = PanelDesk::mostPictureBytes / bytes;
    const auto holdAll = [&] {
        for (std::size_t i = 0; i < most; ++i)
            draw(static_cast<unsigned int>(i % 16), "h" + std::to_string(i), "hold", 248);
    };
    holdAll();
    EXPECT_TRUE(m_answers.empty());
    draw(16, "more", "", 248);
    EXPECT_EQ(answerTo("more"), "busy: too many pictures wait for this panel");
    pass(seconds(60));
    EXPECT_EQ(answerTo("h0"), "expired");
    m_answers.clear();
    holdAll();
    EXPECT_TRUE(m_answers.empty());
    m_desk.leave(m_now);
    arrive();
    m_answers.clear();
    holdAll();
    EXPECT_TRUE(m_answers.empty());
    for (unsigned int lcd = 0; lcd < 16; ++lcd)
        draw(lcd, "release " + std::to_string(lcd), "", 1);
    takeAll();
    m_answers.clear();
    holdAll();
    EXPECT_TRUE(m_answers.empty());
}

TEST_F(PanelDeskTest, pictureThatTakesAnothersPlace_freesItsBytes)
{
    m_line->setSlices(100000);
    draw(0, "flies");
    for (int i = 0; i < 3000; ++i)
        draw(1, "p" + std::to_string(i), "", 248);
    EXPECT_EQ(answerTo("p2998"), laterPicture);
    EXPECT_EQ(answerTo("p2999"), "none");
}

TEST_F(PanelDeskTest, heldPictures_expireTogether)
{
    draw(0, "a", "hold");
    m_now += seconds(30);
    draw(0, "b", "hold");
    EXPECT_EQ(m_desk.getNextDue(), m_now + seconds(30));
    pass(seconds(30));
    EXPECT_EQ(answerTo("a"), "expired");
    EXPECT_EQ(answerTo("b"), "expired");
    draw(0, "c");
    takeAll();
    EXPECT_EQ(drawn(0), "c");
}

TEST_F(PanelDeskTest, pictureThatCantBeDrawn_isAnswered)
{
    add("do/draw/0", commandOf("do/draw/0", "x", "p"));
    EXPECT_EQ(answerTo("p").substr(0, 8), "refused:");
    EXPECT_EQ(m_desk.getNextDue(), PanelDesk::TimePoint::max());
}

TEST_F(PanelDeskTest, pictureOnItsWay_expiresAsRecordsDo)
{
    m_line->setSlices(2);
    draw(0, "p");
    EXPECT_EQ(m_desk.getNextDue(), m_now + seconds(60));
    pass(seconds(60));
    EXPECT_EQ(answerTo("p"), "expired: it is on its way, and the panel may yet take it");
    takeAll();
    draw(0, "q");
    takeAll();
    EXPECT_EQ(answerTo("q"), "taken");
}

TEST_F(PanelDeskTest, wish_isAppliedOnceToEachPanelThatComes)
{
    wish("5/7", "w");
    takeAll();
    EXPECT_EQ(answerTo("w"), "taken");
    ASSERT_EQ(m_line->getRecords().size(), 1u);
    EXPECT_EQ(m_line->getRecords()[0].type, 5);
    EXPECT_EQ(m_line->getRecords()[0].key, 7u);
    m_desk.refreshWishes(m_now);
    m_desk.refreshWish(orderOf("want/5/7").getSubject(), m_now);
    takeAll();
    EXPECT_EQ(m_line->getAdded(), 1u);
    m_desk.leave(m_now);
    arrive();
    takeAll();
    EXPECT_THAT(m_line->getTaken(), ElementsAre("w"));
}

TEST_F(PanelDeskTest, wishForAPanelThatIsAway_waitsForIt)
{
    m_desk.leave(m_now);
    wish("5/7", "w");
    EXPECT_TRUE(m_answers.empty());
    arrive();
    takeAll();
    EXPECT_THAT(m_line->getTaken(), ElementsAre("w"));
}

TEST_F(PanelDeskTest, wishOnItsWayWhenThePanelLeaves_isAppliedToTheNext)
{
    wish("5/7", "w");
    m_desk.leave(m_now);
    EXPECT_EQ(answerTo("w"), "offline: the panel left before it had taken this whole");
    arrive();
    takeAll();
    EXPECT_THAT(m_line->getTaken(), ElementsAre("w"));
}

TEST_F(PanelDeskTest, wishThatIsAnother_isAppliedAndTheEarlierNotAnsweredForIt)
{
    wish("5/7", "v");
    wish("5/7", "w");
    takeAll();
    EXPECT_EQ(answerTo("v"), "none"); // it is no wish any more
    EXPECT_EQ(answerTo("w"), "taken");
    EXPECT_THAT(m_line->getTaken(), ElementsAre("v", "w"));
}

TEST_F(PanelDeskTest, wishThatIsDropped_isNotSent)
{
    wish("5/7", "flies");
    wish("5/8", "v");
    wish("5/8", "");
    takeAll();
    EXPECT_THAT(m_line->getTaken(), ElementsAre("flies"));
    wish("5/8", "v");
    takeAll();
    EXPECT_THAT(m_line->getTaken(), ElementsAre("flies", "v"));
}

TEST_F(PanelDeskTest, wishThatEnds_uncoversTheNextLevels)
{
    Message message = commandOf("want/5/7", "host", "host");
    const Order all = std::get<Order>(Order::parse("panel/1/shop/all/want/5/7", "shop"));
    m_wishes.put(all, message);
    m_desk.refreshWish(all.getSubject(), m_now);
    wish("5/7", "place");
    takeAll();
    wish("5/7", "");
    takeAll();
    EXPECT_THAT(m_line->getTaken(), ElementsAre("host", "place", "host"));
}

TEST_F(PanelDeskTest, wishCut_isTriedAgain)
{
    wish("5/7", "w");
    m_line->cut();
    poll();
    m_line->cut();
    poll();
    takeAll();
    EXPECT_THAT(m_line->getTaken(), ElementsAre("w"));
    EXPECT_EQ(m_answers["w"].size(), 3u);
    EXPECT_EQ(m_answers["w"].back(), "taken");
    EXPECT_EQ(m_line->getAdded(), 3u);
}

TEST_F(PanelDeskTest, wishCutThatIsNoMore_isNotTriedAgain)
{
    wish("5/7", "w");
    wish("5/7", "");
    m_line->cut();
    poll();
    takeAll();
    EXPECT_EQ(m_line->getAdded(), 1u);
}

TEST_F(PanelDeskTest, wishCutThatACommandOverrides_staysBehindIt)
{
    wish("5/7", "w");
    send("set/5/7", "c");
    m_line->cut();
    poll();
    takeAll();
    EXPECT_THAT(m_line->getTaken(), ElementsAre("w", "c"));
    EXPECT_EQ(answerTo("c"), "taken");
}

TEST_F(PanelDeskTest, wish_isOverriddenByACommandAndBackWhenThePanelIs)
{
    wish("5/7", "w");
    takeAll();
    send("set/5/7", "c");
    takeAll();
    m_desk.refreshWishes(m_now);
    takeAll();
    EXPECT_THAT(m_line->getTaken(), ElementsAre("w", "c"));
    arrive();
    takeAll();
    EXPECT_THAT(m_line->getTaken(), ElementsAre("w"));
}

TEST_F(PanelDeskTest, wishBesideACommandForTheSame_takesItsPlaceWhenItIsLater)
{
    send("send/9", "flies");
    send("set/5/7", "c");
    wish("5/7", "w");
    EXPECT_EQ(answerTo("c"), laterValue);
    takeAll();
    EXPECT_THAT(m_line->getTaken(), ElementsAre("flies", "w"));
}

TEST_F(PanelDeskTest, commandBesideAWishForTheSame_comesBehindWhenItIsLater)
{
    m_line->setSlices(9);
    draw(0, "p"); // records wait for a packet
    send("send/9", "flies");
    wish("5/7", "w");
    send("set/5/7", "c");
    for (int packet = 0; packet < 9; ++packet) {
        m_line->take();
        poll(); // with a packet under way
    }
    EXPECT_EQ(answerTo("c"), "taken");
    EXPECT_EQ(answerTo("w"), "taken");
    EXPECT_THAT(m_line->getTaken(), ElementsAre("flies", "w", "c"));
}

TEST_F(PanelDeskTest, commandBesideAWishThatDoesNotFit_waitsForIt)
{
    send("send/9", "flies");
    wish("5/6", std::string(900, 'x'));
    wish("5/7", std::string(200, 'w'));
    send("set/5/7", "c");
    takeAll();
    ASSERT_EQ(m_line->getTaken().size(), 4u);
    EXPECT_EQ(m_line->getTaken()[3], "c");
    EXPECT_EQ(answerTo("c"), "taken");
}

TEST_F(PanelDeskTest, manyWishes_goInBatches)
{
    m_desk.leave(m_now);
    for (int key = 0; key < 200; ++key)
        wish("5/" + std::to_string(key), "w" + std::to_string(key));
    arrive();
    EXPECT_EQ(m_line->getAdded(), 64u);
    takeAll();
    EXPECT_EQ(m_line->getTaken().size(), 200u);
    EXPECT_EQ(m_line->getTaken()[199], "w199");
}

TEST_F(PanelDeskTest, wishThatCantBeSent_isAnsweredOnceAndHoldsNothingBack)
{
    m_desk.leave(m_now);
    Message large = commandOf("want/5/1", std::string(1014, 'x'), "large");
    wish("want/5/1", large);
    Message noPicture = commandOf("want/lcd/1", "x", "no picture");
    wish("want/lcd/1", noPicture);
    wish("5/2", "w");
    wish("want/lcd/2", pictureOf("want/lcd/2", "p", "", 8));
    arrive();
    takeAll();
    poll();
    m_desk.refreshWishes(m_now);
    takeAll();
    EXPECT_EQ(answerTo("large"), "too-large: the panel does not take so many bytes in a record");
    EXPECT_EQ(answerTo("no picture").substr(0, 8), "refused:");
    EXPECT_EQ(answerTo("w"), "taken");
    EXPECT_EQ(answerTo("p"), "taken");
    EXPECT_EQ(m_desk.getNextDue(), PanelDesk::TimePoint::max());
}

TEST_F(PanelDeskTest, wishAsLargeAsThePanelTakes_isTaken)
{
    wish("want/5/1", commandOf("want/5/1", std::string(1013, 'x'), "w"));
    takeAll();
    EXPECT_EQ(answerTo("w"), "taken");
}

TEST_F(PanelDeskTest, wishedPictures_areAppliedOnceToEachPanelThatComes)
{
    wish("want/lcd/3", pictureOf("want/lcd/3", "p", "", 8));
    takeAll();
    m_desk.refreshWishes(m_now);
    takeAll();
    EXPECT_EQ(answerTo("p"), "taken");
    ASSERT_EQ(m_line->getPictures().size(), 1u);
    EXPECT_EQ(m_line->getPictures()[0].lcd, 3);
    arrive();
    takeAll();
    EXPECT_EQ(m_line->getPictures().size(), 1u);
}

TEST_F(PanelDeskTest, wishedPictures_areDecodedAFewAtATime)
{
    m_desk.leave(m_now);
    for (int lcd = 0; lcd < 20; ++lcd) {
        const std::string rest = "want/lcd/" + std::to_string(lcd);
        wish(rest, pictureOf(rest, "p" + std::to_string(lcd), "", 8));
    }
    arrive();
    EXPECT_EQ(m_line->getProgress().waitingPictures, 7u); // and one under way
    takeAll();
    EXPECT_EQ(m_line->getPictures().size(), 20u);
    EXPECT_EQ(answerTo("p19"), "taken");
}

TEST_F(PanelDeskTest, wishesThatAreNoPictures_areLookedAtAFewAtATime)
{
    m_desk.leave(m_now);
    for (int lcd = 0; lcd < 9; ++lcd) {
        const std::string rest = "want/lcd/" + std::to_string(lcd);
        wish(rest, commandOf(rest, "x", "w" + std::to_string(lcd)));
    }
    arrive(); // one look
    EXPECT_EQ(m_answers.size(), 8u);
    EXPECT_LE(m_desk.getNextDue(), m_now); // there is more to do, though nothing flies
    poll();
    EXPECT_EQ(m_answers.size(), 9u);
    EXPECT_EQ(m_desk.getNextDue(), PanelDesk::TimePoint::max());
}

TEST_F(PanelDeskTest, wishedPictureAndCommand_theLaterWins)
{
    m_line->setSlices(2);
    draw(0, "a");
    draw(0, "b");
    wish("want/lcd/0", pictureOf("want/lcd/0", "w", "", 8));
    EXPECT_EQ(answerTo("b"), laterPicture);
    takeAll();
    EXPECT_EQ(drawn(1), "w");

    draw(0, "c");
    wish("want/lcd/0", pictureOf("want/lcd/0", "v", "", 8));
    draw(0, "d");
    EXPECT_EQ(answerTo("v"), laterPicture);
    takeAll();
    ASSERT_EQ(m_line->getPictures().size(), 4u);
    EXPECT_EQ(drawn(3), "d");
    m_desk.refreshWishes(m_now); // the broker has come back
    takeAll();
    EXPECT_EQ(m_line->getPictures().size(), 4u);
    arrive();
    takeAll();
    EXPECT_EQ(drawn(0), "v");
}

TEST_F(PanelDeskTest, wishedPicture_takesThePlaceOfWhatIsHeld)
{
    draw(0, "a", "hold");
    Message held = pictureOf("want/lcd/0", "w", "hold", 8);
    wish("want/lcd/0", held);
    EXPECT_EQ(answerTo("a"), laterPicture);
    takeAll();
    EXPECT_EQ(drawn(0), "w"); // a wish is not held
}

TEST_F(PanelDeskTest, wishedPictureCut_isTriedAgainUnlessALaterOneWaits)
{
    wish("want/lcd/0", pictureOf("want/lcd/0", "w", "", 8));
    m_line->cut();
    poll();
    takeAll();
    ASSERT_EQ(m_line->getPictures().size(), 1u);
    wish("want/lcd/0", pictureOf("want/lcd/0", "v", "", 8));
    draw(0, "c");
    m_line->cut();
    poll();
    takeAll();
    ASSERT_EQ(m_line->getPictures().size(), 2u);
    EXPECT_EQ(drawn(1), "c");
}

TEST_F(PanelDeskTest, wishedPictureBehindACommandThatExpires_isAppliedAfterAll)
{
    draw(0, "a");
    wish("want/lcd/0", pictureOf("want/lcd/0", "w", "", 8));
    draw(0, "b");
    draw(0, "c");
    EXPECT_EQ(answerTo("b"), laterPicture);
    pass(seconds(60));
    EXPECT_EQ(answerTo("c"), "expired");
    takeAll();
    ASSERT_EQ(m_line->getPictures().size(), 2u);
    EXPECT_EQ(drawn(1), "w");
}

TEST_F(PanelDeskTest, wishedPictureThatThePanelHas_isNotRepeatedWhenACommandExpires)
{
    wish("want/lcd/0", pictureOf("want/lcd/0", "w", "", 8));
    takeAll();
    draw(0, "a");
    draw(0, "b");
    pass(seconds(60));
    EXPECT_EQ(answerTo("b"), "expired");
    takeAll();
    EXPECT_EQ(m_line->getPictures().size(), 2u);
    EXPECT_EQ(drawn(1), "a");
}

TEST_F(PanelDeskTest, wishedPictureCutBehindAHeldOne_isAppliedWhenThatExpires)
{
    wish("want/lcd/0", pictureOf("want/lcd/0", "w", "", 8));
    draw(0, "a", "hold");
    m_line->cut();
    poll();
    takeAll();
    EXPECT_EQ(m_line->getPictures().size(), 0u);
    pass(seconds(60));
    takeAll();
    ASSERT_EQ(m_line->getPictures().size(), 1u);
    EXPECT_EQ(drawn(0), "w");
}

TEST_F(PanelDeskTest, wishesNotYetApplied_areForgottenWithThePanel)
{
    m_line->setSlices(9);
    draw(0, "p");
    wish("want/lcd/1", pictureOf("want/lcd/1", "w", "", 8));
    m_desk.leave(m_now);
    EXPECT_EQ(m_desk.getNextDue(), PanelDesk::TimePoint::max());
    m_line = std::make_shared<FakeLine>();
    m_desk.arrive(m_line, m_now); // not refreshed: they may be others
    poll();
    EXPECT_FALSE(m_line->getProgress().isUnderWay);
}

// Nothing is counted by the address sanitizer's allocator.
TEST_F(PanelDeskTest, wishesThatComeAndGo_takeNoMemory)
{
    m_line->setSlices(1000000);
    draw(0, "p");
    send("send/9", "holds all others back");
    const std::size_t before = mallinfo2().uordblks;
    for (int i = 0; i < 20000; ++i) {
        const std::string rest = "5/" + std::to_string(i);
        wish(rest, "w");
        wish(rest, "");
    }
    EXPECT_LT(mallinfo2().uordblks, before + 200000);
}

TEST_F(PanelDeskTest, wishesThatWereAppliedAndDropped_takeNoMemory)
{
    const std::size_t before = mallinfo2().uordblks;
    for (int i = 0; i < 5000; ++i) {
        const std::string rest = "5/" + std::to_string(i);
        wish(rest, "w");
        takeAll();
        if (i % 2 == 0) {
            wish(rest, "");
        } else {
            m_wishes.beginTelling();
            m_wishes.endTelling();
            m_desk.refreshWishes(m_now);
        }
        m_line->forget();
        m_answers.clear();
    }
    EXPECT_LT(mallinfo2().uordblks, before + 100000);
}

} // namespace Vantor
