// The bulk transfer engine of UsbDevice: one send and one read, reused for ever.
#include "libMorvaneHostUsb/DeviceCounters.h"
#include "libMorvaneHostUsb/LogOutput.h"
#include "libMorvaneHostUsb/TransferAccount.h"
#include "libMorvaneHostUsb/UsbDevice.h"
#include "libMorvaneHostUsb/UsbManager.h"
#include "libMorvaneHostUsb/UsbMessageQueue.h"
#include "wire/PanelLink.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include <libusb-1.0/libusb.h>

namespace Vantor {

namespace {

constexpr unsigned int transferTimeout = 2000; // ms, inside libusb
constexpr std::chrono::nanoseconds watchdogLimit = std::chrono::seconds(5);
constexpr std::chrono::nanoseconds deviceInfoPeriod = std::chrono::seconds(2);

// The completion callback lowers the account again.
int submit(libusb_transfer* transfer)
{
    TransferAccount::instance().raise(transfer);
    const int result = libusb_submit_transfer(transfer);
    if (result != LIBUSB_SUCCESS)
        TransferAccount::instance().lower(transfer);
    return result;
}

// libusb may hand over a value that its enumeration does not know.
int statusOf(const libusb_transfer& transfer)
{
    int status = 0;
    static_assert(sizeof transfer.status == sizeof status);
    std::memcpy(&status, &transfer.status, sizeof status);
    return status;
}

// LIBUSB_ERROR_OTHER, though libusb has a name for it, counts as unknown.
bool isKnownSubmitError(int error)
{
    return error <= LIBUSB_ERROR_IO && error >= LIBUSB_ERROR_NOT_SUPPORTED;
}

bool isFatalSubmitError(int error)
{
    return error == LIBUSB_ERROR_IO || error == LIBUSB_ERROR_NO_DEVICE || error == LIBUSB_ERROR_NOT_FOUND;
}

// Of a transfer that did not do what it was for.
void countFailure(TransferFailures& failures, const libusb_transfer& transfer)
{
    failures.lostBytes += static_cast<std::uint64_t>(transfer.actual_length);
    switch (statusOf(transfer)) {
    case LIBUSB_TRANSFER_COMPLETED:
        ++failures.late;
        break;
    case LIBUSB_TRANSFER_TIMED_OUT:
        ++failures.timedOut;
        break;
    case LIBUSB_TRANSFER_CANCELLED:
        ++failures.cancelled;
        break;
    case LIBUSB_TRANSFER_STALL:
        ++failures.stalled;
        break;
    case LIBUSB_TRANSFER_NO_DEVICE:
        ++failures.gone;
        break;
    case LIBUSB_TRANSFER_OVERFLOW:
        ++failures.overflowed;
        break;
    default:
        ++failures.failed;
        break;
    }
}

// Counters are read by the application through a reference; see getSentData.
void addToCounter(std::uint32_t& counter, std::uint32_t amount)
{
    __atomic_fetch_add(&counter, amount, __ATOMIC_RELAXED);
}

} // namespace

void UsbDevice::onPackerHasChanged()
{
    sendNextPacket();
}

void UsbDevice::sendNextPacket()
{
    const std::lock_guard<std::mutex> lock(m_txMutex);
    if (!m_alive || m_devHandle == nullptr || m_transferTxInProgress)
        return;
    const auto now = std::chrono::system_clock::now();
    // A packet that was not cleared is sent again, also when nothing can be added.
    if (m_packer.prepareNextPacket(now) == 0 && m_packer.getPacketCount() == 0)
        return;

    libusb_fill_bulk_transfer(m_txTransfer, m_devHandle, PanelLink::outEndpoint, m_packer.getPacket(),
                              static_cast<int>(m_packer.getPacketSize()), UsbManager::transferSendCallback,
                              getIdAsPtr(), transferTimeout);
    m_txTransfer->flags = LIBUSB_TRANSFER_ADD_ZERO_PACKET;
    m_txStartTime = now;
    m_transferTxInProgress = true;
    const int result = submit(m_txTransfer);
    if (result != LIBUSB_SUCCESS) {
        handleTransferTxStatus(result);
        m_transferTxInProgress = false;
    }
}

void UsbDevice::onSentMessage(libusb_transfer* transfer)
{
    bool goOn = false;
    {
        const std::lock_guard<std::mutex> lock(m_txMutex);
        MORVANE_LOG(LogLevel::Trace, "[libusb] onSentMessage size=%u status=%d\n",
                    static_cast<unsigned int>(transfer->actual_length), statusOf(*transfer));
        const bool completed = statusOf(*transfer) == LIBUSB_TRANSFER_COMPLETED;
        if (m_transferTxInProgress && completed && transfer->actual_length > 0) {
            const auto taken = static_cast<std::uint32_t>(transfer->actual_length);
            addToCounter(m_sentBytes, taken);
            // A packet taken only in part is cleared all the same.
            m_packer.finishPacket(std::chrono::system_clock::now(), taken);
        } else {
            countUnfinishedSend(*transfer, m_transferTxInProgress && completed);
        }
        handleTxStatus(transfer);
        m_transferTxInProgress = false;
        goOn = m_alive && completed;
    }
    if (goOn && m_packer.hasMoreData())
        sendNextPacket();
}

// Its packet is sent again.
void UsbDevice::countUnfinishedSend(const libusb_transfer& transfer, bool isEmpty)
{
    m_counters->change([&transfer, isEmpty](DeviceStatistics& statistics) {
        if (isEmpty)
            ++statistics.sent.emptySends;
        else
            countFailure(statistics.sent.failures, transfer);
    });
}

void UsbDevice::recvNextPacket()
{
    if (!m_alive || m_devHandle == nullptr || m_transferRxInProgress)
        return;
    libusb_fill_bulk_transfer(m_rxTransfer, m_devHandle, PanelLink::inEndpoint, m_rxBuffer, rxBufferSize,
                              UsbManager::transferReceiveCallback, getIdAsPtr(), transferTimeout);
    m_transferRxInProgress = true;
    m_rxStartTime = std::chrono::system_clock::now();
    const int result = submit(m_rxTransfer);
    MORVANE_LOG(LogLevel::Trace, "[libusb] recvNextPacket transferring status=%d\n", result);
    if (result != LIBUSB_SUCCESS) {
        handleTransferRxStatus(result);
        m_transferRxInProgress = false;
    }
}

void UsbDevice::onRecvMessage(libusb_transfer* transfer)
{
    MORVANE_LOG(LogLevel::Trace, "[libusb] onRecvMessage size=%u\n",
                static_cast<unsigned int>(transfer->actual_length));
    const bool completed = m_transferRxInProgress && statusOf(*transfer) == LIBUSB_TRANSFER_COMPLETED;
    countRead(*transfer, completed);
    if (completed) {
        MORVANE_LOG(LogLevel::Trace, "[libusb] onRecvMessage transferRxInProgress transferred=%d status=%d\n",
                    transfer->actual_length, statusOf(*transfer));
        if (transfer->actual_length > 0)
            deliver(*transfer);
    }
    handleRxStatus(transfer);
    m_transferRxInProgress = false;
    recvNextPacket();
}

unsigned int UsbDevice::receivedSize(const libusb_transfer& transfer)
{
    return std::min(static_cast<unsigned int>(transfer.actual_length), rxBufferSize);
}

// One that completed is counted before anybody can see what it has brought.
void UsbDevice::countRead(const libusb_transfer& transfer, bool completed)
{
    m_counters->change([&transfer, completed](DeviceStatistics& statistics) {
        ReceiveStatistics& received = statistics.received;
        if (!completed) {
            countFailure(received.failures, transfer);
        } else if (transfer.actual_length > 0) {
            ++received.buffers;
            received.bytes += receivedSize(transfer);
        } else {
            ++received.emptyReads;
        }
    });
}

void UsbDevice::deliver(const libusb_transfer& transfer)
{
    const unsigned int size = receivedSize(transfer);
    auto message = std::make_unique<UsbMessage>(m_uid, static_cast<unsigned short>(size));
    message->counters = m_counters;
    std::memcpy(message->data, m_rxBuffer, size);
    addToCounter(m_receivedBytes, size);
    m_messageQueue->addMessage(std::move(message));
}

void UsbDevice::handleTxStatus(libusb_transfer* transfer)
{
    const int status = statusOf(*transfer);
    if (status == LIBUSB_TRANSFER_ERROR)
        MORVANE_LOG(LogLevel::Error, "[libusb] TX LIBUSB_ERROR uid=%x size=%d actual=%d\n", m_uid, transfer->length,
                    transfer->actual_length);
    else
        handleStatus("TX", status);
    if (status == LIBUSB_TRANSFER_ERROR)
        end(DeviceFailure::Operation::Send, LIBUSB_ERROR_IO);
    else if (status == LIBUSB_TRANSFER_NO_DEVICE)
        end(DeviceFailure::Operation::Send, LIBUSB_ERROR_NO_DEVICE);
}

// No status of a read kills: it is re-armed, and a device that is really gone is caught
// when that fails.
void UsbDevice::handleRxStatus(libusb_transfer* transfer)
{
    const int status = statusOf(*transfer);
    if (status == LIBUSB_TRANSFER_ERROR)
        MORVANE_LOG(LogLevel::Detail, "[libusb] RX LIBUSB_ERROR uid=%x\n", m_uid);
    else
        handleStatus("RX", status);
}

void UsbDevice::handleStatus(const char* direction, int status)
{
    switch (status) {
    case LIBUSB_TRANSFER_COMPLETED:
    case LIBUSB_TRANSFER_TIMED_OUT:
    case LIBUSB_TRANSFER_CANCELLED:
        break;
    case LIBUSB_TRANSFER_STALL:
        MORVANE_LOG(LogLevel::Error, "[libusb] %s Transfer stalled uid=%x\n", direction, m_uid);
        // On endpoint 0, not on the stalled one.
        if (m_devHandle != nullptr)
            libusb_clear_halt(m_devHandle, 0);
        break;
    case LIBUSB_TRANSFER_NO_DEVICE:
        MORVANE_LOG(LogLevel::Error, "[libusb] %s LIBUSB_ERROR_NO_DEVICE uid=%x!\n", direction, m_uid);
        break;
    case LIBUSB_TRANSFER_OVERFLOW:
        MORVANE_LOG(LogLevel::Error, "[libusb] %s LIBUSB_TRANSFER_OVERFLOW! uid=%x\n", direction, m_uid);
        break;
    default:
        MORVANE_LOG(LogLevel::Error, "[libusb] %s Unknown error=%d!!\n", direction, status);
        break;
    }
}

void UsbDevice::handleTransferTxStatus(int error)
{
    if (error != LIBUSB_SUCCESS)
        m_counters->change([](DeviceStatistics& statistics) { ++statistics.sent.failures.refused; });
    handleSubmitError("TX", DeviceFailure::Operation::Submit, error);
}

void UsbDevice::handleTransferRxStatus(int error)
{
    if (error != LIBUSB_SUCCESS)
        m_counters->change([](DeviceStatistics& statistics) { ++statistics.received.failures.refused; });
    handleSubmitError("RX", DeviceFailure::Operation::Receive, error);
}

void UsbDevice::handleSubmitError(const char* direction, DeviceFailure::Operation operation, int error)
{
    if (error == LIBUSB_SUCCESS)
        return;
    if (isKnownSubmitError(error))
        MORVANE_LOG(LogLevel::Error, "[libusb] %s %s\n", direction, libusb_error_name(error));
    else
        MORVANE_LOG(LogLevel::Error, "[libusb] %s Unknown error=%d!!\n", direction, error);
    if (isFatalSubmitError(error))
        end(operation, error);
}

void UsbDevice::poll(const std::chrono::system_clock::time_point& now)
{
    // Also for a device that is not polled any more: its upgrade must not keep the worker awake.
    m_nextFirmwareStep = never;
    if (!m_alive || m_devHandle == nullptr)
        return;
    recvNextPacket();
    sendNextPacket();
    requestDeviceInfo(now);
    // A device that was dead when this pass began does not get here: what is left is
    // one that died in the two sends above, or between the two stores of markDead.
    if (m_cancelPending.exchange(false))
        cancelTransfers();
    checkTxWatchdog(now);
    checkRxWatchdog(now);
    pollFirmware();
}

void UsbDevice::requestDeviceInfo(const std::chrono::system_clock::time_point& now)
{
    if (m_hasDeviceInfo || now - m_lastDeviceInfoRequest <= deviceInfoPeriod)
        return;
    m_lastDeviceInfoRequest = now;
    m_packer.addData(ReqDeviceInfo{1});
}

void UsbDevice::checkTxWatchdog(const std::chrono::system_clock::time_point& now)
{
    if (!m_transferTxInProgress)
        return;
    const std::lock_guard<std::mutex> lock(m_txMutex);
    if (now - m_txStartTime <= watchdogLimit)
        return;
    MORVANE_LOG(LogLevel::Error, "[libusb] Tx timeout dev=%x\n", m_uid);
    m_counters->change([](DeviceStatistics& statistics) { ++statistics.sent.failures.watchdogs; });
    libusb_cancel_transfer(m_txTransfer);
    m_transferTxInProgress = false;
}

void UsbDevice::checkRxWatchdog(const std::chrono::system_clock::time_point& now)
{
    if (now - m_rxStartTime <= watchdogLimit || !m_transferRxInProgress)
        return;
    MORVANE_LOG(LogLevel::Error, "[libusb] Rx timeout dev=%x\n", m_uid);
    m_counters->change([](DeviceStatistics& statistics) { ++statistics.received.failures.watchdogs; });
    libusb_cancel_transfer(m_rxTransfer);
    m_transferRxInProgress = false;
    recvNextPacket();
}

} // namespace Vantor
