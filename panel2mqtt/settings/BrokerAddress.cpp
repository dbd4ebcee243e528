#include "panel2mqtt/settings/BrokerAddress.h"

#include <stdexcept>
#include <utility>

namespace Vantor {

void setBrokerAddress(BrokerSettings& settings, const std::string& text)
{
    // Not repeated: it may be a password.
    if (text.find('@') != std::string::npos)
        throw std::invalid_argument("expected ADDRESS[:PORT]; the user and a file with the password are broker.user "
                                    "and broker.password_file of the configuration");
    const auto colon = text.rfind(':');
    const bool isIpv6 = text.find(':') != colon && text.back() != ']' && text.front() != '[';
    const bool hasPort = colon != std::string::npos && !isIpv6 && text.back() != ']';
    std::string address = hasPort ? text.substr(0, colon) : text;
    if (!address.empty() && address.front() == '[')
        address = address.back() == ']' ? address.substr(1, address.size() - 2) : "";
    if (address.empty())
        throw std::invalid_argument("expected ADDRESS[:PORT]");
    settings.address = std::move(address);
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
