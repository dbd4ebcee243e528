#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Vantor::UsbIds {

// What the panels that this build finds are called on the bus: "dead:beef", and behind it
// production panels' id where the build knows their vendor.
std::vector<std::string> list();

// The same for any vendor of production panels; 0 is none.
std::vector<std::string> list(std::uint16_t productionVendor);

// "dead:beef", "dead:beef or 1a2b:beef"
std::string join(const std::vector<std::string>& ids, const std::string& separator);

// What of them all `lsusb -d` takes: the id, or ":beef" for several.
std::string selectAll(const std::vector<std::string>& ids);

} // namespace Vantor::UsbIds
