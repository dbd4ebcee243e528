#include "simulator/bus/OrderTimeline.h"

#include <gtest/gtest.h>

namespace Vantor {
namespace {

using std::chrono::nanoseconds;

// The panel of the next command that is due, -1 when there is none.
int takeDue(OrderTimeline& timeline, long long now)
{
    const auto command = timeline.takeDue(nanoseconds(now));
    return command ? static_cast<int>(std::get<PlugOrder>(*command).panel) : -1;
}

TEST(OrderTimeline, commands_comeInTheirOrderAtTheirTime)
{
    OrderTimeline timeline;
    EXPECT_FALSE(timeline.getNextTime());
    EXPECT_EQ(takeDue(timeline, 1000), -1);
    timeline.add(nanoseconds(20), PlugOrder{2});
    timeline.add(nanoseconds(10), PlugOrder{1});
    timeline.add(nanoseconds(20), PlugOrder{3});
    EXPECT_EQ(timeline.getNextTime(), nanoseconds(10));
    EXPECT_EQ(takeDue(timeline, 9), -1);
    EXPECT_EQ(takeDue(timeline, 10), 1);
    EXPECT_EQ(timeline.getNextTime(), nanoseconds(20));
    EXPECT_EQ(takeDue(timeline, 19), -1);
    EXPECT_EQ(takeDue(timeline, 99), 2);
    EXPECT_EQ(takeDue(timeline, 99), 3);
    EXPECT_EQ(takeDue(timeline, 99), -1);
    EXPECT_FALSE(timeline.getNextTime());
}

} // namespace
} // namespace Vantor
