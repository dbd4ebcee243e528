#include "libMorvaneHostUsb/UsbDevice.h"

#include "libMorvaneHostUsb/DeviceCounters.h"
#include "libMorvaneHostUsb/EventPump.h"
#include "libMorvaneHostUsb/LogOutput.h"
#include "libMorvaneHostUsb/TransferAccount.h"
#include "wire/PanelLink.h"

#include <utility>

#include <libusb-1.0/libusb.h>
#include <sys/time.h>
#include <unistd.h>

namespace Vantor {

namespace {

constexpr std::int64_t sleepsPerSyncUnit = 10000;
constexpr std::chrono::milliseconds sendGrace{250};
constexpr std::chrono::seconds drainLimit{1};
constexpr std::chrono::milliseconds drainStep{10};

// Lets completions come in, on whichever thread runs the events.
void waitForCompletions(libusb_context* context)
{
    timeval step{};
    step.tv_usec = static_cast<suseconds_t>(std::chrono::microseconds(drainStep).count());
    if (!EventPump::handleEventsUnlessRunElsewhere(context, step))
        TransferAccount::instance().waitForChange(drainStep);
}

} // namespace

std::set<unsigned short>& UsbDevice::s_usedUids = *new std::set<unsigned short>;
std::set<unsigned int>& UsbDevice::s_usedIds = *new std::set<unsigned int>;
std::mutex UsbDevice::s_idMutex;

UsbDevice::UsbDevice(std::shared_ptr<UsbMessageQueue> queue, libusb_context* context, libusb_device* device)
    : m_packer(PanelLink::initialPacketLimit), m_sentBytes(0), m_receivedBytes(0), m_rxBuffer{},
      m_messageQueue(std::move(queue)), m_id(0), m_vendorId(0), m_productId(0), m_uid(0), m_device(device),
      m_devHandle(nullptr), m_context(context), m_alive(false), m_cancelPending(false), m_transferTxInProgress(false),
      m_transferRxInProgress(false), m_hasDeviceInfo(false), m_txTransfer(libusb_alloc_transfer(0)),
      m_rxTransfer(libusb_alloc_transfer(0)), m_servoOffset(0), m_mainOffset(0), m_servoCrc(0), m_mainCrc(0),
      m_firmwareState(0), m_firmwareData{}, m_firmwareTimeout(0.3), m_lastSentOffset(0), m_lastAckAddress(0),
      m_resendCount(0), m_retryCount(0), m_duplicateCount(0), m_nextFirmwareStep(never),
      m_counters(std::make_shared<DeviceCounters>())
{
    MORVANE_TRACE("%s %p\n", "UsbDevice", static_cast<void*>(this));

    libusb_device_descriptor descriptor{};
    libusb_get_device_descriptor(m_device, &descriptor);
    const std::uint8_t port = libusb_get_port_number(m_device);
    const std::uint8_t bus = libusb_get_bus_number(m_device);

    // Printed before the uid is assigned: its uid field always shows 0.
    MORVANE_LOG(LogLevel::Detail, "[libusb] UsbDevice() uid=%x bus=%x port=%x\n", m_uid, bus, port);
    assignIdentity(bus, port);
    m_vendorId = descriptor.idVendor;
    m_productId = descriptor.idProduct;
    m_lastDeviceInfoRequest = std::chrono::system_clock::now();
    m_packer.setObserver(this);
    // Without its transfers it can do no I/O; the registry check retires it.
    m_alive = m_txTransfer != nullptr && m_rxTransfer != nullptr;
    if (!m_alive)
        m_counters->fail(DeviceFailure::Operation::Allocate, LIBUSB_ERROR_NO_MEM);
}

void UsbDevice::assignIdentity(std::uint8_t bus, std::uint8_t port)
{
    const std::lock_guard<std::mutex> lock(s_idMutex);
    m_uid = static_cast<std::uint16_t>(port + 256 * bus);
    while (s_usedUids.count(m_uid) != 0)
        ++m_uid;
    while (s_usedIds.count(m_id) != 0)
        ++m_id;
    s_usedIds.insert(m_id);
    s_usedUids.insert(m_uid);
}

UsbDevice::~UsbDevice()
{
    m_packer.setObserver(nullptr);
    const bool wasAlive = m_alive;
    markDead();
    drain(wasAlive);
    cleanup();
    m_counters->leave();
    MORVANE_TRACE("%s %p dev=%p\n", "~UsbDevice", static_cast<void*>(this), static_cast<void*>(m_device));

    const std::lock_guard<std::mutex> idLock(s_idMutex);
    s_usedUids.erase(m_uid);
    s_usedIds.erase(m_id);
    const std::lock_guard<std::mutex> txLock(m_txMutex);
    TransferAccount::instance().forget(m_txTransfer);
    TransferAccount::instance().forget(m_rxTransfer);
    libusb_free_transfer(m_txTransfer);
    libusb_free_transfer(m_rxTransfer);
    m_txTransfer = nullptr; // required; nobody looks
    m_rxTransfer = nullptr;
    MORVANE_LOG(LogLevel::Detail, "[libusb] ~UsbDevice() uid=%x\n", m_uid);
}

void UsbDevice::open()
{
    MORVANE_LOG(LogLevel::Detail, "[libusb] UsbDevice::open uid=%x id=%u\n", m_uid, m_id);
    const int result = libusb_open(m_device, &m_devHandle);
    if (result != 0) {
        MORVANE_LOG(LogLevel::Error, "[libusb] Cannot open device uid=%x %p\n", m_uid, static_cast<void*>(m_devHandle));
        m_counters->fail(DeviceFailure::Operation::Open, result);
        m_alive = false;
        return;
    }
    MORVANE_TRACE("Device Opened uid=%x %p\n", m_uid, static_cast<void*>(m_devHandle));

    if (libusb_set_auto_detach_kernel_driver(m_devHandle, 1) == LIBUSB_ERROR_NOT_SUPPORTED)
        MORVANE_LOG(LogLevel::Info, "[libusb] Auto kernel detach not supported for uid=%x\n", m_uid);
    MORVANE_TRACE("libusb_kernel_driver_active uid=%x %p\n", m_uid, static_cast<void*>(m_devHandle));
    if (libusb_kernel_driver_active(m_devHandle, PanelLink::interfaceNumber) != 0)
        MORVANE_LOG_LINE(LogLevel::Detail, "[libusb] Kernel Driver Active");

    if (!claimInterface()) {
        m_alive = false; // the handle stays open until cleanup
        return;
    }
    MORVANE_TRACE("libusb_clear_halt uid=%x %p\n", m_uid, static_cast<void*>(m_devHandle));
    // Endpoint 0, the control endpoint, not one of the bulk endpoints.
    libusb_clear_halt(m_devHandle, 0);
}

bool UsbDevice::claimInterface()
{
    MORVANE_TRACE("libusb_claim_interface uid=%x %p\n", m_uid, static_cast<void*>(m_devHandle));
    const int result = libusb_claim_interface(m_devHandle, PanelLink::interfaceNumber);
    if (result == LIBUSB_SUCCESS)
        return true;
    m_counters->fail(DeviceFailure::Operation::Claim, result);
    switch (result) {
    case LIBUSB_ERROR_NOT_FOUND:
        MORVANE_LOG_LINE(LogLevel::Error, "[libusb] Unable to claim USB interface. Device not found. Aborting.");
        break;
    case LIBUSB_ERROR_NO_DEVICE:
        MORVANE_LOG_LINE(LogLevel::Error, "[libusb] Unable to claim USB interface. No device. Aborting.");
        break;
    case LIBUSB_ERROR_BUSY:
        MORVANE_LOG_LINE(LogLevel::Error, "[libusb] Unable to claim USB interface. Device busy. Aborting.");
        break;
    default:
        MORVANE_LOG(LogLevel::Error, "[libusb] Unable to claim USB interface. Error %d. Aborting.\n", result);
        break;
    }
    return false;
}

void UsbDevice::markDead()
{
    MORVANE_TRACE("UsbDevice::markDead() %p\n", static_cast<void*>(m_devHandle));
    MORVANE_LOG(LogLevel::Detail, "[libusb] UsbDevice::markDead() uid=%x\n", m_uid);
    if (!m_alive)
        return;
    m_cancelPending = true;
    m_alive = false;
    m_packer.stopWaiting();
}

void UsbDevice::end(DeviceFailure::Operation operation, int code)
{
    m_counters->fail(operation, code);
    markDead();
}

void UsbDevice::enterStatistics(const std::shared_ptr<StatisticsBook>& book)
{
    m_counters->enter(book, m_packer);
}

DeviceStatistics UsbDevice::getStatistics() const
{
    return m_packer.readStatistics(*m_counters);
}

DeviceFailure UsbDevice::getFailure() const
{
    return m_counters->getFailure();
}

void UsbDevice::drain(bool wasAlive)
{
    if (EventPump::isInsideEvents())
        return;
    {
        // A sender that found the device alive has submitted by the time it lets go.
        const std::lock_guard<std::mutex> lock(m_txMutex);
    }
    using Clock = std::chrono::steady_clock;
    TransferAccount& account = TransferAccount::instance();
    if (wasAlive) {
        const Clock::time_point graceEnd = Clock::now() + sendGrace;
        while (account.isHeld(m_txTransfer) && Clock::now() < graceEnd)
            waitForCompletions(m_context);
    }

    const Clock::time_point end = Clock::now() + drainLimit;
    while (account.isHeld(m_txTransfer) || account.isHeld(m_rxTransfer)) {
        if (Clock::now() >= end) {
            MORVANE_LOG(LogLevel::Error, "[libusb] Transfers still pending after cancelling, uid=%x\n", m_uid);
            return;
        }
        cancelTransfers();
        waitForCompletions(m_context);
    }
}

void UsbDevice::cancelTransfers()
{
    libusb_cancel_transfer(m_rxTransfer);
    const std::lock_guard<std::mutex> lock(m_txMutex);
    libusb_cancel_transfer(m_txTransfer);
}

void UsbDevice::cleanup()
{
    const bool dead = !m_alive;
    libusb_device_handle* handle = nullptr;
    {
        // Taken by one caller only, and never used by a sender afterwards.
        const std::lock_guard<std::mutex> lock(m_txMutex);
        handle = dead ? std::exchange(m_devHandle, nullptr) : m_devHandle;
    }
    MORVANE_TRACE("UsbDevice::cleanup() %p\n", static_cast<void*>(handle));
    if (handle == nullptr || !dead)
        return;

    MORVANE_LOG(LogLevel::Detail, "[libusb] UsbDevice::cleanup() uid=%x\n", m_uid);
    m_alive = false;        // both required;
    m_packer.stopWaiting(); // nothing changes
    MORVANE_TRACE("m_devHandle=%p\n", static_cast<void*>(handle));
    [[maybe_unused]] const int result = libusb_release_interface(handle, PanelLink::interfaceNumber);
    MORVANE_TRACE("libusb_release_interface %d\n", result);
    MORVANE_TRACE_LINE("libusb_close");
    libusb_close(handle);
    // Closing makes libusb forget what the drain could not get back: nothing is left to wait for.
    TransferAccount::instance().forget(m_txTransfer);
    TransferAccount::instance().forget(m_rxTransfer);
}

void UsbDevice::setDeviceInfo(const DeviceInformation& info)
{
    m_deviceInfo = info;
    m_packer.setDeviceInformation(info);
    m_hasDeviceInfo = true;
}

void UsbDevice::sync(int timeout)
{
    std::int64_t remaining = sleepsPerSyncUnit * timeout;
    while (m_alive && m_packer.hasMoreData() && remaining > 0) {
        --remaining;
        usleep(1);
    }
}

std::vector<std::uint8_t> UsbDevice::getPortNumbers()
{
    constexpr int maxDepth = 8;
    std::vector<std::uint8_t> ports(maxDepth);
    if (m_device == nullptr)
        return {};
    const int count = libusb_get_port_numbers(m_device, ports.data(), maxDepth);
    ports.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return ports;
}

PriorityPacker& UsbDevice::getPacker()
{
    return m_packer;
}

const DeviceInformation* UsbDevice::getDeviceInfo() const
{
    return m_hasDeviceInfo ? &m_deviceInfo : nullptr;
}

bool UsbDevice::isUpdating() const
{
    return m_firmwareState != 0;
}

bool UsbDevice::isAlive() const
{
    return m_alive;
}

libusb_device* UsbDevice::getDevice() const
{
    return m_device;
}

const std::uint16_t& UsbDevice::getUid() const
{
    return m_uid;
}

std::uint32_t UsbDevice::getId() const
{
    return m_id;
}

void* UsbDevice::getIdAsPtr() const
{
    // A number in disguise, never followed. NOLINTNEXTLINE(performance-no-int-to-ptr)
    return reinterpret_cast<void*>(static_cast<std::uintptr_t>(m_id));
}

const std::uint32_t& UsbDevice::getSentData() const
{
    return m_sentBytes;
}

const std::uint32_t& UsbDevice::getReceivedData() const
{
    return m_receivedBytes;
}

} // namespace Vantor
