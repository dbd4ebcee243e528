#include "panel2mqtt/settings/BrokerProbe.h"

#include "panelctl/terminal/Wording.h"

#include <cerrno>
#include <memory>

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Vantor {

namespace {

class ProbeSocket {
public:
    explicit ProbeSocket(const addrinfo& address)
        : m_descriptor(
              socket(address.ai_family, address.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, address.ai_protocol))
    {}
    ~ProbeSocket()
    {
        if (m_descriptor >= 0)
            close(m_descriptor);
    }
    ProbeSocket(const ProbeSocket&) = delete;
    ProbeSocket& operator=(const ProbeSocket&) = delete;

    // 0, or an errno.
    int connectTo(const addrinfo& address, std::chrono::milliseconds limit) const
    {
        if (m_descriptor < 0)
            return errno;
        if (connect(m_descriptor, address.ai_addr, address.ai_addrlen) == 0)
            return 0;
        if (errno != EINPROGRESS)
            return errno;
        pollfd awaited{m_descriptor, POLLOUT, 0};
        const int ready = poll(&awaited, 1, static_cast<int>(limit.count()));
        if (ready <= 0)
            return ready == 0 ? ETIMEDOUT : errno;
        int error = 0;
        socklen_t size = sizeof error;
        return getsockopt(m_descriptor, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
    }

private:
    const int m_descriptor;
};

} // namespace

BrokerProbe BrokerProbe::run(const std::string& address, std::uint16_t port, std::chrono::milliseconds limit)
{
    addrinfo wanted{};
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(address.c_str(), std::to_string(port).c_str(), &wanted, &found);
    if (error != 0)
        return {Outcome::NoSuchName, error == EAI_SYSTEM ? describeError(errno) : gai_strerror(error)};
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owned(found, freeaddrinfo);
    int last = 0;
    for (const addrinfo* one = found; one != nullptr; one = one->ai_next) {
        last = ProbeSocket(*one).connectTo(*one, limit);
        if (last == 0)
            return {Outcome::Reached, ""};
    }
    return {Outcome::NotReached, describeError(last)};
}

} // namespace Vantor
