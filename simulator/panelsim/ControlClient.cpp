#include "simulator/panelsim/ControlClient.h"

#include "simulator/bus/QuantityText.h"
#include "simulator/bus/UserText.h"
#include "simulator/panelsim/ControlPath.h"

#include <array>
#include <cerrno>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <thread>

#include <poll.h>
#include <sys/socket.h>

namespace Vantor {

namespace {

constexpr std::string_view done = "ok";
constexpr std::string_view refused = "refused: ";

[[noreturn]] void failToReach(const std::string& path, const std::string& cause)
{
    throw std::runtime_error("cannot reach a simulation at '" + UserText::shown(path) + "': " + cause);
}

// As long as too many others wait, it waits, too.
Descriptor reach(const std::string& path, std::chrono::milliseconds patience)
{
    constexpr std::chrono::milliseconds pause{20};
    const auto end = std::chrono::steady_clock::now() + patience;
    Descriptor socket = ControlPath::connect(path);
    while (socket.get() < 0 && errno == EAGAIN && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(pause);
        socket = ControlPath::connect(path);
    }
    if (socket.get() < 0)
        failToReach(path, errno == EAGAIN ? "it is busy" : std::generic_category().message(errno));
    return socket;
}

[[noreturn]] void failAtTheEnd()
{
    throw std::runtime_error("the simulation ended before it answered");
}

} // namespace

ControlClient::ControlClient(const std::string& path, std::chrono::milliseconds patience)
    : m_path(path), m_patience(patience)
{
    try {
        ControlPath::check(path);
    } catch (const std::runtime_error& error) {
        failToReach(path, error.what());
    }
    m_socket = reach(path, patience);
}

std::string ControlClient::tell(const std::string& line)
{
    send(line + "\n");
    const std::string answer = receiveLine();
    if (answer == done)
        return {};
    if (answer.substr(0, refused.size()) != refused)
        throw std::runtime_error("what listens at '" + UserText::shown(m_path) + "' is no simulation");
    return answer.substr(refused.size());
}

void ControlClient::send(const std::string& text)
{
    for (std::size_t sent = 0; sent < text.size();) {
        await(POLLOUT);
        const ssize_t size =
            ::send(m_socket.get(), text.data() + sent, text.size() - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (size >= 0)
            sent += static_cast<std::size_t>(size);
        else if (errno != EAGAIN && errno != EINTR)
            failAtTheEnd();
    }
}

// Nothing is behind it: the simulation speaks only when it is asked.
std::string ControlClient::receiveLine()
{
    constexpr std::size_t longest = std::size_t{1} << 16; // nobody who knows what this is about says more
    std::string line;
    while (line.empty() || (line.back() != '\n' && line.size() < longest)) {
        await(POLLIN);
        std::array<char, 4096> buffer;
        const ssize_t size = recv(m_socket.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (size > 0)
            line.append(buffer.data(), static_cast<std::size_t>(size));
        else if (size == 0 || (errno != EAGAIN && errno != EINTR))
            failAtTheEnd();
    }
    line.pop_back();
    return line;
}

void ControlClient::await(short event) const
{
    pollfd polled{m_socket.get(), event, 0};
    if (poll(&polled, 1, static_cast<int>(m_patience.count())) == 0)
        throw std::runtime_error("no answer in " + formatSeconds(m_patience) +
                                 "; the command may still be carried out");
}

} // namespace Vantor
