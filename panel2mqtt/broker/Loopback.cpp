#include "panel2mqtt/broker/Loopback.h"

#include <cstring>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <strings.h>

namespace Vantor {

namespace {

bool isLoopback4(const in_addr& address)
{
    return (ntohl(address.s_addr) >> 24) == 127;
}

bool isLoopback6(const in6_addr& address)
{
    if (IN6_IS_ADDR_V4MAPPED(&address) != 0)
        return address.s6_addr[12] == 127;
    return std::memcmp(&address, &in6addr_loopback, sizeof address) == 0;
}

} // namespace

bool isLoopback(const std::string& address)
{
    in_addr four = {};
    if (inet_pton(AF_INET, address.c_str(), &four) == 1)
        return isLoopback4(four);
    in6_addr six = {};
    if (inet_pton(AF_INET6, address.c_str(), &six) == 1)
        return isLoopback6(six);
    return strcasecmp(address.c_str(), "localhost") == 0;
}

bool isLoopback(const sockaddr& address)
{
    if (address.sa_family == AF_INET) {
        sockaddr_in four = {};
        std::memcpy(&four, &address, sizeof four);
        return isLoopback4(four.sin_addr);
    }
    if (address.sa_family == AF_INET6) {
        sockaddr_in6 six = {};
        std::memcpy(&six, &address, sizeof six);
        return isLoopback6(six.sin6_addr);
    }
    return false;
}

} // namespace Vantor
