#include "libMorvaneHostUsb/UsbManager.h"

#include "libMorvaneHostUsb/EventPump.h"
#include "libMorvaneHostUsb/LogOutput.h"
#include "libMorvaneHostUsb/StatisticsBook.h"
#include "libMorvaneHostUsb/UsbMessageQueue.h"
#include "libMorvaneHostUsb/Version.h"
#include "wire/PanelLink.h"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <utility>

namespace Vantor {

namespace {

constexpr std::uint16_t productionVendorId = MORVANE_PRODUCTION_VENDOR_ID;

class DeviceReference {
public:
    explicit DeviceReference(libusb_device* device) : m_device(libusb_ref_device(device)) {}
    ~DeviceReference() { libusb_unref_device(m_device); }
    DeviceReference(const DeviceReference&) = delete;
    DeviceReference& operator=(const DeviceReference&) = delete;

private:
    libusb_device* m_device;
};

// What a handle to a device keeps alive. Destroyed from the bottom up: freeing the
// device's transfers reads the libusb device, and that reads the context.
struct RegisteredDevice {
    RegisteredDevice(std::shared_ptr<UsbMessageQueue> queue, std::shared_ptr<libusb_context> owner,
                     libusb_device* libusbDevice)
        : context(std::move(owner)), reference(libusbDevice), device(std::move(queue), context.get(), libusbDevice)
    {}

    std::shared_ptr<libusb_context> context;
    DeviceReference reference;
    UsbDevice device;
};

} // namespace

std::unique_ptr<UsbManager> UsbManager::s_usbManager;
std::mutex UsbManager::s_usbManagerMutex;
std::atomic<UsbManager*> UsbManager::s_instance{nullptr};

UsbManager* UsbManager::getUsbManager()
{
    const std::lock_guard<std::mutex> lock(s_usbManagerMutex);
    if (!s_usbManager) {
        s_usbManager.reset(new UsbManager);
        s_instance = s_usbManager.get();
    }
    return s_usbManager.get();
}

// Takes no lock: the application must not race it with getUsbManager.
void UsbManager::destroyUsbManager() MORVANE_NO_THREAD_SAFETY_ANALYSIS
{
    const std::unique_ptr<UsbManager> manager = std::move(s_usbManager);
    s_instance = nullptr;
}

UsbManager::UsbManager()
    : m_parser(this), m_context(nullptr), m_observer(nullptr), m_hotplugArrivedHandle(0), m_hotplugLeftHandle(0),
      m_initialised(false), m_statistics(std::make_shared<StatisticsBook>())
{
    MORVANE_LOG(LogLevel::Detail, "[libusb] --- Has capability CAP=%d ---\n",
                libusb_has_capability(LIBUSB_CAP_HAS_CAPABILITY));
    MORVANE_LOG(LogLevel::Detail, "[libusb] --- Has hotplug CAP=%d ---\n",
                libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG));
    MORVANE_LOG(LogLevel::Detail, "[libusb] --- Has supports detach CAP=%d ---\n",
                libusb_has_capability(LIBUSB_CAP_SUPPORTS_DETACH_KERNEL_DRIVER));
    if (libusb_init(&m_context) == LIBUSB_SUCCESS) {
        // The version built against, not the one that runs.
        MORVANE_LOG(LogLevel::Info, "[libusb] Libusb version = %d.%d.%d\n", 1, 0, 22);
        m_initialised = false; // required; it is already
    } else {
        MORVANE_LOG_LINE(LogLevel::Detail, "[libusb] Init Error ");
    }
    m_contextOwner = std::shared_ptr<libusb_context>(m_context, libusb_exit);
}

UsbManager::~UsbManager()
{
    m_initialised.exchange(false); // required; a store would do
    deregisterHotplug({m_hotplugArrivedHandle, m_hotplugLeftHandle});
    if (m_messageQueue)
        m_messageQueue->kill();
    m_receiveThread.join();
    m_workerThread.join();
    closeAllDevices();
    m_statistics->setQueue(nullptr); // its messages' counters have a share of the book
    // At process exit the pointer is still set.
    UsbManager* self = this;
    s_instance.compare_exchange_strong(self, nullptr);
    m_contextOwner.reset();
}

void UsbManager::initialise()
{
    if (m_initialised)
        return;
    closeAllDevices();
    m_initialised = true;
    if (!m_messageQueue)
        m_messageQueue = std::make_shared<UsbMessageQueue>();
    m_statistics->setQueue(m_messageQueue);
    // Before the first device is opened, which happens under m_mutex: from here on no
    // drain runs events, whose callbacks take it.
    EventPump::expectWorker(m_context);
    // The second pair of handles replaces the first: only the production
    // registrations are ever deregistered.
    const HotplugHandles development = registerHotplug(PanelLink::developmentVendorId);
    registerHotplug(productionVendorId);
    try {
        m_workerThread = std::thread(&UsbManager::workerThread, this);
        m_receiveThread = std::thread(&UsbManager::receiveMsgThread, this);
    } catch (const std::exception& failure) {
        MORVANE_LOG(LogLevel::Error, "[libusb] Cannot start a thread: %s\n", failure.what());
        undoInitialise(development);
        return;
    }
    EventPump::wake(m_context); // what is attached is announced without waiting for an event
}

// The receive thread is the last to be started: it is never there to be stopped. The
// queue stays, alive, for a second attempt.
void UsbManager::undoInitialise(const HotplugHandles& development)
{
    m_initialised = false;
    deregisterHotplug(development);
    deregisterHotplug({m_hotplugArrivedHandle, m_hotplugLeftHandle});
    if (m_workerThread.joinable())
        m_workerThread.join();
    EventPump::expectNoWorker();
    closeAllDevices();
}

UsbManager::HotplugHandles UsbManager::registerHotplug(std::uint16_t vendorId)
{
    libusb_hotplug_register_callback(m_context, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED, LIBUSB_HOTPLUG_ENUMERATE, vendorId,
                                     PanelLink::productId, LIBUSB_HOTPLUG_MATCH_ANY, hotplugCallback, this,
                                     &m_hotplugArrivedHandle);
    libusb_hotplug_register_callback(m_context, LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT, LIBUSB_HOTPLUG_ENUMERATE, vendorId,
                                     PanelLink::productId, LIBUSB_HOTPLUG_MATCH_ANY, hotplugCallback, this,
                                     &m_hotplugLeftHandle);
    return {m_hotplugArrivedHandle, m_hotplugLeftHandle};
}

void UsbManager::deregisterHotplug(const HotplugHandles& handles)
{
    libusb_hotplug_deregister_callback(m_context, handles.arrived);
    libusb_hotplug_deregister_callback(m_context, handles.left);
}

void UsbManager::closeAllDevices()
{
    Devices devicesById;
    Devices devices;
    Devices removed;
    Devices arrived; // dropped first, without markDead or cleanup
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        devices.swap(m_devices);
        removed.swap(m_removedDevices);
        arrived.swap(m_arrivedDevices);
        devicesById.swap(m_devicesById);
    }
    // Without m_mutex: closing waits for callbacks, and they may wait for it.
    const auto close = [](const std::shared_ptr<UsbDevice>& device) {
        const bool wasAlive = device->isAlive();
        device->end(DeviceFailure::Operation::Close, 0);
        device->drain(wasAlive);
        device->cleanup();
    };
    m_statistics->count(StatisticsBook::Event::Departure, devices.size());
    std::for_each(devices.begin(), devices.end(), close);
    std::for_each(removed.begin(), removed.end(), close);
}

void UsbManager::sync()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& device : m_devices)
        device->sync(2);
}

void UsbManager::registerObserver(Observer* observer)
{
    m_observer = observer;
}

void UsbManager::unregisterObserver(Observer* /*observer*/)
{
    m_observer = nullptr;
}

void UsbManager::registerSendObserver(SendObserver* observer)
{
    m_sendObserver = observer;
}

std::string UsbManager::getVersion()
{
    return MORVANE_VERSION_STRING "+";
}

int UsbManager::getVersionMajor()
{
    return MORVANE_VERSION_MAJOR;
}

int UsbManager::getVersionMinor()
{
    return MORVANE_VERSION_MINOR;
}

int UsbManager::getVersionPatch()
{
    return MORVANE_VERSION_PATCH;
}

ManagerStatistics UsbManager::getStatistics() const
{
    return m_statistics->read();
}

std::shared_ptr<UsbDevice> UsbManager::getDevice(const unsigned short& uid)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = std::find_if(m_devices.begin(), m_devices.end(),
                                    [&uid](const auto& device) { return device->getUid() == uid; });
    return found != m_devices.end() ? *found : nullptr;
}

const std::vector<std::shared_ptr<UsbDevice>>& UsbManager::getDeviceList() const
{
    Devices outdated; // may hold the last reference: released after the lock
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_deviceListCopy != m_devices) {
        outdated.swap(m_deviceListCopy);
        m_deviceListCopy = m_devices;
    }
    return m_deviceListCopy;
}

std::vector<std::shared_ptr<UsbDevice>> UsbManager::getDeviceListSafe() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_devices;
}

bool UsbManager::isPanel(const libusb_device_descriptor& descriptor)
{
    return (descriptor.idVendor == PanelLink::developmentVendorId || descriptor.idVendor == productionVendorId) &&
           descriptor.idProduct == PanelLink::productId;
}

int UsbManager::hotplugCallback(libusb_context* /*context*/, libusb_device* device, libusb_hotplug_event event,
                                void* /*userData*/) noexcept
{
    static std::mutex s_callbackMutex;
    const std::lock_guard<std::mutex> lock(s_callbackMutex);

    libusb_device_descriptor descriptor{};
    libusb_get_device_descriptor(device, &descriptor);
    UsbManager* const manager = s_instance;
    const bool running = manager != nullptr && manager->m_initialised;

    if (event == LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED) {
        MORVANE_LOG(LogLevel::Info, "[libusb] >> New device: %4x:%4x bus=%u port=%u dev=%p\n", descriptor.idVendor,
                    descriptor.idProduct, libusb_get_bus_number(device), libusb_get_port_number(device),
                    static_cast<void*>(device));
        if (running && isPanel(descriptor))
            manager->addDevice(device);
        MORVANE_TRACE_LINE(">> New device end");
    } else if (event == LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT) {
        MORVANE_LOG(LogLevel::Info, "[libusb] >> Device unplugged: %4x:%4x dev=%p\n", descriptor.idVendor,
                    descriptor.idProduct, static_cast<void*>(device));
        if (running)
            manager->removeDevice(device);
        MORVANE_TRACE_LINE(">> Device unplugged end");
    }
    return 0;
}

std::shared_ptr<UsbDevice> UsbManager::makeDevice(libusb_device* device) const
{
    const auto registered = std::make_shared<RegisteredDevice>(m_messageQueue, m_contextOwner, device);
    return {registered, &registered->device};
}

void UsbManager::addDevice(libusb_device* device)
{
    const std::shared_ptr<UsbDevice> added = makeDevice(device);
    {
        // Enumeration at registration and a later arrival can report one device twice.
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (findDevice(device))
            return;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    enterDevice(added);
}

void UsbManager::removeDevice(libusb_device* device)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const std::shared_ptr<UsbDevice> removed = findDevice(device);
    if (!removed)
        return;
    m_removedDevices.push_back(removed);
    removed->end(DeviceFailure::Operation::Leave, LIBUSB_ERROR_NO_DEVICE);
    forgetId(*removed);
}

void UsbManager::enterDevice(const std::shared_ptr<UsbDevice>& device)
{
    const std::size_t id = device->getId();
    m_arrivedDevices.push_back(device);
    m_devices.push_back(device);
    if (id >= m_devicesById.size())
        m_devicesById.resize(id + 1);
    m_devicesById[id] = device;
    device->enterStatistics(m_statistics);
    m_statistics->count(StatisticsBook::Event::Arrival);
    device->open();
}

void UsbManager::forgetId(const UsbDevice& device)
{
    if (device.getId() < m_devicesById.size())
        m_devicesById[device.getId()].reset();
}

std::shared_ptr<UsbDevice> UsbManager::findDevice(const libusb_device* device) const
{
    const auto found = std::find_if(m_devices.begin(), m_devices.end(),
                                    [device](const auto& known) { return known->getDevice() == device; });
    return found != m_devices.end() ? *found : nullptr;
}

} // namespace Vantor
