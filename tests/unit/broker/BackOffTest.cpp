#include "panel2mqtt/broker/BackOff.h"

#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;

std::vector<double> delaysOf(BackOff& backOff, int count)
{
    std::vector<double> delays;
    for (int number = 0; number < count; ++number)
        delays.push_back(std::chrono::duration<double>(backOff.getDelayAfter(milliseconds(0))).count());
    return delays;
}

TEST(BackOff, failureAfterFailure_doublesToAMinute)
{
    BackOff backOff({}, [] { return 0.5; });
    EXPECT_THAT(delaysOf(backOff, 9), ElementsAre(1, 2, 4, 8, 16, 32, 60, 60, 60));
}

TEST(BackOff, chance_halvesOrAddsHalf)
{
    BackOff least({}, [] { return 0.0; });
    EXPECT_THAT(delaysOf(least, 3), ElementsAre(0.5, 1, 2));
    BackOff most({}, [] { return 0.999; });
    EXPECT_THAT(delaysOf(most, 3), ElementsAre(1.499, 2.998, 5.996));
}

TEST(BackOff, connectionThatLasted_beginsAnew)
{
    BackOff backOff({}, [] { return 0.5; });
    delaysOf(backOff, 4);
    EXPECT_EQ(backOff.getDelayAfter(milliseconds(3999)), seconds(16));
    EXPECT_EQ(backOff.getDelayAfter(seconds(4)), seconds(1));
    EXPECT_EQ(backOff.getDelayAfter(seconds(0)), seconds(2));
}

TEST(BackOff, connectionThatWasLeftForALostConfirmation_hasLasted)
{
    BackOff backOff({}, [] { return 0.5; });
    delaysOf(backOff, 4);
    EXPECT_EQ(backOff.getDelayAfter(BrokerPace().overtakenTime), seconds(1));
}

} // namespace

} // namespace Vantor
