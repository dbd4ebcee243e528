#pragma once

#include "simulator/bus/PanelBus.h"
#include "simulator/bus/PanelRack.h"
#include "simulator/usbip/KernelPorts.h"
#include "simulator/usbip/UsbIpConnection.h"

#include <map>
#include <memory>

#include <poll.h>

namespace Vantor {

// The kernel's own USB bus with simulated panels plugged in: any program on the machine
// finds and drives them. A panel that is plugged back goes to the port that it had, if it
// is still free.
//
// Threads: one at a time, and nothing happens but in `serve`.
// Lifetime: the ports must outlive it. Its end unplugs all panels.
class UsbIpBus : public PanelBus {
public:
    struct Options : PanelBus::Options {
        Log tell; // what the kernel has given, each line with the panel's number
    };

    UsbIpBus(Options options, KernelPorts& ports);
    ~UsbIpBus() override;

    void setFlash(unsigned int panel, BootLoader::Flash flash) override { m_rack.setFlash(panel, std::move(flash)); }
    void plug(unsigned int panel) override;
    void unplug(unsigned int panel) override;
    void execute(const PanelOrder& order) override;
    void schedule(std::chrono::nanoseconds delay, const PanelOrder& order) override { m_rack.schedule(delay, order); }
    std::vector<TimedOrder> takePending() override { return m_rack.takePending(); }
    bool visit(unsigned int panel, const std::function<void(PanelModel&)>& visitor) override
    {
        return m_rack.visit(panel, visitor);
    }
    std::vector<std::string> getViolations() const override { return m_rack.getViolations(); }

    void unplugAll();

    // Carries out what is due and serves the kernel; first waits until there is something
    // to do, or one of `others` has something, whose `revents` it fills in. A descriptor
    // below 0 is passed over.
    void serve(std::vector<pollfd>& others);

private:
    void tell(unsigned int panel, const std::string& line) const;
    void remove(UsbIpConnection& panel);

    void wait(std::vector<pollfd>& descriptors) const;
    void attend(UsbIpConnection& panel, short events);
    void greet(const UsbIpConnection& panel) const;

    const Log m_tell;
    KernelPorts& m_ports;
    PanelRack m_rack;
    std::map<unsigned int, std::unique_ptr<UsbIpConnection>> m_panels; // plugged in last under each number
};

} // namespace Vantor
