#include "panelfleet/rollout/FleetReader.h"

#include <string>

#include <gmock/gmock.h>

namespace Vantor {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FleetReaderOfAll : public testing::Test {
protected:
    static Selection all()
    {
        Selection selection;
        selection.isAll = true;
        return selection;
    }

    FleetReader::Step come(const std::string& host)
    {
        return m_reader.receive("panel/1/" + host + "/state", DeskJson::write(HostState{true, 1, "r", "v"}));
    }
    FleetReader::Step told(const std::string& marker) { return m_reader.receive("panel/1/all/told", marker); }

    FleetView m_view{all(), "j"};
    FleetReader m_reader{m_view, {"+/state", "+/job/j"}, "me"};
};

} // namespace

TEST_F(FleetReaderOfAll, withoutHosts_isCompleteAfterOneRound)
{
    const FleetReader::Step first = m_reader.begin();
    EXPECT_THAT(first.filters, IsEmpty());
    EXPECT_EQ(first.marker, "me-1");
    EXPECT_FALSE(m_reader.isComplete());
    EXPECT_THAT(told("me-1").filters, IsEmpty());
    EXPECT_TRUE(m_reader.isComplete());
}

TEST_F(FleetReaderOfAll, hosts_areReadBehindEachOther)
{
    m_reader.begin();
    come("b");
    come("a");
    const FleetReader::Step second = told("me-1");
    EXPECT_THAT(second.filters,
                ElementsAre("panel/1/a/+/state", "panel/1/a/+/job/j", "panel/1/b/+/state", "panel/1/b/+/job/j"));
    EXPECT_EQ(second.marker, "me-2");
    EXPECT_FALSE(m_reader.isComplete());
    EXPECT_THAT(told("me-2").marker, "");
    EXPECT_TRUE(m_reader.isComplete());
}

TEST_F(FleetReaderOfAll, manyHosts_areReadSomeAtATime)
{
    m_reader.begin();
    for (int host = 10; host < 75; ++host) // 65: 32, 32 and 1
        come("h" + std::to_string(host));
    EXPECT_EQ(told("me-1").filters.size(), 64u);
    EXPECT_EQ(told("me-2").filters.size(), 64u);
    EXPECT_THAT(told("me-3").filters, ElementsAre("panel/1/h74/+/state", "panel/1/h74/+/job/j"));
    EXPECT_FALSE(m_reader.isComplete());
    told("me-4");
    EXPECT_TRUE(m_reader.isComplete());
}

TEST_F(FleetReaderOfAll, othersMarkersAndEarlierOnes_countForNothing)
{
    m_reader.begin();
    told("other-1");
    told("");
    EXPECT_FALSE(m_reader.isComplete());
    m_reader.begin(); // another connection
    told("me-1");
    EXPECT_FALSE(m_reader.isComplete());
    told("me-2");
    EXPECT_TRUE(m_reader.isComplete());
    m_reader.end();
    told("me-2");
    EXPECT_FALSE(m_reader.isComplete());
}

TEST_F(FleetReaderOfAll, hostThatComesLater_isReadToo)
{
    m_reader.begin();
    told("me-1");
    const FleetReader::Step step = come("late");
    EXPECT_THAT(step.filters, ElementsAre("panel/1/late/+/state", "panel/1/late/+/job/j"));
    EXPECT_EQ(step.marker, "");
    EXPECT_THAT(come("late").filters, IsEmpty());
}

} // namespace Vantor
