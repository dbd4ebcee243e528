#include "libMorvaneHostUsb/UsbMessageQueue.h"

#include "tests/support/PrivateMember.h"

#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace Vantor {

struct Alive {
    friend auto& reach(Alive, UsbMessageQueue& queue);
};
template struct PrivateMember<Alive, UsbMessageQueue, &UsbMessageQueue::m_alive>;

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

std::unique_ptr<UsbMessage> message(unsigned int id)
{
    return std::make_unique<UsbMessage>(id, static_cast<unsigned short>(4));
}

// A consumer that is inside getMessage, as far as a second thread can tell.
std::future<std::unique_ptr<UsbMessage>> waitingConsumer(UsbMessageQueue& queue, std::chrono::milliseconds time = 50ms)
{
    auto consumer = std::async(std::launch::async, [&queue] { return queue.getMessage(); });
    EXPECT_EQ(consumer.wait_for(time), std::future_status::timeout) << "getMessage did not block";
    return consumer;
}

} // namespace

TEST(UsbMessageQueue, fresh_isEmpty)
{
    UsbMessageQueue queue;
    EXPECT_EQ(queue.size(), 0);
}

TEST(UsbMessageQueue, messages_comeOutInTheOrderTheyWereAdded)
{
    UsbMessageQueue queue;
    for (unsigned int id = 1; id <= 3; ++id)
        queue.addMessage(message(id));
    EXPECT_EQ(queue.size(), 3);
    for (unsigned int id = 1; id <= 3; ++id)
        EXPECT_EQ(queue.getMessage()->id, id);
    EXPECT_EQ(queue.size(), 0);
}

TEST(UsbMessageQueue, message_isMovedNotCopied)
{
    UsbMessageQueue queue;
    auto added = message(1);
    const UsbMessage* const object = added.get();
    const std::uint8_t* const data = added->data;
    queue.addMessage(std::move(added));
    const auto taken = queue.getMessage();
    EXPECT_EQ(taken.get(), object);
    EXPECT_EQ(taken->data, data);
}

TEST(UsbMessageQueue, waitingConsumer_getsAMessageAsSoonAsItIsAdded)
{
    UsbMessageQueue queue;
    auto consumer = waitingConsumer(queue);
    const auto added = Clock::now();
    queue.addMessage(message(7));
    EXPECT_EQ(consumer.get()->id, 7);
    // Without the notification the consumer would look again after some 950 ms.
    EXPECT_LT(Clock::now() - added, 500ms);
}

TEST(UsbMessageQueue, killWhileAConsumerWaits_endsItsWaitAtOnce)
{
    UsbMessageQueue queue;
    auto consumer = waitingConsumer(queue);
    const auto killed = Clock::now();
    queue.kill();
    EXPECT_EQ(consumer.get(), nullptr);
    EXPECT_LT(Clock::now() - killed, 500ms);
}

TEST(UsbMessageQueue, killWhoseNotificationIsMissed_isSeenWithinOneSecond)
{
    UsbMessageQueue queue;
    auto consumer = waitingConsumer(queue, 300ms); // leaves 700 of its second
    const auto killed = Clock::now();
    reach(Alive{}, queue) = false; // a kill between the consumer's test and its wait
    EXPECT_EQ(consumer.get(), nullptr);
    EXPECT_LE(Clock::now() - killed, 1s);
}

TEST(UsbMessageQueue, waitOfMoreThanASecond_goesOn)
{
    UsbMessageQueue queue;
    auto consumer = waitingConsumer(queue);
    EXPECT_EQ(consumer.wait_for(1100ms), std::future_status::timeout);
    queue.addMessage(message(7));
    EXPECT_EQ(consumer.get()->id, 7);
}

TEST(UsbMessageQueue, afterKill_waitingMessagesAreCountedButNotHandedOut)
{
    UsbMessageQueue queue;
    queue.addMessage(message(1));
    queue.addMessage(message(2));
    queue.kill();
    EXPECT_EQ(queue.getMessage(), nullptr);
    EXPECT_EQ(queue.getMessage(), nullptr);
    EXPECT_EQ(queue.size(), 2);
}

TEST(UsbMessageQueue, messageAddedAfterKill_isKept)
{
    UsbMessageQueue queue;
    queue.kill();
    queue.addMessage(message(1));
    EXPECT_EQ(queue.size(), 1);
    EXPECT_EQ(queue.getMessage(), nullptr);
    EXPECT_EQ(queue.size(), 1);
}

TEST(UsbMessageQueue, secondKill_changesNothing)
{
    UsbMessageQueue queue;
    queue.kill();
    queue.kill();
    EXPECT_EQ(queue.getMessage(), nullptr);
}

TEST(UsbMessageQueue, kill_endsEveryWait)
{
    UsbMessageQueue queue;
    auto first = waitingConsumer(queue);
    auto second = waitingConsumer(queue);
    const auto killed = Clock::now();
    queue.kill();
    EXPECT_EQ(first.get(), nullptr);
    EXPECT_EQ(second.get(), nullptr);
    EXPECT_LT(Clock::now() - killed, 500ms);
}

TEST(UsbMessageQueue, severalProducers_loseNothingAndKeepTheirOrder)
{
    constexpr unsigned int producers = 4;
    constexpr unsigned int perProducer = 500;
    UsbMessageQueue queue;
    std::vector<std::thread> threads;
    for (unsigned int producer = 0; producer < producers; ++producer) {
        threads.emplace_back([&queue, producer] {
            for (unsigned int i = 0; i < perProducer; ++i)
                queue.addMessage(message(producer << 12 | i));
        });
    }
    std::vector<unsigned int> next(producers, 0);
    for (unsigned int i = 0; i < producers * perProducer; ++i) {
        const auto taken = queue.getMessage();
        EXPECT_EQ(taken->id & 0xFFFu, next.at(taken->id >> 12)++);
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(queue.size(), 0);
}

} // namespace Vantor
