#pragma once

#include "simulator/bus/BusPanel.h"
#include "simulator/panel/ControlEndpoint.h"
#include "simulator/panel/PanelModel.h"
#include "simulator/usbfs/UsbfsFile.h"
#include "simulator/usbfs/UsbfsNode.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <umockdev.h>

namespace Vantor {

// What the panels of one bus share.
struct BusShare {
    std::mutex mutex; // over every panel, its model and what follows
    std::condition_variable deadlineMoved;
    std::chrono::nanoseconds wakeTime = std::chrono::nanoseconds::max(); // of whoever waits for that
    std::uint32_t capabilities = 0;                                      // USBDEVFS_CAP_*; constant
    std::string kernelDriver; // bound to the panels, and does not let go; constant
};

// One panel from plug to unplug: its device node, and the programs that have it open.
//
// Threads: every operation but letGo with the bus's mutex held; ioctls come in on
// umockdev's thread, which takes the mutex itself. Lifetime: that thread may look at it
// until hasBeenLetGo, or until the testbed is no more.
class UsbfsPanel : public BusPanel {
public:
    struct Address {
        unsigned int bus;
        unsigned int port;
        unsigned int device;
    };

    // `nodePath`: where clients find the node.
    UsbfsPanel(PanelRack& rack, unsigned int number, BusShare& share, const Address& address,
               const std::string& nodePath);
    ~UsbfsPanel() override;

    // What to attach to the node; null after letGo.
    UMockdevIoctlBase* getIoctlHandler() const { return m_handler.get(); }

    // For when the handler is attached no more. Without the bus's mutex, in the thread that
    // attaches and detaches.
    void letGo() { m_handler.reset(); }

    // Nor has anyone else the handler, and nobody comes back to this panel.
    bool hasBeenLetGo() const { return m_livingHandler == nullptr; }

    const Address& getAddress() const { return m_address; }
    bool isPlugged() const override { return m_plugged; }

    // It has cut the link by itself and is still on the bus.
    bool isPulled() const { return m_plugged && getModel().isUnplugged(); }

    // Ends everything that is under way, as when the cable is pulled.
    void unplug();

private:
    static gboolean onIoctl(UMockdevIoctlBase* handler, UMockdevIoctlClient* client, gpointer self);
    static void onClientGone(gpointer self, GObject* client);
    static void onHandlerGone(gpointer self, GObject* handler);

    int handleIoctl(UMockdevIoctlClient* client);
    int serveIoctl(UMockdevIoctlClient* client);
    bool isKeptByDriver(unsigned long request, const ClientMemory& argument, int& result) const;
    UsbfsFile& fileOf(UMockdevIoctlClient* client);
    void handOn(PanelModel& model) override;
    void tellEnumeration();

    BusShare& m_share;
    const Address m_address;
    const LinkTap m_tap;
    ControlEndpoint m_control;
    UsbfsNode m_node;
    std::shared_ptr<UMockdevIoctlBase> m_handler; // umockdev and its clients have shares, too
    UMockdevIoctlBase* m_livingHandler;           // null when the last share is gone

    bool m_plugged = true;
    PanelModel::UrbId m_lastUrb = 0;
    std::map<void*, std::unique_ptr<UsbfsFile>> m_files; // by client
};

} // namespace Vantor
