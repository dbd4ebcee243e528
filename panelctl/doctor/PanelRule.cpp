#include "panelctl/doctor/PanelRule.h"

#include <sstream>

namespace Vantor::PanelRule {

const char* const fileName = "70-morvane-panel.rules";

namespace {

constexpr const char* blanks = " \t\r";

std::string withoutBlanks(const std::string& line)
{
    const std::size_t begin = line.find_first_not_of(blanks);
    return begin == std::string::npos ? "" : line.substr(begin, line.find_last_not_of(blanks) - begin + 1);
}

bool demands(const std::string& statement, const std::string& attribute, const std::string& value)
{
    return statement.find("ATTR{" + attribute + "}==\"" + value + "\"") != std::string::npos;
}

} // namespace

std::string strip(const std::string& rule)
{
    std::istringstream lines(rule);
    std::string stripped;
    for (std::string line; std::getline(lines, line);) {
        line = withoutBlanks(line);
        if (!line.empty() && line[0] != '#')
            stripped += line + "\n";
    }
    return stripped;
}

std::string findStatement(const std::string& rule, const std::string& id)
{
    const std::size_t colon = id.find(':');
    std::istringstream lines(strip(rule));
    for (std::string line; std::getline(lines, line);)
        if (demands(line, "idVendor", id.substr(0, colon)) && demands(line, "idProduct", id.substr(colon + 1)))
            return line;
    return "";
}

std::string findGroup(const std::string& statement)
{
    for (const std::string key : {"GROUP=\"", "GROUP:=\""}) {
        const std::size_t begin = statement.find(key);
        if (begin != std::string::npos)
            return statement.substr(begin + key.size(), statement.find('"', begin + key.size()) - begin - key.size());
    }
    return "";
}

} // namespace Vantor::PanelRule
