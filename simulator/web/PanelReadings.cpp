#include "simulator/web/PanelReadings.h"

#include <tuple>

namespace Vantor {

namespace {

PanelReadings::Image read(const BootLoader::Image& image)
{
    return {image.state, image.size, image.written, image.crc};
}

auto asTuple(const PanelReadings::Image& image)
{
    return std::tuple(image.state, image.size, image.written, image.crc);
}

auto asTuple(const BootLoader::Statistics& counts)
{
    return std::tuple(counts.records, counts.requestsAccepted, counts.requestsRefused, counts.chunksWritten,
                      counts.chunksRefused, counts.recordsLost, counts.replies);
}

} // namespace

PanelReadings PanelReadings::of(const PanelModel& model)
{
    const PanelModel::Statistics& counts = model.getStatistics();
    const BootLoader& bootLoader = model.getBootLoader();
    PanelReadings readings;
    readings.packetsOut = counts.packetsReceived;
    readings.bytesOut = counts.bytesReceived;
    readings.recordsOut = counts.recordsReceived;
    readings.packetsIn = counts.packetsSent;
    readings.bytesIn = counts.bytesSent;
    readings.main = read(bootLoader.getFlash().main);
    readings.servo = read(bootLoader.getFlash().servo);
    readings.firmware = bootLoader.getStatistics();
    return readings;
}

bool PanelReadings::hasTrafficOf(const PanelReadings& other) const
{
    return std::tie(packetsOut, bytesOut, recordsOut, packetsIn, bytesIn) ==
           std::tie(other.packetsOut, other.bytesOut, other.recordsOut, other.packetsIn, other.bytesIn);
}

bool PanelReadings::hasFirmwareOf(const PanelReadings& other) const
{
    return asTuple(main) == asTuple(other.main) && asTuple(servo) == asTuple(other.servo) &&
           asTuple(firmware) == asTuple(other.firmware);
}

} // namespace Vantor
