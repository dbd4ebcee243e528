#include "tests/mqtt/StubbornPort.h"

#include <stdexcept>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Vantor {

StubbornPort::StubbornPort(Manner manner) : m_manner(manner), m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    const auto generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(m_listener, generic, size) != 0 || listen(m_listener, manner == Manner::SwallowsSyn ? 0 : 10) != 0 ||
        getsockname(m_listener, generic, &size) != 0)
        throw std::runtime_error("no port to be stubborn on");
    m_port = ntohs(address.sin_port);
    // Once the connections that nobody accepts are too many, further ones hear nothing.
    for (int filler = 0; manner == Manner::SwallowsSyn && filler < 4; ++filler) {
        m_sockets.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        connect(m_sockets.back(), generic, size);
    }
}

StubbornPort::~StubbornPort()
{
    for (const int socket : m_sockets)
        close(socket);
    close(m_listener);
}

std::string StubbornPort::accept()
{
    m_sockets.push_back(::accept(m_listener, nullptr, nullptr));
    if (m_manner == Manner::SpeaksNonsense) {
        // Long enough for what MQTT would take for a packet's length.
        const std::string nonsense = "HTTP/1.1 400 Bad Request\r\n\r\n" + std::string(200, '.');
        send(m_sockets.back(), nonsense.data(), nonsense.size(), MSG_NOSIGNAL);
    }
    std::string text(4096, '\0');
    const ssize_t count = recv(m_sockets.back(), text.data(), text.size(), 0);
    text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return text;
}

void StubbornPort::say(const std::string& bytes) const
{
    send(m_sockets.back(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

} // namespace Vantor
