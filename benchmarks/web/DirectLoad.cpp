// The page's server over panels without a bus, which would be the limit: what pictureLoad
// does, written straight into the panels.
//   directLoad PANELS LCDS PICTURES-A-SECOND SECONDS [--without-web]
// Prints the address as panelsim does, and a line when it begins.

#include "protocol/PacketHeader.h"
#include "protocol/PacketType.h"
#include "simulator/bus/PanelBus.h"
#include "simulator/web/PanelBoard.h"
#include "simulator/web/WebServer.h"
#include "wire/RecordHeader.h"
#include "wire/SliceHeader.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using namespace Vantor;

namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t width = 144;
constexpr std::uint8_t height = 168;

// Panels that nothing but this program can reach.
class DirectBus : public PanelBus {
public:
    DirectBus(unsigned int panels, PanelBoard* board)
    {
        PanelModel::Options options;
        options.keepRecords = false;
        for (unsigned int panel = 0; panel < panels; ++panel) {
            m_models.push_back(std::make_unique<PanelModel>(options, [] { return Clock::now().time_since_epoch(); }));
            if (board == nullptr)
                continue;
            PanelModel& model = *m_models.back();
            model.setRecordObserver(
                [board, panel](const PanelModel::Record& record) { board->onRecord(panel, record); });
            model.setDrawObserver(
                [board, panel](const PanelModel::Drawing& drawing) { board->onDrawn(panel, drawing); });
            board->onPlugged(panel, model);
        }
    }

    void write(unsigned int panel, const Bytes& transfer)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_models[panel]->submitOut(this, 1, transfer, true);
        m_models[panel]->takeCompletions();
    }

    bool visit(unsigned int panel, const std::function<void(PanelModel&)>& visitor) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (panel >= m_models.size())
            return false;
        visitor(*m_models[panel]);
        return true;
    }
    void setFlash(unsigned int /*panel*/, BootLoader::Flash /*flash*/) override {}
    void plug(unsigned int /*panel*/) override {}
    void unplug(unsigned int /*panel*/) override {}
    void execute(const PanelOrder& /*order*/) override {}
    void schedule(std::chrono::nanoseconds /*delay*/, const PanelOrder& /*order*/) override {}
    std::vector<TimedOrder> takePending() override { return {}; }
    std::vector<std::string> getViolations() const override { return {}; }

private:
    std::mutex m_mutex;
    std::vector<std::unique_ptr<PanelModel>> m_models;
};

template <typename Part> void append(Bytes& bytes, const Part& part)
{
    const auto* const begin = reinterpret_cast<const std::uint8_t*>(&part);
    bytes.insert(bytes.end(), begin, begin + sizeof part);
}

// A packet with a picture as one slice: the stripes of pictureLoad.
Bytes makeTransfer(unsigned int lcd, std::uint64_t frame)
{
    constexpr std::size_t pixels = std::size_t{width} / 8 * height;
    constexpr std::size_t size = sizeof(SliceHeader) + pixels;
    PacketHeader packet{};
    packet.length = static_cast<std::uint16_t>(sizeof packet + sizeof(RecordHeader) + size);
    packet.count = 1;
    RecordHeader record{};
    record.type = static_cast<std::uint8_t>(PacketType::LcdSlice);
    record.length = static_cast<std::uint16_t>(size);
    SliceHeader slice{};
    slice.lcd = static_cast<std::uint16_t>(lcd);
    slice.width = width;
    slice.rows = height;
    slice.bitsPerPixel = 1;
    Bytes bytes;
    bytes.reserve(packet.length);
    append(bytes, packet);
    append(bytes, record);
    append(bytes, slice);
    for (std::size_t i = 0; i < pixels; ++i)
        bytes.push_back(static_cast<std::uint8_t>(0xF0U >> ((i / (width / 8) + frame) % 8) | (i + frame) % 3));
    return bytes;
}

struct Load {
    unsigned int panels;
    unsigned int lcds;
    double rate;
    double seconds;
};

void draw(DirectBus& bus, const Load& load)
{
    const auto start = Clock::now();
    const auto frames = static_cast<std::uint64_t>(load.rate * load.seconds);
    for (std::uint64_t frame = 0; frame < frames; ++frame) {
        for (unsigned int lcd = 0; lcd < load.lcds; ++lcd) {
            const Bytes transfer = makeTransfer(lcd, frame);
            for (unsigned int panel = 0; panel < load.panels; ++panel)
                bus.write(panel, transfer);
        }
        std::this_thread::sleep_until(start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(
                                                  static_cast<double>(frame + 1) / load.rate)));
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 5) {
        std::fputs("usage: directLoad PANELS LCDS PICTURES-A-SECOND SECONDS [--without-web]\n", stderr);
        return 2;
    }
    const Load load{static_cast<unsigned int>(std::atoi(argv[1])), static_cast<unsigned int>(std::atoi(argv[2])),
                    std::atof(argv[3]), std::atof(argv[4])};
    const bool isWatched = argc == 5;
    PanelBoard board;
    DirectBus bus(load.panels, isWatched ? &board : nullptr);
    std::unique_ptr<WebServer> server;
    if (isWatched) {
        board.begin();
        const auto useBus = [&bus](const std::function<void(PanelBus&)>& use) {
            use(bus);
            return true;
        };
        server = std::make_unique<WebServer>(board, WebAddress{}, useBus,
                                             [](const std::string& /*line*/) { return "no command is taken"; });
        std::fprintf(stderr, "panelsim: the panels are at %s\n", server->getUrl().c_str());
    }
    std::puts("drawing");
    std::fflush(stdout);
    draw(bus, load);
    if (server)
        server->end();
}
