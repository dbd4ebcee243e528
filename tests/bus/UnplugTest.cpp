#include "tests/bus/BusTest.h"

#include <algorithm>
#include <csignal>
#include <thread>

namespace Vantor {

class Unplug : public BusTest {
protected:
    void SetUp() override
    {
        BusTest::SetUp();
        allowLogOfDeparture();
    }

    bool isBeingRead(unsigned int panel)
    {
        bool result = false;
        bus().visit(panel, [&result](const PanelModel& model) { result = model.isBeingRead(); });
        return result;
    }

    // Asks for the list, one question at a time; true when the last answer names one device.
    bool isListOfOne(std::string& last)
    {
        const std::vector<std::string> answers = eventsOf("list");
        if (answers.size() < m_asked)
            return false;
        last = answers.empty() ? "" : answers.back();
        if (std::count(last.begin(), last.end(), ' ') == 1)
            return true;
        tell("list");
        ++m_asked;
        return false;
    }

private:
    std::size_t m_asked = 0;
};

TEST_F(Unplug, transfersPending_deviceIsRemoved)
{
    startClientWithPanel();
    execute("fault out silent sticky");
    tell("add 101 5 20 1"); // pending, as the read is
    tell("list");
    expectEvent("list 101"); // has added it
    bus().unplug(0);
    expectEvent("removed 101");
    tell("list");
    expectEvent("list");
}

TEST_F(Unplug, pluggedInAgain_hasTheSameUid)
{
    startClientWithPanel();
    for (int i = 0; i < 3; ++i) {
        bus().unplug(0);
        expectEvent("removed 101");
        bus().plug(0);
        expectEvent("added 101");
        tell("add 101 5 20 1");
        expectRecords(0, 5, 20, 1);
    }
}

TEST_F(Unplug, pluggedInAgainWhileTheOldDeviceIsHeld_hasTheNextUid)
{
    startClientWithPanel();
    tell("hold");
    expectEvent("held 1");
    bus().unplug(0);
    expectEvent("removed 101");
    bus().plug(0);
    expectEvent("added 102");
    tell("touch");
    expectEvent("touched 1");
    tell("add 102 5 20 1");
    expectRecords(0, 5, 20, 1);
    tell("drop");
    expectEvent("dropped");
    bus().unplug(0);
    expectEvent("removed 102");
    bus().plug(0);
    expectEvent("added 101");
}

// As in a debugger. Its socket holds a dozen events. Which uids the panels get on the way
// depends on what the program still holds of the earlier ones.
TEST_F(Unplug, programThatIsStopped_isToldOfEverythingWhenItGoesOn)
{
    allowLog(R"(\[libusb\] (Cannot open device uid=|Unable to claim USB interface\.).*)");
    allowLibusb(".*"); // it complains of what it no longer finds
    startClientWithPanel();
    // Not in the middle of a call to usbfs, which would hold up the bus: with its first
    // read pending it waits for events.
    ASSERT_TRUE(waitUntil([this] { return isBeingRead(0); }));
    signalClient(SIGSTOP);
    for (int i = 0; i < 6; ++i) {
        bus().schedule({}, UnplugOrder{0});
        bus().schedule({}, PlugOrder{0});
    }
    bus().schedule({}, UnplugOrder{0});
    bus().schedule({}, PlugOrder{1});
    awaitBusLog("waits until the program has read what it was told of earlier");
    signalClient(SIGCONT);
    ASSERT_TRUE(waitUntil([this] { return isBeingRead(1); }));
    std::string list;
    ASSERT_TRUE(waitUntil([&] { return isListOfOne(list); }));
    tell("add " + list.substr(list.find(' ') + 1) + " 5 20 1");
    expectRecords(1, 5, 20, 1);
    for (const char* const kind : {"added", "removed", "list"})
        for (const std::string& event : eventsOf(kind))
            expectEvent(event);
}

TEST_F(Unplug, underLoad_comesBackEveryTime)
{
    startClientWithPanel();
    for (int i = 0; i < 5; ++i) {
        execute("emit type=12 size=700 count=1000 every=1");
        tell("load 101 5 200");
        awaitRecords(0, 5, 300);
        bus().unplug(0);
        expectEvent("removed 101");
        tell("stop");
        expectEvent("stopped");
        bus().plug(0);
        expectEvent("added 101");
    }
}

TEST_F(Unplug, deviceListHeldPastTheEnd_staysSafe)
{
    makeBus();
    bus().plug(0);
    bus().plug(1);
    startClient();
    expectEvent("added 101");
    expectEvent("added 102");
    tell("hold");
    expectEvent("held 2");
    bus().unplug(0);
    expectEvent("removed 101");
    tell("touch");
    expectEvent("touched 2");
    tell("destroy");
    expectEvent("destroyed");
    tell("touch");
    expectEvent("touched 2");
    tell("drop");
    expectEvent("dropped");
}

} // namespace Vantor
