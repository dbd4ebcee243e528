#include "simulator/web/WebAddress.h"

#include "simulator/bus/QuantityText.h"
#include "simulator/bus/UserText.h"

#include <arpa/inet.h>
#include <netinet/in.h>

namespace Vantor {

namespace {

bool isVersion6(const std::string& text)
{
    in6_addr address{};
    return inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

bool isVersion4(const std::string& text)
{
    in_addr address{};
    return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

ParsedWebAddress refuseAddress(std::string_view text)
{
    return {{}, UserText::expected("PORT or ADDRESS:PORT, the address in figures", text)};
}

} // namespace

bool isIpAddress(const std::string& text)
{
    return isVersion4(text) || isVersion6(text);
}

bool WebAddress::isLoopback() const
{
    in6_addr binary{};
    if (inet_pton(AF_INET6, address.c_str(), &binary) == 1)
        return IN6_IS_ADDR_LOOPBACK(&binary);
    return address.rfind("127.", 0) == 0;
}

std::string WebAddress::format(std::uint16_t chosenPort) const
{
    const std::string host = isVersion6(address) ? "[" + address + "]" : address;
    return host + ":" + std::to_string(chosenPort);
}

ParsedWebAddress parseWebAddress(std::string_view text)
{
    ParsedWebAddress parsed;
    if (text.empty())
        return parsed;
    const std::size_t colon = text.rfind(':');
    const auto port = parseNumber(colon == std::string_view::npos ? text : text.substr(colon + 1), UINT16_MAX);
    if (!port)
        return refuseAddress(text);
    parsed.address.port = static_cast<std::uint16_t>(*port);
    if (colon == std::string_view::npos)
        return parsed;
    std::string host(text.substr(0, colon));
    const bool isBracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
    if (isBracketed)
        host = host.substr(1, host.size() - 2);
    if (isBracketed ? !isVersion6(host) : !isVersion4(host))
        return refuseAddress(text);
    parsed.address.address = host;
    return parsed;
}

} // namespace Vantor
