#include "panel2mqtt/settings/BrokerAddress.h"

#include <stdexcept>

namespace Vantor {

void setBrokerAddress(BrokerSettings& settings, const std::string& text)
{
    if (text.empty())
        throw std::invalid_argument("expected ADDRESS[:PORT]");
    const auto colon = text.rfind(':');
    const bool isIpv6 = text.find(':') != colon && text.back() != ']' && text.front() != '[';
    const bool hasPort = colon != std::string::npos && !isIpv6 && text.back() != ']';
    settings.address = hasPort ? text.substr(0, colon) : text;
    if (settings.address.size() > 2 && settings.address.front() == '[')
        settings.address = settings.address.substr(1, settings.address.size() - 2);
    if (!hasPort)
        return;
    const std::string port = text.substr(colon + 1);
    const bool isNumber =
        !port.empty() && port.size() <= 5 && port.find_first_not_of("0123456789") == std::string::npos;
    const int number = isNumber ? std::stoi(port) : 0;
    if (number < 1 || number > 65535)
        throw std::invalid_argument("'" + port + "' is no port: expected 1 to 65535");
    settings.port = static_cast<std::uint16_t>(number);
}

} // namespace Vantor
