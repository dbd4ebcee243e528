#include "tests/bus/BusTest.h"
#include "tests/bus/TestRecord.h"

#include <thread>

namespace Vantor {

class Traffic : public BusTest {
protected:
    // What the panel says of itself fills no packet for sure: wait for its limit.
    void awaitDeviceInformation()
    {
        EXPECT_TRUE(waitUntil([this] {
            for (const std::string& event : eventsOf("packet"))
                if (event.rfind("packet 101 0 ", 0) == 0)
                    return true;
            return false;
        }));
    }

    void startClientWithLimit(std::uint16_t maxPacketSize, bool scatterGather)
    {
        UsbfsBus::Options options;
        options.panel.maxPacketSize = maxPacketSize;
        options.scatterGather = scatterGather;
        makeBus(std::move(options));
        bus().plug(0);
        startClient();
        expectEvent("added 101");
        awaitDeviceInformation();
    }

    std::uint64_t packetsReceived()
    {
        std::uint64_t packets = 0;
        bus().visit(0, [&packets](const PanelModel& model) { packets = model.getStatistics().packetsReceived; });
        return packets;
    }
};

// The panel judges by it a second after it was read. Two records, 8 + 2 × (3 + 520) =
// 1054 bytes, would fit the initial limit.
TEST_F(Traffic, limitJustAboveTheFloor_isKeptTo)
{
    startClientWithLimit(1050, true);
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    tell("add 101 5 520 20");
    expectRecords(0, 5, 520, 20);
    EXPECT_GE(packetsReceived(), 21U); // with the request for the limit
}

TEST_F(Traffic, recordsOfSeveralTypes_arriveOnceAndInOrderPerType)
{
    startClientWithPanel();
    tell("add 101 5 20 700");
    tell("add 101 6 33 500"); // goes first
    tell("add 101 9 0 10");
    tell("add 101 45 1 300");
    expectRecords(0, 5, 20, 700);
    expectRecords(0, 6, 33, 500);
    expectRecords(0, 9, 0, 10);
    expectRecords(0, 45, 1, 300);
}

TEST_F(Traffic, keyedRecords_arriveOncePerKey)
{
    startClientWithPanel();
    for (int key = 0; key < 20; ++key)
        tell("set 101 7 " + std::to_string(key) + " 16 " + std::to_string(1000 + key));
    const auto records = awaitRecords(0, 7, 20);
    ASSERT_EQ(records.size(), 20U);
    for (std::uint32_t number = 0; number < 20; ++number)
        EXPECT_EQ(records[number].payload, testPayload(1000 + number, 16));
}

TEST_F(Traffic, keyedRecordsThatWait_areReplaced)
{
    startClientWithPanel();
    execute("fault out delay=500 once");
    tell("add 101 5 4 1"); // under way for half a second
    awaitRecords(0, 5, 0);
    for (int number = 0; number < 50; ++number)
        tell("set 101 7 1 16 " + std::to_string(number));
    tell("drain 101");
    expectEvent("drained 101");
    const auto records = awaitRecords(0, 7, 1);
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].payload, testPayload(49, 16));
}

TEST_F(Traffic, packetsOfThePanel_areParsedInOrder)
{
    startClientWithPanel();
    bus().visit(0, [](PanelModel& model) {
        for (std::uint32_t number = 0; number < 50; ++number)
            model.emit(static_cast<PacketType>(number % 40 + 2), testPayload(number, 40 * number));
    });
    for (std::uint32_t number = 0; number < 50; ++number)
        expectEvent(packetEvent("101", static_cast<int>(number % 40 + 2), testPayload(number, 40 * number)));
    EXPECT_TRUE(waitUntil([this] { return eventsOf("begin").size() == eventsOf("end").size(); }));
}

// 8 bytes of header and 3 of the record's: with 501 more the packet fills one USB
// packet of 512 bytes, and only a zero-length packet tells the panel that it ends.
TEST_F(Traffic, packetsThatFillUsbPackets_areEnded)
{
    startClientWithPanel();
    for (const int size : {501, 1013}) {
        tell("add 101 5 " + std::to_string(size) + " 1");
        ASSERT_TRUE(waitUntil([this, size] {
            const auto records = recordsOf(0, 5);
            return !records.empty() && records.back().payload.size() == static_cast<std::size_t>(size);
        }));
    }
    EXPECT_EQ(packetsReceived(), 2U);
    bus().visit(0, [](PanelModel& model) { model.emit(static_cast<PacketType>(12), testPayload(7, 501)); });
    expectEvent(packetEvent("101", 12, testPayload(7, 501)));
}

TEST_F(Traffic, announcedLimit_letsLargePacketsThrough)
{
    startClientWithLimit(40000, true);
    tell("add 101 5 39989 3"); // 40,000 bytes with both headers
    expectRecords(0, 5, 39989, 3);
}

TEST_F(Traffic, withoutScatterGather_splitTransfersArriveWhole)
{
    startClientWithLimit(65535, false);
    execute("fault out stall once"); // hits all pieces of a transfer
    tell("add 101 5 60000 5");       // four URBs
    tell("add 101 9 16373 2");       // with both headers 16 KiB, one full URB
    tell("add 101 10 32757 2");      // two full ones
    expectLog("[libusb] TX Transfer stalled uid=101");
    expectRecords(0, 5, 60000, 5);
    expectRecords(0, 9, 16373, 2);
    expectRecords(0, 10, 32757, 2);
    // Each ends within another piece of a read; what follows must not get into the rest.
    const std::vector<std::size_t> sizes{100, 30000, 16373, 16374, 100, 32700, 5};
    bus().visit(0, [&sizes](PanelModel& model) {
        for (const std::size_t size : sizes)
            model.emit(static_cast<PacketType>(12), testPayload(1, size));
    });
    for (const std::size_t size : sizes)
        expectEvent(packetEvent("101", 12, testPayload(1, size)));
}

} // namespace Vantor
