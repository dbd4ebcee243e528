#pragma once

#include "simulator/panelsim/ControlConnection.h"
#include "simulator/panelsim/Descriptor.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include <poll.h>
#include <sys/types.h>

namespace Vantor {

// The socket at which a running simulation takes commands from its user, and nobody else.
//
// It holds so many connections at most: of more, the one that has been silent for longest
// is closed.
//
// Threads: one at a time.
class ControlSocket {
public:
    static constexpr std::size_t maxConnections = 16;

    // Throws std::runtime_error when there can be no socket of that name, or somebody
    // listens at it already.
    ControlSocket(const std::string& path, ControlConnection::Execute execute);
    ~ControlSocket(); // removes it
    ControlSocket(const ControlSocket&) = delete;
    ControlSocket& operator=(const ControlSocket&) = delete;

    // Absolute.
    const std::string& getPath() const { return m_path; }

    // What to poll, behind what is there already.
    void addDescriptors(std::vector<pollfd>& descriptors) const;

    // What it has added, polled. A turn for each connection; never waits.
    void serve(const pollfd* polled);

private:
    struct Peer {
        ControlConnection connection;
        std::uint64_t lastTurn;
    };

    void listen();
    void accept();

    const std::string m_path;
    const ControlConnection::Execute m_execute;
    Descriptor m_listener;
    Descriptor m_spare; // gives way to a connection when no descriptor is left
    ino_t m_inode = 0;  // of the socket, for another may have taken the name
    std::list<Peer> m_peers;
    std::uint64_t m_turn = 0;
};

} // namespace Vantor
