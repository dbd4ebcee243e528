#pragma once

#include "libMorvaneHostUsb/ThreadAnnotations.h"
#include "simulator/bus/PanelBus.h"
#include "simulator/bus/PanelRack.h"
#include "simulator/usbfs/UeventListeners.h"
#include "simulator/usbfs/UsbfsPanel.h"

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <umockdev.h>

namespace Vantor {

// A USB bus with simulated panels, for one client process at a time: any program that
// uses libusb, started with getClientEnvironment. The panel with number P sits at port
// P + 1 of bus 1, a root hub in front of it. Plugging and unplugging wait for a client
// that does not read what it is told of earlier ones: it misses nothing.
//
// Threads: every operation from any thread. The bus has one thread of its own for what
// happens in time, and umockdev has one for the client's ioctls; neither wakes while
// nothing happens. One bus per process at a time.
// Lifetime: the client must have ended before the bus is destroyed.
class UsbfsBus : public PanelBus {
public:
    struct Options : PanelBus::Options {
        bool scatterGather = true; // false: libusb splits transfers into URBs of 16 KiB
        bool autosuspend = false;  // sysfs says that the kernel may suspend the panels; it does not
        std::string kernelDriver;  // bound to every panel, and does not let go; empty: none
    };

    // Throws std::runtime_error when the bus cannot be set up.
    explicit UsbfsBus(const Options& options);
    ~UsbfsBus() override;

    // Environment for the client, this process's own included: NAME=VALUE.
    static std::vector<std::string> getClientEnvironment();

    // The client has ended: plugging and unplugging wait for nobody any more, such as a child
    // of the client's that is stopped.
    void letGoOfClient();

    void setFlash(unsigned int panel, BootLoader::Flash flash) override;
    void plug(unsigned int panel) override;
    void unplug(unsigned int panel) override;
    void execute(const PanelOrder& order) override;
    void schedule(std::chrono::nanoseconds delay, const PanelOrder& order) override;
    std::vector<TimedOrder> takePending() override;
    bool visit(unsigned int panel, const std::function<void(PanelModel&)>& visitor) override;
    std::vector<std::string> getViolations() const override;

private:
    struct GObjectRelease {
        void operator()(void* object) const;
    };

    template <typename Condition> UsbfsPanel* findPlugged(Condition condition) const MORVANE_REQUIRES(m_share.mutex);
    UsbfsPanel* findPulled() const MORVANE_REQUIRES(m_share.mutex);
    UsbfsPanel::Address assignAddress(unsigned int panel) MORVANE_REQUIRES(m_hotplugMutex, m_share.mutex);
    void show(UsbfsPanel& panel) MORVANE_REQUIRES(m_hotplugMutex);
    void remove(UsbfsPanel& panel) MORVANE_REQUIRES(m_hotplugMutex);
    void keepFlash(UsbfsPanel& panel);
    void removePulled();
    void detachOld(unsigned int device) MORVANE_REQUIRES(m_hotplugMutex);
    void forgetOld() MORVANE_REQUIRES(m_hotplugMutex);
    bool awaitListeners(unsigned int panel) MORVANE_REQUIRES(m_hotplugMutex);
    void addToSysfs(const std::string& description);

    void runTime();

    std::mutex m_hotplugMutex; // one plug or unplug at a time; taken before m_share.mutex

    mutable BusShare m_share;
    PanelRack m_rack MORVANE_GUARDED_BY(m_share.mutex);
    // The panel plugged in last under a number stays, others until they have been let go;
    // only plug forgets any.
    std::vector<std::unique_ptr<UsbfsPanel>> m_panels MORVANE_GUARDED_BY(m_share.mutex);
    bool m_ending MORVANE_GUARDED_BY(m_share.mutex) = false;
    bool m_isClientLetGo MORVANE_GUARDED_BY(m_share.mutex) = false;

    unsigned int m_lastDevice MORVANE_GUARDED_BY(m_hotplugMutex) = 1; // number 1 is the root hub's

    const bool m_isSuspendable;

    std::unique_ptr<UMockdevTestbed, GObjectRelease> m_testbed; // before the panels at the end
    const std::string m_root;                                   // its folder
    const UeventListeners m_listeners;
    std::thread m_timeThread;
};

} // namespace Vantor
