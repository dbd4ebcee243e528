// What a host may do to a panel: any bytes, in URBs of any size, one every 20 ms. An input
// is a sequence of URBs, each a 16-bit word (bits 0 to 14: its size, bit 15: it ends a
// transfer) and its bytes.
#include "simulator/panel/PanelModel.h"
#include "tests/fuzz/Require.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

using namespace Vantor;

namespace {

void submit(PanelModel& panel, std::chrono::nanoseconds& now, const std::uint8_t* data, std::size_t size)
{
    PanelModel::UrbId urb = 0;
    while (size >= 2) {
        const unsigned int word = data[0] | static_cast<unsigned int>(data[1]) << 8;
        data += 2;
        size -= 2;
        const std::size_t length = std::min<std::size_t>(word & 0x7FFF, size);
        panel.submitOut(&panel, ++urb, {data, data + length}, (word & 0x8000) != 0);
        data += length;
        size -= length;
        now += std::chrono::milliseconds(20);
    }
    require(panel.takeCompletions().size() == urb, "every URB completes");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::chrono::nanoseconds now{0};
    PanelModel panel({}, [&now] { return now; });
    std::uint64_t observed = 0;
    std::size_t payloads = 0;
    panel.setRecordObserver([&observed, &payloads](const PanelModel::Record& record) {
        ++observed;
        payloads += record.payload.size();
    });
    submit(panel, now, data, size);
    const PanelModel::Statistics& statistics = panel.getStatistics();
    require(observed == statistics.recordsReceived && observed == panel.getRecords().size(),
            "every record is observed");
    require(payloads <= statistics.bytesReceived && statistics.bytesReceived <= size, "no byte is made up");
    require(panel.getScreens().size() <= PanelModel::maxScreens, "screens are bounded");
    for (const auto& [lcd, screen] : panel.getScreens())
        for (const std::uint32_t pixel : screen.getPixels())
            require(pixel <= 0xFFFFFF, "a pixel has 24 bits");
    const BootLoader::Flash& flash = panel.getBootLoader().getFlash();
    require(flash.main.bytes.size() + flash.servo.bytes.size() <= size, "no byte of flash is made up");
    panel.unplug();
    require(!panel.nextDeadline(), "an unplugged panel has nothing to do");
    require(panel.getViolations().size() <= PanelModel::maxViolations + 1, "violations are bounded");
    return 0;
}
