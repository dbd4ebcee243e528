// What one device counts.
#include "tests/support/DeviceRig.h"
#include "tests/support/Meeting.h"

#include "libMorvaneHostUsb/ClientLcdBitmap.h"

#include <atomic>
#include <future>
#include <numeric>
#include <utility>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace Vantor::Test {

namespace {

constexpr std::uint8_t highPriority = 6;
constexpr std::uint8_t normal = 5;

// A device with a read in flight and nothing else.
class CountingRig : public DeviceRig {
public:
    CountingRig()
    {
        open();
        poll();
        reads();
    }

    DeviceStatistics statistics() const { return device->getStatistics(); }

    void set(std::uint8_t type, unsigned int key, const Bytes& payload)
    {
        device->getPacker().addStructData(payload.data(), static_cast<unsigned int>(payload.size()),
                                          static_cast<PacketType>(type), key);
    }
};

std::uint64_t sumOf(const decltype(DeviceStatistics::timesToTaken)& times)
{
    return std::accumulate(times.begin(), times.end(), std::uint64_t{0});
}

// Of all places but this one.
std::uint64_t elsewhere(const DeviceStatistics& statistics, std::size_t place)
{
    return sumOf(statistics.timesToTaken) - statistics.timesToTaken[place];
}

using FailureCount = std::uint64_t TransferFailures::*;

constexpr std::pair<int, FailureCount> statusCounts[] = {
    {LIBUSB_TRANSFER_TIMED_OUT, &TransferFailures::timedOut},  {LIBUSB_TRANSFER_STALL, &TransferFailures::stalled},
    {LIBUSB_TRANSFER_OVERFLOW, &TransferFailures::overflowed}, {LIBUSB_TRANSFER_ERROR, &TransferFailures::failed},
    {LIBUSB_TRANSFER_CANCELLED, &TransferFailures::cancelled}, {LIBUSB_TRANSFER_NO_DEVICE, &TransferFailures::gone},
};

void expectOnly(TransferFailures failures, FailureCount count, std::uint64_t lostBytes)
{
    EXPECT_EQ(std::exchange(failures.*count, 0), 1U);
    EXPECT_EQ(failures.lostBytes, lostBytes);
    EXPECT_EQ(failures.timedOut + failures.stalled + failures.overflowed + failures.failed + failures.cancelled +
                  failures.gone + failures.refused + failures.watchdogs + failures.late,
              0U);
}

} // namespace

TEST(UsbDeviceStatistics, newDevice_hasCountedNothing)
{
    const CountingRig rig;
    const DeviceStatistics statistics = rig.statistics();
    EXPECT_EQ(statistics.sent.packets, 0U);
    EXPECT_EQ(statistics.sent.failures.refused, 0U);
    EXPECT_EQ(statistics.received.buffers, 0U);
    EXPECT_EQ(statistics.highPriorityRecords.most, 0U);
    EXPECT_EQ(sumOf(statistics.timesToTaken), 0U);
}

TEST(UsbDeviceStatistics, recordsOnTheirWay_areCountedWhereTheyAre)
{
    CountingRig rig;
    rig.add(normal, {'a'}); // under way at once
    rig.add(normal, {'b'});
    rig.add(highPriority, {'c', 'd'});
    rig.add(normal, {'e'});
    DeviceStatistics statistics = rig.statistics();
    EXPECT_EQ(statistics.highPriorityRecords.now, 1U);
    EXPECT_EQ(statistics.normalRecords.now, 2U);
    EXPECT_EQ(statistics.sent.packets, 0U);

    rig.finishSend(); // the first packet: 8 + 3 + 1 bytes
    statistics = rig.statistics();
    EXPECT_EQ(statistics.sent.packets, 1U);
    EXPECT_EQ(statistics.sent.records, 1U);
    EXPECT_EQ(statistics.sent.bytes, 12U);
    EXPECT_EQ(statistics.highPriorityRecords.now, 0U);
    EXPECT_EQ(statistics.normalRecords.now, 0U);

    rig.finishSend(); // the other three: 8 + 3 + 2 + 3 + 1 + 3 + 1
    statistics = rig.statistics();
    EXPECT_EQ(statistics.sent.packets, 2U);
    EXPECT_EQ(statistics.sent.records, 4U);
    EXPECT_EQ(statistics.sent.bytes, 12U + 21U);
    EXPECT_EQ(statistics.highPriorityRecords.most, 1U);
    EXPECT_EQ(statistics.normalRecords.most, 2U);
    EXPECT_EQ(sumOf(statistics.timesToTaken), 4U);
}

TEST(UsbDeviceStatistics, keyedValues_supersededAndDuplicatesAreCounted)
{
    CountingRig rig;
    rig.add(normal, {'x'}); // keeps the link busy
    rig.set(normal, 1, {'a'});
    rig.set(normal, 1, {'b'}); // another value
    rig.set(normal, 1, {'b'}); // the same
    rig.set(normal, 2, {'b'}); // another key
    rig.set(highPriority, 1, {'b'});
    rig.set(highPriority, 1, {'b'});
    rig.set(8, 1, {'b'});
    rig.set(8, 1, {'b'});  // a type of which every write counts
    rig.set(47, 1, {'b'}); // a type that is not kept
    const DeviceStatistics statistics = rig.statistics();
    EXPECT_EQ(statistics.sent.supersededValues, 2U);
    EXPECT_EQ(statistics.sent.duplicates, 2U);
    EXPECT_EQ(statistics.normalRecords.now, 2U);
    EXPECT_EQ(statistics.highPriorityRecords.now, 2U);
    rig.finishSend();
    rig.finishSend();
    EXPECT_EQ(rig.statistics().sent.records, 1U + 4U);
    EXPECT_EQ(sumOf(rig.statistics().timesToTaken), 5U);
}

TEST(UsbDeviceStatistics, packetTakenInPart_isCutWithItsRecords)
{
    CountingRig rig;
    rig.add(normal, {'a', 'b', 'c'});
    rig.finishSend(LIBUSB_TRANSFER_COMPLETED, 9);
    const DeviceStatistics statistics = rig.statistics();
    EXPECT_EQ(statistics.sent.packets, 0U);
    EXPECT_EQ(statistics.sent.records, 0U);
    EXPECT_EQ(statistics.sent.bytes, 9U);
    EXPECT_EQ(statistics.sent.cutPackets, 1U);
    EXPECT_EQ(statistics.sent.cutRecords, 1U);
    EXPECT_EQ(sumOf(statistics.timesToTaken), 0U) << "its records were not taken";
}

TEST(UsbDeviceStatistics, sendWithoutAByteTaken_isSentAgainAndCountedOnce)
{
    CountingRig rig;
    rig.add(normal, {'a'});
    rig.finishSend(LIBUSB_TRANSFER_COMPLETED, 0);
    EXPECT_EQ(rig.statistics().sent.emptySends, 1U);
    EXPECT_EQ(rig.statistics().sent.packets, 0U);
    rig.poll();
    rig.finishSend();
    EXPECT_EQ(rig.statistics().sent.emptySends, 1U);
    EXPECT_EQ(rig.statistics().sent.packets, 1U);
    EXPECT_EQ(rig.statistics().sent.records, 1U);
}

TEST(UsbDeviceStatistics, everyStatusOfASend_hasItsCount)
{
    for (const auto& [status, count] : statusCounts) {
        SCOPED_TRACE(status);
        CountingRig rig;
        rig.add(normal, {'a'});
        rig.finishSend(status, 7);
        rig.log.take();
        expectOnly(rig.statistics().sent.failures, count, 7);
        EXPECT_EQ(rig.statistics().sent.packets, 0U);
        EXPECT_EQ(rig.statistics().sent.bytes, 0U);
        EXPECT_EQ(rig.statistics().received.failures.lostBytes, 0U);
    }
}

TEST(UsbDeviceStatistics, everyStatusOfARead_hasItsCount)
{
    for (const auto& [status, count] : statusCounts) {
        SCOPED_TRACE(status);
        CountingRig rig;
        rig.finishRead(status, 5);
        rig.log.take();
        expectOnly(rig.statistics().received.failures, count, 5);
        EXPECT_EQ(rig.statistics().received.bytes, 0U);
        EXPECT_EQ(rig.statistics().sent.failures.lostBytes, 0U);
    }
}

TEST(UsbDeviceStatistics, reads_areCountedByWhatTheyBring)
{
    CountingRig rig;
    rig.usb.receive(rig.panel, Bytes(100, 0));
    rig.deliver();
    rig.finishRead(LIBUSB_TRANSFER_COMPLETED, 0);
    rig.usb.receive(rig.panel, Bytes(3, 0));
    rig.deliver();
    const ReceiveStatistics received = rig.statistics().received;
    EXPECT_EQ(received.buffers, 2U);
    EXPECT_EQ(received.bytes, 103U);
    EXPECT_EQ(received.emptyReads, 1U);
    EXPECT_EQ(received.packets, 0U) << "nobody has parsed them";
}

TEST(UsbDeviceStatistics, watchdogs_areCountedAndWhatComesLaterIsLate)
{
    CountingRig rig;
    rig.usb.ignoreCancel(true);
    rig.add(normal, {'a'});
    rig.poll(5s + 1ns);
    rig.log.take();
    EXPECT_EQ(rig.statistics().sent.failures.watchdogs, 1U);
    EXPECT_EQ(rig.statistics().received.failures.watchdogs, 1U);
    rig.finishSend();
    const TransferFailures failures = rig.statistics().sent.failures;
    EXPECT_EQ(failures.late, 1U);
    EXPECT_EQ(failures.lostBytes, 12U);
    EXPECT_EQ(failures.cancelled, 0U);
    EXPECT_EQ(rig.statistics().sent.packets, 0U) << "it is sent again";
    rig.usb.ignoreCancel(false);
}

TEST(UsbDeviceStatistics, refusedTransfers_areCountedEachWay)
{
    CountingRig rig;
    rig.usb.script("submit_transfer 0x02", LIBUSB_ERROR_BUSY);
    rig.add(normal, {'a'});
    rig.usb.script("submit_transfer 0x81", LIBUSB_ERROR_BUSY);
    rig.finishRead(LIBUSB_TRANSFER_COMPLETED, 0);
    rig.log.take();
    EXPECT_EQ(rig.statistics().sent.failures.refused, 1U);
    EXPECT_EQ(rig.statistics().received.failures.refused, 1U);
    EXPECT_TRUE(rig.device->isAlive());
}

TEST(UsbDeviceStatistics, pictures_areCountedBySliceAndWhole)
{
    CountingRig rig;
    rig.add(normal, {'x'});
    // 16 x 4 pixels of 8 bits in one slice.
    const ClientLcdBitmap small(16, 4, 8);
    ClientLcdBitmap other(16, 4, 8);
    other.lcd = 1;
    // Covered before anything of it has left.
    rig.device->getPacker().drawBitmapData(small);
    rig.device->getPacker().drawBitmapData(small);
    rig.device->getPacker().drawBitmapData(other);
    DeviceStatistics statistics = rig.statistics();
    EXPECT_EQ(statistics.pictures.now, 2U);
    EXPECT_EQ(statistics.pictures.most, 2U);
    EXPECT_EQ(statistics.sent.coveredPictures, 1U);
    rig.finishSend();
    statistics = rig.statistics();
    EXPECT_EQ(statistics.pictures.now, 0U) << "in the packet";
    EXPECT_EQ(statistics.sent.pictures, 0U);
    rig.finishSend(LIBUSB_TRANSFER_COMPLETED, 20); // in part
    EXPECT_EQ(rig.statistics().sent.slices, 0U);
    EXPECT_EQ(rig.statistics().sent.cutRecords, 2U);
    EXPECT_EQ(rig.statistics().sent.pictures, 0U);

    rig.device->getPacker().drawBitmapData(other);
    rig.finishSend();
    statistics = rig.statistics();
    EXPECT_EQ(statistics.sent.slices, 1U);
    EXPECT_EQ(statistics.sent.pictureBytes, 64U);
    EXPECT_EQ(statistics.sent.pictures, 1U);
    EXPECT_EQ(statistics.sent.records, 2U) << "slices are records";
    EXPECT_EQ(sumOf(statistics.timesToTaken), 1U) << "but have no time";
}

// 2^9 us = 512 us is the upper end of place 9, 2^10 us of place 10.
TEST(UsbDeviceStatistics, timeOfARecordOnAnIdleLink_isExact)
{
    for (const auto& [time, place] : {std::pair<std::chrono::nanoseconds, std::size_t>{0ns, 0U},
                                      {999ns, 0U},
                                      {1us, 1U},
                                      {2us - 1ns, 1U},
                                      {2us, 2U},
                                      {511us, 9U},
                                      {512us, 10U},
                                      {1023us, 10U},
                                      {1s, 20U}}) {
        SCOPED_TRACE(time.count());
        CountingRig rig;
        rig.clock.advance(77s);
        rig.add(normal, {'a'});
        rig.clock.advance(time);
        rig.finishSend();
        EXPECT_EQ(rig.statistics().timesToTaken[place], 1U);
        EXPECT_EQ(elsewhere(rig.statistics(), place), 0U);
    }
}

TEST(UsbDeviceStatistics, timeOfARecordAfterAPause_isExact)
{
    CountingRig rig;
    rig.add(normal, {'a'});
    rig.finishSend();
    rig.clock.advance(1s);
    rig.add(normal, {'b'});
    rig.finishSend();
    rig.poll();
    rig.clock.advance(500ms); // no request for device information yet
    rig.add(normal, {'c'});
    rig.finishSend();
    EXPECT_EQ(elsewhere(rig.statistics(), 0), 0U);
}

TEST(UsbDeviceStatistics, clockSetBack_isNoTime)
{
    CountingRig rig;
    rig.add(normal, {'a'});
    rig.clock.advance(-5s);
    rig.finishSend();
    EXPECT_EQ(rig.statistics().timesToTaken[0], 1U);
}

// They count as added when the packet under way set out: 8 ms is place 13.
TEST(UsbDeviceStatistics, timeOfARecordBehindAPacket_isTooLongByThatPacketAtMost)
{
    CountingRig rig;
    rig.add(normal, {'a'});
    rig.clock.advance(5ms);
    rig.add(normal, {'b'});
    rig.finishSend(); // 5 ms: place 13
    rig.clock.advance(4ms);
    rig.finishSend(); // taken after 4 ms, counted as 9
    EXPECT_EQ(rig.statistics().timesToTaken[13], 1U);
    EXPECT_EQ(rig.statistics().timesToTaken[14], 1U);
}

TEST(UsbDeviceStatistics, manyRecordsBehindAPacket_haveNewTimesEvery64)
{
    CountingRig rig;
    rig.add(normal, {'a'});
    rig.clock.advance(1s);
    for (int i = 0; i < 65; ++i)
        rig.add(normal, {'b'});
    rig.finishSend(); // the first: 1 s, place 20
    rig.finishSend(); // 64 counted as added with the first packet, and one as added now
    EXPECT_EQ(rig.statistics().timesToTaken[20], 65U);
    EXPECT_EQ(rig.statistics().timesToTaken[0], 1U);
}

TEST(UsbDeviceStatistics, recordsOfSeveralTypes_keepTheirOwnTimes)
{
    CountingRig rig;
    rig.add(normal, {'a'});
    rig.add(normal, {'b'}); // too long by nothing: same moment
    rig.clock.advance(1s);
    rig.finishSend(); // 'b' sets out
    EXPECT_EQ(rig.statistics().timesToTaken[20], 1U);
    rig.add(highPriority, {'c'}); // as of now
    rig.add(46, {'d'});
    rig.add(100, {'e'}); // a type beyond those of keys
    rig.clock.advance(1ms);
    rig.finishSend(); // 'b' after 1.001 s
    rig.finishSend(); // the other three: place 10 is up to 1,024 us
    const DeviceStatistics statistics = rig.statistics();
    EXPECT_EQ(statistics.timesToTaken[20], 2U);
    EXPECT_EQ(statistics.timesToTaken[10], 3U);
    EXPECT_EQ(elsewhere(statistics, 20), 3U);
}

TEST(UsbDeviceStatistics, packetSentAgain_isTimedFromTheAdding)
{
    CountingRig rig;
    rig.add(normal, {'a'});
    rig.clock.advance(1s);
    rig.finishSend(LIBUSB_TRANSFER_TIMED_OUT, 0);
    rig.clock.advance(3s);
    rig.poll();
    rig.finishSend();
    EXPECT_EQ(rig.statistics().timesToTaken[22], 1U); // 4 s: from 2^21 to 2^22 us is 2.1 to 4.2 s
    EXPECT_EQ(elsewhere(rig.statistics(), 22), 0U);
}

TEST(UsbDeviceStatistics, whileASendIsSubmitted_canBeRead)
{
    CountingRig rig;
    const Meeting meeting(rig.usb, "submit_transfer 0x02", Meeting::Expected::Through, [&rig] {
        rig.statistics();
        rig.device->getFailure();
    });
    rig.add(normal, {'a'});
    EXPECT_TRUE(meeting.wasAsExpected());
}

// One packet is one record of 4 bytes.
TEST(UsbDeviceStatistics, whileRecordsAreTaken_isOfOneInstant)
{
    constexpr std::uint64_t records = 3000;
    CountingRig rig;
    std::atomic<bool> reading{false};
    auto reader = std::async(std::launch::async, [&rig, &reading] {
        std::uint64_t contradictions = 0;
        for (DeviceStatistics statistics; statistics.sent.packets < records;) {
            statistics = rig.statistics();
            reading = true;
            if (statistics.sent.records != statistics.sent.packets ||
                statistics.sent.bytes != 15 * statistics.sent.packets ||
                sumOf(statistics.timesToTaken) != statistics.sent.records)
                ++contradictions;
        }
        return contradictions;
    });
    while (!reading) {
    }
    for (std::uint64_t record = 0; record < records; ++record) {
        rig.add(normal, {1, 2, 3, 4});
        rig.finishSend();
    }
    EXPECT_EQ(reader.get(), 0U);
}

// What the devices before this one took of a pass does not make its send older.
TEST(UsbDeviceStatistics, sendOfALatePoll_isNoCaseForTheWatchdog)
{
    CountingRig rig;
    rig.usb.script("submit_transfer 0x02", LIBUSB_ERROR_BUSY);
    rig.add(normal, {'a'});
    rig.log.take();
    const auto passTime = VirtualClock::now();
    rig.clock.advance(6s);
    rig.device->poll(passTime);
    rig.finishRead(LIBUSB_TRANSFER_TIMED_OUT, 0);
    rig.poll(1ms);
    EXPECT_EQ(rig.statistics().sent.failures.watchdogs, 0U);
}

TEST(UsbDeviceStatistics, noErrorOfASubmission_isNotCounted)
{
    CountingRig rig;
    rig.device->handleTransferTxStatus(LIBUSB_SUCCESS);
    rig.device->handleTransferRxStatus(LIBUSB_SUCCESS);
    EXPECT_EQ(rig.statistics().sent.failures.refused, 0U);
    EXPECT_EQ(rig.statistics().received.failures.refused, 0U);
}

} // namespace Vantor::Test
