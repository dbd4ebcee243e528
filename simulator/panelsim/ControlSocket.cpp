#include "simulator/panelsim/ControlSocket.h"

#include "simulator/bus/UserText.h"
#include "simulator/panelsim/ControlPath.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace Vantor {

namespace {

ino_t inodeOf(const std::string& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

Descriptor openSpare()
{
    return Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

} // namespace

ControlSocket::ControlSocket(const std::string& path, ControlConnection::Execute execute)
    : m_path(std::filesystem::absolute(path)), m_execute(std::move(execute)), m_spare(openSpare())
{
    try {
        ControlPath::check(m_path);
        ControlPath::clear(m_path);
        listen();
    } catch (const std::runtime_error& error) {
        throw std::runtime_error("cannot take commands at '" + UserText::shown(m_path) + "': " + error.what());
    }
}

ControlSocket::~ControlSocket()
{
    if (m_inode == inodeOf(m_path))
        unlink(m_path.c_str());
}

void ControlSocket::listen()
{
    constexpr int waiting = 16;
    m_listener.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    m_path.copy(address.sun_path, sizeof address.sun_path - 1);
    // The file gets the socket's mode; there is no moment at which it is everybody's.
    if (fchmod(m_listener.get(), S_IRUSR | S_IWUSR) != 0 ||
        bind(m_listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error(std::generic_category().message(errno));
    m_inode = inodeOf(m_path);
    if (::listen(m_listener.get(), waiting) != 0)
        throw std::runtime_error(std::generic_category().message(errno));
}

void ControlSocket::addDescriptors(std::vector<pollfd>& descriptors) const
{
    descriptors.push_back({m_listener.get(), POLLIN, 0});
    for (const Peer& peer : m_peers)
        descriptors.push_back({peer.connection.getDescriptor(), peer.connection.getEvents(), 0});
}

void ControlSocket::serve(const pollfd* polled)
{
    const bool isCalled = polled->revents != 0;
    for (Peer& peer : m_peers) {
        ++polled;
        if (polled->revents == 0)
            continue;
        peer.connection.serve(m_execute);
        peer.lastTurn = ++m_turn;
    }
    m_peers.remove_if([](const Peer& peer) { return peer.connection.hasEnded(); });
    if (isCalled)
        accept();
}

void ControlSocket::accept()
{
    Descriptor accepted(accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (accepted.get() < 0 && (errno == EMFILE || errno == ENFILE)) {
        // Whoever waits would make poll return for ever.
        m_spare.reset();
        Descriptor(accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC)).reset();
        m_spare = openSpare();
    }
    if (accepted.get() < 0)
        return;
    if (m_peers.size() == maxConnections)
        m_peers.erase(std::min_element(m_peers.begin(), m_peers.end(),
                                       [](const Peer& a, const Peer& b) { return a.lastTurn < b.lastTurn; }));
    m_peers.push_back({ControlConnection(std::move(accepted)), ++m_turn});
}

} // namespace Vantor
