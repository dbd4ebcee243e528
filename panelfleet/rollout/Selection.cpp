#include "panelfleet/rollout/Selection.h"

#include <algorithm>
#include <iterator>

#include <fnmatch.h>

namespace Vantor {

namespace {

bool fits(const std::string& pattern, const std::string& text)
{
    return fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
}

bool fitsAny(const std::vector<std::string>& patterns, const std::string& text)
{
    return std::any_of(patterns.begin(), patterns.end(),
                       [&text](const std::string& pattern) { return fits(pattern, text); });
}

std::string hostOf(const std::string& panel)
{
    return panel.substr(0, panel.find('/'));
}

std::string placeOf(const std::string& panel)
{
    return panel.substr(panel.find('/') + 1);
}

} // namespace

bool Selection::matches(const std::string& host, const std::string& place) const
{
    if (isAll)
        return true;
    const bool isNamed = std::any_of(panels.begin(), panels.end(), [&](const std::string& panel) {
        return fits(hostOf(panel), host) && fits(placeOf(panel), place);
    });
    if (isNamed)
        return true;
    return (!hosts.empty() || !places.empty()) && (hosts.empty() || fitsAny(hosts, host)) &&
           (places.empty() || fitsAny(places, place));
}

bool Selection::matchesHost(const std::string& host) const
{
    const bool isNamed = std::any_of(panels.begin(), panels.end(),
                                     [&host](const std::string& panel) { return fits(hostOf(panel), host); });
    return isAll || isNamed || fitsAny(hosts, host) || (hosts.empty() && !places.empty());
}

std::vector<std::string> Selection::listNamed() const
{
    std::vector<std::string> named;
    std::copy_if(panels.begin(), panels.end(), std::back_inserter(named),
                 [](const std::string& panel) { return panel.find_first_of("*?[\\") == std::string::npos; });
    return named;
}

bool Selection::isPanel(const std::string& text)
{
    const std::size_t slash = text.find('/');
    return slash != std::string::npos && slash != 0 && slash + 1 != text.size() &&
           text.find('/', slash + 1) == std::string::npos;
}

} // namespace Vantor
