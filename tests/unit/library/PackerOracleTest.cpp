// The packer's packets, read by the decoder that the simulated panel brings: two
// readings of the same wire, over seeded schedules.

#include "libMorvaneHostUsb/PriorityPacker.h"
#include "simulator/panel/WireDecoder.h"

#include "tests/support/PackedBytes.h"

#include "tests/support/Random.h"
#include "tests/support/Seeds.h"

#include <algorithm>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <tuple>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

const std::set<int> highPriorityTypes = {6, 8, 10, 11, 12, 24, 29, 31, 34, 35, 37, 40, 41, 44};
constexpr int sliceType = 38;
constexpr int encodedSliceType = 46;

// What of the current packet the panel has not seen yet.
class Decoded {
public:
    // The records that `packer` has added since the last call, cleared packets apart.
    std::vector<WireDecoder::Record> added(const PriorityPacker& packer, unsigned int limit)
    {
        const WireDecoder::Result result = WireDecoder::decode(packetOf(packer), limit);
        EXPECT_EQ(result.violations, std::vector<std::string>{});
        EXPECT_EQ(result.packets.size(), 1u);
        if (result.packets.size() != 1)
            return {};
        const auto& records = result.packets[0].records;
        EXPECT_EQ(std::uint32_t{result.packets[0].header.deviceId}, 0u);
        const auto first = static_cast<std::ptrdiff_t>(m_seen);
        m_seen = records.size();
        return {records.begin() + first, records.end()};
    }

    void clear() { m_seen = 0; }

private:
    std::size_t m_seen = 0;
};

// What must still come. A type is either keyed or queued for a whole schedule, so
// that a record's type tells which it is.
class Expected {
public:
    using Rank = std::tuple<bool, bool, int>; // packing order: high priority, keyed, by type

    void queue(int type, const Bytes& payload) { m_queued[rank(type, false)].push_back(payload); }
    void key(int type, unsigned int key, const Bytes& payload) { m_keyed[rank(type, true)][key] = payload; }

    void take(const WireDecoder::Record& record, bool isKeyed)
    {
        const int type = static_cast<int>(record.type);
        const Rank itsRank = rank(type, isKeyed);
        const std::optional<Bytes> expected = isKeyed ? takeKeyed(itsRank) : takeQueued(itsRank);
        ASSERT_TRUE(expected.has_value()) << "nothing of type " << type << " was waiting";
        EXPECT_EQ(record.payload, *expected) << "type " << type;
    }

    // The size of the record that must be packed next.
    std::optional<std::size_t> nextSize() const
    {
        const auto keyed = m_keyed.begin();
        const auto queued = m_queued.begin();
        if (keyed != m_keyed.end() && (queued == m_queued.end() || keyed->first < queued->first))
            return keyed->second.begin()->second.size();
        if (queued != m_queued.end())
            return queued->second.front().size();
        return std::nullopt;
    }

    bool isEmpty() const { return m_keyed.empty() && m_queued.empty(); }

    static Rank rank(int type, bool isKeyed) { return {highPriorityTypes.count(type) == 0, !isKeyed, type}; }

private:
    std::optional<Bytes> takeKeyed(const Rank& rank)
    {
        const auto waiting = m_keyed.find(rank);
        if (waiting == m_keyed.end())
            return std::nullopt;
        Bytes payload = waiting->second.begin()->second;
        waiting->second.erase(waiting->second.begin());
        if (waiting->second.empty())
            m_keyed.erase(waiting);
        return payload;
    }

    std::optional<Bytes> takeQueued(const Rank& rank)
    {
        const auto waiting = m_queued.find(rank);
        if (waiting == m_queued.end())
            return std::nullopt;
        Bytes payload = waiting->second.front();
        waiting->second.pop_front();
        if (waiting->second.empty())
            m_queued.erase(waiting);
        return payload;
    }

    std::map<Rank, std::map<unsigned int, Bytes>> m_keyed;
    std::map<Rank, std::deque<Bytes>> m_queued;
};

class RecordSchedule {
public:
    explicit RecordSchedule(unsigned int seed)
        : m_random(seed), m_limit(m_random.oneIn(2) ? m_random.between(12, 200) : m_random.between(1025, 9000)),
          m_largest(std::min(m_limit - 11, 1014u)), m_packer(m_limit)
    {
        for (int type = 0; type < 47; ++type) {
            if (m_random.oneIn(2))
                m_keyedTypes.insert(type);
        }
    }

    void run()
    {
        for (int step = 0; step < 300 && !testing::Test::HasFailure(); ++step) {
            switch (m_random.below(8)) {
            case 0:
                pack();
                break;
            case 1:
                changeLimit();
                break;
            default:
                write();
            }
        }
        while (m_packer.hasMoreData() && !testing::Test::HasFailure())
            pack();
        EXPECT_TRUE(m_expected.isEmpty());
    }

private:
    void write()
    {
        // Few types and keys, so that they meet; now and then any byte.
        const int type = static_cast<int>(m_random.oneIn(8) ? m_random.below(256) : m_random.below(47));
        if (type == encodedSliceType) // an application that sends one by itself may break the rule for its place
            return;
        const Bytes payload = m_random.bytes(m_random.oneIn(4) ? m_random.between(0, m_largest)
                                                               : m_random.between(0, std::min(70u, m_largest)));
        const auto size = static_cast<unsigned int>(payload.size());
        if (m_keyedTypes.count(type) == 0) {
            EXPECT_EQ(m_packer.addStructData(payload.data(), size, typeOf(type)), size);
            m_expected.queue(type, payload);
            return;
        }
        const unsigned int key = m_random.below(4);
        const int repeats = m_random.oneIn(4) ? 2 : 1;
        for (int i = 0; i < repeats; ++i)
            EXPECT_EQ(m_packer.addStructData(payload.data(), size, typeOf(type), key), size);
        m_expected.key(type, key, payload);
    }

    // Never below what the largest record needs: such a record would block for ever.
    void changeLimit()
    {
        if (m_limit <= 1024)
            return;
        DeviceInformation information{};
        information.maxPacketSize = static_cast<std::uint16_t>(m_random.between(1000, 9000));
        m_packer.setDeviceInformation(information);
        if (information.maxPacketSize > 1024)
            m_limit = information.maxPacketSize;
    }

    void pack()
    {
        const unsigned int count = m_packer.prepareNextPacket();
        if (m_packer.getPacketCount() != 0) {
            check(count);
        } else {
            EXPECT_TRUE(m_expected.isEmpty());
        }
        // A packet that could not be sent is continued.
        if (count == 0 || !m_random.oneIn(8)) {
            m_packer.clearData();
            m_decoded.clear();
            m_packetLimit = 0;
        }
    }

    void check(unsigned int count)
    {
        // A packet that was begun under a higher limit may be longer than the new one.
        m_packetLimit = std::max(m_packetLimit, m_limit);
        const auto records = m_decoded.added(m_packer, m_packetLimit);
        EXPECT_EQ(records.size(), count);
        std::optional<Expected::Rank> before;
        for (const WireDecoder::Record& record : records) {
            const int type = static_cast<int>(record.type);
            const bool isKeyed = m_keyedTypes.count(type) != 0;
            const Expected::Rank rank = Expected::rank(type, isKeyed);
            EXPECT_TRUE(!before || *before <= rank) << "type " << type << " is out of order";
            before = rank;
            m_expected.take(record, isKeyed);
        }
        const std::optional<std::size_t> next = m_expected.nextSize();
        if (next) {
            EXPECT_GT(m_packer.getPacketSize() + 3 + *next, m_limit) << "the next record would have fitted";
        }
        EXPECT_EQ(m_packer.hasMoreData(), next.has_value());
    }

    Random m_random;
    unsigned int m_limit;
    unsigned int m_largest;
    unsigned int m_packetLimit = 0; // highest limit in force while the packet was filled
    PriorityPacker m_packer;
    std::set<int> m_keyedTypes;
    Expected m_expected;
    Decoded m_decoded;
};

// Layers of whole bytes a row, one at a time on each LCD.
class LcdSchedule {
public:
    explicit LcdSchedule(unsigned int seed) : m_random(seed), m_limit(m_random.between(40, 3000)), m_packer(m_limit) {}

    void run()
    {
        for (int step = 0; step < 300 && !testing::Test::HasFailure(); ++step) {
            switch (m_random.below(6)) {
            case 0:
            case 1:
                draw();
                break;
            case 2:
                lock();
                break;
            case 3:
                writeRecord();
                break;
            default:
                pack();
            }
        }
        for (const unsigned short lcd : std::set<unsigned short>(m_locked))
            unlock(lcd);
        while (m_packer.hasMoreData() && !testing::Test::HasFailure())
            pack();
        EXPECT_TRUE(m_waiting.empty());
        EXPECT_EQ(m_records, 0u);
    }

private:
    void draw()
    {
        const auto lcd = static_cast<unsigned short>(m_random.below(5) * 300);
        if (m_waiting.count(lcd) != 0)
            return;
        const auto depth = static_cast<unsigned char>(8 * m_random.between(1, 3));
        const unsigned int widest = std::min(255u, (m_limit - 18) / (depth / 8u));
        ClientLcdBitmap bitmap(static_cast<unsigned char>(m_random.between(1, widest)),
                               static_cast<unsigned char>(m_random.between(1, 255)), depth);
        bitmap.lcd = lcd;
        bitmap.x = static_cast<std::uint8_t>(m_random.below(256));
        bitmap.y = static_cast<std::uint8_t>(m_random.below(256));
        bitmap.buffer = m_random.bytes(bitmap.size());
        m_packer.drawBitmapData(bitmap);
        m_waiting.emplace(lcd, Layer{bitmap, 0, 0});
    }

    void lock()
    {
        const auto lcd = static_cast<unsigned short>(m_random.below(5) * 300);
        if (m_locked.count(lcd) != 0) {
            unlock(lcd);
            return;
        }
        m_packer.lockLcd(lcd);
        m_locked.insert(lcd);
    }

    void unlock(unsigned short lcd)
    {
        m_packer.unlockLcd(lcd);
        m_locked.erase(lcd);
    }

    void writeRecord()
    {
        const Bytes payload = m_random.bytes(m_random.between(0, m_limit - 11));
        m_packer.addStructData(payload.data(), static_cast<unsigned int>(payload.size()), typeOf(5));
        ++m_records;
    }

    void pack()
    {
        m_packer.clearData();
        m_decoded.clear();
        if (m_packer.prepareNextPacket() == 0)
            return;
        bool isSliceSeen = false;
        for (const WireDecoder::Record& record : m_decoded.added(m_packer, m_limit)) {
            if (static_cast<int>(record.type) == sliceType) {
                isSliceSeen = true;
                takeSlice(record.payload);
                continue;
            }
            EXPECT_FALSE(isSliceSeen) << "a record stands behind a slice";
            --m_records;
        }
    }

    void takeSlice(const Bytes& payload)
    {
        ASSERT_GT(payload.size(), 7u);
        const auto lcd = static_cast<unsigned short>(payload[0] + 256 * payload[1]);
        const auto waiting = m_waiting.find(lcd);
        ASSERT_NE(waiting, m_waiting.end()) << "LCD " << lcd << " has nothing waiting";
        EXPECT_EQ(m_locked.count(lcd), 0u);
        Layer& layer = waiting->second;
        EXPECT_EQ(payload[2], layer.bitmap.x);
        EXPECT_EQ(payload[3], (layer.bitmap.y + layer.rows) % 256);
        EXPECT_EQ(payload[4], layer.bitmap.width);
        EXPECT_EQ(payload[6], layer.bitmap.bitsPerPixel);
        const std::size_t size = payload.size() - 7;
        EXPECT_EQ(size, std::size_t{payload[5]} * layer.bitmap.width * (layer.bitmap.bitsPerPixel / 8));
        ASSERT_LE(layer.bytes + size, layer.bitmap.size());
        EXPECT_TRUE(std::equal(payload.begin() + 7, payload.end(), layer.bitmap.data() + layer.bytes));
        layer.rows += payload[5];
        layer.bytes += size;
        if (layer.rows == layer.bitmap.height)
            m_waiting.erase(waiting);
    }

    struct Layer {
        ClientLcdBitmap bitmap;
        int rows;          // that have come
        std::size_t bytes; // that have come
    };

    Random m_random;
    unsigned int m_limit;
    PriorityPacker m_packer;
    std::map<unsigned short, Layer> m_waiting;
    std::set<unsigned short> m_locked;
    unsigned int m_records = 0;
    Decoded m_decoded;
};

} // namespace

TEST(PackerOracle, records_comeOutWholeOnceAndInOrder)
{
    runSeeds(slowBuild ? 100 : 300, [](unsigned int seed) { RecordSchedule(seed).run(); });
}

TEST(PackerOracle, layers_comeOutWholeOnceAndInOrder)
{
    runSeeds(slowBuild ? 30 : 100, [](unsigned int seed) { LcdSchedule(seed).run(); });
}

} // namespace Vantor
