// The parser beside the limit: a plain walk over the record headers of the same
// buffer, unchecked, that hands each payload to a function. Argument: payload bytes
// of each record, in a buffer of one packet of about 8192 bytes, or of one record alone
// as most answers are; items are records.

#include "protocol/PackedPacketParser.h"
#include "protocol/PacketPacker.h"
#include "wire/RecordHeader.h"

#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>

namespace Vantor {
namespace {

std::vector<unsigned char> packetOfRecords(unsigned int size, unsigned int limit = 8192)
{
    PacketPacker packer(limit);
    const std::vector<unsigned char> payload(size, 0x5A);
    while (packer.addStructData(payload.data(), size, static_cast<PacketType>(5)) != 0) {
    }
    return {packer.getPacket(), packer.getPacket() + packer.getPacketSize()};
}

class Sum : public PackedPacketParser::Observer {
public:
    void handleParsedPacket(unsigned short /*deviceId*/, const PacketType& type, const DataPacketUnion& data,
                            unsigned int size) override
    {
        add(static_cast<unsigned int>(type), payloadOf(data), size);
    }

    void add(unsigned int type, const unsigned char* payload, unsigned int size)
    {
        m_sum += type + payload[0] + size;
        ++m_records;
    }

    unsigned long m_sum = 0;
    std::int64_t m_records = 0;
};

void parsePlainWalkLimit(benchmark::State& state)
{
    const std::vector<unsigned char> buffer = packetOfRecords(static_cast<unsigned int>(state.range(0)));
    Sum sum;
    for ([[maybe_unused]] auto _ : state) {
        std::size_t at = sizeof(PacketHeader);
        while (at < buffer.size()) {
            RecordHeader record{};
            std::memcpy(&record, &buffer[at], sizeof record);
            sum.add(record.type, &buffer[at + sizeof record], record.length);
            at += sizeof record + record.length;
        }
        benchmark::DoNotOptimize(sum.m_sum);
    }
    state.SetItemsProcessed(sum.m_records);
}

void parse(benchmark::State& state, std::vector<unsigned char> buffer)
{
    Sum sum;
    PackedPacketParser parser(&sum);
    for ([[maybe_unused]] auto _ : state) {
        parser.parse(buffer.data(), static_cast<unsigned int>(buffer.size()));
        benchmark::DoNotOptimize(sum.m_sum);
    }
    state.SetItemsProcessed(sum.m_records);
}

void parsePacket(benchmark::State& state)
{
    parse(state, packetOfRecords(static_cast<unsigned int>(state.range(0))));
}

void parseLoneRecord(benchmark::State& state)
{
    const auto size = static_cast<unsigned int>(state.range(0));
    parse(state, packetOfRecords(size, static_cast<unsigned int>(sizeof(PacketHeader) + sizeof(RecordHeader)) + size));
}

BENCHMARK(parsePlainWalkLimit)->Arg(4)->Arg(64)->Arg(1024);
BENCHMARK(parsePacket)->Arg(4)->Arg(14)->Arg(64)->Arg(82)->Arg(1024);
BENCHMARK(parseLoneRecord)->Arg(4)->Arg(14)->Arg(64)->Arg(82)->Arg(1024);

} // namespace
} // namespace Vantor
