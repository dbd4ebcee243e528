#include "tests/bus/BusTest.h"

namespace Vantor {

class Shutdown : public BusTest {};

TEST_F(Shutdown, idle_takesAboutASecondAtMost)
{
    startClientWithPanel();
    const auto before = std::chrono::steady_clock::now();
    tell("destroy");
    expectEvent("destroyed");
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(3));
}

TEST_F(Shutdown, underLoad_isOrderly)
{
    makeBus();
    bus().plug(0);
    bus().plug(1);
    startClient();
    expectEvent("added 101");
    expectEvent("added 102");
    execute("emit 0 type=12 size=700 count=100000 every=1");
    execute("emit 1 type=12 size=700 count=100000 every=1");
    tell("load 101 5 200");
    awaitRecords(0, 5, 1000);
    tell("destroy");
    expectEvent("destroyed");
}

// The transfers never come back by themselves: they have to be cancelled.
TEST_F(Shutdown, transfersPending_areTakenBack)
{
    startClientWithPanel();
    execute("fault out silent sticky");
    execute("fault in silent sticky");
    tell("add 101 5 20 1");
    tell("destroy");
    expectEvent("destroyed");
}

TEST_F(Shutdown, panelsClosedUnderLoad_areTakenInAgain)
{
    startClientWithPanel();
    tell("load 101 5 200");
    awaitRecords(0, 5, 500);
    tell("closeAll");
    expectEvent("closed");
    tell("stop");
    expectEvent("stopped");
    expectLog("[libusb] Found stray device uid=0");
    allowLog(R"(\[libusb\] Found stray device uid=1)");
    expectEvent("added 101");
    tell("add 101 6 20 1");
    expectRecords(0, 6, 20, 1);
}

TEST_F(Shutdown, managerMadeAnew_findsThePanelAgain)
{
    startClientWithPanel();
    tell("destroy");
    expectEvent("destroyed");
    tell("start");
    expectEvent("added 101");
    tell("add 101 5 20 1");
    expectRecords(0, 5, 20, 1);
}

// A drain beside it must not run events: their callbacks and the opening of a device take
// the manager's mutex and libusb's list of open handles in two orders.
TEST_F(Shutdown, closeAllDevicesBesideInitialise_doesNotHang)
{
    allowLog(R"(\[libusb\] .*)");
    makeBus();
    for (unsigned int panel = 0; panel < 3; ++panel)
        bus().plug(panel);
    startClient();
    for (const char* const uid : {"101", "102", "103"})
        expectEvent(std::string("added ") + uid);
    for (int round = 0; round < 5 && !HasFailure(); ++round) {
        tell("destroy");
        expectEvent("destroyed");
        tell("startBusily");
        expectEvent("started");
    }
}

} // namespace Vantor
