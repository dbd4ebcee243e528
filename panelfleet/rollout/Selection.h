#pragma once

#include <string>
#include <vector>

namespace Vantor {

// Which panels are meant. Patterns are the shell's.
//
// Threads: a plain value.
struct Selection {
    bool isAll = false;
    std::vector<std::string> panels; // "shop-17/1-4.2", or patterns of both
    std::vector<std::string> hosts;
    std::vector<std::string> places;

    // Nothing was asked for.
    bool isEmpty() const { return !isAll && panels.empty() && hosts.empty() && places.empty(); }

    bool matches(const std::string& host, const std::string& place) const;

    // Whether a panel of this host may be meant.
    bool matchesHost(const std::string& host) const;

    // Those of `panels` that are no patterns.
    std::vector<std::string> listNamed() const;

    // "HOST/PLACE", both not empty.
    static bool isPanel(const std::string& text);
};

} // namespace Vantor
