#include "simulator/web/WebJson.h"

#include "simulator/bus/OrderWords.h"
#include "simulator/bus/QuantityText.h"
#include "simulator/panel/RecordNames.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>
#include <variant>

#include <nlohmann/json.hpp>

namespace Vantor {

namespace {

using Json = nlohmann::ordered_json;

std::string dump(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

double toSeconds(std::chrono::nanoseconds time)
{
    constexpr double million = 1e6;
    return static_cast<double>(std::chrono::duration_cast<std::chrono::microseconds>(time).count()) / million;
}

std::string toHex(std::uint32_t number, const char* format)
{
    std::array<char, 12> text{};
    std::snprintf(text.data(), text.size(), format, static_cast<unsigned int>(number));
    return text.data();
}

const char* encodingOf(bool isEncoded)
{
    return isEncoded ? "run-length" : "raw";
}

Json toJson(const SliceTrail::Layer& layer)
{
    return {{"time", toSeconds(layer.time)},
            {"encoding", encodingOf(layer.isEncoded)},
            {"bitsPerPixel", layer.bitsPerPixel},
            {"x", layer.x},
            {"y", layer.y},
            {"width", layer.width},
            {"height", layer.height},
            {"slices", layer.slices},
            {"bytes", layer.bytes}};
}

Json toJson(const PanelBoard::Lcd& lcd)
{
    return {{"lcd", lcd.number},         {"width", lcd.size.width},
            {"height", lcd.size.height}, {"slices", lcd.slices},
            {"bytes", lcd.bytes},        {"layer", lcd.layer ? toJson(*lcd.layer) : Json(nullptr)}};
}

const char* nameOf(BootLoader::State state)
{
    switch (state) {
    case BootLoader::State::Untouched:
        return "untouched";
    case BootLoader::State::Incomplete:
        return "incomplete";
    case BootLoader::State::Verified:
        return "verified";
    default:
        return "mismatched";
    }
}

Json toJson(const PanelReadings::Image& image)
{
    return {{"state", nameOf(image.state)},
            {"size", image.size},
            {"written", image.written},
            {"crc", toHex(image.crc, "%08x")}};
}

Json firmwareOf(const PanelReadings& readings)
{
    const BootLoader::Statistics& counts = readings.firmware;
    return {{"main", toJson(readings.main)},
            {"servo", toJson(readings.servo)},
            {"records", counts.records},
            {"requestsAccepted", counts.requestsAccepted},
            {"requestsRefused", counts.requestsRefused},
            {"chunksWritten", counts.chunksWritten},
            {"chunksRefused", counts.chunksRefused},
            {"recordsLost", counts.recordsLost},
            {"replies", counts.replies}};
}

Json trafficOf(const PanelReadings& readings)
{
    return {{"out", {{"packets", readings.packetsOut}, {"bytes", readings.bytesOut}, {"records", readings.recordsOut}}},
            {"in", {{"packets", readings.packetsIn}, {"bytes", readings.bytesIn}}}};
}

Json toJson(const PanelBoard::Panel& panel, const PanelReadings& readings)
{
    Json lcds = Json::array();
    for (const PanelBoard::Lcd& lcd : panel.lcds)
        lcds.push_back(toJson(lcd));
    return {{"panel", panel.number},
            {"plugged", panel.isPlugged},
            {"id", toHex(panel.vendorId, "%04x") + ":" + toHex(panel.productId, "%04x")},
            {"maxPacketSize", panel.maxPacketSize},
            {"lcds", std::move(lcds)},
            {"firmware", firmwareOf(readings)},
            {"traffic", trafficOf(readings)}};
}

Json orderOf(const PanelBoard::Line& order)
{
    return {{"n", order.number}, {"time", toSeconds(order.time)}, {"line", order.text}};
}

Json violationOf(const PanelBoard::Line& violation)
{
    return {{"n", violation.number},
            {"time", toSeconds(violation.time)},
            {"panel", violation.panel},
            {"text", violation.text}};
}

PanelReadings readingsOf(const AllReadings& readings, unsigned int panel)
{
    const auto known = readings.find(panel);
    return known != readings.end() ? known->second : PanelReadings{};
}

template <typename Target> Json toJson(const OrderWords::Phrase<Target>& phrase)
{
    Json places = Json::array();
    for (const auto& place : phrase) {
        Json words = Json::array();
        for (const auto& word : place.words)
            words.push_back({{"name", word.name}, {"argument", word.argument}, {"help", word.help}});
        places.push_back({{"required", place.isRequired}, {"words", std::move(words)}});
    }
    return places;
}

} // namespace

std::string WebJson::format(const State& state)
{
    constexpr std::size_t lastOrders = 1000;
    Json types = Json::object();
    for (const auto& [type, name] : getRecordNames())
        types[std::to_string(static_cast<int>(type))] = name;
    Json panels = Json::array();
    for (const PanelBoard::Panel& panel : state.panels)
        panels.push_back(toJson(panel, readingsOf(state.readings, panel.number)));
    Json orders = Json::array();
    for (std::size_t i = state.orders.size() - std::min(state.orders.size(), lastOrders); i < state.orders.size(); ++i)
        orders.push_back(orderOf(state.orders[i]));
    Json violations = Json::array();
    for (const PanelBoard::Line& violation : state.violations)
        violations.push_back(violationOf(violation));
    return dump({{"version", MORVANE_PANELSIM_VERSION},
                 {"simulation", state.simulation},
                 {"time", toSeconds(state.time)},
                 {"types", std::move(types)},
                 {"panels", std::move(panels)},
                 {"orders", std::move(orders)},
                 {"violations", std::move(violations)}});
}

std::string WebJson::format(const PanelBoard::Panel& panel, const PanelReadings& readings)
{
    return dump(toJson(panel, readings));
}

std::string WebJson::formatOrder(const PanelBoard::Line& order)
{
    return dump(orderOf(order));
}

std::string WebJson::formatViolation(const PanelBoard::Line& violation)
{
    return dump(violationOf(violation));
}

// By hand, as there may be thousands a second.
std::string WebJson::format(const PanelBoard::Record& record)
{
    const RecordRing::Entry& entry = record.entry;
    std::array<char, 32> time{};
    std::snprintf(time.data(), time.size(), "%.6f", toSeconds(entry.time));
    std::string text = "{\"n\":" + std::to_string(record.number) + ",\"time\":" + time.data() +
                       ",\"panel\":" + std::to_string(entry.panel) + ",\"way\":\"" +
                       (entry.way == RecordRing::Way::Out ? "out" : "in") +
                       "\",\"type\":" + std::to_string(entry.type) + ",\"size\":" + std::to_string(entry.size) +
                       ",\"bytes\":\"";
    for (std::size_t i = 0; i < std::min<std::size_t>(entry.size, entry.bytes.size()); ++i)
        text += formatHex(entry.bytes[i]);
    return text + "\"}";
}

std::string WebJson::format(const PanelBoard::Records& records)
{
    std::string text = "{\"missed\":" + std::to_string(records.missed) + ",\"records\":[";
    for (const PanelBoard::Record& record : records.records)
        text += (text.back() == '[' ? "" : ",") + format(record);
    return text + "]}";
}

std::string WebJson::formatTraffic(std::chrono::nanoseconds time, const AllReadings& readings)
{
    Json panels = Json::array();
    for (const auto& [panel, of] : readings) {
        Json traffic = {{"panel", panel}};
        traffic.update(trafficOf(of));
        panels.push_back(std::move(traffic));
    }
    return dump({{"time", toSeconds(time)}, {"panels", std::move(panels)}});
}

std::string WebJson::formatFirmware(unsigned int panel, const PanelReadings& readings)
{
    return dump({{"panel", panel}, {"firmware", firmwareOf(readings)}});
}

std::string WebJson::formatPixel(std::uint32_t colour, const std::optional<SliceTrail::Mark>& slice)
{
    Json json = {{"colour", toHex(colour & 0xFFFFFF, "#%06x")}, {"slice", nullptr}};
    if (slice)
        json["slice"] = {{"n", slice->number},
                         {"time", toSeconds(slice->time)},
                         {"encoding", encodingOf(slice->isEncoded)},
                         {"bitsPerPixel", slice->bitsPerPixel},
                         {"x", slice->x},
                         {"y", slice->y},
                         {"width", slice->width},
                         {"rows", slice->rows},
                         {"bytes", slice->bytes}};
    return dump(json);
}

std::string WebJson::formatError(const std::string& error)
{
    return dump({{"error", error}});
}

std::string WebJson::formatCommands()
{
    Json orders = Json::array();
    for (const OrderWords::Opening& opening : OrderWords::openings()) {
        Json order = {{"verb", opening.verb}, {"second", opening.second}, {"places", Json::array()}};
        const auto add = [&order](const auto& phrase, const auto& /*target*/) { order["places"] = toJson(phrase); };
        std::visit([&add](const auto& alternative) { OrderWords::usePhrase(alternative, add); }, opening.order);
        orders.push_back(std::move(order));
    }
    return dump({{"orders", std::move(orders)}, {"help", explainPanelOrders()}});
}

std::string WebJson::membersOf(const PanelBoard::Lcd& lcd)
{
    const std::string object = dump(toJson(lcd));
    return object.substr(1, object.size() - 2);
}

} // namespace Vantor
