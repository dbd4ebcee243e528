// The bulk transfer engine of one device: sends, reads, their statuses, poll.
#include "tests/link/DeviceAccess.h"
#include "tests/support/DeviceRig.h"

#include "libMorvaneHostUsb/UsbManager.h"

#include <array>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace Vantor::Test {

namespace {

constexpr auto completed = LIBUSB_TRANSFER_COMPLETED;
constexpr auto timedOut = LIBUSB_TRANSFER_TIMED_OUT;

// One packet: 8 bytes of header (length, count, 0), then 3 of record header (type, length).
const Bytes packetOfAbc = {14, 0, 1, 0, 0, 0, 0, 0, 5, 3, 0, 'a', 'b', 'c'};
const Bytes packetOfInfoRequest = {15, 0, 1, 0, 0, 0, 0, 0, 1, 4, 0, 1, 0, 0, 0};

// A device with a read in flight and nothing else.
class OpenRig : public DeviceRig {
public:
    OpenRig()
    {
        open();
        poll();
        reads();
        usb.takeTrace();
    }
};

// As above with a send of "abc" in flight.
class SendingRig : public OpenRig {
public:
    SendingRig()
    {
        add(5, {'a', 'b', 'c'});
        sends();
        usb.takeTrace();
    }
};

} // namespace

TEST(UsbDeviceTransfers, send_fillsEveryFieldOfItsTransfer)
{
    DeviceRig rig;
    const auto other = rig.make({1, 5}); // id 1, so that the user data tells
    other->open();
    const Bytes payload = {'a', 'b', 'c'};
    other->getPacker().addStructData(payload.data(), 3u, static_cast<PacketType>(5));
    const auto sends = rig.usb.takeSubmissions(other->getDevice(), FakeLibusb::outEndpoint);
    ASSERT_THAT(sends, SizeIs(1));
    EXPECT_EQ(sends[0].endpoint, 0x02);
    EXPECT_EQ(sends[0].type, LIBUSB_TRANSFER_TYPE_BULK);
    EXPECT_EQ(sends[0].flags, LIBUSB_TRANSFER_ADD_ZERO_PACKET);
    EXPECT_EQ(sends[0].timeout, 2000u);
    EXPECT_EQ(sends[0].length, 14);
    EXPECT_EQ(sends[0].userData, reinterpret_cast<void*>(1));
    EXPECT_TRUE(sends[0].callback == &UsbManager::transferSendCallback);
    EXPECT_EQ(sends[0].handle, Access::handle(*other));
    EXPECT_EQ(sends[0].buffer, other->getPacker().getPacket()) << "no copy";
    EXPECT_EQ(sends[0].bytes, packetOfAbc);
}

TEST(UsbDeviceTransfers, read_fillsEveryFieldOfItsTransfer)
{
    DeviceRig rig;
    const auto other = rig.make({1, 5});
    other->open();
    other->recvNextPacket();
    const auto reads = rig.usb.takeSubmissions(other->getDevice(), FakeLibusb::inEndpoint);
    ASSERT_THAT(reads, SizeIs(1));
    EXPECT_EQ(reads[0].endpoint, 0x81);
    EXPECT_EQ(reads[0].type, LIBUSB_TRANSFER_TYPE_BULK);
    EXPECT_EQ(reads[0].flags, 0);
    EXPECT_EQ(reads[0].timeout, 2000u);
    EXPECT_EQ(reads[0].length, 32768);
    EXPECT_EQ(reads[0].userData, reinterpret_cast<void*>(1));
    EXPECT_TRUE(reads[0].callback == &UsbManager::transferReceiveCallback);
    EXPECT_EQ(reads[0].handle, Access::handle(*other));
    const auto* const object = reinterpret_cast<const unsigned char*>(other.get());
    EXPECT_TRUE(reads[0].buffer > object && reads[0].buffer + 32768 <= object + sizeof(UsbDevice)) << "its own buffer";
}

TEST(UsbDeviceTransfers, addedData_goesOutOnTheAddingThread)
{
    OpenRig rig;
    rig.add(5, {'a', 'b', 'c'});
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("submit 1-4 0x02"));
}

TEST(UsbDeviceTransfers, sendNextPacket_doesNothingBeforeTheOpen)
{
    DeviceRig rig;
    rig.add(5, {1});
    rig.device->sendNextPacket();
    rig.device->recvNextPacket();
    EXPECT_THAT(rig.usb.takeTrace(), IsEmpty());
}

TEST(UsbDeviceTransfers, sendNextPacket_doesNothingOnADeadDevice)
{
    DeviceRig rig;
    rig.open();
    rig.device->markDead();
    rig.add(5, {1});
    rig.device->sendNextPacket();
    rig.device->recvNextPacket();
    EXPECT_THAT(rig.usb.takeTrace(), IsEmpty());
}

TEST(UsbDeviceTransfers, sendNextPacket_doesNothingWhileASendIsInFlight)
{
    SendingRig rig;
    rig.add(5, {1});
    rig.device->sendNextPacket();
    rig.device->recvNextPacket(); // a read is in flight too
    EXPECT_THAT(rig.usb.takeTrace(), IsEmpty());
}

TEST(UsbDeviceTransfers, sendNextPacket_doesNothingWithoutData)
{
    OpenRig rig;
    rig.device->sendNextPacket();
    EXPECT_THAT(rig.usb.takeTrace(), IsEmpty());
}

TEST(UsbDeviceTransfers, completedSend_countsItsBytesAndDropsThePacket)
{
    SendingRig rig;
    rig.finishSend(completed, 14);
    EXPECT_EQ(rig.device->getSentData(), 14u);
    EXPECT_EQ(rig.device->getPacker().getPacketCount(), 0u);
    rig.poll();
    EXPECT_THAT(rig.sends(), IsEmpty());
}

TEST(UsbDeviceTransfers, partlyAcceptedSend_countsWhatWasTakenAndDropsTheRest)
{
    SendingRig rig;
    rig.finishSend(completed, 5);
    EXPECT_EQ(rig.device->getSentData(), 5u);
    rig.poll();
    EXPECT_THAT(rig.sends(), IsEmpty());
}

TEST(UsbDeviceTransfers, sendCompletedWithZeroBytes_isKeptAndRetriedByTheNextPoll)
{
    SendingRig rig;
    rig.finishSend(completed, 0);
    EXPECT_THAT(rig.sends(), IsEmpty()) << "nothing more waits, so nothing follows at once";
    rig.poll();
    const auto sends = rig.sends();
    ASSERT_THAT(sends, SizeIs(1));
    EXPECT_EQ(sends[0].bytes, packetOfAbc);
}

TEST(UsbDeviceTransfers, backlog_goesOutFromCompletionToCompletion)
{
    SendingRig rig;
    rig.add(6, Bytes(1080));
    rig.add(5, Bytes(1080));
    rig.finishSend();
    EXPECT_THAT(rig.sends(), SizeIs(1)) << "the next one, without a poll";
    rig.finishSend();
    EXPECT_THAT(rig.sends(), SizeIs(1));
    rig.finishSend();
    EXPECT_THAT(rig.sends(), IsEmpty());
    EXPECT_EQ(rig.device->getSentData(), 14u + 1091u + 1091u);
}

TEST(UsbDeviceTransfers, sendThatTimesOut_isSilentKeptAndRetriedByTheNextPoll)
{
    SendingRig rig;
    EXPECT_EQ(rig.logged(4, [&] { rig.finishSend(timedOut, 0); }), "");
    EXPECT_THAT(rig.sends(), IsEmpty());
    EXPECT_TRUE(rig.device->isAlive());
    // Nothing new can be added to the packet, and still it goes out again.
    EXPECT_FALSE(rig.device->getPacker().hasMoreData());
    rig.poll();
    const auto sends = rig.sends();
    ASSERT_THAT(sends, SizeIs(1));
    EXPECT_EQ(sends[0].bytes, packetOfAbc);
    rig.finishSend();
    EXPECT_EQ(rig.device->getSentData(), 14u);
}

TEST(UsbDeviceTransfers, sendThatTimesOutHalfWay_isNotCounted)
{
    SendingRig rig;
    rig.finishSend(timedOut, 7);
    EXPECT_EQ(rig.device->getSentData(), 0u);
    rig.poll();
    ASSERT_THAT(rig.sends(), SizeIs(1));
}

TEST(UsbDeviceTransfers, sendThatTimesOutWithMoreWaiting_isRetriedByThePollAlone)
{
    SendingRig rig;
    rig.add(5, {'d'});
    rig.finishSend(timedOut, 0);
    EXPECT_THAT(rig.sends(), IsEmpty());
    rig.poll();
    const auto sends = rig.sends();
    ASSERT_THAT(sends, SizeIs(1));
    const Bytes both = {18, 0, 2, 0, 0, 0, 0, 0, 5, 3, 0, 'a', 'b', 'c', 5, 1, 0, 'd'};
    EXPECT_EQ(sends[0].bytes, both) << "the kept packet is filled up";
}

TEST(UsbDeviceTransfers, keptPacketThatIsFull_goesOutAgainThoughNothingFits)
{
    OpenRig rig;
    rig.add(5, Bytes(1089)); // 1100 bytes: full
    rig.add(5, {'d'});
    rig.sends();
    rig.finishSend(timedOut, 0);
    rig.poll();
    const auto sends = rig.sends();
    ASSERT_THAT(sends, SizeIs(1));
    EXPECT_EQ(sends[0].length, 1100);
}

TEST(UsbDeviceTransfers, sentBytes_wrapAtTwoToTheThirtyTwo)
{
    OpenRig rig;
    for (const int taken : {0x7fffffff, 0x7fffffff, 5}) {
        rig.add(5, {'a'});
        rig.finishSend(completed, taken);
    }
    EXPECT_EQ(rig.device->getSentData(), 3u); // 2 * (2^31 - 1) + 5 - 2^32
}

TEST(UsbDeviceTransfers, sendLog_isPrintedAtLevelFive)
{
    for (const int level : {5, 4}) {
        SendingRig rig;
        EXPECT_EQ(rig.logged(level, [&] { rig.finishSend(completed, 14); }),
                  level >= 5 ? "[libusb] onSentMessage size=14 status=0\n" : "");
    }
}

// Reads.

TEST(UsbDeviceTransfers, receivedBytes_becomeAMessageOfTheDevicesUid)
{
    OpenRig rig;
    rig.usb.receive(rig.panel, {9, 8, 7});
    rig.deliver();
    ASSERT_EQ(rig.queue->size(), 1);
    const auto message = rig.queue->getMessage();
    EXPECT_EQ(message->id, 0x104);
    ASSERT_EQ(message->size, 3);
    EXPECT_EQ(Bytes(message->data, message->data + 3), (Bytes{9, 8, 7}));
    EXPECT_EQ(rig.device->getReceivedData(), 3u);
    EXPECT_THAT(rig.reads(), SizeIs(1)) << "armed again at once";
}

TEST(UsbDeviceTransfers, emptyRead_makesNoMessageAndIsArmedAgain)
{
    OpenRig rig;
    rig.finishRead(completed, 0);
    EXPECT_EQ(rig.queue->size(), 0);
    EXPECT_THAT(rig.reads(), SizeIs(1));
}

TEST(UsbDeviceTransfers, readOfTheWholeBuffer_isDeliveredWhole)
{
    OpenRig rig;
    rig.usb.receive(rig.panel, Bytes(32768, 0x5a));
    rig.deliver();
    const auto message = rig.queue->getMessage();
    ASSERT_EQ(message->size, 32768);
    EXPECT_EQ(message->data[32767], 0x5a);
    EXPECT_EQ(rig.device->getReceivedData(), 32768u);
}

TEST(UsbDeviceTransfers, readBeyondTheBuffer_isCutToIt)
{
    OpenRig rig;
    rig.finishRead(completed, 32769);
    EXPECT_EQ(rig.queue->getMessage()->size, 32768);
    EXPECT_EQ(rig.device->getReceivedData(), 32768u);
}

TEST(UsbDeviceTransfers, readThatTimesOut_isSilentAndArmedAgain)
{
    OpenRig rig;
    EXPECT_EQ(rig.logged(4, [&] { rig.finishRead(timedOut, 0); }), "");
    EXPECT_THAT(rig.reads(), SizeIs(1));
    EXPECT_EQ(rig.queue->size(), 0);
}

TEST(UsbDeviceTransfers, readThatTimesOutWithBytes_deliversNone)
{
    OpenRig rig;
    rig.finishRead(timedOut, 12);
    EXPECT_EQ(rig.queue->size(), 0);
    EXPECT_EQ(rig.device->getReceivedData(), 0u);
}

TEST(UsbDeviceTransfers, readLog_isPrintedAtLevelFive)
{
    for (const int level : {5, 4}) {
        OpenRig rig;
        const std::string text = rig.logged(level, [&] {
            rig.usb.receive(rig.panel, {1, 2});
            rig.deliver();
            rig.finishRead(timedOut, 0);
        });
        EXPECT_EQ(text, level >= 5 ? "[libusb] onRecvMessage size=2\n"
                                     "[libusb] onRecvMessage transferRxInProgress transferred=2 status=0\n"
                                     "[libusb] recvNextPacket transferring status=0\n"
                                     "[libusb] onRecvMessage size=0\n"
                                     "[libusb] recvNextPacket transferring status=0\n"
                                   : "");
    }
}

TEST(UsbDeviceTransfers, failedReadSubmissionLog_showsTheResultAtLevelFive)
{
    DeviceRig rig;
    rig.open();
    rig.usb.script("submit_transfer 0x81", LIBUSB_ERROR_PIPE);
    EXPECT_EQ(rig.logged(5, [&] { rig.device->recvNextPacket(); }),
              "[libusb] recvNextPacket transferring status=-9\n[libusb] RX LIBUSB_ERROR_PIPE\n");
}

// Completion statuses.

TEST(UsbDeviceTransfers, sendStatus_hasTheStatedLineAndConsequence)
{
    const struct {
        int status;
        int level;
        const char* line;
        bool dies;
        bool clearsHalt;
    } rows[] = {
        {LIBUSB_TRANSFER_COMPLETED, 5, "", false, false},
        {LIBUSB_TRANSFER_TIMED_OUT, 5, "", false, false},
        {LIBUSB_TRANSFER_CANCELLED, 5, "", false, false},
        {LIBUSB_TRANSFER_ERROR, 2, "[libusb] TX LIBUSB_ERROR uid=104 size=14 actual=6\n", true, false},
        {LIBUSB_TRANSFER_STALL, 2, "[libusb] TX Transfer stalled uid=104\n", false, true},
        {LIBUSB_TRANSFER_NO_DEVICE, 2, "[libusb] TX LIBUSB_ERROR_NO_DEVICE uid=104!\n", true, false},
        {LIBUSB_TRANSFER_OVERFLOW, 2, "[libusb] TX LIBUSB_TRANSFER_OVERFLOW! uid=104\n", false, false},
        // The last value that the enumeration can hold.
        {7, 2, "[libusb] TX Unknown error=7!!\n", false, false},
    };
    for (const auto& row : rows) {
        for (const int level : {row.level, row.level - 1}) {
            SCOPED_TRACE("status " + std::to_string(row.status) + " level " + std::to_string(level));
            SendingRig rig;
            std::string text = rig.logged(level, [&] { rig.finishSend(row.status, 6); });
            if (level == 5)
                text = LogCapture::replaced(
                    text, "[libusb] onSentMessage size=6 status=" + std::to_string(row.status) + "\n", "");
            EXPECT_EQ(text, level >= row.level ? row.line : "");
            EXPECT_EQ(rig.device->isAlive(), !row.dies);
            EXPECT_THAT(rig.usb.takeTrace(), row.clearsHalt ? Trace{"clear-halt 1-4 0x00"} : Trace{});
            EXPECT_EQ(rig.device->getSentData(), row.status == LIBUSB_TRANSFER_COMPLETED ? 6u : 0u);
            rig.poll();
            const bool again = !row.dies && row.status != LIBUSB_TRANSFER_COMPLETED;
            EXPECT_EQ(rig.sends().size(), again ? 1u : 0u) << "retried by the next poll";
        }
    }
}

TEST(UsbDeviceTransfers, readStatus_hasTheStatedLineAndIsArmedAgain)
{
    const struct {
        int status;
        int level;
        const char* line;
        bool clearsHalt;
    } rows[] = {
        {LIBUSB_TRANSFER_COMPLETED, 4, "", false},
        {LIBUSB_TRANSFER_TIMED_OUT, 4, "", false},
        {LIBUSB_TRANSFER_CANCELLED, 4, "", false},
        {LIBUSB_TRANSFER_ERROR, 4, "[libusb] RX LIBUSB_ERROR uid=104\n", false},
        {LIBUSB_TRANSFER_STALL, 2, "[libusb] RX Transfer stalled uid=104\n", true},
        {LIBUSB_TRANSFER_NO_DEVICE, 2, "[libusb] RX LIBUSB_ERROR_NO_DEVICE uid=104!\n", false},
        {LIBUSB_TRANSFER_OVERFLOW, 2, "[libusb] RX LIBUSB_TRANSFER_OVERFLOW! uid=104\n", false},
        {7, 2, "[libusb] RX Unknown error=7!!\n", false},
    };
    for (const auto& row : rows) {
        for (const int level : {row.level, row.level - 1}) {
            SCOPED_TRACE("status " + std::to_string(row.status) + " level " + std::to_string(level));
            OpenRig rig;
            EXPECT_EQ(rig.logged(level, [&] { rig.finishRead(row.status, 0); }), level >= row.level ? row.line : "");
            EXPECT_TRUE(rig.device->isAlive()) << "no read status kills";
            EXPECT_THAT(rig.usb.takeTrace(),
                        row.clearsHalt ? (Trace{"clear-halt 1-4 0x00", "submit 1-4 0x81"}) : Trace{"submit 1-4 0x81"});
        }
    }
}

TEST(UsbDeviceTransfers, deadlySendStatus_killsWhateverTheLevel)
{
    for (const int status : {LIBUSB_TRANSFER_ERROR, LIBUSB_TRANSFER_NO_DEVICE}) {
        SendingRig rig;
        EXPECT_EQ(rig.logged(0, [&] { rig.finishSend(status, 0); }), "");
        EXPECT_FALSE(rig.device->isAlive());
    }
}

TEST(UsbDeviceTransfers, vanishedPanel_isKilledByTheReadThatCannotBeArmedAgain)
{
    OpenRig rig;
    rig.usb.vanish(rig.panel);
    EXPECT_EQ(rig.logged(2, [&] { rig.finishRead(LIBUSB_TRANSFER_NO_DEVICE, 0); }),
              "[libusb] RX LIBUSB_ERROR_NO_DEVICE uid=104!\n[libusb] RX LIBUSB_ERROR_NO_DEVICE\n");
    EXPECT_FALSE(rig.device->isAlive());
}

// Submission errors.

namespace {

const struct {
    int code;
    const char* text;
    bool dies;
} submitErrors[] = {
    {-1, "LIBUSB_ERROR_IO", true},        {-2, "LIBUSB_ERROR_INVALID_PARAM", false},
    {-3, "LIBUSB_ERROR_ACCESS", false},   {-4, "LIBUSB_ERROR_NO_DEVICE", true},
    {-5, "LIBUSB_ERROR_NOT_FOUND", true}, {-6, "LIBUSB_ERROR_BUSY", false},
    {-7, "LIBUSB_ERROR_TIMEOUT", false},  {-8, "LIBUSB_ERROR_OVERFLOW", false},
    {-9, "LIBUSB_ERROR_PIPE", false},     {-10, "LIBUSB_ERROR_INTERRUPTED", false},
    {-11, "LIBUSB_ERROR_NO_MEM", false},  {-12, "LIBUSB_ERROR_NOT_SUPPORTED", false},
    {-13, "Unknown error=-13!!", false},  {-99, "Unknown error=-99!!", false},
    {1, "Unknown error=1!!", false},
};

} // namespace

TEST(UsbDeviceTransfers, sendSubmissionError_hasTheStatedLineAndConsequence)
{
    for (const auto& row : submitErrors) {
        for (const int level : {2, 1}) {
            SCOPED_TRACE(row.code);
            OpenRig rig;
            rig.usb.script("submit_transfer 0x02", row.code);
            EXPECT_EQ(rig.logged(level,
                                 [&] {
                                     rig.add(5, {'a', 'b', 'c'});
                                 }),
                      level >= 2 ? std::string("[libusb] TX ") + row.text + "\n" : "");
            EXPECT_EQ(rig.device->isAlive(), !row.dies);
            EXPECT_THAT(rig.sends(), IsEmpty());
            rig.poll();
            const auto sends = rig.sends();
            ASSERT_EQ(sends.size(), row.dies ? 0u : 1u) << "the next poll tries again";
            if (!row.dies) {
                EXPECT_EQ(sends[0].bytes, packetOfAbc);
            }
        }
    }
}

TEST(UsbDeviceTransfers, readSubmissionError_hasTheStatedLineAndConsequence)
{
    for (const auto& row : submitErrors) {
        for (const int level : {2, 1}) {
            SCOPED_TRACE(row.code);
            DeviceRig rig;
            rig.open();
            rig.usb.script("submit_transfer 0x81", row.code);
            EXPECT_EQ(rig.logged(level, [&] { rig.poll(); }),
                      level >= 2 ? std::string("[libusb] RX ") + row.text + "\n" : "");
            EXPECT_EQ(rig.device->isAlive(), !row.dies);
            EXPECT_THAT(rig.reads(), IsEmpty());
            rig.poll();
            EXPECT_EQ(rig.reads().size(), row.dies ? 0u : 1u) << "the next poll tries again";
        }
    }
}

TEST(UsbDeviceTransfers, submissionSuccess_hasNoLine)
{
    OpenRig rig;
    EXPECT_EQ(rig.logged(5,
                         [&] {
                             rig.device->handleTransferTxStatus(0);
                             rig.device->handleTransferRxStatus(0);
                         }),
              "");
    EXPECT_TRUE(rig.device->isAlive());
}

// poll

TEST(UsbDeviceTransfers, poll_armsTheReadAndThenTheSend)
{
    DeviceRig rig;
    rig.add(5, {1}); // before the open: it waits
    rig.open();
    rig.poll();
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("submit 1-4 0x81", "submit 1-4 0x02"));
}

TEST(UsbDeviceTransfers, poll_doesNothingBeforeTheOpen)
{
    DeviceRig rig;
    rig.poll(10s);
    EXPECT_THAT(rig.usb.takeTrace(), IsEmpty());
    EXPECT_FALSE(rig.device->getPacker().hasMoreData()) << "no device-information request";
}

TEST(UsbDeviceTransfers, poll_doesNothingOnADeadDevice)
{
    SendingRig rig;
    rig.device->startFirmwareUpgrade("/nonexistent", "/nonexistent", nullptr);
    EXPECT_THAT(rig.log.take(), testing::HasSubstr("Error opening file"));
    rig.device->markDead();
    rig.poll(10s);
    EXPECT_EQ(rig.usb.takeTrace(), Trace{}) << "no transfer, no watchdog";
    EXPECT_TRUE(Access::cancelPending(*rig.device));
    rig.poll(10s);
    EXPECT_TRUE(rig.device->isUpdating()) << "no firmware step either";
}

TEST(UsbDeviceTransfers, pendingCancel_cancelsTheReadThenTheSendOnce)
{
    // As if poll ran between the two stores of markDead.
    SendingRig rig;
    rig.usb.ignoreCancel(true);
    Access::cancelPending(*rig.device) = true;
    rig.poll();
    EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("cancel 1-4 0x81", "cancel 1-4 0x02"));
    EXPECT_FALSE(Access::cancelPending(*rig.device));
    rig.poll();
    EXPECT_THAT(rig.usb.takeTrace(), IsEmpty());
    rig.usb.ignoreCancel(false);
}

TEST(UsbDeviceTransfers, deviceThatDiesInThePollsSend_isPolledToTheEnd)
{
    DeviceRig rig;
    rig.add(5, {1}); // before the open: it waits
    rig.open();
    rig.device->startFirmwareUpgrade("/nonexistent", "/nonexistent", nullptr);
    EXPECT_THAT(rig.log.take(), testing::HasSubstr("Error opening file"));
    rig.usb.script("submit_transfer 0x02", LIBUSB_ERROR_IO);
    EXPECT_EQ(rig.logged(2, [&] { rig.poll(2s + 1ns); }), "[libusb] TX LIBUSB_ERROR_IO\n");
    EXPECT_FALSE(rig.device->isAlive());
    EXPECT_THAT(rig.usb.takeTrace(),
                ElementsAre("submit 1-4 0x81", "submit 1-4 0x02", "cancel 1-4 0x81", "cancel unused"));
    EXPECT_FALSE(Access::cancelPending(*rig.device));
    EXPECT_TRUE(rig.device->getPacker().hasMoreData()) << "the device-information request";
    EXPECT_FALSE(rig.device->isUpdating()) << "the firmware step: with two empty images it is the last";
}

// Device-information requests.

TEST(UsbDeviceTransfers, informationRequest_isSentMoreThanTwoSecondsAfterConstruction)
{
    OpenRig rig;
    rig.poll(2s);
    EXPECT_THAT(rig.sends(), IsEmpty()) << "at the limit";
    rig.poll(1ns);
    const auto sends = rig.sends();
    ASSERT_THAT(sends, SizeIs(1));
    EXPECT_EQ(sends[0].bytes, packetOfInfoRequest);
}

TEST(UsbDeviceTransfers, informationRequest_isRepeatedUntilTheInformationComes)
{
    OpenRig rig;
    rig.poll(2s);
    for (int i = 0; i < 3; ++i) {
        rig.poll(1ns);
        const auto sends = rig.sends();
        ASSERT_THAT(sends, SizeIs(1));
        EXPECT_EQ(sends[0].bytes, packetOfInfoRequest);
        rig.finishSend();
        rig.finishRead(timedOut, 0);
        rig.poll(2s);
        EXPECT_THAT(rig.sends(), IsEmpty()) << "at the limit";
    }
    rig.device->setDeviceInfo(DeviceInformation{});
    rig.poll(3s);
    EXPECT_THAT(rig.sends(), IsEmpty());
}

TEST(UsbDeviceTransfers, informationRequestsWithoutASend_pileUp)
{
    SendingRig rig; // the send does not end
    rig.poll(2s + 1ns);
    rig.poll(2s + 1ns);
    rig.finishSend();
    const auto sends = rig.sends();
    ASSERT_THAT(sends, SizeIs(1));
    const Bytes two = {22, 0, 2, 0, 0, 0, 0, 0, 1, 4, 0, 1, 0, 0, 0, 1, 4, 0, 1, 0, 0, 0};
    EXPECT_EQ(sends[0].bytes, two);
}

// Watchdogs.

TEST(UsbDeviceTransfers, sendWatchdog_firesMoreThanFiveSecondsAfterTheSubmission)
{
    for (const int level : {2, 1}) {
        SendingRig rig;
        rig.device->setDeviceInfo(DeviceInformation{});
        VirtualClock::advance(3s);
        rig.finishRead(timedOut, 0); // only the send is old
        rig.poll(2s);
        EXPECT_THAT(rig.usb.takeTrace(), Not(Contains("cancel 1-4 0x02"))) << "at the limit";
        EXPECT_EQ(rig.logged(level, [&] { rig.poll(1ns); }), level >= 2 ? "[libusb] Tx timeout dev=104\n" : "");
        EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("cancel 1-4 0x02"));
        EXPECT_TRUE(rig.device->isAlive());
        rig.poll(); // the cancelled one comes back first
        const auto sends = rig.sends();
        ASSERT_THAT(sends, SizeIs(1));
        EXPECT_EQ(sends[0].bytes, packetOfAbc) << "retried by the next poll";
    }
}

TEST(UsbDeviceTransfers, sendWatchdog_retryIsBusyWhileTheCancelledSendIsOutstanding)
{
    SendingRig rig;
    rig.device->setDeviceInfo(DeviceInformation{});
    rig.usb.ignoreCancel(true);
    VirtualClock::advance(3s);
    rig.finishRead(timedOut, 0);
    EXPECT_EQ(rig.logged(2, [&] { rig.poll(2s + 1ns); }), "[libusb] Tx timeout dev=104\n");
    EXPECT_EQ(rig.logged(2, [&] { rig.poll(); }), "[libusb] TX LIBUSB_ERROR_BUSY\n");
    EXPECT_TRUE(rig.device->isAlive());
    rig.finishSend(completed, 14); // comes late
    EXPECT_EQ(rig.device->getSentData(), 0u) << "a late completion is not counted";
    rig.poll();
    EXPECT_THAT(rig.sends(), SizeIs(1)) << "and the packet is still there";
    rig.usb.ignoreCancel(false);
}

TEST(UsbDeviceTransfers, readWatchdog_firesMoreThanFiveSecondsAfterTheSubmissionAndArmsAgain)
{
    for (const int level : {2, 1}) {
        OpenRig rig;
        rig.device->setDeviceInfo(DeviceInformation{});
        rig.poll(5s);
        EXPECT_THAT(rig.usb.takeTrace(), IsEmpty()) << "at the limit";
        EXPECT_EQ(rig.logged(level, [&] { rig.poll(1ns); }),
                  level >= 2 ? "[libusb] Rx timeout dev=104\n[libusb] RX LIBUSB_ERROR_BUSY\n" : "");
        EXPECT_THAT(rig.usb.takeTrace(), ElementsAre("cancel 1-4 0x81", "submit 1-4 0x81"));
        EXPECT_TRUE(rig.device->isAlive());
        rig.deliver();
        EXPECT_THAT(rig.reads(), SizeIs(1)) << "armed by the cancelled one's completion";
    }
}

TEST(UsbDeviceTransfers, readWatchdog_lateCompletionDeliversNothing)
{
    OpenRig rig;
    rig.device->setDeviceInfo(DeviceInformation{});
    rig.usb.ignoreCancel(true);
    EXPECT_EQ(rig.logged(2, [&] { rig.poll(5s + 1ns); }),
              "[libusb] Rx timeout dev=104\n[libusb] RX LIBUSB_ERROR_BUSY\n");
    rig.usb.receive(rig.panel, {1, 2, 3});
    rig.deliver();
    EXPECT_EQ(rig.queue->size(), 0);
    EXPECT_EQ(rig.device->getReceivedData(), 0u);
    EXPECT_THAT(rig.reads(), SizeIs(1));
    rig.usb.ignoreCancel(false);
}

TEST(UsbDeviceTransfers, watchdogs_countFromTheLatestSubmission)
{
    OpenRig rig;
    rig.device->setDeviceInfo(DeviceInformation{});
    for (int i = 0; i < 5; ++i) {
        VirtualClock::advance(2s);
        rig.finishRead(timedOut, 0);
        rig.add(5, {1});
        rig.finishSend();
        rig.poll();
    }
    EXPECT_THAT(rig.usb.takeTrace(), Each(testing::StartsWith("submit")));
}

TEST(UsbDeviceTransfers, silentPanel_isReadEveryTwoSecondsAndAskedForItsInformation)
{
    DeviceRig rig;
    rig.usb.honourTimeouts(true);
    rig.open();
    unsigned int requests = 0;
    for (int i = 0; i < 100; ++i) { // 10 s in steps of 0.1 s
        rig.poll(100ms);
        if (!rig.sends().empty()) {
            ++requests;
            rig.finishSend();
        }
        std::array<timeval, 1> noTime{};
        libusb_handle_events_timeout_completed(rig.context, noTime.data(), nullptr);
    }
    EXPECT_EQ(rig.reads().size(), 5u); // at 0.1, 2.1, 4.1, 6.1 and 8.1 s
    EXPECT_EQ(requests, 4u);           // at 2.1, 4.2, 6.3 and 8.4 s
    EXPECT_TRUE(rig.device->isAlive());
}

} // namespace Vantor::Test
