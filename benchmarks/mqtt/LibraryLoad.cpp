// What the library alone does for panels, without a gateway: batches of records as a gateway
// gives them to it, or pictures, the next when the panel has taken the last:
//   libraryLoad PANELS BYTES|picture SECONDS
// Prints how many were taken in a second. Run under panelsim.
#include "libMorvaneHostUsb/ClientLcdBitmap.h"
#include "libMorvaneHostUsb/Log.h"
#include "libMorvaneHostUsb/UsbManager.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace Vantor;

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned int mostRecords = 64; // in a gateway's batch
constexpr unsigned int packetRoom = 8192 - 8;
constexpr unsigned int recordOverhead = 3;

// Wakes who waits when a panel has taken something. Without an observer, nothing that comes in
// is looked at, device informations neither.
class Witness : public UsbManager::Observer, public UsbManager::SendObserver {
public:
    void await()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_for(lock, std::chrono::milliseconds(100), [this] { return std::exchange(m_hasChanged, false); });
    }

private:
    void onDeviceAdded(std::uint16_t /*uid*/) override {}
    void onDeviceRemoved(std::uint16_t /*uid*/) override {}
    void onParsedPacket(std::uint16_t /*uid*/, const PacketType& /*type*/, const DataPacketUnion& /*data*/,
                        unsigned int /*length*/) override
    {}
    void onSendEnded(std::uint16_t /*uid*/) override
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_hasChanged = true;
        }
        m_changed.notify_one();
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_hasChanged = false;
};

class Line {
public:
    Line(std::shared_ptr<UsbDevice> panel, const std::string& payload)
        : m_panel(std::move(panel)), m_payload(payload == "picture" ? "" : std::string(std::stoul(payload), 'x')),
          m_batch(m_payload.empty()
                      ? 1
                      : std::min<std::size_t>(mostRecords, packetRoom / (m_payload.size() + recordOverhead)))
    {}

    // What was taken, since the last call.
    std::size_t drive()
    {
        PriorityPacker& packer = m_panel->getPacker();
        const std::size_t taken = m_isUp && hasLanded(packer.getProgress()) ? m_batch : 0;
        if (!m_isUp || taken != 0)
            start(packer);
        return taken;
    }

private:
    bool hasLanded(const PriorityPacker::Progress& progress)
    {
        if (!m_lastPacket && progress.waitingRecords == 0 && progress.waitingPictures == 0)
            m_lastPacket = progress.endedPackets + (progress.isUnderWay ? 1 : 0);
        return m_lastPacket && progress.endedPackets >= *m_lastPacket;
    }

    void start(PriorityPacker& packer)
    {
        m_isUp = true;
        m_lastPacket.reset();
        if (m_payload.empty()) {
            ClientLcdBitmap picture(144, 168, 1);
            std::fill_n(picture.data(), picture.size(), m_isDark ? 0x5A : 0xA5); // no row as it was
            m_isDark = !m_isDark;
            packer.drawBitmapData(std::move(picture));
        }
        for (std::size_t record = 0; !m_payload.empty() && record < m_batch; ++record)
            packer.addStructData(m_payload.data(), static_cast<unsigned int>(m_payload.size()),
                                 static_cast<PacketType>(5));
    }

    const std::shared_ptr<UsbDevice> m_panel;
    const std::string m_payload; // empty: pictures
    const std::size_t m_batch;
    bool m_isUp = false;
    bool m_isDark = false;
    std::optional<std::uint64_t> m_lastPacket;
};

std::vector<Line> awaitLines(UsbManager& manager, std::size_t count, const std::string& payload)
{
    const auto end = Clock::now() + std::chrono::seconds(30);
    while (Clock::now() < end) {
        std::vector<Line> lines;
        for (const auto& panel : manager.getDeviceListSafe()) {
            if (panel->getDeviceInfo() != nullptr)
                lines.emplace_back(panel, payload);
        }
        if (lines.size() == count)
            return lines;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    throw std::runtime_error("the panels have not come");
}

double measure(Witness& witness, std::vector<Line> lines, double seconds)
{
    std::size_t taken = 0;
    const auto start = Clock::now();
    double passed = 0;
    while (passed < seconds) {
        for (Line& line : lines)
            taken += line.drive();
        witness.await();
        passed = std::chrono::duration<double>(Clock::now() - start).count();
    }
    return static_cast<double>(taken) / passed;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fputs("usage: libraryLoad PANELS BYTES|picture SECONDS\n", stderr);
        return 2;
    }
    try {
        setLogLevel(LogLevel::Error);
        UsbManager* const manager = UsbManager::getUsbManager();
        Witness witness;
        manager->registerObserver(&witness);
        manager->registerSendObserver(&witness);
        manager->initialise();
        const double rate = measure(witness, awaitLines(*manager, std::stoul(argv[1]), argv[2]), std::stod(argv[3]));
        UsbManager::destroyUsbManager();
        std::printf("%.1f\n", rate);
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "libraryLoad: %s\n", failure.what());
        return 1;
    }
}
