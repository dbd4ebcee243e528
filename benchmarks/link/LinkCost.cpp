// What a packet costs the processor on its way through the library, beside a bare loop over
// the same libusb calls. libusb is a stub without a bus, so that nothing else is measured.
//
//   linkCost ROUNDS
#include "benchmarks/link/BareLink.h"
#include "benchmarks/link/LibraryLink.h"
#include "benchmarks/link/PanelPacket.h"
#include "benchmarks/link/StubLibusb.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <vector>

#include <sched.h>

using namespace Vantor;

namespace {

// Half a page off the packets of the bare loop: a copy between like places of two pages is
// several times slower on some processors.
alignas(4096) const unsigned char s_memory[2048 + PanelPacket::limit]{};
const unsigned char* const s_payload = s_memory + 2048;

struct Load {
    const char* name;
    unsigned int payload;
    unsigned int records; // in a packet
    unsigned int packets;
};

// What it costs to add the records of a packet while a send is under way, and to send the
// packet when it waits.
struct SendCost {
    Samples adding;
    Samples sending;
};

void sendByLibrary(const Load& load, PriorityPacker& packer, SendCost& cost)
{
    StubLibusb::holdSends();
    const std::uint64_t before = StubLibusb::getSent().get();
    const Cost start = Cost::now();
    for (unsigned int i = 0; i < load.packets * load.records; ++i)
        packer.addStructData(s_payload, load.payload, PanelPacket::type);
    cost.adding.add(Cost::since(start).cpu / load.packets);
    const Cost added = Cost::now();
    StubLibusb::letSendsGo();
    StubLibusb::getSent().await(before + load.packets, "sends");
    cost.sending.add(Cost::since(added).cpu / load.packets);
}

SendCost sendByLibrary(const Load& load, unsigned int rounds)
{
    LibraryLink link;
    StubLibusb::give(PanelPacket::makeDeviceInformation(), 1, 1);
    link.awaitPacketLimits(1);
    SendCost cost;
    for (unsigned int round = 0; round < rounds; ++round)
        sendByLibrary(load, link.getPanel()->getPacker(), cost);
    return cost;
}

Samples sendBare(const Load& load, unsigned int rounds)
{
    std::atomic<unsigned int> left{0};
    BareLink link({[&](unsigned char* buffer) {
                       if (left == 0)
                           return 0;
                       --left;
                       return PanelPacket::write(buffer, PanelPacket::type, s_payload, load.payload, load.records);
                   },
                   {}});
    link.getArrived().await(1, "panels");
    Samples cost;
    for (unsigned int round = 0; round < rounds; ++round) {
        left = load.packets;
        const std::uint64_t before = link.getSent().get();
        const Cost start = Cost::now();
        link.wake();
        link.getSent().await(before + load.packets, "sends");
        cost.add(Cost::since(start).cpu / load.packets);
    }
    return cost;
}

// Packets are given so many at a time to each of the first panels, the next when those
// have been received.
struct Reception {
    const char* name;
    unsigned int panels;
    unsigned int givenTo;
    unsigned int payload;
    unsigned int records; // in a packet
    unsigned int burst;
    unsigned int bursts;
};

class Giver {
public:
    explicit Giver(const Reception& reception)
        : m_reception(reception),
          m_packet(PanelPacket::make(PanelPacket::type, s_payload, reception.payload, reception.records))
    {}

    // What a packet costs, the waking by this thread and of it included.
    double giveAll(Tally& records)
    {
        const std::uint64_t packets = std::uint64_t{m_reception.givenTo} * m_reception.burst;
        const Cost start = Cost::now();
        for (unsigned int i = 0; i < m_reception.bursts; ++i) {
            const std::uint64_t before = records.get();
            StubLibusb::give(m_packet, m_reception.burst, m_reception.givenTo);
            records.await(before + packets * m_reception.records, "records");
        }
        return Cost::since(start).cpu / static_cast<double>(packets * m_reception.bursts);
    }

private:
    const Reception& m_reception;
    std::vector<unsigned char> m_packet;
};

Samples receiveByLibrary(const Reception& reception, unsigned int rounds)
{
    Giver giver(reception);
    LibraryLink link;
    StubLibusb::give(PanelPacket::makeDeviceInformation(), 1, reception.panels);
    link.awaitPacketLimits(reception.panels);
    Samples cost;
    for (unsigned int round = 0; round < rounds; ++round)
        cost.add(giver.giveAll(link.getRecords()));
    return cost;
}

Samples receiveBare(const Reception& reception, unsigned int rounds)
{
    Giver giver(reception);
    Tally records;
    BareLink link({{}, [&records](const unsigned char* bytes, int size) {
                       records.add(PanelPacket::countRecords(bytes, static_cast<std::size_t>(size)));
                   }});
    link.getArrived().await(reception.panels, "panels");
    Samples cost;
    for (unsigned int round = 0; round < rounds; ++round)
        cost.add(giver.giveAll(records));
    return cost;
}

std::string describeDifference(const Samples& ours, const Samples& bare)
{
    char text[60];
    std::snprintf(text, sizeof text, "%.3g us above the bare loop", ours.getMedian() - bare.getMedian());
    return text;
}

void measureSending(Report& report, unsigned int rounds)
{
    constexpr Load loads[] = {{"1 record of 8181 bytes", 8181, 1, 200}, {"127 records of 61 bytes", 61, 127, 200}};
    StubLibusb::attach(1);
    for (const Load& load : loads) {
        const SendCost ours = sendByLibrary(load, 10 * rounds);
        const Samples bare = sendBare(load, 10 * rounds);
        const std::string name = std::string("CPU of a packet sent, ") + load.name;
        report.add(name, library, ours.sending, "us", describeDifference(ours.sending, bare));
        report.add(name, bareLoop, bare, "us");
        report.add(std::string("CPU of addStructData for a packet, ") + load.name, library, ours.adding, "us");
    }
}

void measureReception(Report& report, unsigned int rounds)
{
    constexpr Reception receptions[] = {{"1 record of 32 bytes, one by one", 1, 1, 32, 1, 1, 4000},
                                        {"1 record of 32 bytes, 64 in a row", 1, 1, 32, 1, 64, 200},
                                        {"127 records of 61 bytes, 64 in a row", 1, 1, 61, 127, 64, 40},
                                        {"1 record of 32 bytes, one by one from 1 of 31 panels", 31, 1, 32, 1, 1, 4000},
                                        {"1 record of 32 bytes, 31 panels at once", 31, 31, 32, 1, 1, 400}};
    for (const Reception& reception : receptions) {
        StubLibusb::attach(reception.panels);
        const Samples ours = receiveByLibrary(reception, rounds);
        const Samples bare = receiveBare(reception, rounds);
        const std::string name = std::string("CPU of a packet received, ") + reception.name;
        report.add(name, library, ours, "us", "two threads; " + describeDifference(ours, bare));
        report.add(name, bareLoop, bare, "us", "one thread");
    }
}

// What it costs to wake a thread depends on where it runs, by more than what is measured.
void stayOnOneProcessor()
{
    cpu_set_t processors;
    CPU_ZERO(&processors);
    CPU_SET(sched_getcpu(), &processors);
    sched_setaffinity(0, sizeof processors, &processors);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const int rounds = argc == 2 ? std::atoi(argv[1]) : 0;
        if (rounds < 1) {
            std::fputs("usage: linkCost ROUNDS\n", stderr);
            return 2;
        }
        stayOnOneProcessor();
        setLogLevel(LogLevel::Error);
        Report report("link");
        measureSending(report, static_cast<unsigned int>(rounds));
        measureReception(report, static_cast<unsigned int>(rounds));
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "linkCost: %s\n", failure.what());
        return 1;
    }
}
