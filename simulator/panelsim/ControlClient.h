#pragma once

#include "simulator/panelsim/Descriptor.h"

#include <chrono>
#include <string>

namespace Vantor {

// Tells a running simulation commands, through its control socket.
//
// Threads: one at a time.
class ControlClient {
public:
    // For whom it waits no longer than `patience`, here and for each answer. Throws
    // std::runtime_error when there is nobody.
    ControlClient(const std::string& path, std::chrono::milliseconds patience);

    // Waits until the command has been carried out. What there is to complain of, empty when
    // it has been; throws std::runtime_error when that can't be known.
    std::string tell(const std::string& line);

private:
    void send(const std::string& text);
    std::string receiveLine();
    void await(short event) const;

    const std::string m_path;
    const std::chrono::milliseconds m_patience;
    Descriptor m_socket;
};

} // namespace Vantor
