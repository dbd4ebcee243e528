#pragma once

#include <chrono>
#include <string>

namespace Vantor {

// The sockets on which a client on umockdev's testbed hears of devices. Each holds a
// dozen events that the client has not read (net.unix.max_dgram_qlen), and umockdev ends
// the process when it sends one more.
//
// Threads: every operation from any thread.
class UeventListeners {
public:
    explicit UeventListeners(std::string testbedFolder);

    // Waits until every socket has room for an event, which stays so until one is sent;
    // false when there is none in time.
    bool awaitRoom(std::chrono::milliseconds limit) const;

private:
    const std::string m_folder;
};

} // namespace Vantor
