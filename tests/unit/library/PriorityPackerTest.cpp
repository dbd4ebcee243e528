#include "libMorvaneHostUsb/PriorityPacker.h"

#include "tests/support/CountingObserver.h"
#include "tests/support/PackedBytes.h"
#include "tests/support/PrivateMember.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <numeric>
#include <thread>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

namespace Vantor {

struct DataMutex {
    friend auto& reach(DataMutex, PriorityPacker& packer);
};
template struct PrivateMember<DataMutex, PriorityPacker, &PriorityPacker::m_dataMutex>;

struct ObserverMutex {
    friend auto& reach(ObserverMutex, PriorityPacker& packer);
};
template struct PrivateMember<ObserverMutex, PriorityPacker, &PriorityPacker::m_observerMutex>;

static_assert(std::is_base_of_v<PacketPacker, PriorityPacker>);

namespace {

using Records = std::vector<PackedRecord>;

constexpr int highPriorityTypes[] = {6, 8, 10, 11, 12, 24, 29, 31, 34, 35, 37, 40, 41, 44};

bool isHighPriority(int type)
{
    for (const int high : highPriorityTypes) {
        if (type == high)
            return true;
    }
    return false;
}

std::size_t queue(PriorityPacker& packer, int type, const Bytes& payload)
{
    return packer.addStructData(payload.data(), static_cast<unsigned int>(payload.size()), typeOf(type));
}

std::size_t key(PriorityPacker& packer, int type, unsigned int key, const Bytes& payload)
{
    return packer.addStructData(payload.data(), static_cast<unsigned int>(payload.size()), typeOf(type), key);
}

// The records of the next packet.
Records next(PriorityPacker& packer)
{
    packer.clearData();
    const unsigned int count = packer.prepareNextPacket();
    EXPECT_EQ(count, packer.getPacketCount());
    return recordsOf(packer);
}

DeviceInformation informationWithLimit(unsigned int limit)
{
    DeviceInformation information{};
    information.maxPacketSize = static_cast<std::uint16_t>(limit);
    return information;
}

bool isFree(std::mutex& mutex)
{
    return std::async(std::launch::async,
                      [&mutex] {
                          const std::unique_lock<std::mutex> lock(mutex, std::try_to_lock);
                          return lock.owns_lock();
                      })
        .get();
}

} // namespace

TEST(PriorityPacker, fresh_hasNothingAndPacksNothing)
{
    PriorityPacker packer(100);
    EXPECT_FALSE(packer.hasMoreData());
    EXPECT_EQ(packer.prepareNextPacket(), 0u);
    EXPECT_EQ(packetOf(packer), (Bytes{8, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(packer.getPacketSizeRemaining(), 92u);
}

TEST(PriorityPacker, record_goesOutFramed)
{
    PriorityPacker packer(100);
    queue(packer, 5, {0xAA, 0xBB});
    EXPECT_EQ(packer.getPacketCount(), 0u); // queued, not packed
    EXPECT_TRUE(packer.hasMoreData());
    EXPECT_EQ(packer.prepareNextPacket(), 1u);
    EXPECT_EQ(packetOf(packer), (Bytes{13, 0, 1, 0, 0, 0, 0, 0, 5, 2, 0, 0xAA, 0xBB}));
    EXPECT_FALSE(packer.hasMoreData());
}

TEST(PriorityPacker, type6WrittenAfterType5_isPackedFirst)
{
    PriorityPacker packer(100);
    queue(packer, 5, {5});
    queue(packer, 6, {6});
    EXPECT_EQ(next(packer), (Records{{6, {6}}, {5, {5}}}));
}

// Types 44 and 0 are the last of the high-priority and the first of the other
// types: a type goes before both, or behind both.
TEST(PriorityPacker, everyType_hasItsPriorityWhenQueued)
{
    for (int type = 0; type < 47; ++type) {
        SCOPED_TRACE(type);
        PriorityPacker packer(100);
        queue(packer, 0, {1});
        queue(packer, type, {2});
        queue(packer, 44, {3});
        EXPECT_EQ(next(packer), (isHighPriority(type) ? Records{{type, {2}}, {44, {3}}, {0, {1}}}
                                                      : Records{{44, {3}}, {0, {1}}, {type, {2}}}));
    }
}

TEST(PriorityPacker, everyType_hasItsPriorityWhenKeyed)
{
    for (int type = 0; type < 47; ++type) {
        SCOPED_TRACE(type);
        PriorityPacker packer(100);
        key(packer, 0, 1, {1});
        key(packer, type, 2, {2});
        key(packer, 44, 3, {3});
        EXPECT_EQ(next(packer), (isHighPriority(type) ? Records{{type, {2}}, {44, {3}}, {0, {1}}}
                                                      : Records{{44, {3}}, {0, {1}}, {type, {2}}}));
    }
}

TEST(PriorityPacker, queuedHighPriority_goesBeforeKeyedNormal)
{
    PriorityPacker packer(100);
    key(packer, 0, 0, {1});
    queue(packer, 44, {2});
    EXPECT_EQ(next(packer), (Records{{44, {2}}, {0, {1}}}));
}

TEST(PriorityPacker, queuedTypeOutsideTheAssigned_isSentAsNormal)
{
    PriorityPacker packer(100);
    queue(packer, 47, {1});
    queue(packer, 255, {2});
    queue(packer, -1, {3});
    queue(packer, 44, {4});
    EXPECT_EQ(next(packer), (Records{{44, {4}}, {255, {3}}, {47, {1}}, {255, {2}}}));
}

TEST(PriorityPacker, keyedTypeOutsideTheAssigned_isIgnoredAndNotified)
{
    PriorityPacker packer(100);
    CountingObserver observer;
    packer.setObserver(&observer);
    for (const int type : {47, 255, -1, 0x7FFFFFFF})
        EXPECT_EQ(key(packer, type, 1, {1, 2}), 2u);
    EXPECT_FALSE(packer.hasMoreData());
    EXPECT_EQ(packer.prepareNextPacket(), 0u);
    EXPECT_EQ(observer.m_calls, 4);
}

TEST(PriorityPacker, addStructData_returnsTheSizeGiven)
{
    PriorityPacker packer(100);
    EXPECT_EQ(queue(packer, 5, {1, 2, 3}), 3u);
    EXPECT_EQ(queue(packer, 5, {}), 0u);
    EXPECT_EQ(queue(packer, 5, Bytes(5000, 1)), 5000u); // beyond the limit
    EXPECT_EQ(key(packer, 5, 1, {1, 2, 3}), 3u);
    EXPECT_EQ(key(packer, 5, 1, {1, 2, 3}), 3u); // dropped as a duplicate
}

TEST(PriorityPacker, droppedDuplicate_isStillNotified)
{
    PriorityPacker packer(100);
    CountingObserver observer;
    packer.setObserver(&observer);
    key(packer, 5, 1, {1});
    key(packer, 5, 1, {1});
    EXPECT_EQ(observer.m_calls, 2);
    EXPECT_EQ(next(packer), (Records{{5, {1}}}));
}

TEST(PriorityPacker, nullWithoutSize_isAnEmptyRecord)
{
    PriorityPacker packer(100);
    EXPECT_EQ(packer.addStructData(nullptr, 0, typeOf(5)), 0u);
    EXPECT_EQ(packer.addStructData(nullptr, 0, typeOf(5), 1), 0u);
    EXPECT_EQ(next(packer), (Records{{5, {}}, {5, {}}}));
}

TEST(PriorityPacker, nullWithSize_isIgnored)
{
    PriorityPacker packer(100);
    EXPECT_EQ(packer.addStructData(nullptr, 4, typeOf(5)), 4u);
    EXPECT_EQ(packer.addStructData(nullptr, 4, typeOf(5), 1), 4u);
    EXPECT_FALSE(packer.hasMoreData());
}

TEST(PriorityPacker, callersMemory_isFreeOnReturn)
{
    PriorityPacker packer(100);
    Bytes payload{1, 2, 3};
    queue(packer, 5, payload);
    key(packer, 5, 1, payload);
    payload.assign(3, 0xEE);
    EXPECT_EQ(next(packer), (Records{{5, {1, 2, 3}}, {5, {1, 2, 3}}}));
}

TEST(PriorityPacker, addData_reachesTheQueueNotThePacket)
{
    PriorityPacker packer(8192);
    PacketPacker& base = packer;
    base.addData(ReqDeviceInfo{1});
    EXPECT_EQ(packer.getPacketCount(), 0u);
    EXPECT_TRUE(packer.hasMoreData());
    EXPECT_EQ(packer.prepareNextPacket(), 1u);
    EXPECT_EQ(packetOf(packer), (Bytes{15, 0, 1, 0, 0, 0, 0, 0, 1, 4, 0, 1, 0, 0, 0}));
}

TEST(PriorityPacker, firmwareRecords_areHighPriority)
{
    PriorityPacker packer(8192);
    packer.addData(ReqDeviceInfo{1});
    packer.addData(FirmwareData{});
    packer.addData(FirmwareUpgradeRequest{});
    const Records records = next(packer);
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0], (PackedRecord{41, Bytes(34, 0)}));
    EXPECT_EQ(records[1], (PackedRecord{44, Bytes(4109, 0)}));
    EXPECT_EQ(records[2], (PackedRecord{1, {1, 0, 0, 0}}));
}

TEST(PriorityPacker, recordThatDoesNotFit_isFirstInTheNextPacket)
{
    PriorityPacker packer(8 + 2 * 13);
    for (const std::uint8_t value : Bytes{1, 2, 3})
        queue(packer, 5, Bytes(10, value));
    EXPECT_EQ(next(packer), (Records{{5, Bytes(10, 1)}, {5, Bytes(10, 2)}}));
    EXPECT_TRUE(packer.hasMoreData());
    EXPECT_EQ(next(packer), (Records{{5, Bytes(10, 3)}}));
    EXPECT_FALSE(packer.hasMoreData());
}

TEST(PriorityPacker, highPriorityRecordThatDoesNotFit_holdsBackSmallerNormalOnes)
{
    PriorityPacker packer(8 + 16);
    queue(packer, 6, Bytes(10, 1));
    queue(packer, 6, Bytes(10, 2));
    queue(packer, 5, {3});
    EXPECT_EQ(next(packer), (Records{{6, Bytes(10, 1)}}));
    EXPECT_EQ(next(packer), (Records{{6, Bytes(10, 2)}}));
    EXPECT_EQ(next(packer), (Records{{5, {3}}}));
}

TEST(PriorityPacker, oversizeRecord_holdsEverythingBehindItBackForGood)
{
    PriorityPacker packer(100);
    queue(packer, 6, Bytes(90, 1)); // an empty packet has room for 89
    queue(packer, 6, {2});
    queue(packer, 5, {3});
    for (int packets = 0; packets < 3; ++packets) {
        EXPECT_EQ(next(packer), Records{});
        EXPECT_TRUE(packer.hasMoreData());
    }
}

TEST(PriorityPacker, oversizeNormalRecord_letsHighPriorityPass)
{
    PriorityPacker packer(100);
    queue(packer, 5, Bytes(90, 1));
    EXPECT_EQ(next(packer), Records{});
    queue(packer, 6, {2});
    EXPECT_EQ(next(packer), (Records{{6, {2}}}));
}

TEST(PriorityPacker, largestRecord_fillsAnEmptyPacket)
{
    PriorityPacker packer(100);
    queue(packer, 5, Bytes(89, 1));
    EXPECT_EQ(next(packer), (Records{{5, Bytes(89, 1)}}));
    EXPECT_EQ(packer.getPacketSize(), 100u);
}

TEST(PriorityPacker, limit1024_isIgnored)
{
    PriorityPacker packer(2000);
    for (const unsigned int limit : {0u, 1u, 1023u, 1024u}) {
        packer.setDeviceInformation(informationWithLimit(limit));
        EXPECT_EQ(packer.getPacketSizeRemaining(), 1992u);
    }
}

TEST(PriorityPacker, limit1025_isTakenOver)
{
    PriorityPacker packer(2000);
    packer.setDeviceInformation(informationWithLimit(1025));
    EXPECT_EQ(packer.getPacketSizeRemaining(), 1017u);
    packer.setDeviceInformation(informationWithLimit(65535));
    EXPECT_EQ(packer.getPacketSizeRemaining(), 65527u);
    packer.setDeviceInformation(informationWithLimit(1024));
    EXPECT_EQ(packer.getPacketSizeRemaining(), 65527u);
}

TEST(PriorityPacker, informationOfAllOnesButTheLimit_changesNothing)
{
    PriorityPacker packer(2000);
    DeviceInformation information{};
    std::fill(std::begin(information.description), std::end(information.description), std::uint8_t{0xFF});
    information.reserved = 0xFF;
    packer.setDeviceInformation(information);
    EXPECT_EQ(packer.getPacketSizeRemaining(), 1992u);
}

TEST(PriorityPacker, constructorsLimit_mayBeBelowTheFloor)
{
    const PriorityPacker packer(64);
    EXPECT_EQ(packer.getPacketSizeRemaining(), 56u);
}

TEST(PriorityPacker, limitThatArrivesWithAPacketInFlight_leavesThePacketAlone)
{
    PriorityPacker packer(4000);
    Bytes payload(3000);
    std::iota(payload.begin(), payload.end(), std::uint8_t{0});
    queue(packer, 5, payload);
    packer.prepareNextPacket();
    const unsigned char* const buffer = packer.getPacket();
    const Bytes inFlight = packetOf(packer);

    packer.setDeviceInformation(informationWithLimit(65535));
    packer.setDeviceInformation(informationWithLimit(1025));
    EXPECT_EQ(packer.getPacket(), buffer);
    EXPECT_EQ(packetOf(packer), inFlight);
    EXPECT_EQ(packer.getPacketSizeRemaining(), 0u);

    queue(packer, 6, {1});
    EXPECT_EQ(packer.prepareNextPacket(), 0u);
    EXPECT_EQ(packetOf(packer), inFlight);
    packer.clearData();
    EXPECT_EQ(packer.getPacketSizeRemaining(), 1017u);
    EXPECT_EQ(packer.getPacket(), buffer);
}

TEST(PriorityPacker, buffer_neverMoves)
{
    PriorityPacker packer(64);
    const unsigned char* const buffer = packer.getPacket();
    packer.setDeviceInformation(informationWithLimit(65535));
    for (int packets = 0; packets < 3; ++packets) {
        queue(packer, 5, Bytes(65000, 1));
        EXPECT_EQ(next(packer).size(), 1u);
        EXPECT_EQ(packer.getPacket(), buffer);
    }
}

TEST(PriorityPacker, clearData_keepsWhatWaits)
{
    PriorityPacker packer(8 + 13);
    queue(packer, 5, Bytes(10, 1));
    queue(packer, 5, Bytes(10, 2));
    key(packer, 7, 1, Bytes(10, 3));
    packer.prepareNextPacket();
    packer.clearData();
    EXPECT_EQ(packetOf(packer), (Bytes{8, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(packer.hasMoreData());
    EXPECT_EQ(next(packer), (Records{{5, Bytes(10, 1)}}));
    packer.clearData();
    packer.clearData();
    EXPECT_EQ(next(packer), (Records{{5, Bytes(10, 2)}}));
}

TEST(PriorityPacker, packetNotCleared_isContinuedAndOnlyTheNewIsCounted)
{
    PriorityPacker packer(100);
    queue(packer, 5, {1});
    EXPECT_EQ(packer.prepareNextPacket(), 1u);
    EXPECT_EQ(packer.prepareNextPacket(), 0u);
    EXPECT_EQ(packer.getPacketCount(), 1u);
    queue(packer, 6, {2});
    queue(packer, 6, {3});
    EXPECT_EQ(packer.prepareNextPacket(), 2u);
    EXPECT_EQ(packer.getPacketCount(), 3u);
    EXPECT_EQ(recordsOf(packer), (Records{{5, {1}}, {6, {2}}, {6, {3}}}));
}

TEST(PriorityPacker, stopWaiting_doesNothing)
{
    PriorityPacker packer(100);
    CountingObserver observer;
    packer.setObserver(&observer);
    queue(packer, 5, {1});
    packer.stopWaiting();
    EXPECT_EQ(observer.m_calls, 1);
    EXPECT_EQ(next(packer), (Records{{5, {1}}}));
}

TEST(PriorityPacker, observer_isToldOfEveryAddition)
{
    PriorityPacker packer(100);
    CountingObserver observer;
    packer.setObserver(&observer);
    queue(packer, 5, {1});
    EXPECT_EQ(observer.m_calls, 1);
    key(packer, 5, 1, {1});
    EXPECT_EQ(observer.m_calls, 2);
    packer.addData(ReqDeviceInfo{1});
    EXPECT_EQ(observer.m_calls, 3);
    packer.notifyObserver();
    EXPECT_EQ(observer.m_calls, 4);
}

TEST(PriorityPacker, observer_isNotToldOfPackingOrItsOwnSetting)
{
    PriorityPacker packer(100);
    queue(packer, 5, {1});
    CountingObserver observer;
    packer.setObserver(&observer);
    packer.prepareNextPacket();
    packer.clearData();
    packer.hasMoreData();
    packer.setDeviceInformation(informationWithLimit(2048));
    EXPECT_EQ(observer.m_calls, 0);
}

TEST(PriorityPacker, observer_findsTheRecordWaiting)
{
    PriorityPacker packer(100);
    CountingObserver observer;
    Records packed;
    observer.m_onCall = [&] { packed = next(packer); };
    packer.setObserver(&observer);
    queue(packer, 5, {1});
    EXPECT_EQ(packed, (Records{{5, {1}}}));
}

TEST(PriorityPacker, everyUseOfTheData_waitsForItsMutex)
{
    PriorityPacker packer(1100);
    const std::uint8_t byte = 1;
    const std::function<void()> uses[] = {
        [&] { packer.addStructData(&byte, 1, typeOf(5)); },
        [&] { packer.addStructData(&byte, 1, typeOf(5), 7); },
        [&] { packer.drawBitmapData(ClientLcdBitmap(8, 1, 1)); },
        [&] { packer.lockLcd(0); },
        [&] { packer.unlockLcd(0); },
        [&] { packer.flattenLcdImage(0); },
        [&] { packer.setDeviceInformation(DeviceInformation{}); },
        [&] { packer.hasMoreData(); },
        [&] { packer.prepareNextPacket(); },
        [&] { packer.clearData(); },
    };
    std::unique_lock<std::mutex> held(reach(DataMutex{}, packer));
    std::vector<std::future<void>> running;
    for (const auto& use : uses)
        running.push_back(std::async(std::launch::async, use));
    std::this_thread::sleep_for(std::chrono::milliseconds(200)); // a use without the lock is over by then
    for (std::size_t i = 0; i < running.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(running[i].wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    }
    held.unlock();
    for (auto& use : running)
        use.get();
}

TEST(PriorityPacker, observer_isCalledUnderItsOwnMutexAlone)
{
    PriorityPacker packer(100);
    CountingObserver observer;
    bool isDataFree = false;
    bool isObserverFree = true;
    observer.m_onCall = [&] {
        isDataFree = isFree(reach(DataMutex{}, packer));
        isObserverFree = isFree(reach(ObserverMutex{}, packer));
    };
    packer.setObserver(&observer);
    const ClientLcdBitmap bitmap(8, 1, 1);
    const std::function<void()> additions[] = {
        [&] { queue(packer, 5, {1}); },
        [&] { key(packer, 5, 1, {1}); },
        [&] { packer.drawBitmapData(bitmap); },
        [&] { packer.unlockLcd(1); },
        [&] { packer.addData(FirmwareUpgradeRequest{}); },
    };
    for (const auto& add : additions) {
        isDataFree = false;
        isObserverFree = true;
        add();
        EXPECT_TRUE(isDataFree);
        EXPECT_FALSE(isObserverFree);
    }
    EXPECT_EQ(observer.m_calls, 5);
    EXPECT_TRUE(isFree(reach(ObserverMutex{}, packer)));
}

TEST(PriorityPacker, nullObserver_turnsNotificationOff)
{
    PriorityPacker packer(100);
    CountingObserver observer;
    packer.setObserver(&observer);
    packer.setObserver(nullptr);
    queue(packer, 5, {1});
    packer.notifyObserver();
    EXPECT_EQ(observer.m_calls, 0);
}

TEST(PriorityPacker, observerSetAnew_replacesTheOther)
{
    PriorityPacker packer(100);
    CountingObserver first;
    CountingObserver second;
    packer.setObserver(&first);
    packer.setObserver(&second);
    queue(packer, 5, {1});
    EXPECT_EQ(first.m_calls, 0);
    EXPECT_EQ(second.m_calls, 1);
}

TEST(PriorityPacker, destruction_tellsNobody)
{
    CountingObserver observer;
    {
        PriorityPacker packer(100);
        queue(packer, 5, {1});
        packer.setObserver(&observer);
    }
    EXPECT_EQ(observer.m_calls, 0);
}

TEST(PriorityPacker, writersAndOneSender_loseNothingAndKeepTheirOrder)
{
    constexpr int writers = 3;
    constexpr unsigned int perWriter = 400;
    PriorityPacker packer(600);
    std::atomic<int> active{writers};
    std::vector<std::thread> threads;
    for (int writer = 0; writer < writers; ++writer) {
        threads.emplace_back([&packer, &active, writer] {
            for (unsigned int i = 0; i < perWriter; ++i)
                queue(packer, 5 + writer, {static_cast<std::uint8_t>(i), static_cast<std::uint8_t>(i >> 8)});
            --active;
        });
    }
    std::map<int, unsigned int> received;
    while (active != 0 || packer.hasMoreData()) {
        for (const PackedRecord& record : next(packer))
            EXPECT_EQ(record.payload.at(0) + 256u * record.payload.at(1), received[record.type]++);
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(received, (std::map<int, unsigned int>{{5, perWriter}, {6, perWriter}, {7, perWriter}}));
}

TEST(PriorityPacker, progress_isOfWhatWaitsAndOfPacketsThatEnded)
{
    PriorityPacker packer(64);
    EXPECT_FALSE(packer.getProgress().isUnderWay);
    queue(packer, 5, {1});
    queue(packer, 6, {2}); // of high priority
    ClientLcdBitmap picture(8, 2, 1);
    packer.drawBitmapData(picture);
    PriorityPacker::Progress progress = packer.getProgress();
    EXPECT_EQ(progress.waitingRecords, 2U);
    EXPECT_EQ(progress.waitingPictures, 1U);
    EXPECT_EQ(progress.endedPackets, 0U);

    packer.prepareNextPacket();
    progress = packer.getProgress();
    EXPECT_EQ(progress.waitingRecords, 0U);
    EXPECT_EQ(progress.waitingPictures, 0U);
    EXPECT_EQ(progress.endedPackets, 0U);
    EXPECT_TRUE(progress.isUnderWay);

    packer.finishPacket({}, packer.getPacketSize());
    progress = packer.getProgress();
    EXPECT_EQ(progress.endedPackets, 1U);
    EXPECT_EQ(progress.cutPackets, 0U);
    EXPECT_FALSE(progress.isUnderWay);

    queue(packer, 5, {1});
    packer.prepareNextPacket();
    packer.finishPacket({}, packer.getPacketSize() - 1);
    progress = packer.getProgress();
    EXPECT_EQ(progress.endedPackets, 2U);
    EXPECT_EQ(progress.cutPackets, 1U);
}

} // namespace Vantor
