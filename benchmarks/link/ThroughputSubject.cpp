// Full packets to one panel, one under way at a time: the library and the bare loop in turns.
#include "benchmarks/link/BareLink.h"
#include "benchmarks/link/LibraryLink.h"
#include "benchmarks/link/PanelPacket.h"
#include "benchmarks/link/Subjects.h"
#include "benchmarks/link/SubmissionTap.h"

namespace Vantor {

namespace {

const unsigned char s_payload[PanelPacket::limit - PanelPacket::overhead]{};

// From the submission of the first full packet to that of the last.
class Passage {
public:
    double measureRate(unsigned int packets)
    {
        m_submitted.await(packets, "packets");
        return (packets - 1) / microsecondsBetween(m_first, m_last) * PanelPacket::limit; // bytes a us, MB/s
    }

private:
    void note(const libusb_transfer& transfer)
    {
        if (transfer.length != PanelPacket::limit)
            return;
        m_last = Clock::now();
        if (m_submitted.get() == 0)
            m_first = m_last;
        m_submitted.add(1);
    }

    Clock::time_point m_first;
    Clock::time_point m_last;
    Tally m_submitted;
    SubmissionTap m_tap{[this](const libusb_transfer& transfer) { note(transfer); }};
};

struct Result {
    Samples rate;
    Samples cpu; // a packet
};

void runLibrary(unsigned int packets, Result& result)
{
    Passage passage;
    LibraryLink link;
    link.awaitPacketLimits(1);
    PriorityPacker& packer = link.getPanel()->getPacker();
    const Cost start = Cost::now();
    for (unsigned int i = 0; i < packets; ++i)
        packer.addStructData(s_payload, sizeof s_payload, PanelPacket::type);
    result.rate.add(passage.measureRate(packets));
    result.cpu.add(Cost::since(start).cpu / packets);
}

void runBare(unsigned int packets, Result& result)
{
    Passage passage;
    std::atomic<unsigned int> left{0};
    BareLink link({[&left](unsigned char* buffer) {
                       if (left == 0)
                           return 0;
                       --left;
                       return PanelPacket::write(buffer, PanelPacket::type, s_payload, sizeof s_payload, 1);
                   },
                   {}});
    link.getArrived().await(1, "panels");
    const Cost start = Cost::now();
    left = packets;
    link.wake();
    result.rate.add(passage.measureRate(packets));
    result.cpu.add(Cost::since(start).cpu / packets);
}

} // namespace

void measureThroughput(const Arguments& arguments)
{
    Report report("link");
    const unsigned long rounds = std::stoul(arguments.at(0));
    const auto packets = static_cast<unsigned int>(std::stoul(arguments.at(1)));
    Result ours;
    Result bare;
    Samples ratio;
    for (unsigned long round = 0; round < rounds; ++round) {
        // What else the machine does weighs on both alike, whether it grows or wanes.
        if (round % 2 == 0)
            runBare(packets, bare);
        runLibrary(packets, ours);
        if (round % 2 != 0)
            runBare(packets, bare);
        ratio.add(ours.rate.getLast() / bare.rate.getLast());
    }
    const std::string rate = "throughput, packets of 8192 bytes, one under way";
    report.add(rate, library, ours.rate, "MB/s");
    report.add(rate, bareLoop, bare.rate, "MB/s");
    report.add("throughput, share of the bare loop's", library, ratio, "", "0.97 is wanted");
    const std::string cpu = "CPU of a packet of 8192 bytes on the virtual bus";
    report.add(cpu, library, ours.cpu, "us");
    report.add(cpu, bareLoop, bare.cpu, "us");
}

} // namespace Vantor
