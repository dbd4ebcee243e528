#pragma once

#include "libMorvaneHostUsb/Export.h"
#include "libMorvaneHostUsb/Log.h"
#include "libMorvaneHostUsb/ManagerStatistics.h"
#include "libMorvaneHostUsb/ThreadAnnotations.h"
#include "libMorvaneHostUsb/UsbDevice.h"
#include "libMorvaneHostUsb/UsbMessage.h"
#include "protocol/DataPacketUnion.h"
#include "protocol/PackedPacketParser.h"
#include "protocol/PacketType.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <libusb-1.0/libusb.h>

namespace Vantor {

class StatisticsBook;
class UsbMessageQueue;

// The library's entry: finds panels, drives them from its own threads, and hands
// what they send to the one observer. One instance per process.
//
// Order of use: getUsbManager, registerObserver, initialise, work, destroyUsbManager.
//
// Threads: getUsbManager, getDevice, getDeviceListSafe, getStatistics, closeAllDevices, sync,
// registerObserver, unregisterObserver, registerSendObserver and the version getters from any thread;
// initialise and destroyUsbManager from one thread of the application, never from a
// callback; getDeviceList in single-threaded applications.
// Lifetime: from getUsbManager to destroyUsbManager or the end of the process.
// Device handles may outlive it.
class MORVANE_API UsbManager : private PackedPacketParser::Observer {
public:
    // What the application is told. No lock of the library is held during a call,
    // except that a firmware progress callback has its own rules (UsbDevice).
    // A call may use the manager's getters, closeAllDevices and any packer; it must
    // not destroy the manager nor throw, and blocks the thread that makes it.
    // Lifetime: must stay until destroyUsbManager has returned.
    class MORVANE_API Observer {
    public:
        // A panel has come or gone; worker thread. A panel that came and went within
        // one pass is announced removed, then added, and getDevice has nothing for it.
        virtual void onDeviceAdded(std::uint16_t uid) = 0;
        virtual void onDeviceRemoved(std::uint16_t uid) = 0;

        // Never called.
        virtual void onReserved(std::uint16_t /*uid*/) {}

        // Around the packets of one received buffer; receive thread.
        virtual void onMessageBegin(std::uint16_t /*deviceId*/, const UsbMessage& /*message*/) {}
        virtual void onMessageEnd(std::uint16_t /*deviceId*/) {}

        // One record of `length` payload bytes from the panel with the uid
        // `deviceId`; receive thread. `data` is valid during the call.
        virtual void onParsedPacket(std::uint16_t deviceId, const PacketType& type, const DataPacketUnion& data,
                                    unsigned int length) = 0;

        virtual ~Observer() = default;
    };

    // Told when a send has ended, so that nobody has to ask again and again how far a packer
    // has come, see PriorityPacker::getProgress.
    class MORVANE_API SendObserver {
    public:
        // The panel has taken a packet, whole or in part, or the transfer failed; on the thread
        // that runs libusb's events. No lock of the library is held. As an Observer's calls; it
        // should be short: other panels' transfers wait for it.
        virtual void onSendEnded(std::uint16_t uid) = 0;

        virtual ~SendObserver() = default;
    };

    // The instance; the first call builds it and initialises libusb. Starts nothing.
    // A failing libusb is only logged (level 4), and initialise then has undefined
    // results.
    static UsbManager* getUsbManager();

    // Stops the threads, closes every device and deletes the instance. Blocks for up
    // to about 1.05 s, and up to 1.25 s more for a device whose transfers do not
    // come back. Must not race getUsbManager: callbacks that may still run should use a
    // pointer that was kept, since getUsbManager would build a new instance. One that was
    // never initialised terminates the process.
    static void destroyUsbManager();

    // Registers for hotplug and starts the threads; does nothing when already done.
    // Panels that are attached are opened before it returns and announced by the
    // worker thread, at once. When a thread can't be started this is logged (level 2) and undone:
    // what was opened is closed, as by closeAllDevices, and a second call may succeed.
    void initialise();

    // Closes every device, on any thread, callbacks included. The observer is not
    // told: clear what you keep per panel. While the manager runs, panels still attached
    // are found again within five seconds.
    void closeAllDevices();

    // Waits for every packer to empty, see UsbDevice::sync, with the argument 2, and
    // with the manager's mutex held: completions need that mutex, so a backlog of more
    // than one packet does not drain meanwhile. UsbDevice::sync has no such limit.
    void sync();

    // The one observer; replaces an earlier one. Register before initialise: without
    // an observer what panels send is discarded unparsed.
    void registerObserver(Observer* observer);

    // Removes the observer, whatever the argument. Called in a callback, nothing follows
    // on that thread; a call under way on another may still run.
    void unregisterObserver(Observer* observer);

    // The one observer of sends; null: none. Register before initialise. It must stay until
    // destroyUsbManager has returned.
    void registerSendObserver(SendObserver* observer);

    // Of the library that runs; Version.h has that of the headers.
    static std::string getVersion(); // "1.2.1+"
    static int getVersionMajor();
    static int getVersionMinor();
    static int getVersionPatch();

    // The device with this uid, or empty. Blocks while the worker polls.
    std::shared_ptr<UsbDevice> getDevice(const unsigned short& uid);

    // All devices, in order of arrival, in a list that the manager keeps and the next
    // call from any thread changes: for single-threaded applications only.
    const std::vector<std::shared_ptr<UsbDevice>>& getDeviceList() const;

    // All devices, in order of arrival, in a list of the caller's own.
    std::vector<std::shared_ptr<UsbDevice>> getDeviceListSafe() const;

    // What has happened to all panels so far. Takes short locks only, as
    // UsbDevice::getStatistics: also in any callback but a log sink.
    ManagerStatistics getStatistics() const;

    ~UsbManager() override;

    UsbManager(const UsbManager&) = delete;
    UsbManager& operator=(const UsbManager&) = delete;

    // For the parser; receive thread.
    void handleParsedPacket(std::uint16_t deviceId, const PacketType& type, const DataPacketUnion& data,
                            unsigned int length) override;

    // For libusb; the thread that runs its events.
    static int LIBUSB_CALL hotplugCallback(libusb_context* context, libusb_device* device, libusb_hotplug_event event,
                                           void* userData) noexcept;
    static void LIBUSB_CALL transferSendCallback(libusb_transfer* transfer) noexcept;
    static void LIBUSB_CALL transferReceiveCallback(libusb_transfer* transfer) noexcept;
    void handleTransferSendCallback(libusb_transfer* transfer);
    void handleTransferRecvCallback(libusb_transfer* transfer);

private:
    using Devices = std::vector<std::shared_ptr<UsbDevice>>;

    UsbManager();

    void workerThread();
    void receiveMsgThread();

    struct HotplugHandles {
        libusb_hotplug_callback_handle arrived;
        libusb_hotplug_callback_handle left;
    };
    MORVANE_LOCAL HotplugHandles registerHotplug(std::uint16_t vendorId);
    MORVANE_LOCAL void deregisterHotplug(const HotplugHandles& handles);
    MORVANE_LOCAL void undoInitialise(const HotplugHandles& development);
    MORVANE_LOCAL static bool isPanel(const libusb_device_descriptor& descriptor);
    MORVANE_LOCAL std::shared_ptr<UsbDevice> makeDevice(libusb_device* device) const;
    MORVANE_LOCAL void addDevice(libusb_device* device);
    MORVANE_LOCAL void removeDevice(libusb_device* device);
    MORVANE_LOCAL void enterDevice(const std::shared_ptr<UsbDevice>& device) MORVANE_REQUIRES(m_mutex);
    MORVANE_LOCAL void forgetId(const UsbDevice& device) MORVANE_REQUIRES(m_mutex);
    MORVANE_LOCAL std::shared_ptr<UsbDevice> findDevice(const libusb_device* device) const MORVANE_REQUIRES(m_mutex);
    MORVANE_LOCAL std::shared_ptr<UsbDevice> deviceOfTransfer(const libusb_transfer& transfer, const char* operation);

    struct WorkerRun;
    MORVANE_LOCAL void runWorkerPass(WorkerRun& run);
    MORVANE_LOCAL void pollDevices(WorkerRun& run);
    MORVANE_LOCAL Devices retire(const Devices& batch) MORVANE_REQUIRES(m_mutex);
    MORVANE_LOCAL void announce(const Devices& retired, const Devices& arrived) const;

    // The observer is read anew for each call: one that has unregistered itself gets no
    // further one.
    template <typename Call> void tell(Call call) const
    {
        Observer* const observer = m_observer;
        if (observer != nullptr)
            call(*observer);
    }

    MORVANE_LOCAL void checkRegistry(std::set<libusb_device*>& known) MORVANE_REQUIRES(m_mutex);
    MORVANE_LOCAL void retireDeadDevices(std::set<libusb_device*>& known) MORVANE_REQUIRES(m_mutex);
    MORVANE_LOCAL void takeInStrayDevices(const std::set<libusb_device*>& known) MORVANE_REQUIRES(m_mutex);
    MORVANE_LOCAL void dispatch(UsbMessage& message);

    static std::unique_ptr<UsbManager> s_usbManager MORVANE_GUARDED_BY(s_usbManagerMutex);
    static std::mutex s_usbManagerMutex;
    MORVANE_LOCAL static std::atomic<UsbManager*> s_instance; // s_usbManager's, for the other threads

    PackedPacketParser m_parser; // the receive thread alone
    libusb_context* m_context;   // constant after construction

    Devices m_devices MORVANE_GUARDED_BY(m_mutex);
    mutable Devices m_deviceListCopy MORVANE_GUARDED_BY(m_mutex);
    Devices m_arrivedDevices MORVANE_GUARDED_BY(m_mutex);
    Devices m_removedDevices MORVANE_GUARDED_BY(m_mutex);
    Devices m_devicesById MORVANE_GUARDED_BY(m_mutex); // an id's slot is empty when no device has it

    std::atomic<Observer*> m_observer;

    // Written by initialise and the destructor, before and after the threads.
    std::shared_ptr<UsbMessageQueue> m_messageQueue;
    libusb_hotplug_callback_handle m_hotplugArrivedHandle;
    libusb_hotplug_callback_handle m_hotplugLeftHandle;
    std::thread m_workerThread;
    std::thread m_receiveThread;

    std::atomic<bool> m_initialised;
    mutable std::mutex m_mutex;

    // Shared with every device: libusb_exit runs when the last of them is gone.
    std::shared_ptr<libusb_context> m_contextOwner;

    const std::shared_ptr<StatisticsBook> m_statistics; // synchronises itself

    // What the parser has handed on of the buffer that it is at; the receive thread alone.
    struct Parsed {
        std::uint64_t records = 0;
        std::uint64_t bytes = 0; // their headers included
    };
    Parsed m_parsed;

    std::atomic<SendObserver*> m_sendObserver{nullptr};
};

} // namespace Vantor
