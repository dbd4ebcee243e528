#include "simulator/panel/BootFaultPlan.h"

#include <string>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

using Kind = BootFault::Kind;

BootFault bootFault(Kind kind, unsigned int skip, bool sticky)
{
    BootFault result;
    result.kind = kind;
    result.skip = skip;
    result.sticky = sticky;
    return result;
}

// What the next `records` meet, a letter each: - for nothing.
std::string met(BootFaultPlan& plan, int records)
{
    std::string letters;
    for (int i = 0; i < records; ++i) {
        const auto fault = plan.meet();
        if (!fault)
            letters += '-';
        else if (fault->kind == Kind::Lose)
            letters += 'L';
        else
            letters += fault->kind == Kind::Ignore ? 'I' : '?';
    }
    return letters;
}

TEST(BootFaultPlan, fresh_nothing)
{
    BootFaultPlan plan;
    EXPECT_EQ(met(plan, 2), "--");
}

TEST(BootFaultPlan, once_inOrderEachForOneRecord)
{
    BootFaultPlan plan;
    plan.add(bootFault(Kind::Lose, 0, false));
    plan.add(bootFault(Kind::Ignore, 0, false));
    EXPECT_EQ(met(plan, 4), "LI--");
}

TEST(BootFaultPlan, skip_countsFromWhenThoseBeforeAreUsedUp)
{
    BootFaultPlan plan;
    plan.add(bootFault(Kind::Lose, 2, false));
    plan.add(bootFault(Kind::Ignore, 1, false));
    EXPECT_EQ(met(plan, 6), "--L-I-");
}

TEST(BootFaultPlan, sticky_staysAfterItsSkip)
{
    BootFaultPlan plan;
    plan.add(bootFault(Kind::Lose, 2, true));
    EXPECT_EQ(met(plan, 5), "--LLL");
}

TEST(BootFaultPlan, laterSticky_replacesEarlier)
{
    BootFaultPlan plan;
    plan.add(bootFault(Kind::Lose, 0, true));
    plan.add(bootFault(Kind::Ignore, 1, true));
    EXPECT_EQ(met(plan, 3), "-II");
}

TEST(BootFaultPlan, recordThatOnceSkips_meetsTheSticky)
{
    BootFaultPlan plan;
    plan.add(bootFault(Kind::Lose, 1, true));
    plan.add(bootFault(Kind::Ignore, 2, false));
    EXPECT_EQ(met(plan, 5), "-LILL");
}

TEST(BootFaultPlan, clear_dropsAll)
{
    BootFaultPlan plan;
    plan.add(bootFault(Kind::Lose, 0, false));
    plan.add(bootFault(Kind::Lose, 0, true));
    plan.clear();
    EXPECT_EQ(met(plan, 2), "--");
}

} // namespace
} // namespace Vantor
