#include "simulator/panelsim/OrderLine.h"

#include "simulator/bus/PanelBus.h"

#include <string>

namespace Vantor {

namespace {

constexpr std::string_view blanks = " \t\r\n";

// Where the remark begins, or the end: '#' in a word is a part of it.
std::size_t findRemark(std::string_view line)
{
    std::size_t at = line.find('#');
    while (at != std::string_view::npos && at != 0 && blanks.find(line[at - 1]) == std::string_view::npos)
        at = line.find('#', at + 1);
    return at;
}

} // namespace

std::string_view OrderLine::contentOf(std::string_view line)
{
    line = line.substr(0, findRemark(line));
    const std::size_t begin = line.find_first_not_of(blanks);
    if (begin == std::string_view::npos)
        return {};
    return line.substr(begin, line.find_last_not_of(blanks) + 1 - begin);
}

ParsedOrder OrderLine::parse(std::string_view line)
{
    ParsedOrder parsed = parsePanelOrder(line);
    if (parsed.order && panelOf(*parsed.order) >= PanelBus::maxPanels)
        return {std::nullopt, "panels are numbered 0 to " + std::to_string(PanelBus::maxPanels - 1)};
    return parsed;
}

} // namespace Vantor
