#include "protocol/PackedPacketParser.h"
#include "simulator/panel/BootLoader.h"
#include "simulator/panel/PanelScreen.h"
#include "simulator/panel/SliceDecoder.h"
#include "simulator/panel/WireDecoder.h"
#include "tests/dissector/Dissection.h"
#include "tests/dissector/HandmadeCapture.h"
#include "tests/dissector/SamplePackets.h"
#include "tests/support/BootRecords.h"
#include "tests/support/Random.h"
#include "tests/support/Seeds.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using testing::ElementsAreArray;
using testing::UnorderedElementsAreArray;

const Bytes depths{1, 8, 12, 16, 24};

Bytes randomPackedSlice(Random& random)
{
    const auto width = static_cast<std::uint8_t>(random.between(1, 40));
    const auto rows = static_cast<std::uint8_t>(random.between(1, 5));
    const std::uint8_t bits = depths[random.below(5)];
    return joined({{static_cast<std::uint8_t>(random.below(3)), 1, 7, static_cast<std::uint8_t>(random.below(256)),
                    width, rows, bits},
                   random.bytes(std::size_t{width} * rows * bits / 8)});
}

Bytes randomEncodedSlice(Random& random)
{
    const auto width = static_cast<std::uint8_t>(random.between(1, 255));
    const auto rows = static_cast<std::uint8_t>(random.between(1, 4));
    Bytes slice{0, 1, 2, static_cast<std::uint8_t>(random.below(256)), width, rows, depths[random.below(5)]};
    for (unsigned int row = 0; row < rows; ++row) {
        slice.insert(slice.end(), 4, 0xFF);
        for (unsigned int left = width; left > 0;) {
            const unsigned int run = random.between(1, left);
            slice.push_back(static_cast<std::uint8_t>(run));
            for (const std::uint8_t part : random.bytes(3))
                slice.push_back(part);
            left -= run;
        }
    }
    return slice;
}

Bytes randomRecord(Random& random, bool isFirst, bool toPanel)
{
    std::uint8_t type = static_cast<std::uint8_t>(random.between(2, 37));
    Bytes payload = random.bytes(random.below(30));
    if (toPanel && random.oneIn(2)) {
        type = isFirst && random.oneIn(2) ? 46 : 38;
        payload = type == 46 ? randomEncodedSlice(random) : randomPackedSlice(random);
    } else if (toPanel && random.oneIn(4)) {
        type = random.oneIn(2) ? 44 : 1; // of any size
    } else if (random.oneIn(300)) {
        payload = random.bytes(random.between(16000, 33000)); // in several URBs
    }
    if (random.oneIn(15) && !payload.empty())
        payload[random.below(static_cast<unsigned int>(payload.size()))] = static_cast<std::uint8_t>(random.below(256));
    if (random.oneIn(30))
        payload.resize(random.below(static_cast<unsigned int>(payload.size()) + 3));
    const auto size = payload.size();
    return joined({{type, static_cast<std::uint8_t>(size), static_cast<std::uint8_t>(size >> 8)}, payload});
}

Bytes randomPacket(Random& random, bool toPanel)
{
    const unsigned int count = random.between(1, 5);
    Bytes packet(8);
    for (unsigned int i = 0; i < count && packet.size() < 20000; ++i)
        packet = joined({packet, randomRecord(random, i == 0, toPanel)});
    const auto size = static_cast<std::uint32_t>(packet.size());
    put(packet, 0, size + (count << 16));
    if (!toPanel)
        put(packet, 4, random.below(1000000));
    return packet;
}

// What was wrong stands at the start, where the lengths are, or anywhere.
Bytes randomTransfer(Random& random, bool toPanel)
{
    Bytes transfer = randomPacket(random, toPanel);
    while (random.oneIn(toPanel ? 20 : 2))
        transfer = joined({transfer, randomPacket(random, toPanel)});
    if (random.oneIn(3) && transfer.size() < 16384) {
        const auto size = static_cast<unsigned int>(transfer.size());
        transfer[random.below(random.oneIn(2) ? 12 : size)] = static_cast<std::uint8_t>(random.below(256));
        if (random.oneIn(2))
            transfer.resize(random.between(1, size + 5));
    }
    // Whole URBs of 16 KiB would be taken for the beginning of a transfer.
    if (transfer.size() % 16384 == 0)
        transfer.pop_back();
    return transfer;
}

// What the panel's side says of a transfer, as the fields have it

struct Expected {
    std::vector<std::string> faults;
    std::vector<std::string> lengths;
    std::vector<std::string> types;
    std::vector<std::string> sizes;
    std::vector<std::string> payloads;
    std::vector<std::string> slices; // LCD, column, top row, width, rows, bits
    std::vector<std::string> rows;
    std::vector<std::string> pixels;
    bool arePixelsKnown = true;
};

std::string hexText(const Bytes& bytes)
{
    std::string text;
    char digits[3];
    for (const std::uint8_t byte : bytes) {
        std::snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

std::string numberText(std::size_t number)
{
    return std::to_string(number);
}

void addRows(Expected& expected, const SliceDecoder::Slice& slice, bool isOneBit)
{
    for (std::size_t first = 0; first < slice.pixels.size(); first += slice.width) {
        std::string text;
        for (std::size_t i = first; i < std::min(first + slice.width, slice.pixels.size()); ++i) {
            char colour[8];
            std::snprintf(colour, sizeof colour, "%06X", slice.pixels[i]);
            if (isOneBit)
                text += slice.pixels[i] == PanelScreen::black ? "#" : ".";
            else
                text += (text.empty() ? "" : " ") + std::string(colour);
        }
        expected.rows.push_back(numberText((slice.y + first / slice.width) % 256));
        expected.pixels.push_back(text);
    }
}

void addSlice(Expected& expected, const WireDecoder::Record& record)
{
    const SliceDecoder::Result result = SliceDecoder::decode(record.type, record.payload);
    if (result.slice)
        addRows(expected, *result.slice, record.payload[6] == 1);
    else
        expected.faults.push_back(result.violation);
    expected.arePixelsKnown = expected.arePixelsKnown && result.slice;
    if (record.payload.size() < 7) {
        if (!record.payload.empty())
            expected.payloads.push_back(hexText(record.payload));
        return;
    }
    const Bytes& head = record.payload;
    expected.slices.push_back(numberText(head[0] + head[1] * 256U));
    for (std::size_t i = 2; i < 7; ++i)
        expected.slices.push_back(numberText(head[i]));
}

void addRecord(Expected& expected, const WireDecoder::Record& record)
{
    const auto type = static_cast<int>(record.type);
    const std::size_t size = record.payload.size();
    expected.types.push_back(std::to_string(type));
    expected.sizes.push_back(numberText(size));
    if (type == 38 || type == 46) {
        addSlice(expected, record);
        return;
    }
    const std::string bytes = numberText(size) + (size == 1 ? " byte" : " bytes");
    if (type == 1 && size != 4)
        expected.faults.push_back("device information request of " + bytes + ", it has 4");
    if (type == 41)
        expected.faults.push_back("firmware request of " + bytes + ", it has 34");
    if (type == 44)
        expected.faults.push_back("firmware chunk of " + bytes + ", it has 4109");
    if (size > 0 && !(type == 1 && size == 4))
        expected.payloads.push_back(hexText(record.payload));
}

Expected expect(const Bytes& transfer)
{
    const WireDecoder::Result result = WireDecoder::decode(transfer, 65535);
    Expected expected;
    expected.faults = result.violations;
    std::size_t at = 0;
    for (const WireDecoder::Packet& packet : result.packets) {
        expected.lengths.push_back(numberText(packet.header.length));
        at += packet.header.length;
        for (const WireDecoder::Record& record : packet.records)
            addRecord(expected, record);
    }
    // Of a packet that is not whole, the header is shown.
    if (transfer.size() - at >= 8 && transfer[at] + transfer[at + 1] * 256U >= 8)
        expected.lengths.push_back(numberText(transfer[at] + transfer[at + 1] * 256U));
    return expected;
}

// A transfer has some frames, of which every second one carries data.
struct Frames {
    unsigned int first;
    unsigned int last;
};

std::vector<std::string> valuesOf(const Dissection& seen, Frames frames, const std::string& field)
{
    std::vector<std::string> values;
    for (unsigned int frame = frames.first; frame <= frames.last; frame += 2)
        for (const std::string& value : splitAt(seen.of(frame, field), '|'))
            values.push_back(value);
    return values;
}

// Field by field, so that the slices' are in turn.
std::vector<std::string> slicesOf(const Dissection& seen, Frames frames)
{
    std::vector<std::vector<std::string>> fields;
    for (const char* name : {"slice.lcd", "slice.x", "slice.y", "slice.width", "slice.rows", "slice.bits"})
        fields.push_back(valuesOf(seen, frames, name));
    std::vector<std::string> slices;
    for (std::size_t i = 0; i < fields[0].size(); ++i)
        for (const auto& field : fields)
            slices.push_back(i < field.size() ? field[i] : "(none)");
    return slices;
}

void compare(const Dissection& seen, Frames frames, const Bytes& transfer, const Expected& expected)
{
    SCOPED_TRACE("frame " + std::to_string(frames.last) + ": " + hexText(transfer).substr(0, 400));
    std::vector<std::string> faults = valuesOf(seen, frames, "malformed");
    for (const std::string& violation : valuesOf(seen, frames, "violation"))
        faults.push_back(violation);
    EXPECT_TRUE(seen.has(frames.last));
    EXPECT_THAT(faults, UnorderedElementsAreArray(expected.faults));
    EXPECT_THAT(valuesOf(seen, frames, "length"), ElementsAreArray(expected.lengths));
    EXPECT_THAT(valuesOf(seen, frames, "type"), ElementsAreArray(expected.types));
    EXPECT_THAT(valuesOf(seen, frames, "size"), ElementsAreArray(expected.sizes));
    EXPECT_THAT(valuesOf(seen, frames, "payload"), ElementsAreArray(expected.payloads));
    EXPECT_THAT(slicesOf(seen, frames), ElementsAreArray(expected.slices));
    if (expected.arePixelsKnown) {
        EXPECT_THAT(valuesOf(seen, frames, "slice.row"), ElementsAreArray(expected.rows));
        EXPECT_THAT(valuesOf(seen, frames, "slice.pixels"), ElementsAreArray(expected.pixels));
    }
}

TEST(DissectorPanel, randomTransfersToThePanel_areWhatItsDecoderSays)
{
    runSeeds(1, [](unsigned int seed) {
        Random random(seed);
        HandmadeCapture capture;
        capture.enumerate(panel);
        capture.out(panel, good);
        std::vector<std::pair<Frames, Bytes>> transfers;
        unsigned int last = 5; // the descriptors' four and the one above
        for (unsigned int i = 0; i < 800; ++i) {
            const Bytes transfer = randomTransfer(random, true);
            const unsigned int first = last + 2;
            last = capture.outInParts(panel, transfer);
            transfers.push_back({{first, last}, transfer});
        }
        const Dissection seen(capture);
        std::size_t flawless = 0;
        for (const auto& [frames, transfer] : transfers) {
            const Expected expected = expect(transfer);
            compare(seen, frames, transfer, expected);
            flawless += expected.faults.empty() ? 1 : 0;
            if (testing::Test::HasFailure())
                return;
        }
        EXPECT_GT(flawless, 200u);
        EXPECT_LT(flawless, 600u);
    });
}

// The host's side: the reference parser.
class Listener : public PackedPacketParser::Observer {
public:
    void handleParsedPacket(unsigned short /*deviceId*/, const PacketType& type, const DataPacketUnion& /*data*/,
                            unsigned int size) override
    {
        m_types.push_back(std::to_string(static_cast<int>(type)));
        m_sizes.push_back(std::to_string(size));
    }

    std::vector<std::string> m_types;
    std::vector<std::string> m_sizes;
};

TEST(DissectorPanel, randomTransfersFromThePanel_areWhatTheHostsParserSays)
{
    runSeeds(1, [](unsigned int seed) {
        Random random(seed);
        HandmadeCapture capture;
        capture.enumerate(panel);
        capture.in(panel, good);
        std::vector<std::pair<unsigned int, Bytes>> transfers;
        while (transfers.size() < 800) {
            const Bytes transfer = randomTransfer(random, false);
            if (transfer.size() < 16384)
                transfers.emplace_back(capture.in(panel, transfer), transfer);
        }
        const Dissection seen(capture);
        std::size_t rejected = 0;
        for (const auto& [frame, transfer] : transfers) {
            SCOPED_TRACE("frame " + std::to_string(frame) + ": " + hexText(transfer).substr(0, 400));
            Listener listener;
            PackedPacketParser parser(&listener);
            Bytes bytes = transfer;
            parser.parse(bytes.data(), static_cast<unsigned int>(bytes.size()));
            EXPECT_THAT(valuesOf(seen, {frame, frame}, "type"), ElementsAreArray(listener.m_types));
            EXPECT_THAT(valuesOf(seen, {frame, frame}, "size"), ElementsAreArray(listener.m_sizes));
            // Of the rest the parser knows nothing: sizes of records that both sides know.
            EXPECT_EQ(seen.of(frame, "malformed").find("byte ") == std::string::npos ? 0u : 1u,
                      parser.getRejectedCount())
                << seen.of(frame, "malformed");
            rejected += parser.getRejectedCount();
            if (testing::Test::HasFailure())
                return;
        }
        EXPECT_GT(rejected, 100u);
        EXPECT_LT(rejected, 500u);
    });
}

// A request that the dissector has nothing against is one that the boot loader takes.
TEST(DissectorPanel, firmwareRecords_areWrongWhereTheBootLoaderRefusesThem)
{
    const auto second = std::chrono::seconds(1);
    Random random(1);
    HandmadeCapture capture;
    capture.enumerate(panel);
    std::vector<std::pair<unsigned int, bool>> taken;
    const Bytes request = BootRecords::request(9, 1);
    for (unsigned int i = 0; i < 300; ++i) {
        // Not the sizes, which a request may choose, unless they are without a checksum then.
        Bytes payload = request;
        const unsigned int at = random.below(34);
        payload[at] = static_cast<std::uint8_t>(payload[at] ^ (random.oneIn(3) ? 0 : 1U << random.below(8)));
        if (random.oneIn(2) && (at < 10 || (at >= 18 && at < 22)))
            payload = BootRecords::sign(payload);
        BootLoader bootLoader({}, {});
        ASSERT_TRUE(bootLoader.take(static_cast<PacketType>(41), payload, {}));
        taken.emplace_back(capture.out(panel, oneRecord(41, payload)), bootLoader.takeReplies(second).at(0).at(0) == 2);
    }
    for (unsigned int i = 0; i < 100; ++i) {
        BootLoader bootLoader({}, {});
        ASSERT_TRUE(bootLoader.take(static_cast<PacketType>(41), request, {}));
        bootLoader.takeReplies(second);
        Bytes payload = BootRecords::chunk(1, 0, Bytes(9, 7));
        if (!random.oneIn(3)) {
            const unsigned int at = random.oneIn(2) ? 0 : random.below(4109);
            payload[at] = static_cast<std::uint8_t>(payload[at] ^ 1U << random.below(8));
            if (at == 0 && random.oneIn(2))
                payload = BootRecords::sign(payload);
        }
        ASSERT_TRUE(bootLoader.take(static_cast<PacketType>(44), payload, second));
        taken.emplace_back(capture.out(panel, oneRecord(44, payload)),
                           bootLoader.takeReplies(2 * second).at(0).at(0) == 1);
    }
    const Dissection seen(capture);
    std::size_t refused = 0;
    for (const auto& [frame, isTaken] : taken) {
        EXPECT_EQ(seen.faultsOf(frame).empty(), isTaken) << "frame " << frame << ": " << seen.of(frame, "violation");
        refused += isTaken ? 0 : 1;
    }
    EXPECT_GT(refused, 100u);
    EXPECT_LT(refused, 350u);
}

} // namespace
} // namespace Vantor
