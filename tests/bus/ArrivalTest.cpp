#include "tests/bus/BusTest.h"

#include <thread>

namespace Vantor {

class Arrival : public BusTest {};

TEST_F(Arrival, pluggedBeforeTheStart_isAddedAndInformsOfItself)
{
    UsbfsBus::Options options;
    options.panel.description = "A panel";
    options.panel.maxPacketSize = 0x1234;
    makeBus(options);
    bus().plug(0);
    startClient();
    expectEvent("added 101");
    tell("list");
    expectEvent("list 101");
    // 80 bytes of text, the limit, a reserved byte.
    Bytes information(83);
    const std::string text = "A panel";
    std::copy(text.begin(), text.end(), information.begin());
    information[80] = 0x34;
    information[81] = 0x12;
    expectEvent(packetEvent("101", 0, information));
    EXPECT_EQ(recordsOf(0, 1).size(), 1U); // one request, and none after the answer
}

TEST_F(Arrival, pluggedLater_isAdded)
{
    makeBus();
    startClient();
    tell("list");
    expectEvent("list");
    bus().plug(3);
    expectEvent("added 104");
    tell("list");
    expectEvent("list 104");
    tell("add 104 5 20 1");
    expectRecords(3, 5, 20, 1);
}

TEST_F(Arrival, noAnswerToTheRequest_isAskedAgainEveryTwoSeconds)
{
    startClientWithPanel();
    execute("fault in silent sticky"); // the panel's answers stay with it
    const auto requests = awaitRecords(0, 1, 3);
    ASSERT_GE(requests.size(), 3U);
    for (const PanelModel::Record& request : requests)
        EXPECT_EQ(request.payload, (Bytes{1, 0, 0, 0}));
    // Between the first and the third; on a loaded machine the first one is on its way for
    // a while. How late they may be is for virtual time to say.
    EXPECT_GT(requests[2].time - requests[0].time, std::chrono::seconds(3));
}

TEST_F(Arrival, pulledWhileItIsTakenIn_leavesNothingBehind)
{
    allowLog(R"(\[libusb\] Cannot open device uid=.*)");
    allowLog(R"(\[libusb\] Unable to claim USB interface\..*)");
    allowLog(R"(\[libusb\] RX LIBUSB_ERROR_NO_DEVICE( uid=\w+!)?)");
    allowLog(R"(\[libusb\] found dead device: .*)");
    allowLibusb(".*"); // it complains of what it no longer finds
    makeBus();
    startClient();
    for (int i = 0; i < 20; ++i) {
        bus().plug(0);
        std::this_thread::sleep_for(std::chrono::microseconds(300 * i));
        bus().unplug(0);
    }
    bus().plug(1);
    expectEvent("added 102");
    ASSERT_TRUE(waitUntil([this] { return eventsOf("added").size() == eventsOf("removed").size(); }));
    tell("list");
    expectEvent("list 102");
    for (const std::string& event : eventsOf("added"))
        expectEvent(event);
    for (const std::string& event : eventsOf("removed"))
        expectEvent(event);
}

// Numbers go to 127. A node that is used again must lead to the new panel.
TEST_F(Arrival, moreOftenThanThereAreDeviceNumbers_isTakenIn)
{
    makeBus();
    for (int i = 0; i < 130; ++i) {
        bus().plug(0);
        bus().unplug(0);
    }
    bus().plug(0);
    startClient();
    expectEvent("added 101");
    tell("add 101 5 20 1");
    expectRecords(0, 5, 20, 1);
}

TEST_F(Arrival, twoPanels_areTwoDevices)
{
    makeBus();
    bus().plug(0);
    bus().plug(1);
    startClient();
    expectEvent("added 101");
    expectEvent("added 102");
    tell("add 101 5 30 40");
    tell("add 102 5 50 60");
    expectRecords(0, 5, 30, 40);
    expectRecords(1, 5, 50, 60);
    execute("emit 0 type=12 hex=0a");
    execute("emit 1 type=12 hex=0b");
    expectEvent("packet 101 12 0a");
    expectEvent("packet 102 12 0b");
    bus().unplug(0);
    expectEvent("removed 101");
    tell("add 102 5 50 60");
    EXPECT_EQ(awaitRecords(1, 5, 120).size(), 120U);
    allowLogOfDeparture();
}

} // namespace Vantor
