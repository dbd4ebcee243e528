#include "panel2mqtt/broker/EchoProbe.h"

#include <gtest/gtest.h>

namespace Vantor {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Step = EchoProbe::Step;

class EchoProbeInTime : public testing::Test {
protected:
    EchoProbeInTime() { m_probe.begin(m_begin); }

    Step pollAt(milliseconds time, milliseconds lastWriting = seconds(0))
    {
        return m_probe.poll(m_begin + time, m_begin + lastWriting);
    }
    void receive(unsigned int count)
    {
        while (count-- > 0)
            m_probe.countReceived();
    }

    const EchoProbe::TimePoint m_begin{seconds(1000)};
    EchoProbe m_probe{BrokerPace()};
};

} // namespace

TEST_F(EchoProbeInTime, nothingReceived_isNoReason)
{
    for (int hour = 1; hour < 100; ++hour)
        EXPECT_EQ(pollAt(std::chrono::hours(hour)), Step::None);
}

TEST_F(EchoProbeInTime, sixtyFourMessages_areFollowedByOneAfterTwentySeconds)
{
    receive(63);
    EXPECT_EQ(pollAt(seconds(30)), Step::None);
    receive(1);
    EXPECT_EQ(pollAt(milliseconds(19999)), Step::None);
    EXPECT_EQ(pollAt(seconds(20)), Step::Send);
    m_probe.noteDelivery();
    EXPECT_EQ(pollAt(seconds(200)), Step::None);
    receive(64);
    EXPECT_EQ(pollAt(seconds(200)), Step::Send);
}

TEST_F(EchoProbeInTime, anyMessage_isFollowedByOneAfterAMinute)
{
    receive(1);
    EXPECT_EQ(pollAt(milliseconds(59999)), Step::None);
    EXPECT_EQ(pollAt(seconds(60)), Step::Send);
}

TEST_F(EchoProbeInTime, threeUnheard_areGivenUp)
{
    receive(64);
    for (const int time : {20, 40, 60}) {
        EXPECT_EQ(pollAt(milliseconds(time * 1000 - 1)), Step::None);
        EXPECT_EQ(pollAt(seconds(time)), Step::Send);
    }
    EXPECT_EQ(pollAt(milliseconds(79999)), Step::None);
    EXPECT_EQ(pollAt(seconds(80)), Step::GiveUp);
}

TEST_F(EchoProbeInTime, deliveryBetweenUnheardOnes_beginsAnew)
{
    for (int round = 0; round < 5; ++round) {
        receive(64);
        EXPECT_EQ(pollAt(seconds(60 * round + 20)), Step::Send);
        EXPECT_EQ(pollAt(seconds(60 * round + 40)), Step::Send);
        m_probe.noteDelivery();
    }
}

TEST_F(EchoProbeInTime, somethingStillToBeWritten_putsItOff)
{
    receive(64);
    EXPECT_EQ(pollAt(seconds(39), seconds(20)), Step::None);
    EXPECT_EQ(pollAt(seconds(40), seconds(20)), Step::Send);
}

} // namespace Vantor
