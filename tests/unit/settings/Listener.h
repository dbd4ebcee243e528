#pragma once

#include <cstdint>
#include <stdexcept>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Vantor {

// A port of this machine, on which nobody accepts.
class Listener {
public:
    explicit Listener(int backlog = 8) : m_descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        if (bind(m_descriptor, generic, size) != 0 || listen(m_descriptor, backlog) != 0 ||
            getsockname(m_descriptor, generic, &size) != 0)
            throw std::runtime_error("no port");
        m_port = ntohs(address.sin_port);
    }
    ~Listener() { close(m_descriptor); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    std::uint16_t getPort() const { return m_port; }

private:
    const int m_descriptor;
    std::uint16_t m_port = 0;
};

// A port on which nobody listens any more.
inline std::uint16_t findClosedPort()
{
    return Listener().getPort();
}

} // namespace Vantor
