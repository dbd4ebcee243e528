// Records through the packer, beside the limit: framing the same bytes with memcpy
// alone. Argument: payload bytes of each record. A packet of 8192 bytes is filled
// and emptied per iteration; items are records.

#include "libMorvaneHostUsb/PriorityPacker.h"
#include "wire/RecordHeader.h"

#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>

namespace Vantor {
namespace {

constexpr unsigned int packetLimit = 8192;
constexpr auto type = static_cast<PacketType>(5);

unsigned int payloadSize(const benchmark::State& state)
{
    return static_cast<unsigned int>(state.range(0));
}

unsigned int recordsInAPacket(unsigned int size)
{
    return (packetLimit - static_cast<unsigned int>(sizeof(PacketHeader))) /
           (size + static_cast<unsigned int>(sizeof(RecordHeader)));
}

void countRecords(benchmark::State& state)
{
    const auto records = static_cast<std::int64_t>(recordsInAPacket(payloadSize(state)));
    state.SetItemsProcessed(state.iterations() * records);
    state.SetBytesProcessed(state.iterations() * records * state.range(0));
}

void packMemcpyLimit(benchmark::State& state)
{
    const unsigned int size = payloadSize(state);
    const unsigned int records = recordsInAPacket(size);
    const std::vector<unsigned char> payload(size, 0x5A);
    std::vector<unsigned char> packet(packetLimit);
    for ([[maybe_unused]] auto _ : state) {
        unsigned char* at = packet.data() + sizeof(PacketHeader);
        for (unsigned int i = 0; i < records; ++i) {
            const RecordHeader record{static_cast<std::uint8_t>(type), static_cast<std::uint16_t>(size)};
            std::memcpy(at, &record, sizeof record);
            std::memcpy(at + sizeof record, payload.data(), size);
            at += sizeof record + size;
        }
        const PacketHeader header{static_cast<std::uint16_t>(at - packet.data()), static_cast<std::uint16_t>(records),
                                  0};
        std::memcpy(packet.data(), &header, sizeof header);
        benchmark::DoNotOptimize(packet.data());
        benchmark::ClobberMemory();
    }
    countRecords(state);
}

// What the protocol library's framing costs without queues.
void packBasePacker(benchmark::State& state)
{
    const unsigned int size = payloadSize(state);
    const unsigned int records = recordsInAPacket(size);
    const std::vector<unsigned char> payload(size, 0x5A);
    PacketPacker packer(packetLimit);
    for ([[maybe_unused]] auto _ : state) {
        for (unsigned int i = 0; i < records; ++i)
            packer.addStructData(payload.data(), size, type);
        benchmark::DoNotOptimize(packer.getPacket());
        benchmark::ClobberMemory();
        packer.clearData();
    }
    countRecords(state);
}

void packQueuedRecords(benchmark::State& state)
{
    const unsigned int size = payloadSize(state);
    const unsigned int records = recordsInAPacket(size);
    const std::vector<unsigned char> payload(size, 0x5A);
    PriorityPacker packer(packetLimit);
    for ([[maybe_unused]] auto _ : state) {
        for (unsigned int i = 0; i < records; ++i)
            packer.addStructData(payload.data(), size, type);
        if (packer.prepareNextPacket() != records)
            state.SkipWithError("the packet does not hold all records");
        benchmark::ClobberMemory();
        packer.clearData();
    }
    countRecords(state);
}

void packKeyedRecords(benchmark::State& state)
{
    const unsigned int size = payloadSize(state);
    const unsigned int records = recordsInAPacket(size);
    const std::vector<unsigned char> payload(size, 0x5A);
    PriorityPacker packer(packetLimit);
    for ([[maybe_unused]] auto _ : state) {
        for (unsigned int key = 0; key < records; ++key)
            packer.addStructData(payload.data(), size, type, key);
        if (packer.prepareNextPacket() != records)
            state.SkipWithError("the packet does not hold all records");
        benchmark::ClobberMemory();
        packer.clearData();
    }
    countRecords(state);
}

BENCHMARK(packMemcpyLimit)->Arg(4)->Arg(64)->Arg(1024);
BENCHMARK(packBasePacker)->Arg(4)->Arg(64)->Arg(1024);
BENCHMARK(packQueuedRecords)->Arg(4)->Arg(64)->Arg(1024);
BENCHMARK(packKeyedRecords)->Arg(4)->Arg(64)->Arg(1024);

} // namespace
} // namespace Vantor
