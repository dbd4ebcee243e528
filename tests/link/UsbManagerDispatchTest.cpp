// What panels send on its way to the application, and completions on their way to devices.
#include "tests/support/ManagerRig.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace Vantor::Test {

namespace {

// One record of type 5, with the bytes that a panel may have in the device-id field.
const Bytes oneRecord = {12, 0, 1, 0, 0xAA, 0xBB, 0xCC, 0xDD, 5, 1, 0, 42};

// A running manager with one panel.
class PanelRig : public ManagerRig {
public:
    PanelRig()
    {
        start();
        panel = arrive();
        device = manager->getDevice(0x104);
        observer.take();
        usb.takeTrace();
    }

    ~PanelRig() { device.reset(); }

    libusb_device* panel;
    std::shared_ptr<UsbDevice> device;
};

libusb_transfer transferOf(std::uintptr_t id)
{
    libusb_transfer transfer{};
    transfer.user_data = reinterpret_cast<void*>(id);
    transfer.status = LIBUSB_TRANSFER_COMPLETED;
    transfer.actual_length = 5;
    return transfer;
}

} // namespace

TEST(UsbManagerDispatch, receivedBuffer_reachesTheObserverOnTheReceiveThread)
{
    PanelRig rig;
    rig.receive(rig.panel, oneRecord);
    EXPECT_THAT(rig.observer.take(), ElementsAre("begin 104 12 bytes", "parsed 104 type 5: 2a", "end 104"));
    EXPECT_EQ(rig.observer.threadOf("begin"), "MorvaneRecv");
    EXPECT_EQ(rig.observer.threadOf("parsed"), "MorvaneRecv");
    EXPECT_EQ(rig.observer.threadOf("end"), "MorvaneRecv");
}

TEST(UsbManagerDispatch, observerThatUnregistersItself_hearsNoMoreOfItsMessage)
{
    PanelRig rig;
    const auto unregister = [&rig] { rig.manager->unregisterObserver(&rig.observer); };
    const auto linesOfOneMessage = [&rig] {
        LinkRig::setLevel(4);
        rig.usb.receive(rig.panel, {16, 0, 2, 0, 0, 0, 0, 0, 5, 1, 0, 1, 6, 1, 0, 2});
        rig.usb.pass();
        rig.log.waitFor("[libusb] Wait for message...\n");
        LinkRig::setLevel(2);
        rig.log.take();
        rig.manager->registerObserver(&rig.observer);
        return rig.observer.take();
    };
    rig.observer.whenParsed = [&unregister](std::uint16_t) { unregister(); };
    EXPECT_THAT(linesOfOneMessage(), ElementsAre("begin 104 16 bytes", "parsed 104 type 5: 1"));
    rig.observer.whenBegun = [&unregister](std::uint16_t, const UsbMessage&) { unregister(); };
    EXPECT_THAT(linesOfOneMessage(), ElementsAre("begin 104 16 bytes"));
}

TEST(UsbManagerDispatch, uid_isStampedIntoBytesFourToSeven)
{
    PanelRig rig;
    Bytes seen;
    std::uint16_t id = 0;
    rig.observer.whenBegun = [&](std::uint16_t, const UsbMessage& message) {
        seen.assign(message.data, message.data + message.size);
        id = message.id;
    };
    rig.receive(rig.panel, oneRecord);
    EXPECT_EQ(seen, (Bytes{12, 0, 1, 0, 0x04, 0x01, 0, 0, 5, 1, 0, 42}));
    EXPECT_EQ(id, 0x104);
}

TEST(UsbManagerDispatch, bufferOfSeveralPackets_isParsedInOrderUnderOneUid)
{
    PanelRig rig;
    rig.receive(rig.panel, {16, 0, 2, 0, 0, 0, 0, 0, 5, 1, 0, 1, 6, 1, 0, 2, //
                            11, 0, 1, 0, 9, 9, 9, 9, 7, 0, 0});
    EXPECT_THAT(rig.observer.take(), ElementsAre("begin 104 27 bytes", "parsed 104 type 5: 1", "parsed 104 type 6: 2",
                                                 "parsed 104 type 7:", "end 104"));
}

TEST(UsbManagerDispatch, bufferOfEightBytes_isDropped)
{
    PanelRig rig;
    rig.usb.receive(rig.panel, Bytes(8));
    rig.usb.pass();
    rig.receive(rig.panel, oneRecord);
    EXPECT_THAT(rig.observer.take(), ElementsAre("begin 104 12 bytes", "parsed 104 type 5: 2a", "end 104"));
    EXPECT_EQ(rig.device->getReceivedData(), 20u) << "counted all the same";
}

TEST(UsbManagerDispatch, bufferOfNineBytes_isParsed)
{
    PanelRig rig;
    rig.receive(rig.panel, {9, 0, 1, 0, 0, 0, 0, 0, 5});
    EXPECT_THAT(rig.observer.take(), ElementsAre("begin 104 9 bytes", "end 104")) << "begun, though no record is whole";
}

TEST(UsbManagerDispatch, bufferWithoutAnObserver_isDiscardedUnparsed)
{
    PanelRig rig;
    rig.manager->unregisterObserver(nullptr);
    LinkRig::setLevel(4);
    Bytes information = {94, 0, 1, 0, 0, 0, 0, 0, 0, 83, 0};
    information.resize(94);
    rig.usb.receive(rig.panel, information);
    rig.usb.pass();
    rig.log.waitFor("[libusb] Wait for message...\n");
    LinkRig::setLevel(2);
    rig.log.take();
    EXPECT_EQ(rig.device->getDeviceInfo(), nullptr);
    rig.manager->registerObserver(&rig.observer);
    rig.receive(rig.panel, oneRecord);
    EXPECT_THAT(rig.observer.take(), SizeIs(3)) << "the first buffer is gone";
}

TEST(UsbManagerDispatch, deviceInformation_isStoredAndTheObserverTold)
{
    PanelRig rig;
    Bytes buffer = {94, 0, 1, 0, 0, 0, 0, 0, 0, 83, 0};
    buffer.resize(94);
    buffer[11] = 0x77;
    buffer[11 + 80] = 0x34; // 0x1234 bytes
    buffer[11 + 81] = 0x12;
    const DeviceInformation* atCallback = nullptr;
    rig.observer.whenParsed = [&](std::uint16_t) { atCallback = rig.device->getDeviceInfo(); };
    rig.receive(rig.panel, buffer);
    const DeviceInformation* const info = rig.device->getDeviceInfo();
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(atCallback, info) << "the device first, then the observer";
    EXPECT_EQ(info->description[0], 0x77);
    EXPECT_EQ(+info->maxPacketSize, 0x1234);
    const auto lines = rig.observer.take();
    ASSERT_THAT(lines, SizeIs(3));
    EXPECT_THAT(lines[1], testing::StartsWith("parsed 104 type 0: 77 0 0"));
}

TEST(UsbManagerDispatch, firmwareReply_reachesItsDeviceAndTheObserver)
{
    PanelRig rig;
    // Command 0, which is invalid, shows itself in the log.
    const std::string text = rig.logged(2, [&] {
        rig.receive(rig.panel, {25, 0, 1, 0, 0, 0, 0, 0, 40, 14, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    });
    EXPECT_EQ(text, "[libusb] Invalid command 0\n");
    EXPECT_THAT(rig.observer.take(),
                ElementsAre("begin 104 25 bytes", "parsed 104 type 40: 0 0 0 0 0 0 0 0 0 0 0 0 0 0", "end 104"));
}

TEST(UsbManagerDispatch, otherTypes_causeNoActionOnTheDevice)
{
    PanelRig rig;
    DataPacketUnion data{};
    for (int type = -1; type < 60; ++type) {
        if (type != 0 && type != 40)
            rig.manager->handleParsedPacket(0x104, static_cast<PacketType>(type), data, 0);
    }
    EXPECT_EQ(rig.device->getDeviceInfo(), nullptr);
    EXPECT_THAT(rig.observer.take(), SizeIs(59));
}

TEST(UsbManagerDispatch, packetForADeviceThatHasGone_isToldToTheObserverAlone)
{
    PanelRig rig;
    DataPacketUnion data{};
    rig.manager->handleParsedPacket(0x999, static_cast<PacketType>(0), data, 1);
    rig.manager->handleParsedPacket(0x999, static_cast<PacketType>(40), data, 1);
    EXPECT_THAT(rig.observer.take(), ElementsAre("parsed 999 type 0: 0", "parsed 999 type 40: 0"));
}

TEST(UsbManagerDispatch, packetWithoutAnObserver_stillReachesTheDevice)
{
    PanelRig rig;
    rig.manager->unregisterObserver(nullptr);
    rig.manager->handleParsedPacket(0x104, static_cast<PacketType>(0), DataPacketUnion{}, 83);
    EXPECT_NE(rig.device->getDeviceInfo(), nullptr);
}

TEST(UsbManagerDispatch, onReserved_isNeverCalled)
{
    PanelRig rig;
    rig.receive(rig.panel, oneRecord);
    rig.usb.unplug(rig.panel);
    rig.logged(0, [&] { rig.usb.pass(); });
    EXPECT_EQ(rig.observer.threadOf("reserved"), "");
}

TEST(UsbManagerDispatch, receiveThreadLog_isPrintedAtLevelFour)
{
    for (const int level : {4, 3}) {
        ManagerRig rig;
        rig.create().registerObserver(&rig.observer);
        LinkRig::setLevel(level);
        rig.manager->initialise();
        rig.usb.waitParked();
        if (level >= 4)
            rig.log.waitFor("[libusb] Wait for message...\n");
        LinkRig::setLevel(2);
        EXPECT_EQ(rig.log.take(), level >= 4 ? "[libusb] Init receive thread\n[libusb] Wait for message...\n" : "");
        libusb_device* const panel = rig.arrive();
        LinkRig::setLevel(level);
        rig.receive(panel, oneRecord);
        if (level >= 4)
            rig.log.waitFor("[libusb] Wait for message...\n");
        LinkRig::setLevel(2);
        EXPECT_EQ(rig.log.take(), level >= 4 ? "[libusb] Got message...\n[libusb] Wait for message...\n" : "");
        rig.stop();
    }
}

// Completions.

TEST(UsbManagerDispatch, completionLog_showsIdAndTableSizeAtLevelFive)
{
    for (const int level : {5, 4}) {
        PanelRig rig;
        libusb_transfer unknown = transferOf(77);
        EXPECT_EQ(rig.logged(level, [&] { rig.manager->handleTransferSendCallback(&unknown); }),
                  level >= 5 ? "[libusb] handleTransferSendCallback id=77 vec=1\n" : "");
        EXPECT_EQ(rig.logged(level, [&] { rig.manager->handleTransferRecvCallback(&unknown); }),
                  level >= 5 ? "[libusb] handleTransferRecvCallback id=77 vec=1\n" : "");
    }
}

TEST(UsbManagerDispatch, completionOfAnUnknownId_isDropped)
{
    PanelRig rig;
    for (const std::uintptr_t id : {1u, 77u}) {
        libusb_transfer transfer = transferOf(id);
        UsbManager::transferSendCallback(&transfer);
        UsbManager::transferReceiveCallback(&transfer);
    }
    EXPECT_EQ(rig.device->getReceivedData(), 0u);
    EXPECT_THAT(rig.usb.takeTrace(), IsEmpty());
}

TEST(UsbManagerDispatch, completionOfAnEmptySlot_isDropped)
{
    PanelRig rig;
    rig.usb.unplug(rig.panel);
    rig.logged(0, [&] { rig.usb.pass(); });
    rig.usb.takeTrace();
    libusb_transfer transfer = transferOf(0);
    EXPECT_EQ(rig.logged(5, [&] { UsbManager::transferSendCallback(&transfer); }),
              "[libusb] handleTransferSendCallback id=0 vec=1\n");
    EXPECT_THAT(rig.usb.takeTrace(), IsEmpty());
}

TEST(UsbManagerDispatch, noTransfer_isIgnored)
{
    PanelRig rig;
    EXPECT_EQ(rig.logged(5,
                         [&] {
                             rig.manager->handleTransferSendCallback(nullptr);
                             rig.manager->handleTransferRecvCallback(nullptr);
                             UsbManager::transferSendCallback(nullptr);
                             UsbManager::transferReceiveCallback(nullptr);
                         }),
              "");
}

TEST(UsbManagerDispatch, completionBeforeInitialiseAndAfterDestroy_isIgnored)
{
    ManagerRig rig;
    libusb_transfer transfer = transferOf(0);
    const auto completions = [&transfer] {
        UsbManager::transferSendCallback(&transfer);
        UsbManager::transferReceiveCallback(&transfer);
    };
    EXPECT_EQ(rig.logged(5, completions), "");
    rig.create();
    EXPECT_EQ(rig.logged(5, completions), "");
    rig.initialise();
    rig.stop();
    EXPECT_EQ(rig.logged(5, completions), "");
}

TEST(UsbManagerDispatch, completion_chainsTheNextSendInsideEventHandling)
{
    PanelRig rig;
    const Bytes record(1000);
    for (int i = 0; i < 3; ++i)
        rig.device->getPacker().addStructData(record.data(), 1000u, static_cast<PacketType>(5));
    for (int i = 0; i < 3; ++i) {
        EXPECT_THAT(rig.usb.takeSubmissions(rig.panel, FakeLibusb::outEndpoint), SizeIs(1));
        rig.usb.completeSend(rig.panel);
        rig.usb.passAfter(0s);
    }
    EXPECT_EQ(rig.device->getSentData(), 3u * 1011u);
}

TEST(UsbManagerDispatch, twoPanels_areToldApartByTheirIds)
{
    PanelRig rig;
    FakeLibusb::Panel other;
    other.port = 5;
    libusb_device* const second = rig.arrive(other);
    rig.observer.take();
    rig.receive(second, oneRecord);
    rig.receive(rig.panel, oneRecord);
    EXPECT_THAT(rig.observer.take(), ElementsAre("begin 105 12 bytes", "parsed 105 type 5: 2a", "end 105",
                                                 "begin 104 12 bytes", "parsed 104 type 5: 2a", "end 104"));
}

TEST(UsbManagerDispatch, endedSend_isToldWhenTheNextOneIsUnderWay)
{
    class SendListener : public UsbManager::SendObserver {
    public:
        explicit SendListener(ManagerRig& rig) : m_rig(rig) {}
        void onSendEnded(std::uint16_t uid) override
        {
            uids.push_back(uid);
            const auto device = m_rig.manager->getDevice(uid); // takes the manager's lock
            progress.push_back(device->getPacker().getProgress());
        }
        std::vector<std::uint16_t> uids;
        std::vector<PriorityPacker::Progress> progress;

    private:
        ManagerRig& m_rig;
    };
    PanelRig rig;
    SendListener listener(rig);
    rig.manager->registerSendObserver(&listener);
    const unsigned char byte = 1;
    rig.device->getPacker().addStructData(&byte, 1, static_cast<PacketType>(5)); // sent at once
    rig.device->getPacker().addStructData(&byte, 1, static_cast<PacketType>(5));
    rig.usb.completeSend(rig.panel);
    rig.usb.passAfter(0s);
    rig.usb.complete(rig.panel, FakeLibusb::outEndpoint, LIBUSB_TRANSFER_TIMED_OUT, 0);
    rig.usb.passAfter(0s);
    EXPECT_THAT(listener.uids, ElementsAre(0x104, 0x104));
    ASSERT_THAT(listener.progress, SizeIs(2));
    EXPECT_EQ(listener.progress[0].endedPackets, 1U);
    EXPECT_TRUE(listener.progress[0].isUnderWay);
    EXPECT_EQ(listener.progress[0].waitingRecords, 0U);
    EXPECT_EQ(listener.progress[1].endedPackets, 1U);

    rig.manager->registerSendObserver(nullptr);
    rig.usb.completeSend(rig.panel);
    rig.usb.passAfter(0s);
    EXPECT_THAT(listener.uids, SizeIs(2));
}

} // namespace Vantor::Test
