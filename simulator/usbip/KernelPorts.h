#pragma once

#include <optional>
#include <string>

namespace Vantor {

// Where a USB host takes devices that speak USB/IP: the ports of virtual host controllers.
class KernelPorts {
public:
    KernelPorts() = default;
    virtual ~KernelPorts() = default;
    KernelPorts(const KernelPorts&) = delete;
    KernelPorts& operator=(const KernelPorts&) = delete;

    // Plugs the device in that speaks at the other end of `socket`, which the host keeps
    // for itself: the caller may close it. At `preferred` if that is free, else at the
    // lowest free port. Returns the port; throws std::runtime_error saying what to do.
    virtual unsigned int attach(int socket, std::optional<unsigned int> preferred) = 0;

    // After the device has closed its end: returns when the host has the port free again,
    // or after a second.
    virtual void awaitFree(unsigned int port) = 0;

    // What the host calls the device, 1-1; empty when it does not say.
    virtual std::string findDevice(unsigned int port) = 0;
};

} // namespace Vantor
