#include "panelctl/flash/ProgressMeter.h"

#include <gtest/gtest.h>

namespace Vantor {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr ProgressMeter::Time start{std::chrono::hours(1)};

} // namespace

TEST(ProgressMeter, beforeAnything_hasNoRate)
{
    ProgressMeter meter(1000);
    EXPECT_EQ(meter.getDone(), 0U);
    EXPECT_EQ(meter.getRate(), 0);
    meter.note(start, 0);
    EXPECT_EQ(meter.getPercentage(), 0U);
    EXPECT_EQ(meter.getRate(), 0);
    EXPECT_FALSE(meter.getRemaining());
}

TEST(ProgressMeter, steadyProgress_hasRateAndEnd)
{
    ProgressMeter meter(1000);
    for (unsigned int i = 0; i <= 3; ++i)
        meter.note(start + seconds(i), 100 * i);
    EXPECT_EQ(meter.getPercentage(), 30U);
    EXPECT_DOUBLE_EQ(meter.getRate(), 100);
    EXPECT_EQ(meter.getRemaining(), seconds(7));
}

TEST(ProgressMeter, waitBeforeTheFirstByte_doesNotCount)
{
    ProgressMeter meter(1000);
    for (unsigned int i = 0; i <= 20; ++i)
        meter.note(start + seconds(i), 0);
    meter.note(start + seconds(21), 100);
    EXPECT_DOUBLE_EQ(meter.getRate(), 100);
}

// Of a standstill the rate tells within the window.
TEST(ProgressMeter, standstill_bringsTheRateToZero)
{
    ProgressMeter meter(1000);
    meter.note(start, 0);
    meter.note(start + seconds(1), 600);
    meter.note(start + seconds(3), 600);
    EXPECT_DOUBLE_EQ(meter.getRate(), 200);
    meter.note(start + seconds(6), 600);
    EXPECT_DOUBLE_EQ(meter.getRate(), 0);
    EXPECT_FALSE(meter.getRemaining());
}

TEST(ProgressMeter, rate_isThatOfTheLastFiveSeconds)
{
    ProgressMeter meter(100000);
    for (unsigned int i = 1; i <= 10; ++i)
        meter.note(start + seconds(i), 1000 * i);
    for (unsigned int i = 1; i <= 5; ++i)
        meter.note(start + seconds(10 + i), 10000 + 10 * i);
    EXPECT_DOUBLE_EQ(meter.getRate(), 10);
}

TEST(ProgressMeter, remaining_isRoundedUp)
{
    ProgressMeter meter(1000);
    meter.note(start, 0);
    meter.note(start + seconds(3), 999);
    EXPECT_EQ(meter.getRemaining(), seconds(1));
    EXPECT_EQ(meter.getPercentage(), 99U);
    meter.note(start + milliseconds(3100), 1000);
    EXPECT_EQ(meter.getRemaining(), seconds(0));
    EXPECT_EQ(meter.getPercentage(), 100U);
}

TEST(ProgressMeter, pausesToCome_areAddedBeforeRounding)
{
    ProgressMeter meter(1000);
    meter.note(start, 0);
    meter.note(start + seconds(1), 800); // 0.25 s for the rest
    EXPECT_EQ(meter.getRemaining(milliseconds(1750)), seconds(2));
    EXPECT_EQ(meter.getRemaining(milliseconds(1751)), seconds(3));
}

TEST(ProgressMeter, waitAfterTheLastByte_doesNotCount)
{
    ProgressMeter meter(1000);
    meter.note(start, 0);
    meter.note(start + seconds(1), 1000);
    meter.note(start + seconds(4), 1000);
    EXPECT_DOUBLE_EQ(meter.getRate(), 1000);
}

TEST(ProgressMeter, moreThanAll_isAll)
{
    ProgressMeter meter(1000);
    meter.note(start, 4096);
    EXPECT_EQ(meter.getDone(), 1000U);
    EXPECT_EQ(meter.getPercentage(), 100U);
}

TEST(ProgressMeter, largeTotals_doNotOverflow)
{
    ProgressMeter meter(4294967295U);
    meter.note(start, 2147483648U);
    EXPECT_EQ(meter.getPercentage(), 50U);
}

} // namespace Vantor
