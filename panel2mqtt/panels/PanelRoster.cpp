#include "panel2mqtt/panels/PanelRoster.h"

#include "panel2mqtt/panels/LibraryLine.h"
#include "protocol/PacketHeader.h"
#include "protocol/ReqDeviceInfo.h"
#include "wire/RecordHeader.h"

#include <algorithm>
#include <utility>

#include <nlohmann/json.hpp>

namespace Vantor {

namespace {

constexpr unsigned int overhead = sizeof(PacketHeader) + sizeof(RecordHeader);

using Json = nlohmann::ordered_json;

std::uint64_t sumOf(const TransferFailures& failures)
{
    return failures.timedOut + failures.stalled + failures.overflowed + failures.failed + failures.cancelled +
           failures.gone + failures.refused;
}

std::string describe(const DeviceInformation& info)
{
    const auto* const end = std::find(std::begin(info.description), std::end(info.description), 0);
    return {std::begin(info.description), end};
}

} // namespace

std::string PanelRoster::placeOf(UsbDevice& device)
{
    std::string place = std::to_string(device.getUid() >> 8);
    char separator = '-';
    for (const unsigned int port : device.getPortNumbers())
        place.append(1, std::exchange(separator, '.')).append(std::to_string(port));
    return place;
}

void PanelRoster::handle(PanelEvents::Batch batch, TimePoint now)
{
    for (PanelEvents::Event& event : batch.events) {
        if (event.kind == PanelEvents::Event::Kind::Added)
            add(event.uid, now);
        else if (event.kind == PanelEvents::Event::Kind::Removed)
            remove(event.uid, now);
        else
            receive(std::move(event), now);
    }
    for (const std::uint16_t uid : batch.sends) {
        const auto known = m_panels.find(uid);
        if (known != m_panels.end())
            m_desk.onProgress(known->second.place, now);
    }
}

void PanelRoster::add(std::uint16_t uid, TimePoint now)
{
    const auto device = m_manager.getDevice(uid);
    if (!device)
        return; // it has gone again
    const std::string place = placeOf(*device);
    if (!device->isAlive()) {
        m_say("the panel at " + place + " can't be used: " + device->getFailure().toString());
        m_desk.onPanelAway(place, "it can't be used: " + device->getFailure().toString(), now);
        return; // the library tries again
    }
    m_say("a panel has come at " + place);
    Panel& panel = m_panels[uid] = {place, false};
    if (device->getDeviceInfo() != nullptr)
        makeReady(panel, device, now);
    else
        device->getPacker().addData(ReqDeviceInfo{1}); // the library asks as well, in two seconds
}

void PanelRoster::makeReady(Panel& panel, const std::shared_ptr<UsbDevice>& device, TimePoint now)
{
    panel.isReady = true;
    const DeviceInformation& said = *device->getDeviceInfo();
    const auto line = std::make_shared<LibraryLine>(device);
    PanelInfo info;
    info.description = describe(said);
    info.maxPacketSize = said.maxPacketSize;
    info.payloadLimit = line->getPacketLimit() - overhead;
    m_desk.onPanelReady(panel.place, line, info, now);
}

void PanelRoster::remove(std::uint16_t uid, TimePoint now)
{
    const auto known = m_panels.extract(uid);
    if (!known)
        return;
    m_say("the panel at " + known.mapped().place + " has gone");
    m_desk.onPanelAway(known.mapped().place, "unplugged, or lost", now);
}

void PanelRoster::receive(PanelEvents::Event event, TimePoint now)
{
    const auto known = m_panels.find(event.uid);
    if (known == m_panels.end())
        return; // what it had sent before it went
    Panel& panel = known->second;
    if (event.type == PacketType::DeviceInformation && !panel.isReady) {
        const auto device = m_manager.getDevice(event.uid);
        if (device && device->getDeviceInfo() != nullptr)
            makeReady(panel, device, now);
    }
    m_desk.onRecord(panel.place, static_cast<unsigned int>(event.type), std::move(event.payload));
}

std::string PanelRoster::writeStatistics(UsbManager& manager, const std::string& host, const std::string& place,
                                         const PanelDesk::Counts& counts)
{
    Json json{
        {"host", host},
        {"place", place},
        {"commands",
         {{"taken", counts.taken}, {"busy", counts.busy}, {"expired", counts.expired}, {"waiting", counts.waiting}}}};
    for (const auto& device : manager.getDeviceListSafe()) {
        if (placeOf(*device) != place)
            continue;
        const DeviceStatistics all = device->getStatistics();
        json["sent"] = {{"packets", all.sent.packets},       {"bytes", all.sent.bytes},
                        {"records", all.sent.records},       {"pictures", all.sent.pictures},
                        {"cutPackets", all.sent.cutPackets}, {"failures", sumOf(all.sent.failures)}};
        json["received"] = {{"packets", all.received.packets},
                            {"bytes", all.received.bytes},
                            {"records", all.received.records},
                            {"malformedPackets", all.received.malformedPackets},
                            // A panel that has nothing to say lets each read time out.
                            {"failures", sumOf(all.received.failures) - all.received.failures.timedOut}};
    }
    return json.dump();
}

} // namespace Vantor
