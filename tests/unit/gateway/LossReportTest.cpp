#include "panel2mqtt/LossReport.h"

#include <gmock/gmock.h>

namespace Vantor {

namespace {

using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;
using testing::Optional;
using testing::StrEq;

constexpr LossReport::Clock::time_point start{hours(1000)};

LossReport::Losses answers(std::uint64_t sum)
{
    return {0, sum, 0, 0};
}

} // namespace

TEST(LossReport, nothingLost_saysNothing)
{
    LossReport report;
    EXPECT_EQ(report.look({}, start), std::nullopt);
    EXPECT_EQ(report.look({}, start + hours(2)), std::nullopt);
    EXPECT_EQ(report.finish({}), std::nullopt);
}

TEST(LossReport, firstLoss_isSaidAtOnce)
{
    LossReport report;
    EXPECT_EQ(report.look({}, start), std::nullopt);
    EXPECT_THAT(report.look({1, 2, 3, 4}, start + seconds(1)),
                Optional(StrEq("lost: 1 got or stats that the broker was not told, 2 answers, "
                               "3 records of panels that came too fast, 4 commands, answered busy")));
}

TEST(LossReport, lossesWithinAMinute_areOneLineOfWhatCameSince)
{
    LossReport report;
    EXPECT_TRUE(report.look(answers(5), start));
    EXPECT_EQ(report.look(answers(6), start + seconds(1)), std::nullopt);
    EXPECT_EQ(report.look(answers(7), start + seconds(59)), std::nullopt);
    EXPECT_THAT(report.look(answers(12), start + seconds(60)), Optional(StrEq("lost: 7 answers")));
}

TEST(LossReport, lossesThatGoOn_areSaidOnceAnHourInTheEnd)
{
    LossReport report;
    std::vector<long> lines;
    for (int second = 0; second < 4 * 3600; ++second)
        if (report.look(answers(static_cast<std::uint64_t>(second) + 1), start + seconds(second)))
            lines.push_back(second / 60);
    // 1, 2, 4, 8, 16 and 32 minutes apart, and then an hour.
    EXPECT_THAT(lines, testing::ElementsAre(0, 1, 3, 7, 15, 31, 63, 123, 183));
}

TEST(LossReport, pauseWithoutALoss_makesTheNextOneQuickAgain)
{
    LossReport report;
    EXPECT_TRUE(report.look(answers(1), start));
    EXPECT_TRUE(report.look(answers(2), start + minutes(1)));
    EXPECT_EQ(report.look(answers(2), start + minutes(3)), std::nullopt);
    EXPECT_TRUE(report.look(answers(3), start + minutes(3) + seconds(1)));
    EXPECT_EQ(report.look(answers(4), start + minutes(3) + seconds(60)), std::nullopt);
    EXPECT_TRUE(report.look(answers(4), start + minutes(3) + seconds(61)));
}

TEST(LossReport, end_saysWhatNoLineHasSaid)
{
    LossReport report;
    EXPECT_TRUE(report.look({0, 0, 0, 1}, start));
    EXPECT_EQ(report.look({0, 0, 0, 3}, start + seconds(1)), std::nullopt);
    EXPECT_THAT(report.finish({0, 0, 0, 3}), Optional(StrEq("lost: 2 commands, answered busy")));
    EXPECT_EQ(report.finish({0, 0, 0, 3}), std::nullopt);
}

} // namespace Vantor
