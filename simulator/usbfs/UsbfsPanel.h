#pragma once

#include "simulator/panel/ControlEndpoint.h"
#include "simulator/panel/PanelModel.h"
#include "simulator/usbfs/UsbfsFile.h"
#include "simulator/usbfs/UsbfsNode.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <umockdev.h>

namespace Vantor {

// What the panels of one bus share.
struct BusShare {
    std::mutex mutex; // over every panel, its model and what follows
    std::condition_variable deadlineMoved;
    std::chrono::nanoseconds wakeTime = std::chrono::nanoseconds::max(); // of whoever waits for that

    // Constant while panels exist.
    PanelModel::Clock clock;
    std::uint32_t capabilities = 0; // USBDEVFS_CAP_*
    std::function<void(const std::string&)> log;
};

// One panel from plug to unplug: its device node, the programs that have it open, and
// its PanelModel.
//
// Threads: every operation but letGo with the bus's mutex held; ioctls come in on
// umockdev's thread, which takes the mutex itself. Lifetime: that thread may look at it
// until hasBeenLetGo, or until the testbed is no more.
class UsbfsPanel {
public:
    struct Address {
        unsigned int panel; // number on the command line
        unsigned int bus;
        unsigned int port;
        unsigned int device;
    };

    // `nodePath`: where clients find the node.
    UsbfsPanel(BusShare& share, const Address& address, PanelModel::Options options, BootLoader::Flash flash,
               const std::string& nodePath);
    ~UsbfsPanel();
    UsbfsPanel(const UsbfsPanel&) = delete;
    UsbfsPanel& operator=(const UsbfsPanel&) = delete;

    // What to attach to the node; null after letGo.
    UMockdevIoctlBase* getIoctlHandler() const;

    // For when the handler is attached no more. Without the bus's mutex, in the thread that
    // attaches and detaches.
    void letGo();

    // Nor has anyone else the handler, and nobody comes back to this panel.
    bool hasBeenLetGo() const;

    const Address& getAddress() const;
    PanelModel& getModel();
    bool isPlugged() const;

    // It has cut the link by itself and is still on the bus.
    bool isPulled() const;

    // Ends everything that is under way, as when the cable is pulled.
    void unplug();

    // Hands on what has completed; after everything that was done to the model.
    void settle();

private:
    static gboolean onIoctl(UMockdevIoctlBase* handler, UMockdevIoctlClient* client, gpointer self);
    static void onClientGone(gpointer self, GObject* client);
    static void onHandlerGone(gpointer self, GObject* handler);

    int handleIoctl(UMockdevIoctlClient* client);
    UsbfsFile& fileOf(UMockdevIoctlClient* client);
    void log(const std::string& line) const;
    void logViolations();

    BusShare& m_share;
    const Address m_address;
    PanelModel m_model;
    ControlEndpoint m_control;
    UsbfsNode m_node;
    std::shared_ptr<UMockdevIoctlBase> m_handler; // umockdev and its clients have shares, too
    UMockdevIoctlBase* m_livingHandler;           // null when the last share is gone

    bool m_plugged = true;
    PanelModel::UrbId m_lastUrb = 0;
    std::size_t m_loggedViolations = 0;
    std::map<void*, std::unique_ptr<UsbfsFile>> m_files; // by client
};

} // namespace Vantor
