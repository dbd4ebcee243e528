#include "panelctl/session/UsbIds.h"

#include "wire/PanelLink.h"

#include <cstdio>

namespace Vantor::UsbIds {

namespace {

std::string format(std::uint16_t vendor)
{
    char text[16];
    std::snprintf(text, sizeof text, "%04x:%04x", static_cast<unsigned int>(vendor),
                  static_cast<unsigned int>(PanelLink::productId));
    return text;
}

} // namespace

std::vector<std::string> list()
{
    return list(MORVANE_PRODUCTION_VENDOR_ID);
}

std::vector<std::string> list(std::uint16_t productionVendor)
{
    std::vector<std::string> ids{format(PanelLink::developmentVendorId)};
    if (productionVendor != 0 && productionVendor != PanelLink::developmentVendorId)
        ids.push_back(format(productionVendor));
    return ids;
}

std::string join(const std::vector<std::string>& ids, const std::string& separator)
{
    std::string text;
    for (const std::string& id : ids)
        text += (text.empty() ? "" : separator) + id;
    return text;
}

std::string selectAll(const std::vector<std::string>& ids)
{
    return ids.size() == 1 ? ids.front() : ids.front().substr(ids.front().find(':'));
}

} // namespace Vantor::UsbIds
