#pragma once

#include "simulator/PanelCommand.h"
#include "simulator/PanelModel.h"
#include "simulator/VirtualPanel.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <umockdev.h>

namespace Vantor {

// A USB bus with simulated panels, for one client process at a time: any program that
// uses libusb, started with getClientEnvironment. The panel with number P sits at port
// P + 1 of bus 1, a root hub in front of it.
//
// Threads: every operation from any thread. The bus has one thread of its own for what
// happens in time, and umockdev has one for the client's ioctls; neither wakes while
// nothing happens. One bus per process at a time.
// Lifetime: the client must have ended before the bus is destroyed.
class VirtualBus {
public:
    using Log = std::function<void(const std::string& line)>;

    static constexpr unsigned int maxPanels = VirtualPanel::maxPort;

    struct Options {
        bool scatterGather = true; // false: libusb splits transfers into URBs of 16 KiB
        PanelModel::Options panel; // of panel 0; panel P has the seed P higher
        Log log;                   // one line for each thing that happens, from any thread, one at a time
        Log complain;              // also a plug, unplug or fault that could not be carried out
        // What is in the flash memory of a panel that has been unplugged, on the thread that
        // unplugs it; it is not plugged back meanwhile. What it throws is complained of, or
        // comes back from unplug.
        std::function<void(unsigned int panel, const BootLoader::Flash& flash)> keepFlash;
    };

    // Throws std::runtime_error when the bus cannot be set up.
    explicit VirtualBus(Options options);
    ~VirtualBus();
    VirtualBus(const VirtualBus&) = delete;
    VirtualBus& operator=(const VirtualBus&) = delete;

    // Environment for the client, this process's own included: NAME=VALUE.
    static std::vector<std::string> getClientEnvironment();

    // What the flash memory of a panel holds when it is plugged in next. Without it that is
    // what it held when it was unplugged.
    void setFlash(unsigned int panel, BootLoader::Flash flash);

    // Do nothing but log when the panel is plugged already, or not plugged, or has no
    // port. They return when the bus shows it; the client notices in its own time.
    void plug(unsigned int panel);
    void unplug(unsigned int panel);

    // Carries out a command now; a repeated emission goes on in its own time.
    void execute(const PanelCommand& command);

    // As execute, `delay` from now.
    void schedule(std::chrono::nanoseconds delay, const PanelCommand& command);

    // Hands over the panel plugged in last under this number, while nothing else
    // happens on the bus; false when there has been none.
    bool visit(unsigned int panel, const std::function<void(PanelModel&)>& visitor);

    // Of all panels that were ever plugged, each line with the panel's number.
    std::vector<std::string> getViolations() const;

private:
    struct GObjectRelease {
        void operator()(void* object) const;
    };
    using Timeline = std::multimap<std::chrono::nanoseconds, PanelCommand>;

    void log(unsigned int panel, const std::string& line) const;
    void complain(unsigned int panel, const std::string& line) const;
    VirtualPanel* findPlugged(unsigned int panel) const;
    VirtualPanel* findLast(unsigned int panel) const;
    VirtualPanel* findPulled() const;
    BootLoader::Flash takeFlash(unsigned int panel);
    VirtualPanel::Address assignAddress(unsigned int panel);
    void show(VirtualPanel& panel);
    void remove(VirtualPanel& panel);
    void removePulled();
    void addToSysfs(const std::string& description);
    template <typename Command> void applyFault(const Command& command);
    void apply(const ClearFaultsCommand& command);
    void apply(const EmitCommand& command);
    void visitPlugged(unsigned int panel, const std::string& line, const std::function<void(PanelModel&)>& visitor);

    void runTime();
    void attempt(unsigned int panel, const std::function<void()>& action) const;
    std::chrono::nanoseconds nextWakeTime() const;

    const Options m_options;
    std::mutex m_hotplugMutex; // one plug or unplug at a time; taken before m_share.mutex

    // Under m_share.mutex. Panels stay until the end: umockdev's thread may still look
    // at one that was unplugged.
    mutable BusShare m_share;
    std::vector<std::unique_ptr<VirtualPanel>> m_panels;
    std::map<unsigned int, BootLoader::Flash> m_flash; // for panels not plugged in yet
    Timeline m_timeline;
    bool m_ending = false;

    // Under m_hotplugMutex.
    unsigned int m_lastDevice = 1; // number 1 is the root hub's
    std::set<std::string> m_attachedNodes;

    std::unique_ptr<UMockdevTestbed, GObjectRelease> m_testbed; // before the panels at the end
    std::thread m_timeThread;
};

} // namespace Vantor
