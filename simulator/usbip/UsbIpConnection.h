#pragma once

#include "simulator/panel/PanelModel.h"
#include "simulator/usbip/KernelPorts.h"
#include "simulator/usbip/UsbIpPanel.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Vantor {

// One panel in a port of the kernel, from plug to unplug: its PanelModel and the
// connection that it speaks USB/IP on. Nothing here waits.
//
// Threads: one at a time.
class UsbIpConnection {
public:
    using Log = std::function<void(const std::string& line)>;

    // `log`: what happens to the panel, the lines without its number; may be empty.
    UsbIpConnection(unsigned int number, PanelModel::Options options, PanelModel::Clock clock, BootLoader::Flash flash,
                    Log log);
    ~UsbIpConnection();
    UsbIpConnection(const UsbIpConnection&) = delete;
    UsbIpConnection& operator=(const UsbIpConnection&) = delete;

    // Once. Throws what the ports throw, and std::system_error.
    void plug(KernelPorts& ports, std::optional<unsigned int> preferredPort);

    // Closes the connection, which is how the kernel learns of it.
    void unplug();

    unsigned int getNumber() const;
    unsigned int getPort() const;
    PanelModel& getModel();
    bool isPlugged() const;

    // The host has set the panel up.
    bool isConfigured() const;

    // What to poll the connection for.
    int getSocket() const;
    short getEvents() const;

    // Takes what the kernel has sent, and sends what it takes. False when the connection is
    // over: `getReason` says why.
    bool serve();
    const std::string& getReason() const;

    // Hands on what has completed; after everything that was done to the model.
    void settle();

private:
    bool receive();
    bool send();
    bool end(const std::string& reason);
    void log(const std::string& line) const;
    void logViolations();

    const unsigned int m_number;
    const Log m_log;
    PanelModel m_model;
    UsbIpPanel m_usbIp;
    unsigned int m_port = 0;
    int m_socket = -1;
    bool m_wasConfigured = false;
    std::string m_reason;
    std::vector<std::uint8_t> m_output;
    std::size_t m_loggedViolations = 0;
};

} // namespace Vantor
