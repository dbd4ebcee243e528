#include "simulator/web/RequestGuard.h"

#include "simulator/web/RandomText.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>

#include <unistd.h>

namespace Vantor {

namespace {

constexpr std::size_t tokenDigits = 32;
constexpr std::uint16_t usualPort = 80; // which nobody writes

std::string toLower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return text;
}

// In a time that does not tell how much of it is right.
bool isSame(const std::string& one, const std::string& other)
{
    if (one.size() != other.size())
        return false;
    unsigned int difference = 0;
    for (std::size_t i = 0; i < one.size(); ++i)
        difference |= static_cast<unsigned char>(one[i]) ^ static_cast<unsigned char>(other[i]);
    return difference == 0;
}

} // namespace

RequestGuard::RequestGuard(const WebAddress& address, std::uint16_t port)
    : m_isLoopback(address.isLoopback()), m_port(port), m_token(makeRandomText(tokenDigits))
{}

std::string RequestGuard::getHostName()
{
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

bool RequestGuard::isOurs(const std::string& host) const
{
    const std::string suffix = ":" + std::to_string(m_port);
    const bool hasPort =
        host.size() > suffix.size() && host.compare(host.size() - suffix.size(), suffix.size(), suffix) == 0;
    if (!hasPort && m_port != usualPort)
        return false;
    std::string name = toLower(host.substr(0, host.size() - (hasPort ? suffix.size() : 0)));
    if (name == "localhost")
        return true;
    if (name.size() > 2 && name.front() == '[' && name.back() == ']')
        name = name.substr(1, name.size() - 2);
    if (m_isLoopback)
        return isIpAddress(name) && WebAddress{name, 0}.isLoopback();
    return isIpAddress(name) || (!name.empty() && name == toLower(getHostName()));
}

std::string RequestGuard::refuse(const std::string& path, const Header& header) const
{
    const std::string host = header("Host");
    if (!isOurs(host))
        return "not asked by the address of this page";
    const std::string origin = header("Origin");
    if (!origin.empty() && origin != "http://" + host)
        return "asked by a page of another origin";
    // A link to the page is one of another site, too.
    const std::string site = header("Sec-Fetch-Site");
    const bool isLinked = (path == "/" || path == "/index.html") && header("Sec-Fetch-Mode") == "navigate" &&
                          header("Sec-Fetch-Dest") == "document";
    if (!site.empty() && site != "same-origin" && site != "none" && !isLinked)
        return "asked by a page of another origin";
    return {};
}

std::string RequestGuard::refuseCommand(const Header& header) const
{
    const std::string token = header(tokenHeader);
    if (token.empty())
        return std::string("a command needs the header ") + tokenHeader + ", with what is behind the # of the address";
    return isSame(token, m_token) ? "" : "not the token of this simulation; its address has it behind the #";
}

} // namespace Vantor
