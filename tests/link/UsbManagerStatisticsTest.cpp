// What the manager counts of all panels, and what it counts of the buffers that are parsed.
#include "tests/support/ManagerRig.h"
#include "tests/support/Meeting.h"

#include <future>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace Vantor::Test {

namespace {

// Two packets: one with two records, of 1 and 2 bytes, and one with one of none.
const Bytes twoPackets = {8 + 4 + 5, 0, 2, 0, 0, 0, 0, 0, 5, 1, 0, 42, 6, 2, 0, 1, 2, 11, 0, 1, 0, 0, 0, 0, 0, 7, 0, 0};

class SummingRig : public ManagerRig {
public:
    SummingRig()
    {
        start();
        panel = arrive();
        observer.take();
    }

    ReceiveStatistics received() { return manager->getDevice(0x104)->getStatistics().received; }

    libusb_device* panel;
};

} // namespace

TEST(UsbManagerStatistics, buffer_isCountedByItsPacketsAndRecords)
{
    SummingRig rig;
    rig.receive(rig.panel, twoPackets);
    const ReceiveStatistics received = rig.received();
    EXPECT_EQ(received.buffers, 1U);
    EXPECT_EQ(received.bytes, 28U);
    EXPECT_EQ(received.packets, 2U);
    EXPECT_EQ(received.records, 3U);
    EXPECT_EQ(received.malformedPackets, 0U);
    EXPECT_EQ(received.refusedRecords, 0U);
}

TEST(UsbManagerStatistics, packetLengthThatCannotBe_isMalformed)
{
    const Bytes good(twoPackets.begin(), twoPackets.begin() + 17);
    const auto behindGood = [&good](const Bytes& rest) {
        Bytes all = good;
        all.insert(all.end(), rest.begin(), rest.end());
        return all;
    };
    SummingRig rig;
    std::uint64_t expected = 0;
    for (const Bytes& buffer : {
             behindGood({7, 0, 0, 0, 0, 0, 0, 0}), // below its own header
             behindGood({9, 0, 0, 0, 0, 0, 0, 0}), // beyond the buffer
             behindGood({0xFF, 0xFF, 0, 0, 0, 0, 0, 0}),
             behindGood({8, 0, 0, 0, 0, 0, 0}), // too short for a header
             behindGood({1}),
         }) {
        rig.receive(rig.panel, buffer);
        ++expected;
        EXPECT_EQ(rig.received().malformedPackets, expected);
        EXPECT_EQ(rig.received().packets, expected) << "the good one";
        EXPECT_EQ(rig.received().records, 2 * expected);
    }
    EXPECT_EQ(rig.received().refusedRecords, 0U);
    EXPECT_EQ(rig.received().buffers, expected);
}

TEST(UsbManagerStatistics, recordThatReachesPastItsPacket_isRefused)
{
    SummingRig rig;
    Bytes longRecord = twoPackets;
    longRecord[13] = 3; // the second record has 2 bytes
    rig.receive(rig.panel, longRecord);
    EXPECT_EQ(rig.received().refusedRecords, 1U);
    EXPECT_EQ(rig.received().malformedPackets, 0U);
    EXPECT_EQ(rig.received().records, 1U);
    EXPECT_EQ(rig.received().packets, 2U);

    // Behind it nothing is parsed, so a malformed packet there is not counted as well.
    longRecord.push_back(1);
    rig.receive(rig.panel, longRecord);
    EXPECT_EQ(rig.received().refusedRecords, 2U);
    EXPECT_EQ(rig.received().malformedPackets, 0U);
}

TEST(UsbManagerStatistics, bufferThatNobodyParses_isCountedApart)
{
    SummingRig rig;
    rig.usb.receive(rig.panel, Bytes(8, 0)); // no more than a header
    rig.usb.pass();
    rig.receive(rig.panel, twoPackets); // behind which the first has been looked at
    EXPECT_EQ(rig.received().unparsedBuffers, 1U);
    EXPECT_EQ(rig.received().packets, 2U);
    EXPECT_EQ(rig.received().bytes, 8U + 28U);
}

TEST(UsbManagerStatistics, packetWithoutRecords_isOne)
{
    Bytes buffer = twoPackets;
    buffer.insert(buffer.end(), {8, 0, 0, 0, 0, 0, 0, 0});
    SummingRig rig;
    rig.receive(rig.panel, buffer);
    EXPECT_EQ(rig.received().packets, 3U);
    EXPECT_EQ(rig.received().malformedPackets, 0U);
}

TEST(UsbManagerStatistics, sumsOfSeveral_haveTheGreatestMost)
{
    SummingRig rig;
    rig.arrive(panelAt(5));
    const std::uint32_t value = 7;
    for (const auto& device : rig.manager->getDeviceListSafe())
        for (int record = 0; record < 4; ++record) // the first is under way at once
            device->getPacker().addStructData(&value, 4, static_cast<PacketType>(5));
    EXPECT_EQ(rig.manager->getStatistics().devices.normalRecords.now, 6U);
    EXPECT_EQ(rig.manager->getStatistics().devices.normalRecords.most, 3U);
}

TEST(UsbManagerStatistics, panelThatHasGone_isInTheSums)
{
    SummingRig rig;
    rig.receive(rig.panel, twoPackets);
    const std::uint32_t value = 7;
    rig.manager->getDevice(0x104)->getPacker().addStructData(&value, 4, static_cast<PacketType>(5));
    rig.usb.completeSend(rig.panel);
    rig.usb.pass();
    rig.manager->getDevice(0x104)->getPacker().addStructData(&value, 4, static_cast<PacketType>(5));
    rig.manager->getDevice(0x104)->getPacker().addStructData(&value, 4, static_cast<PacketType>(5));
    EXPECT_EQ(rig.manager->getStatistics().devices.normalRecords.now, 1U);
    rig.usb.unplug(rig.panel);
    rig.logged(0, [&] { rig.usb.pass(); });
    ASSERT_EQ(rig.manager->getDevice(0x104), nullptr);

    rig.receive(rig.arrive(panelAt(5)), twoPackets);
    const ManagerStatistics statistics = rig.manager->getStatistics();
    EXPECT_EQ(statistics.devices.received.records, 6U);
    EXPECT_EQ(statistics.devices.received.buffers, 2U);
    EXPECT_EQ(statistics.devices.sent.records, 1U);
    EXPECT_EQ(statistics.devices.sent.bytes, 15U);
    EXPECT_EQ(statistics.devices.normalRecords.now, 0U) << "what waited has gone with it";
    EXPECT_EQ(statistics.devices.normalRecords.most, 1U);
    EXPECT_EQ(statistics.devices.sent.failures.gone, 1U);
    EXPECT_EQ(statistics.arrivals, 2U);
    EXPECT_EQ(statistics.departures, 1U);
    EXPECT_EQ(statistics.dead, 0U);
    EXPECT_EQ(statistics.stray, 0U);
}

TEST(UsbManagerStatistics, panelThatHasGoneAndIsHeld_isInTheSumsOnce)
{
    SummingRig rig;
    rig.receive(rig.panel, twoPackets);
    auto device = rig.manager->getDevice(0x104);
    rig.usb.unplug(rig.panel);
    rig.logged(0, [&] { rig.usb.pass(); });
    EXPECT_EQ(device->getFailure().code, LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(rig.manager->getStatistics().devices.received.records, 3U);
    EXPECT_EQ(device->getStatistics().received.records, 3U);
    device.reset();
    EXPECT_EQ(rig.manager->getStatistics().devices.received.records, 3U);
}

TEST(UsbManagerStatistics, departureWithoutTransfers_isLeave)
{
    SummingRig rig;
    const auto device = rig.manager->getDevice(0x104);
    rig.usb.announce(rig.panel, LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT);
    rig.logged(0, [&] { rig.usb.pass(); });
    EXPECT_EQ(device->getFailure().operation, DeviceFailure::Operation::Leave);
    EXPECT_EQ(device->getFailure().code, LIBUSB_ERROR_NO_DEVICE);
}

TEST(UsbManagerStatistics, closeAllDevices_isADepartureWithItsReason)
{
    SummingRig rig;
    const auto device = rig.manager->getDevice(0x104);
    rig.closeAllDevices();
    EXPECT_EQ(device->getFailure().operation, DeviceFailure::Operation::Close);
    EXPECT_EQ(device->getFailure().code, 0);
    EXPECT_EQ(rig.manager->getStatistics().arrivals, 1U);
    EXPECT_EQ(rig.manager->getStatistics().departures, 1U);
    rig.log.take();
}

TEST(UsbManagerStatistics, deadAndStrayDevices_areCounted)
{
    SummingRig rig;
    const std::uint32_t value = 7;
    rig.manager->getDevice(0x104)->getPacker().addStructData(&value, 4, static_cast<PacketType>(5));
    rig.usb.complete(rig.panel, FakeLibusb::outEndpoint, LIBUSB_TRANSFER_ERROR, 0);
    rig.logged(0, [&] {
        rig.usb.pass();
        rig.usb.passAfter(6s); // the registry check, which finds it dead and attached
        rig.usb.pass();
    });
    const ManagerStatistics statistics = rig.manager->getStatistics();
    EXPECT_EQ(statistics.dead, 1U);
    EXPECT_EQ(statistics.stray, 1U);
    EXPECT_EQ(statistics.arrivals, 2U) << "the stray one is one";
    EXPECT_EQ(statistics.departures, 1U);
    EXPECT_EQ(statistics.devices.sent.failures.failed, 1U);
}

TEST(UsbManagerStatistics, newManager_beginsAnew)
{
    {
        SummingRig rig;
        rig.receive(rig.panel, twoPackets);
        rig.stop();
        rig.log.take();
    }
    SummingRig rig;
    EXPECT_EQ(rig.manager->getStatistics().devices.received.records, 0U);
    EXPECT_EQ(rig.manager->getStatistics().arrivals, 1U);
}

TEST(UsbManagerStatistics, passOfTheWorker_isCountedWhenItIsOver)
{
    SummingRig rig;
    const std::uint64_t before = rig.manager->getStatistics().passes;
    rig.usb.pass();
    rig.usb.pass();
    EXPECT_EQ(rig.manager->getStatistics().passes, before + 2);

    std::uint64_t during = 0;
    rig.observer.whenAdded = [&](std::uint16_t /*uid*/) { during = rig.manager->getStatistics().passes; };
    FakeLibusb::Panel another;
    another.port = 5;
    rig.arrive(another);
    EXPECT_EQ(during, before + 2) << "while a callback keeps it";
}

TEST(UsbManagerStatistics, whileThePollHasTheRegistry_canBeRead)
{
    ManagerRig rig;
    rig.start();
    const Meeting meeting(rig.usb, "submit_transfer 0x81", Meeting::Expected::Through,
                          [&rig] { rig.manager->getStatistics(); });
    rig.arrive();
    EXPECT_TRUE(meeting.wasAsExpected());
}

TEST(UsbManagerStatistics, buffersThatWaitForTheApplication_areCounted)
{
    SummingRig rig;
    std::promise<void> leave;
    const std::shared_future<void> left = leave.get_future().share();
    rig.observer.whenBegun = [left](std::uint16_t /*uid*/, const UsbMessage& /*message*/) { left.wait(); };
    for (int i = 0; i < 3; ++i) {
        rig.usb.receive(rig.panel, twoPackets);
        rig.usb.pass();
    }
    // The receive thread is at the first, or about to be.
    while (rig.manager->getStatistics().waitingBuffers > 2) {
    }
    EXPECT_EQ(rig.manager->getStatistics().waitingBuffers, 2U);
    EXPECT_EQ(rig.received().buffers, 3U);
    leave.set_value();
    rig.observer.waitForMessages(3);
    EXPECT_EQ(rig.manager->getStatistics().waitingBuffers, 0U);
}

} // namespace Vantor::Test
