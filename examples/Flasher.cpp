// Writes firmware to the first panel: Flasher MAIN-IMAGE [SERVO-IMAGE]
//
// Exit code: 0 the panel has confirmed all of it; 1 nothing was sent, as there is no panel that
// can take it; 2 wrong usage, or no firmware images; 3 it is written in part: flash it again.

#include "libMorvaneHostUsb/Log.h"
#include "libMorvaneHostUsb/UsbManager.h"
#include "protocol/FirmwareData.h"
#include "protocol/PacketHeader.h"
#include "protocol/ReqDeviceInfo.h"
#include "wire/RecordHeader.h"

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>

using namespace Vantor;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds patience{15}; // with a panel that says nothing
constexpr std::uintmax_t most = 1 << 24;     // bytes of an image, more than any microcontroller has

struct Event {
    enum Kind { Information, Progress, Answer, Gone, Silence } kind;
    std::uint16_t uid;     // but of Progress
    std::uint32_t written; // of Progress: bytes that count as confirmed
    std::uint32_t total;   // of Progress: bytes of both images, as the library has read them
    FirmwareUpgradeCommand answer;
};

// From the library's threads to the application's.
class Events : public UsbManager::Observer {
public:
    void onDeviceAdded(std::uint16_t /*uid*/) override {}
    void onDeviceRemoved(std::uint16_t uid) override { add({Event::Gone, uid, 0, 0, {}}); }
    void onParsedPacket(std::uint16_t uid, const PacketType& type, const DataPacketUnion& data,
                        unsigned int /*length*/) override
    {
        if (type == PacketType::DeviceInformation)
            add({Event::Information, uid, 0, 0, {}});
        else if (type == PacketType::FirmwareUpgradeCommand)
            add({Event::Answer, uid, 0, 0, data.firmwareUpgradeCommand});
    }

    void add(const Event& event)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back(event);
        m_changed.notify_one();
    }

    // Silence, if there is none by then.
    Event take(Clock::time_point deadline)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_changed.wait_until(lock, deadline, [this] { return !m_events.empty(); }))
            return {Event::Silence, 0, 0, 0, {}};
        const Event event = m_events.front();
        m_events.pop_front();
        return event;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Event> m_events;
};

struct Result {
    int exitCode;
    std::string text;
};

Result refuse(const std::string& why)
{
    return {1, "nothing was sent: " + why};
}

// The library would take what can't be read for no image, with a log line only.
std::uint32_t sizeOf(const std::string& path)
{
    std::error_code error;
    const bool isFile = std::filesystem::is_regular_file(path, error) && std::ifstream(path).is_open();
    const std::uintmax_t size = isFile ? std::filesystem::file_size(path, error) : 0;
    return error || size > most ? 0 : static_cast<std::uint32_t>(size);
}

struct Image {
    std::string path; // empty: that MCU is left alone
    std::uint32_t size;
};

// Whether the panel has described itself, before which its packet limit is not known.
bool awaitInformation(UsbDevice& panel, Events& events)
{
    const Clock::time_point deadline = Clock::now() + patience;
    panel.getPacker().addData(ReqDeviceInfo{1}); // the library would ask in two seconds
    while (panel.getDeviceInfo() == nullptr) {
        const Event event = events.take(deadline);
        if (event.kind == Event::Silence || (event.kind == Event::Gone && event.uid == panel.getUid()))
            return false;
    }
    return true;
}

// A chunk that does not fit the panel's packets would wait for ever, and the upgrade with it.
bool takesChunks(const UsbDevice& panel)
{
    return panel.getDeviceInfo()->maxPacketSize >= sizeof(PacketHeader) + sizeof(RecordHeader) + sizeof(FirmwareData);
}

std::string explainSilence(std::uint8_t lastAnswer, bool isUpdating)
{
    if (lastAnswer == FirmwareUpgradeCommand::WriteFailed || lastAnswer == FirmwareUpgradeCommand::EraseFailed)
        return "the panel fails to write its flash memory: re-plug it and start again";
    return isUpdating ? "the panel has stopped answering: re-plug it and start again"
                      : "the panel has not confirmed all of it: start again";
}

// docs/firmware.md shows the lines from here
using Chunks = std::set<std::pair<std::uint8_t, std::uint32_t>>; // by board and address

void addChunks(Chunks& chunks, FirmwareData::Board board, const Image& image)
{
    for (std::uint32_t address = 0; address < image.size; address += FirmwareData::chunkSize)
        chunks.emplace(board, address);
}

// The library tells progress, and no end but by that: an upgrade that can't go on stays, and
// can only be left. `chunks` are those that the panel has yet to confirm.
Result follow(const UsbDevice& panel, Events& events, Chunks chunks, std::uint32_t size)
{
    std::uint32_t written = 0;
    std::uint8_t lastAnswer = FirmwareUpgradeCommand::SendAgain;
    Clock::time_point deadline = Clock::now() + patience;
    while (written < size || !chunks.empty()) {
        const Event event = events.take(deadline);
        if (event.kind == Event::Gone && event.uid == panel.getUid())
            return {3, "the panel has gone (" + panel.getFailure().toString() + "): plug it in and start again"};
        if (event.kind == Event::Answer && event.uid == panel.getUid()) {
            lastAnswer = event.answer.command;                  // a failure is tried again
            const std::uint32_t address = event.answer.address; // of a packed record, which nothing may refer to
            if (lastAnswer == FirmwareUpgradeCommand::ChunkWritten)
                chunks.erase({event.answer.board, address});
        }
        if (event.kind == Event::Progress && event.total != size)
            return {3, "the images have changed meanwhile: start again"};
        if (event.kind == Event::Progress && event.written > written) {
            written = event.written;
            deadline = Clock::now() + patience;
            std::printf("%u of %u bytes\n", written, size);
        }
        if (event.kind == Event::Silence)
            return {3, explainSilence(lastAnswer, panel.isUpdating())};
    }
    return {0, "written"};
}

Result flash(UsbDevice& panel, const std::shared_ptr<Events>& events, const Image& main, const Image& servo)
{
    Chunks chunks;
    addChunks(chunks, FirmwareData::MainMcu, main);
    addChunks(chunks, FirmwareData::ServoMcu, servo);
    // The device keeps the callback, which may be called after the end: so it owns what it
    // writes to. It must not own the device.
    panel.startFirmwareUpgrade(main.path, servo.path, [events](const UsbDevice::FirmwareProgress& progress) {
        events->add({Event::Progress, 0, progress.bytesWritten, progress.totalBytes, {}});
    });
    return follow(panel, *events, chunks, main.size + servo.size);
}
// to here.

Result flashFirst(const std::shared_ptr<Events>& events, const Image& main, const Image& servo)
{
    const auto panels = UsbManager::getUsbManager()->getDeviceListSafe();
    if (panels.empty())
        return refuse("no panel is attached");
    UsbDevice& panel = *panels.front();
    if (!panel.isAlive())
        return refuse("the panel can't be used (" + panel.getFailure().toString() + ")");
    if (!awaitInformation(panel, *events))
        return refuse("the panel does not answer");
    if (!takesChunks(panel))
        return refuse("the panel takes no packet as large as a chunk");
    return flash(panel, events, main, servo);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2 && argc != 3) {
        std::puts("usage: Flasher MAIN-IMAGE [SERVO-IMAGE]");
        return 2;
    }
    for (int i = 1; i < argc; ++i) {
        if (sizeOf(argv[i]) == 0) {
            std::printf("'%s' is no firmware image\n", argv[i]);
            return 2;
        }
    }
    const Image main{argv[1], sizeOf(argv[1])};
    const Image servo = argc == 3 ? Image{argv[2], sizeOf(argv[2])} : Image{"", 0};

    std::signal(SIGPIPE, SIG_IGN); // a reader that has gone ends no upgrade
    setLogLevel(LogLevel::Error);
    const auto events = std::make_shared<Events>();
    UsbManager* const manager = UsbManager::getUsbManager();
    manager->registerObserver(events.get());
    manager->initialise(); // opens the panels that are attached
    const Result result = flashFirst(events, main, servo);
    UsbManager::destroyUsbManager();
    std::puts(result.text.c_str());
    return result.exitCode;
}
