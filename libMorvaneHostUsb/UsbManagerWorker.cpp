// The worker thread of UsbManager, and its check of the registry against the bus.
#include "libMorvaneHostUsb/EventPump.h"
#include "libMorvaneHostUsb/LogOutput.h"
#include "libMorvaneHostUsb/StatisticsBook.h"
#include "libMorvaneHostUsb/ThreadName.h"
#include "libMorvaneHostUsb/UsbManager.h"

#include <algorithm>

#include <sys/time.h>

namespace Vantor {

namespace {

constexpr std::chrono::microseconds longestWait(1'050'000);
constexpr std::chrono::nanoseconds registryCheckPeriod = std::chrono::seconds(5);

// How long to wait for events. Rounded up, as libusb does with what is less than a
// millisecond: nothing is early.
timeval waitUntil(const std::chrono::system_clock::time_point& due)
{
    std::chrono::microseconds wait = longestWait;
    if (due != UsbDevice::never) {
        const auto left = due - std::chrono::system_clock::now();
        wait =
            std::clamp(std::chrono::ceil<std::chrono::microseconds>(left), std::chrono::microseconds(0), longestWait);
    }
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(wait);
    return {static_cast<time_t>(seconds.count()), static_cast<suseconds_t>((wait - seconds).count())};
}

} // namespace

struct UsbManager::WorkerRun {
    std::chrono::system_clock::time_point due; // the soonest step of an upgrade
    std::chrono::system_clock::time_point lastCheck;
    std::set<libusb_device*> known;
};

void UsbManager::workerThread()
{
    setCurrentThreadName("MorvaneWorker");
    const EventPump::Worker worker(m_context);
    WorkerRun run{UsbDevice::never, std::chrono::system_clock::now(), {}};
    while (m_initialised)
        runWorkerPass(run);
}

void UsbManager::runWorkerPass(WorkerRun& run)
{
    EventPump::handleEvents(m_context, waitUntil(run.due));

    Devices batch;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        batch = m_removedDevices;
    }
    // Pumps events, and their callbacks take m_mutex.
    for (const auto& device : batch)
        device->drain(false);

    Devices retired;
    Devices arrived;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        retired = retire(batch);
        arrived.swap(m_arrivedDevices);
    }
    announce(retired, arrived);
    pollDevices(run);
    m_statistics->count(StatisticsBook::Event::Pass);
}

void UsbManager::pollDevices(WorkerRun& run)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto now = std::chrono::system_clock::now();
    run.due = UsbDevice::never;
    for (const auto& device : m_devices) {
        device->poll(now);
        run.due = std::min(run.due, device->getNextFirmwareStep());
    }
    if (now - run.lastCheck > registryCheckPeriod) {
        checkRegistry(run.known);
        run.lastCheck = now;
    }
}

// The batch may name a device twice, or one that closeAllDevices has taken since.
UsbManager::Devices UsbManager::retire(const Devices& batch)
{
    Devices retired;
    for (const auto& device : batch) {
        const auto listed = std::find(m_removedDevices.begin(), m_removedDevices.end(), device);
        if (listed != m_removedDevices.end())
            m_removedDevices.erase(listed);
        const auto registered = std::find(m_devices.begin(), m_devices.end(), device);
        if (registered == m_devices.end())
            continue;
        forgetId(*device);
        device->cleanup();
        m_devices.erase(registered);
        m_statistics->count(StatisticsBook::Event::Departure);
        retired.push_back(device);
    }
    return retired;
}

void UsbManager::announce(const Devices& retired, const Devices& arrived) const
{
    for (const auto& device : retired)
        tell([&device](Observer& observer) { observer.onDeviceRemoved(device->getUid()); });
    for (const auto& device : arrived)
        tell([&device](Observer& observer) { observer.onDeviceAdded(device->getUid()); });
}

void UsbManager::checkRegistry(std::set<libusb_device*>& known)
{
    retireDeadDevices(known);
    takeInStrayDevices(known);
    known.clear();
}

void UsbManager::retireDeadDevices(std::set<libusb_device*>& known)
{
    for (const auto& device : m_devices) {
        if (device->isAlive()) {
            known.insert(device->getDevice());
            continue;
        }
        // Left during this pass: the next one retires it.
        if (std::find(m_removedDevices.begin(), m_removedDevices.end(), device) != m_removedDevices.end())
            continue;
        MORVANE_LOG(LogLevel::Info, "[libusb] found dead device: uid=%x id=%x\n", device->getUid(), device->getId());
        m_statistics->count(StatisticsBook::Event::Dead);
        forgetId(*device);
        m_removedDevices.push_back(device);
    }
}

void UsbManager::takeInStrayDevices(const std::set<libusb_device*>& known)
{
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(m_context, &list);
    for (ssize_t i = 0; i < count; ++i) {
        libusb_device_descriptor descriptor{};
        libusb_get_device_descriptor(list[i], &descriptor);
        if (!isPanel(descriptor) || known.count(list[i]) != 0)
            continue;
        const std::shared_ptr<UsbDevice> stray = makeDevice(list[i]);
        // Labelled uid, but it is the id.
        MORVANE_LOG(LogLevel::Info, "[libusb] Found stray device uid=%x\n", stray->getId());
        m_statistics->count(StatisticsBook::Event::Stray);
        enterDevice(stray);
    }
    libusb_free_device_list(list, 1);
}

} // namespace Vantor
