#pragma once

#include "simulator/panelsim/ControlSocket.h"
#include "simulator/panelsim/Descriptor.h"

#include <thread>

namespace Vantor {

// A thread of its own for a control socket, which nobody else uses meanwhile.
class ControlThread {
public:
    // Throws std::system_error when it can't be.
    explicit ControlThread(ControlSocket& socket);
    ~ControlThread(); // waits for the command that is being carried out
    ControlThread(const ControlThread&) = delete;
    ControlThread& operator=(const ControlThread&) = delete;

private:
    void run();

    ControlSocket& m_socket;
    Descriptor m_end; // readable when it is to end
    std::thread m_thread;
};

} // namespace Vantor
