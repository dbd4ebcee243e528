#include "tests/bus/BusTest.h"

#include <thread>

namespace Vantor {

class Fault : public BusTest {};

TEST_F(Fault, sendThatTimesOut_isSentAgainSilently)
{
    startClientWithPanel();
    execute("fault out silent once");
    tell("add 101 5 20 1");
    const auto before = std::chrono::steady_clock::now();
    expectRecords(0, 5, 20, 1);
    // libusb gives up after 2 s, and the next pass sends again.
    EXPECT_GT(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(1900));
    tell("add 101 6 20 1");
    expectRecords(0, 6, 20, 1);
}

TEST_F(Fault, readThatTimesOut_isArmedAgainSilently)
{
    startClientWithPanel();
    execute("fault in silent once"); // holds the read that is pending
    execute("emit type=12 hex=0a");
    const auto before = std::chrono::steady_clock::now();
    expectEvent("packet 101 12 0a");
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(4));
    execute("emit type=12 hex=0b");
    expectEvent("packet 101 12 0b");
}

TEST_F(Fault, quietPanel_keepsItsReadPending)
{
    startClientWithPanel();
    std::this_thread::sleep_for(std::chrono::milliseconds(4500)); // two time-outs
    execute("emit type=12 hex=0a");
    expectEvent("packet 101 12 0a");
}

TEST_F(Fault, stalledSend_isReportedAndSentAgain)
{
    startClientWithPanel();
    execute("fault out stall once");
    tell("add 101 5 20 1");
    expectLog("[libusb] TX Transfer stalled uid=101");
    expectRecords(0, 5, 20, 1);
}

// The halt is cleared on endpoint 0, which has none: it stays.
TEST_F(Fault, endpointThatStaysStalled_isTriedEveryPassUntilItWorks)
{
    startClientWithPanel();
    execute("fault out stall sticky");
    tell("add 101 5 20 1");
    for (int i = 0; i < 10; ++i)
        expectLog("[libusb] TX Transfer stalled uid=101");
    EXPECT_TRUE(recordsOf(0, 5).empty());
    execute("fault clear");
    expectRecords(0, 5, 20, 1);
    allowLog(R"(\[libusb\] TX Transfer stalled uid=101)");
}

// The read is armed again at once, so nothing slows this down.
TEST_F(Fault, readThatStaysStalled_isReportedAndWorksAgainAfterwards)
{
    startClientWithPanel();
    execute("fault in stall sticky");
    expectLog("[libusb] RX Transfer stalled uid=101");
    expectLog("[libusb] RX Transfer stalled uid=101");
    execute("fault clear");
    execute("emit type=12 hex=0a");
    expectEvent("packet 101 12 0a");
    allowLog(R"(\[libusb\] RX Transfer stalled uid=101)");
}

TEST_F(Fault, readThatFails_isArmedAgainSilently)
{
    startClientWithPanel();
    execute("fault in status=EPROTO once");
    execute("emit type=12 hex=0a");
    expectEvent("packet 101 12 0a");
}

TEST_F(Fault, packetTakenInPart_countsAndIsNotSentAgain)
{
    startClientWithPanel();
    execute("fault out short=100 once");
    tell("add 101 5 300 1");
    tell("drain 101");
    expectEvent("drained 101");
    ASSERT_TRUE(waitUntil([this] {
        tell("counters 101");
        return !eventsOf("counters").empty() && eventsOf("counters").back() == "counters 101 100 0";
    }));
    tell("add 101 6 20 1");
    expectRecords(0, 6, 20, 1);
    EXPECT_TRUE(recordsOf(0, 5).empty());
}

// The panel is still there, so the check that finds it dead also takes it in anew:
// before the old device is closed, so that the first attempt finds it claimed.
TEST_F(Fault, failedSend_endsTheDeviceAndThePanelComesBack)
{
    startClientWithPanel();
    execute("fault out status=EPROTO once");
    tell("add 101 5 20 1");
    expectLog("[libusb] TX LIBUSB_ERROR uid=101 size=31 actual=0"); // 8 + 3 + 20
    expectLog("[libusb] found dead device: uid=101 id=0");
    expectLog("[libusb] Found stray device uid=1"); // its id
    expectLog("[libusb] Unable to claim USB interface. Device busy. Aborting.");
    expectEvent("removed 101");
    expectEvent("added 102");
    tell("list");
    expectEvent("list 102");
    // Five seconds later; by then the first one is gone for good.
    expectLog("[libusb] found dead device: uid=102 id=1");
    expectLog("[libusb] Found stray device uid=0");
    expectEvent("removed 102");
    expectEvent("added 101");
    tell("add 101 6 20 1");
    expectRecords(0, 6, 20, 1);
    EXPECT_TRUE(recordsOf(0, 5).empty()); // went with the first device
}

TEST_F(Fault, panelOutOfTheRegistry_isTakenInByTheNextCheck)
{
    startClientWithPanel();
    tell("closeAll");
    expectEvent("closed");
    tell("list");
    expectEvent("list");
    expectLog("[libusb] Found stray device uid=0");
    expectEvent("added 101");
    tell("add 101 5 20 1");
    expectRecords(0, 5, 20, 1);
}

} // namespace Vantor
