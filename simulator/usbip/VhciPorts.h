#pragma once

#include "simulator/usbip/KernelPorts.h"

#include <vector>

namespace Vantor {

// The high-speed ports of this machine's virtual host controllers (vhci-hcd), through
// sysfs.
//
// Threads: one at a time. Other programs may take ports meanwhile.
class VhciPorts : public KernelPorts {
public:
    static constexpr char defaultFolder[] = "/sys/devices/platform/vhci_hcd.0";

    // `folder`: of the first controller, which has the files for all of them.
    explicit VhciPorts(std::string folder = defaultFolder);

    unsigned int attach(int socket, std::optional<unsigned int> preferred) override;
    void awaitFree(unsigned int port) override;
    std::string findDevice(unsigned int port) override;

private:
    struct Port {
        unsigned int number;
        bool isFree;
        std::string device;
    };

    std::vector<Port> list() const;
    std::optional<Port> find(unsigned int number) const;
    bool tryAttach(int socket, unsigned int port) const;

    const std::string m_folder;
};

} // namespace Vantor
