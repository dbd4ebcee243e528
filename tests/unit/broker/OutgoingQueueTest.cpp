#include "panel2mqtt/broker/OutgoingQueue.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

namespace {

using Kind = OutgoingQueue::Kind;
using testing::ElementsAre;

Message textMessage(const std::string& topic, const std::string& payload)
{
    Message message;
    message.topic = topic;
    message.payload = payload;
    return message;
}

std::vector<std::string> takeAllTexts(OutgoingQueue& queue)
{
    std::vector<std::string> texts;
    while (queue.getNextSize())
        texts.push_back(queue.take().message.payload);
    return texts;
}

TEST(OutgoingQueue, allKinds_goInTheOrderInWhichTheyCame)
{
    OutgoingQueue queue;
    queue.add(Kind::Event, textMessage("e", "1"));
    queue.add(Kind::State, textMessage("s", "2"));
    queue.add(Kind::Answer, textMessage("a", "3"));
    queue.add(Kind::State, textMessage("t", "4"));
    queue.add(Kind::Event, textMessage("e", "5"));
    EXPECT_EQ(queue.getCount(), 5U);
    EXPECT_THAT(takeAllTexts(queue), ElementsAre("1", "2", "3", "4", "5"));
    EXPECT_EQ(queue.getCount(), 0U);
}

TEST(OutgoingQueue, busy_goesBehindAllElse)
{
    OutgoingQueue queue;
    EXPECT_FALSE(queue.isNextBusy());
    queue.add(Kind::Busy, textMessage("a", "busy 1"));
    EXPECT_TRUE(queue.isNextBusy());
    queue.add(Kind::Busy, textMessage("a", "busy 2"));
    queue.add(Kind::Answer, textMessage("a", "answer"));
    queue.add(Kind::Event, textMessage("e", "event"));
    queue.add(Kind::State, textMessage("s", "state"));
    EXPECT_EQ(queue.getCount(), 5U);
    EXPECT_FALSE(queue.isNextBusy());
    EXPECT_THAT(takeAllTexts(queue), ElementsAre("answer", "event", "state", "busy 1", "busy 2"));
}

TEST(OutgoingQueue, tooManyMessages_loseTheOldestBusyFirst)
{
    OutgoingQueue queue;
    queue.add(Kind::Event, textMessage("e", "event"));
    for (std::size_t number = 1; number < OutgoingQueue::maxMessages; ++number)
        EXPECT_EQ(queue.add(Kind::Busy, textMessage("a", std::to_string(number))).answers, 0U);

    const OutgoingQueue::Dropped dropped = queue.add(Kind::Answer, textMessage("a", "answer"));
    EXPECT_EQ(dropped.events, 0U);
    EXPECT_EQ(dropped.answers, 1U);
    const std::vector<std::string> texts = takeAllTexts(queue);
    EXPECT_EQ(texts.size(), 4096U);
    EXPECT_EQ(texts[0], "event");
    EXPECT_EQ(texts[1], "answer");
    EXPECT_EQ(texts[2], "2");
}

TEST(OutgoingQueue, lossOfTheConnection_countsBusyAmongTheAnswers)
{
    OutgoingQueue queue;
    queue.add(Kind::Busy, textMessage("a", "busy"));
    queue.add(Kind::Answer, textMessage("a", "answer"));
    queue.add(Kind::Event, textMessage("e", "event"));
    const OutgoingQueue::Dropped dropped = queue.dropAllButStates();
    EXPECT_EQ(dropped.events, 1U);
    EXPECT_EQ(dropped.answers, 2U);
    EXPECT_EQ(queue.getCount(), 0U);
}

TEST(OutgoingQueue, stateOfATopic_takesTheEarlierOnesPlace)
{
    OutgoingQueue queue;
    queue.add(Kind::State, textMessage("s", "old"));
    queue.add(Kind::Event, textMessage("e", "event"));
    queue.add(Kind::State, textMessage("s", "new"));
    EXPECT_THAT(takeAllTexts(queue), ElementsAre("new", "event"));
}

TEST(OutgoingQueue, tooManyMessages_loseTheOldestEventsThenAnswers)
{
    OutgoingQueue queue;
    queue.add(Kind::Answer, textMessage("a", "answer 1"));
    queue.add(Kind::Event, textMessage("e", "event"));
    for (std::size_t number = 2; number < OutgoingQueue::maxMessages; ++number)
        EXPECT_EQ(queue.add(Kind::Answer, textMessage("a", "answer")).answers, 0U);
    EXPECT_EQ(queue.getCount(), 4096U);

    OutgoingQueue::Dropped dropped = queue.add(Kind::Answer, textMessage("a", "one more"));
    EXPECT_EQ(dropped.events, 1U);
    EXPECT_EQ(dropped.answers, 0U);
    // Nothing but answers waits: an event is what is dropped, being one.
    dropped = queue.add(Kind::Event, textMessage("e", "event"));
    EXPECT_EQ(dropped.events, 1U);
    EXPECT_EQ(dropped.answers, 0U);
    dropped = queue.add(Kind::Answer, textMessage("a", "last"));
    EXPECT_EQ(dropped.events, 0U);
    EXPECT_EQ(dropped.answers, 1U);
    const std::vector<std::string> texts = takeAllTexts(queue);
    EXPECT_EQ(texts.size(), 4096U);
    EXPECT_EQ(texts.front(), "answer");
    EXPECT_EQ(texts.back(), "last");
}

TEST(OutgoingQueue, tooManyBytes_loseTheOldest)
{
    OutgoingQueue queue;
    // 13 bytes beside topic and payload: 16 of them are 16 MiB.
    const Message large = textMessage("e", std::string((1U << 20U) - 14, 'x'));
    EXPECT_EQ(OutgoingQueue::sizeOf(large), 1U << 20U);
    queue.add(Kind::Event, textMessage("e", "first"));
    for (int number = 0; number < 15; ++number)
        EXPECT_EQ(queue.add(Kind::Event, large).events, 0U);
    EXPECT_EQ(queue.add(Kind::Event, large).events, 1U);
    EXPECT_EQ(queue.getCount(), 16U);
    EXPECT_EQ(queue.add(Kind::Answer, textMessage("a", "x")).events, 1U);
    EXPECT_EQ(queue.getCount(), 16U);
}

TEST(OutgoingQueue, messageLargerThanTheQueue_isDroppedWithAllBeforeIt)
{
    OutgoingQueue queue;
    EXPECT_EQ(queue.add(Kind::Answer, textMessage("a", std::string(16U << 20U, 'x'))).answers, 1U);
    EXPECT_EQ(queue.getCount(), 0U);
    EXPECT_EQ(queue.add(Kind::Answer, textMessage("a", "x")).answers, 0U);
    EXPECT_EQ(queue.getCount(), 1U);
}

TEST(OutgoingQueue, states_areNeverDropped)
{
    OutgoingQueue queue;
    for (int number = 0; number < 5000; ++number)
        queue.add(Kind::State, textMessage(std::to_string(number), std::string(10000, 'x')));
    queue.add(Kind::Event, textMessage("e", "x"));
    EXPECT_EQ(queue.getCount(), 5001U);
    EXPECT_EQ(queue.dropAllButStates().events, 1U);
    EXPECT_EQ(queue.getCount(), 5000U);
}

TEST(OutgoingQueue, stateThatIsPutBack_goesFirstUnlessALaterOneWaits)
{
    OutgoingQueue queue;
    queue.add(Kind::State, textMessage("s", "s1"));
    queue.add(Kind::State, textMessage("t", "t1"));
    const OutgoingQueue::Item s = queue.take();
    const OutgoingQueue::Item t = queue.take();
    queue.add(Kind::Event, textMessage("e", "e"));
    queue.add(Kind::State, textMessage("s", "s2"));
    queue.putBack(s);
    queue.putBack(t);
    EXPECT_THAT(takeAllTexts(queue), ElementsAre("t1", "e", "s2"));
}

TEST(OutgoingQueue, statesOfOneTopicThatArePutBack_leaveTheLatest)
{
    for (const bool isOlderFirst : {true, false}) {
        OutgoingQueue queue;
        queue.add(Kind::State, textMessage("s", "s1"));
        const OutgoingQueue::Item older = queue.take();
        queue.add(Kind::State, textMessage("s", ""));
        const OutgoingQueue::Item later = queue.take();
        queue.add(Kind::Event, textMessage("e", "e"));
        queue.putBack(isOlderFirst ? older : later);
        queue.putBack(isOlderFirst ? later : older);
        EXPECT_EQ(queue.getCount(), 2U);
        EXPECT_THAT(takeAllTexts(queue), ElementsAre("", "e"));
    }
}

TEST(OutgoingQueue, roomOfWhatWasDropped_isThereAgain)
{
    OutgoingQueue queue;
    for (int round = 0; round < 3; ++round) {
        for (int number = 0; number < 15; ++number)
            EXPECT_EQ(queue.add(Kind::Event, textMessage("e", std::string(1U << 20U, 'x'))).events, 0U);
        EXPECT_EQ(queue.dropAllButStates().events, 15U);
    }
}

TEST(OutgoingQueue, size_countsAllProperties)
{
    Message message = textMessage("abc", "12345");
    EXPECT_EQ(OutgoingQueue::sizeOf(message), 13U + 3 + 5);
    message.responseTopic = "back";
    message.correlation = "id";
    message.expirySeconds = 1;
    message.userProperties = {{"a", "bc"}};
    EXPECT_EQ(OutgoingQueue::sizeOf(message), 21U + 7 + 5 + 5 + 8);
}

} // namespace

} // namespace Vantor
