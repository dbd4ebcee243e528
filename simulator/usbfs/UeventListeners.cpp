#include "simulator/usbfs/UeventListeners.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Vantor {

namespace {

constexpr char socketPrefix[] = "event"; // as umockdev names them

// A socket that is writable when `path` has room. One that nobody listens to any more
// refuses, and holds nothing up.
class Probe {
public:
    explicit Probe(const std::string& path) : m_descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        m_isConnected = m_descriptor >= 0 &&
                        connect(m_descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    ~Probe() { close(m_descriptor); }
    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;

    bool awaitRoom(std::chrono::milliseconds limit) const
    {
        pollfd room{m_descriptor, POLLOUT, 0};
        return !m_isConnected || poll(&room, 1, static_cast<int>(limit.count())) != 0;
    }

private:
    const int m_descriptor;
    bool m_isConnected = false;
};

} // namespace

UeventListeners::UeventListeners(std::string testbedFolder) : m_folder(std::move(testbedFolder)) {}

bool UeventListeners::awaitRoom(std::chrono::milliseconds limit) const
{
    std::error_code ignored; // no folder, no listener
    for (const auto& entry : std::filesystem::directory_iterator(m_folder, ignored)) {
        const bool isListener = entry.path().filename().string().rfind(socketPrefix, 0) == 0;
        if (isListener && !Probe(entry.path()).awaitRoom(limit))
            return false;
    }
    return true;
}

} // namespace Vantor
