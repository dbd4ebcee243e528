#include "simulator/panel/FaultPlan.h"

#include <gtest/gtest.h>

namespace Vantor {
namespace {

PanelFault fault(PanelFault::Kind kind, bool sticky)
{
    PanelFault result;
    result.kind = kind;
    result.sticky = sticky;
    return result;
}

TEST(FaultPlan, fresh_nothing)
{
    FaultPlan plan;
    EXPECT_EQ(plan.next(), nullptr);
    plan.use();
    EXPECT_EQ(plan.next(), nullptr);
}

TEST(FaultPlan, once_inOrderAndAheadOfSticky)
{
    FaultPlan plan;
    plan.add(fault(PanelFault::Kind::NoAnswer, true));
    plan.add(fault(PanelFault::Kind::Short, false));
    plan.add(fault(PanelFault::Kind::Delay, false));
    EXPECT_EQ(plan.next()->kind, PanelFault::Kind::Short);
    EXPECT_EQ(plan.next()->kind, PanelFault::Kind::Short);
    plan.use();
    EXPECT_EQ(plan.next()->kind, PanelFault::Kind::Delay);
    plan.use();
    EXPECT_EQ(plan.next()->kind, PanelFault::Kind::NoAnswer);
    plan.use();
    EXPECT_EQ(plan.next()->kind, PanelFault::Kind::NoAnswer);
}

TEST(FaultPlan, laterSticky_replacesEarlier)
{
    FaultPlan plan;
    plan.add(fault(PanelFault::Kind::NoAnswer, true));
    plan.add(fault(PanelFault::Kind::Stall, true));
    EXPECT_EQ(plan.next()->kind, PanelFault::Kind::Stall);
    plan.clearHalt();
    EXPECT_EQ(plan.next(), nullptr);
}

TEST(FaultPlan, clearHalt_liftsOnlyAStickyStall)
{
    FaultPlan plan;
    plan.add(fault(PanelFault::Kind::Stall, false));
    plan.clearHalt();
    ASSERT_NE(plan.next(), nullptr);
    EXPECT_EQ(plan.next()->kind, PanelFault::Kind::Stall);

    plan.clear();
    plan.add(fault(PanelFault::Kind::Status, true));
    plan.clearHalt();
    ASSERT_NE(plan.next(), nullptr);
    EXPECT_EQ(plan.next()->kind, PanelFault::Kind::Status);
}

TEST(FaultPlan, clear_dropsAll)
{
    FaultPlan plan;
    plan.add(fault(PanelFault::Kind::Stall, false));
    plan.add(fault(PanelFault::Kind::Stall, true));
    plan.clear();
    EXPECT_EQ(plan.next(), nullptr);
}

} // namespace
} // namespace Vantor
