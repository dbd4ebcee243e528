// From the call that adds a record to the submission of the packet that has it: with nothing
// else to send, and past a backlog of records of lower priority.
#include "benchmarks/link/BareLink.h"
#include "benchmarks/link/LibraryLink.h"
#include "benchmarks/link/PanelPacket.h"
#include "benchmarks/link/Subjects.h"
#include "benchmarks/link/SubmissionTap.h"

#include <array>
#include <random>
#include <utility>

namespace Vantor {

namespace {

const unsigned char s_urgent[8]{};
const unsigned char s_filler[PanelPacket::limit - PanelPacket::overhead]{};

// When urgent records are submitted, and how many packets of fillers.
class Submissions {
public:
    // Microseconds until the next urgent record, which `add` adds, is submitted.
    template <typename Add> double measure(Add add)
    {
        const std::uint64_t before = m_urgent.get();
        const Clock::time_point start = Clock::now();
        add();
        m_urgent.await(before + 1, "urgent records");
        return microsecondsBetween(start, m_time);
    }
    std::uint64_t getFillers() const { return m_fillers.get(); }

private:
    void note(const libusb_transfer& transfer)
    {
        const auto first = static_cast<PacketType>(transfer.buffer[sizeof(PacketHeader)]);
        if (first == PanelPacket::urgentType) {
            m_time = Clock::now();
            m_urgent.add(1);
        } else {
            m_fillers.add(1);
        }
    }

    Clock::time_point m_time;
    Tally m_urgent;
    Tally m_fillers;
    SubmissionTap m_tap{[this](const libusb_transfer& transfer) { note(transfer); }};
};

void addUrgent(PriorityPacker& packer)
{
    packer.addStructData(s_urgent, sizeof s_urgent, PanelPacket::urgentType);
}

// Pauses of any length, so that a packet under way is met anywhere in its time.
void pause()
{
    static std::minstd_rand s_random(1);
    std::this_thread::sleep_for(std::chrono::microseconds(200 + s_random() % 400));
}

Samples measureIdleLibrary(unsigned long count)
{
    Submissions submissions;
    LibraryLink link;
    link.awaitPacketLimits(1);
    const auto panel = link.getPanel();
    Samples samples;
    while (samples.getCount() < count) {
        const std::uint32_t sent = __atomic_load_n(&panel->getSentData(), __ATOMIC_ACQUIRE);
        samples.add(submissions.measure([&panel] { addUrgent(panel->getPacker()); }));
        while (__atomic_load_n(&panel->getSentData(), __ATOMIC_ACQUIRE) == sent)
            pause();
        pause();
    }
    return samples;
}

Samples measureIdleBare(unsigned long count)
{
    Submissions submissions;
    std::atomic<bool> isUrgent{false};
    BareLink link({[&isUrgent](unsigned char* buffer) {
                       return isUrgent.exchange(false)
                                  ? PanelPacket::write(buffer, PanelPacket::urgentType, s_urgent, sizeof s_urgent, 1)
                                  : 0;
                   },
                   {}});
    link.getArrived().await(1, "panels");
    Samples samples;
    while (samples.getCount() < count) {
        samples.add(submissions.measure([&] {
            isUrgent = true;
            link.wake();
        }));
        link.getSent().await(samples.getCount(), "sends");
        pause();
    }
    return samples;
}

Samples measureBusyLibrary(unsigned long count)
{
    constexpr std::uint64_t backlog = 10; // packets, longer than a pause
    Submissions submissions;
    LibraryLink link;
    link.awaitPacketLimits(1);
    const auto panel = link.getPanel();
    PriorityPacker& packer = panel->getPacker();
    const std::uint64_t before = submissions.getFillers();
    std::uint64_t added = 0;
    Samples samples;
    while (samples.getCount() < count) {
        for (; added < submissions.getFillers() - before + backlog; ++added)
            packer.addStructData(s_filler, sizeof s_filler, PanelPacket::type);
        pause();
        samples.add(submissions.measure([&packer] { addUrgent(packer); }));
    }
    return samples;
}

Samples measureBusyBare(unsigned long count)
{
    Submissions submissions;
    std::atomic<bool> isUrgent{false};
    std::atomic<bool> isOver{false};
    BareLink link({[&](unsigned char* buffer) {
                       if (isOver)
                           return 0;
                       if (isUrgent.exchange(false))
                           return PanelPacket::write(buffer, PanelPacket::urgentType, s_urgent, sizeof s_urgent, 1);
                       return PanelPacket::write(buffer, PanelPacket::type, s_filler, sizeof s_filler, 1);
                   },
                   {}});
    link.getArrived().await(1, "panels");
    Samples samples;
    while (samples.getCount() < count) {
        pause();
        samples.add(submissions.measure([&isUrgent] { isUrgent = true; }));
    }
    isOver = true;
    return samples;
}

void add(Report& report, const std::string& name, const Contender& contender, const Samples& samples)
{
    constexpr std::array<std::pair<const char*, double>, 5> shares{
        {{"50 %", 0.5}, {"90 %", 0.9}, {"99 %", 0.99}, {"99.9 %", 0.999}, {"longest", 1}}};
    for (const auto& [text, share] : shares)
        report.add(name + ", " + text, contender, samples.getQuantile(share), "us",
                   "of " + std::to_string(samples.getCount()));
}

} // namespace

void measureLatency(const Arguments& arguments)
{
    Report report("latency");
    const unsigned long count = std::stoul(arguments.at(0));
    const std::string idle = "adding to submission, nothing else to send";
    add(report, idle, library, measureIdleLibrary(count));
    add(report, idle, bareLoop, measureIdleBare(count));
    const std::string busy = "adding to submission, high priority past a backlog";
    add(report, busy, library, measureBusyLibrary(count));
    add(report, busy, bareLoop, measureBusyBare(count));
}

} // namespace Vantor
