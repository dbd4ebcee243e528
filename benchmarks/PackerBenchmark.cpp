// Records through the packer; items are records.
//
// pack…: beside the limit, framing the same bytes with memcpy alone. Argument: payload
// bytes of each record. A packet of 8192 bytes is filled and emptied per iteration.
//
// count…: what of that is for the statistics.
//
// write…, drain…: one step of a record's way, with as many records waiting as the
// argument says; that many are written, or packed, per iteration.

#include "libMorvaneHostUsb/PackerCounts.h"
#include "libMorvaneHostUsb/PriorityPacker.h"
#include "wire/RecordHeader.h"

#include <chrono>
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

// What the packer does for its statistics, of the same records.
void countQueuedRecords(benchmark::State& state)
{
    const unsigned int size = payloadSize(state);
    const unsigned int records = recordsInAPacket(size);
    PackerCounts counts;
    std::size_t waiting = 0;
    for ([[maybe_unused]] auto _ : state) {
        for (unsigned int i = 0; i < records; ++i) {
            counts.getTimes().add(type, true);
            benchmark::DoNotOptimize(++waiting);
        }
        const auto now = std::chrono::system_clock::now();
        counts.getTimes().setTime(now);
        counts.getTimes().pack(type, records);
        waiting -= records;
        counts.finishPacket(now, packetLimit, packetLimit, records);
        benchmark::ClobberMemory();
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

// Times `measured` alone; `other` brings back what it starts from.
template <typename Measured, typename Other> void timeSteps(benchmark::State& state, Measured measured, Other other)
{
    for ([[maybe_unused]] auto _ : state) {
        const auto begin = std::chrono::steady_clock::now();
        measured();
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
        other();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// A packer in which a number of records are written, and all of them drained.
class Backlog {
public:
    explicit Backlog(const benchmark::State& state) : m_records(static_cast<unsigned int>(state.range(0))) {}

    void writeQueued()
    {
        for (unsigned int i = 0; i < m_records; ++i)
            m_packer.addStructData(&m_value, sizeof m_value, type);
    }

    void writeKeys()
    {
        for (unsigned int key = 0; key < m_records; ++key)
            m_packer.addStructData(&m_value, sizeof m_value, type, key);
    }

    void writeKeysWithOtherValue()
    {
        ++m_value;
        writeKeys();
    }

    void drain()
    {
        while (m_packer.prepareNextPacket() != 0) {
            benchmark::ClobberMemory();
            m_packer.clearData();
        }
    }

private:
    unsigned int m_records;
    std::uint32_t m_value = 0;
    PriorityPacker m_packer{packetLimit};
};

void writeQueuedRecords(benchmark::State& state)
{
    Backlog backlog(state);
    timeSteps(
        state, [&backlog] { backlog.writeQueued(); }, [&backlog] { backlog.drain(); });
}

void drainQueuedRecords(benchmark::State& state)
{
    Backlog backlog(state);
    backlog.writeQueued();
    timeSteps(
        state, [&backlog] { backlog.drain(); }, [&backlog] { backlog.writeQueued(); });
}

void writeNewKeys(benchmark::State& state)
{
    Backlog backlog(state);
    timeSteps(
        state, [&backlog] { backlog.writeKeys(); }, [&backlog] { backlog.drain(); });
}

void writeDuplicates(benchmark::State& state)
{
    Backlog backlog(state);
    backlog.writeKeys();
    timeSteps(
        state, [&backlog] { backlog.writeKeys(); }, [] {});
}

void overwriteKeys(benchmark::State& state)
{
    Backlog backlog(state);
    backlog.writeKeys();
    timeSteps(
        state, [&backlog] { backlog.writeKeysWithOtherValue(); }, [] {});
}

void drainKeys(benchmark::State& state)
{
    Backlog backlog(state);
    backlog.writeKeys();
    timeSteps(
        state, [&backlog] { backlog.drain(); }, [&backlog] { backlog.writeKeys(); });
}

void withWaitingRecords(benchmark::internal::Benchmark* benchmark)
{
    benchmark->UseManualTime();
    for (const int records : {10, 1000, 100000, 1000000})
        benchmark->Arg(records);
}

BENCHMARK(packMemcpyLimit)->Arg(4)->Arg(64)->Arg(1024);
BENCHMARK(packBasePacker)->Arg(4)->Arg(64)->Arg(1024);
BENCHMARK(packQueuedRecords)->Arg(4)->Arg(64)->Arg(1024);
BENCHMARK(countQueuedRecords)->Arg(4)->Arg(64)->Arg(1024);
BENCHMARK(packKeyedRecords)->Arg(4)->Arg(64)->Arg(1024);
BENCHMARK(writeQueuedRecords)->Apply(withWaitingRecords);
BENCHMARK(drainQueuedRecords)->Apply(withWaitingRecords);
BENCHMARK(writeNewKeys)->Apply(withWaitingRecords);
BENCHMARK(writeDuplicates)->Apply(withWaitingRecords);
BENCHMARK(overwriteKeys)->Apply(withWaitingRecords);
BENCHMARK(drainKeys)->Apply(withWaitingRecords);

} // namespace
} // namespace Vantor
