#pragma once

#include "simulator/bus/BusPanel.h"
#include "simulator/usbip/KernelPorts.h"
#include "simulator/usbip/UsbIpPanel.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Vantor {

// One panel in a port of the kernel, from plug to unplug, and the connection that it
// speaks USB/IP on. Nothing here waits.
//
// Threads: one at a time.
class UsbIpConnection : public BusPanel {
public:
    UsbIpConnection(PanelRack& rack, unsigned int number);
    ~UsbIpConnection() override;

    // Once. Throws what the ports throw, and std::system_error.
    void plug(KernelPorts& ports, std::optional<unsigned int> preferredPort);

    // Closes the connection, which is how the kernel learns of it.
    void unplug();

    unsigned int getPort() const { return m_port; }
    bool isPlugged() const override { return m_socket >= 0; }

    // The host has set the panel up.
    bool isConfigured() const { return m_usbIp.isConfigured(); }

    // What to poll the connection for.
    int getSocket() const { return m_socket; }
    short getEvents() const;

    // Takes what the kernel has sent, and sends what it takes. False when the connection is
    // over: `getReason` says why.
    bool serve();
    const std::string& getReason() const { return m_reason; }

private:
    bool receive();
    bool send();
    bool end(const std::string& reason);
    void handOn(PanelModel& model) override;

    UsbIpPanel m_usbIp;
    unsigned int m_port = 0;
    int m_socket = -1;
    bool m_wasConfigured = false;
    std::string m_reason;
    std::vector<std::uint8_t> m_output;
};

} // namespace Vantor
