#include "simulator/panel/PacketLimit.h"

#include <gtest/gtest.h>

namespace Vantor {

using namespace std::chrono_literals;

TEST(PacketLimit, beforeAnAnnouncement_whatIsToBeAnnouncedOr1100)
{
    EXPECT_EQ(PacketLimit(0).at(1h), 1100u);
    EXPECT_EQ(PacketLimit(1099).at(1h), 1100u);
    EXPECT_EQ(PacketLimit(1101).at(1h), 1101u);
    EXPECT_EQ(PacketLimit(65535).at(1h), 65535u);
}

TEST(PacketLimit, lowerAnnouncement_isInForceASecondLater)
{
    PacketLimit limit(8192);
    limit.announce(1025, 5s);
    EXPECT_EQ(limit.at(5s), 8192u);
    EXPECT_EQ(limit.at(6s - 1ns), 8192u);
    EXPECT_EQ(limit.at(6s), 1025u);
}

TEST(PacketLimit, higherAnnouncement_isInForceAtOnce)
{
    PacketLimit limit(1030);
    limit.announce(1030, 0s);
    limit.announce(2000, 2s);
    EXPECT_EQ(limit.at(2s), 2000u);
    EXPECT_EQ(limit.at(3s), 2000u);
}

TEST(PacketLimit, announcementOf1024OrLess_leavesWhatHostsUse)
{
    PacketLimit initial(8192);
    initial.announce(1024, 0s);
    EXPECT_EQ(initial.at(1s), 1100u);

    PacketLimit later(8192);
    later.announce(2000, 0s);
    later.announce(0, 10s);
    EXPECT_EQ(later.at(20s), 2000u);
}

} // namespace Vantor
