// A capture that anybody may have taken or made up: an input is a capture file, or else a
// sequence of frames, six bytes each that say which and their data. What is made of it is
// played to a host that sends what it sent there, and compared with itself.
#include "simulator/capture/CaptureReader.h"
#include "simulator/panel/ControlEndpoint.h"
#include "simulator/replay/RecordComparison.h"
#include "simulator/replay/Replay.h"
#include "simulator/replay/SessionReader.h"
#include "tests/fuzz/Require.h"
#include "tests/support/Bytes.h"
#include "wire/RecordHeader.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

using namespace Vantor;

namespace {

bool isFile(const std::uint8_t* data, std::size_t size)
{
    constexpr std::array<std::uint8_t, 4> pcap{0xD4, 0xC3, 0xB2, 0xA1};
    constexpr std::array<std::uint8_t, 4> pcapInNanoseconds{0x4D, 0x3C, 0xB2, 0xA1};
    constexpr std::array<std::uint8_t, 4> pcapng{0x0A, 0x0D, 0x0D, 0x0A};
    const auto beginsWith = [data, size](const auto& magic) {
        return size >= magic.size() && std::equal(magic.begin(), magic.end(), data);
    };
    return beginsWith(pcap) || beginsWith(pcapInNanoseconds) || beginsWith(pcapng);
}

// A file in memory.
class MemoryFile {
public:
    MemoryFile(const std::uint8_t* data, std::size_t size) : m_descriptor(memfd_create("capture", 0))
    {
        require(m_descriptor >= 0, "there is memory for a file");
        require(::write(m_descriptor, data, size) == static_cast<ssize_t>(size), "the file takes it");
    }
    ~MemoryFile() { close(m_descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string getPath() const { return "/proc/self/fd/" + std::to_string(m_descriptor); }

private:
    int m_descriptor;
};

CapturedUrb frameOf(const std::uint8_t* bytes)
{
    constexpr std::array<std::int32_t, 8> statuses{0, 0, -EPIPE, -ENOENT, -ESHUTDOWN, -EPROTO, -EREMOTEIO, 77};
    constexpr std::array<std::uint8_t, 4> endpoints{0x80, 0x81, 0x02, 0x00};
    CapturedUrb urb;
    urb.event = (bytes[0] & 1) == 0 ? CapturedUrb::Event::Submit : CapturedUrb::Event::Complete;
    if ((bytes[0] & 0xF0) == 0xF0)
        urb.event = CapturedUrb::Event::Error;
    urb.endpoint = endpoints[(bytes[0] >> 1) & 3];
    urb.transfer = (urb.endpoint & 3) == 0 ? CapturedUrb::Transfer::Control : CapturedUrb::Transfer::Bulk;
    urb.device = bytes[1] & 3;
    urb.status = statuses[(bytes[1] >> 2) & 7];
    urb.id = bytes[2] & 7;
    urb.time = std::chrono::milliseconds(bytes[3]);
    urb.setupFlag = CapturedUrb::follows;
    urb.setup = {0x80, 6, static_cast<std::uint8_t>(bytes[4] >> 4), static_cast<std::uint8_t>(bytes[4] & 3), 0, 0,
                 0,    1};
    return urb;
}

void readFrames(const std::uint8_t* data, std::size_t size, SessionReader& reader)
{
    constexpr std::size_t headSize = 6;
    while (size >= headSize) {
        CapturedUrb urb = frameOf(data);
        const std::size_t length = data[5];
        data += headSize;
        size -= headSize;
        const std::size_t taken = std::min(length, size);
        urb.data.assign(data, data + taken);
        urb.length = static_cast<std::uint32_t>(length);
        data += taken;
        size -= taken;
        reader.add(std::move(urb));
    }
}

// What the host sent comes again in packets of one record; it reads all the time.
class Host {
public:
    Host(Replay& replay, unsigned int panel, std::chrono::nanoseconds& now)
        : m_now(now), m_model(prepare(replay, panel), [this] { return m_now; })
    {}

    void live(const RecordedSession::Life& life)
    {
        ControlEndpoint control(m_model, ControlEndpoint::onlyConfiguration);
        control.answer({0x80, 6, 2, 3, 0, 0, 255, 0});
        for (const RecordedSession::HostRecord& record : life.records)
            send(record);
        // Each answer takes no longer than it did, and the patience with what does not come.
        for (std::size_t i = 0; i <= life.steps.size() && !m_model.isUnplugged(); ++i) {
            read();
            if (const auto deadline = m_model.nextDeadline())
                m_now = std::max(m_now, *deadline);
            m_model.takeCompletions();
        }
    }

private:
    static PanelModel::Options prepare(Replay& replay, unsigned int panel)
    {
        PanelModel::Options options;
        replay.prepare(panel, options);
        return options;
    }

    void send(const RecordedSession::HostRecord& record)
    {
        const std::size_t size = sizeof(PacketHeader) + sizeof(RecordHeader) + record.payload.size();
        const Bytes head{static_cast<std::uint8_t>(size),
                         static_cast<std::uint8_t>(size >> 8),
                         1,
                         0,
                         0,
                         0,
                         0,
                         0,
                         static_cast<std::uint8_t>(record.type),
                         static_cast<std::uint8_t>(record.payload.size()),
                         static_cast<std::uint8_t>(record.payload.size() >> 8)};
        // Again until it is taken, as long as there are faults.
        const std::uint64_t before = m_model.getStatistics().recordsReceived;
        for (int i = 0; i < 300 && m_model.getStatistics().recordsReceived == before && !m_model.isUnplugged(); ++i) {
            m_model.submitOut(this, ++m_urb, joined({head, record.payload}), true);
            if (const auto deadline = m_model.nextDeadline())
                m_now = std::max(m_now, *deadline);
            m_model.takeCompletions();
            m_model.cancel(m_urb);
        }
        read();
    }

    void read()
    {
        if (!m_model.isBeingRead())
            m_model.submitIn(this, ++m_urb, 512);
        m_model.takeCompletions();
    }

    std::chrono::nanoseconds& m_now;
    PanelModel m_model;
    PanelModel::UrbId m_urb = 0;
};

void compareWithItself(const RecordedSession& session, bool wholeOrder)
{
    RecordComparison comparison(session, {wholeOrder, {}});
    for (std::size_t panel = 0; panel < session.panels.size(); ++panel)
        for (const RecordedSession::Life& life : session.panels[panel].lives)
            for (const RecordedSession::HostRecord& record : life.records)
                comparison.add(static_cast<unsigned int>(panel), record.type, record.payload, record.time);
    require(comparison.describeDifferences().empty(), "a session is like itself");
}

void play(const RecordedSession& session, bool isFast)
{
    std::chrono::nanoseconds now{0};
    Replay replay(session, isFast, {}, [](const std::string&) {});
    for (std::size_t panel = 0; panel < session.panels.size(); ++panel)
        for (const RecordedSession::Life& life : session.panels[panel].lives) {
            Host(replay, static_cast<unsigned int>(panel), now).live(life);
            replay.getNextTime();
            replay.takeDue(now);
        }
    replay.describeRest();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    try {
        RecordedSession session;
        if (isFile(data, size)) {
            session = SessionReader::readFile(MemoryFile(data, size).getPath());
        } else {
            SessionReader reader;
            readFrames(data, size, reader);
            session = reader.finish();
        }
        compareWithItself(session, false);
        compareWithItself(session, true);
        RecordComparison(session, {}).describeDifferences();
        play(session, false);
        play(session, true);
    } catch (const std::runtime_error&) { // of no use, and says so
    }
    return 0;
}
