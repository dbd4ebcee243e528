#pragma once

#include "simulator/web/PanelBoard.h"
#include "simulator/web/PanelReadings.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Vantor {

// What the interface tells, as docs/web.md has it.
namespace WebJson {

// All that is told of a simulation at a moment, pictures aside.
struct State {
    std::string simulation;
    std::chrono::nanoseconds time;
    std::vector<PanelBoard::Panel> panels;
    AllReadings readings;
    std::vector<PanelBoard::Line> orders;
    std::vector<PanelBoard::Line> violations;
};

std::string format(const State& state);
std::string format(const PanelBoard::Panel& panel, const PanelReadings& readings);
std::string formatOrder(const PanelBoard::Line& order);
std::string formatViolation(const PanelBoard::Line& violation);
std::string format(const PanelBoard::Record& record);
std::string format(const PanelBoard::Records& records);
std::string formatTraffic(std::chrono::nanoseconds time, const AllReadings& readings);
std::string formatFirmware(unsigned int panel, const PanelReadings& readings);
std::string formatPixel(std::uint32_t colour, const std::optional<SliceTrail::Mark>& slice);
std::string formatError(const std::string& error);
std::string formatCommands(); // the command language

// Of a JSON object, without braces.
std::string membersOf(const PanelBoard::Lcd& lcd);

} // namespace WebJson

} // namespace Vantor
