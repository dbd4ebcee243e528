#include "panel2mqtt/ServiceManager.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Vantor::ServiceManager {

void notify(std::string_view state)
{
    const char* const path = std::getenv("NOTIFY_SOCKET"); // NOLINT(concurrency-mt-unsafe): nobody sets it
    const std::size_t length = path != nullptr ? std::strlen(path) : 0;
    sockaddr_un address{};
    if (length == 0 || length >= sizeof address.sun_path)
        return;
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path, length);
    if (path[0] == '@')
        address.sun_path[0] = 0; // an abstract one
    const int channel = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (channel < 0)
        return;
    sendto(channel, state.data(), state.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address),
           static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length));
    close(channel);
}

} // namespace Vantor::ServiceManager
