#include "panelctl/session/UsbIds.h"

#include "panelctl/terminal/Wording.h"
#include "wire/PanelLink.h"

namespace Vantor::UsbIds {

namespace {

std::string format(std::uint16_t vendor)
{
    return formatHex(vendor, 4) + ":" + formatHex(PanelLink::productId, 4);
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
