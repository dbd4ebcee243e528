#include "simulator/panelsim/LoopCalls.h"

#include <atomic>
#include <thread>

#include <gtest/gtest.h>
#include <poll.h>

namespace Vantor {

namespace {

bool isReadable(int descriptor, int patience)
{
    pollfd polled{descriptor, POLLIN, 0};
    return poll(&polled, 1, patience) == 1;
}

constexpr int longPatience = 60000; // ms

} // namespace

TEST(LoopCalls, callOfAnotherThread_isDoneByTheLoop)
{
    LoopCalls calls;
    EXPECT_FALSE(isReadable(calls.getDescriptor(), 0));
    std::thread::id doer;
    std::atomic<bool> isDone{false};
    std::thread other([&calls, &doer, &isDone] {
        EXPECT_TRUE(calls.call([&doer] { doer = std::this_thread::get_id(); }));
        isDone = true;
    });
    EXPECT_TRUE(isReadable(calls.getDescriptor(), longPatience));
    EXPECT_FALSE(isDone);
    calls.serve();
    other.join();
    EXPECT_EQ(doer, std::this_thread::get_id());
    EXPECT_FALSE(isReadable(calls.getDescriptor(), 0));
}

TEST(LoopCalls, callOfTheLoopItself_isDoneAtOnceAlsoBehindTheEnd)
{
    LoopCalls calls;
    int done = 0;
    EXPECT_TRUE(calls.call([&done] { ++done; }));
    calls.end();
    EXPECT_TRUE(calls.call([&done] { ++done; }));
    EXPECT_EQ(done, 2);
}

TEST(LoopCalls, end_letsGoOfThoseThatWaitAndOfThoseThatCome)
{
    LoopCalls calls;
    std::atomic<int> done{0};
    std::thread waiting([&calls, &done] { EXPECT_FALSE(calls.call([&done] { ++done; })); });
    EXPECT_TRUE(isReadable(calls.getDescriptor(), longPatience));
    calls.end();
    waiting.join();
    std::thread late([&calls, &done] { EXPECT_FALSE(calls.call([&done] { ++done; })); });
    late.join();
    calls.serve();
    EXPECT_EQ(done, 0);
}

} // namespace Vantor
