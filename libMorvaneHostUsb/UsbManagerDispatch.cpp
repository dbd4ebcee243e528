// What has come in, on its way through UsbManager: messages to the application, completions
// to their devices.
#include "libMorvaneHostUsb/DeviceCounters.h"
#include "libMorvaneHostUsb/LogOutput.h"
#include "libMorvaneHostUsb/ThreadName.h"
#include "libMorvaneHostUsb/TransferAccount.h"
#include "libMorvaneHostUsb/UsbManager.h"
#include "libMorvaneHostUsb/UsbMessageQueue.h"
#include "protocol/PacketHeader.h"
#include "wire/RecordHeader.h"

#include <cstddef>
#include <cstring>

namespace Vantor {

namespace {

// Lowers the account when a completion callback returns, whatever became of it.
class Completion {
public:
    explicit Completion(const libusb_transfer* transfer) : m_transfer(transfer) {}
    ~Completion() { TransferAccount::instance().lower(m_transfer); }
    Completion(const Completion&) = delete;
    Completion& operator=(const Completion&) = delete;

private:
    const libusb_transfer* m_transfer;
};

// One that no device has made is not counted.
template <typename Change> void change(const UsbMessage& message, Change change)
{
    if (message.counters)
        message.counters->change([&change](DeviceStatistics& statistics) { change(statistics.received); });
}

struct Frame {
    std::uint64_t packets = 0;
    std::uint64_t recordBytes = 0; // in those
    bool isWhole = false;          // nothing behind them
};

// Up to the first packet whose length can't be.
Frame walkPackets(const UsbMessage& message)
{
    Frame frame;
    unsigned int offset = 0;
    PacketHeader header{};
    while (message.size - offset >= sizeof header) {
        std::memcpy(&header, message.data + offset, sizeof header);
        if (header.length < sizeof header || header.length > message.size - offset)
            return frame;
        ++frame.packets;
        frame.recordBytes += header.length - sizeof header;
        offset += header.length;
    }
    frame.isWhole = offset == message.size;
    return frame;
}

// How many of its records a parser could not make out the lengths tell: a parser says nothing.
void countParsed(const UsbMessage& message, const Frame& frame, std::uint64_t records, std::uint64_t recordBytes)
{
    change(message, [&frame, records, recordBytes](ReceiveStatistics& received) {
        received.packets += frame.packets;
        received.records += records;
        if (recordBytes < frame.recordBytes)
            ++received.refusedRecords;
        else if (!frame.isWhole)
            ++received.malformedPackets;
    });
}

} // namespace

void UsbManager::receiveMsgThread()
{
    setCurrentThreadName("MorvaneRecv");
    MORVANE_LOG_LINE(LogLevel::Detail, "[libusb] Init receive thread");
    std::unique_ptr<UsbMessage> message;
    while (m_initialised && m_messageQueue) {
        MORVANE_LOG_LINE(LogLevel::Detail, "[libusb] Wait for message...");
        message = m_messageQueue->getMessage();
        MORVANE_LOG_LINE(LogLevel::Detail, "[libusb] Got message...");
        if (message)
            dispatch(*message);
    }
}

void UsbManager::dispatch(UsbMessage& message)
{
    // Without an observer nothing is parsed at all.
    if (message.size <= sizeof(PacketHeader) || m_observer == nullptr) {
        change(message, [](ReceiveStatistics& received) { ++received.unparsedBuffers; });
        return;
    }
    const std::uint32_t deviceId = message.id;
    std::memcpy(message.data + offsetof(PacketHeader, deviceId), &deviceId, sizeof deviceId);
    tell([&message](Observer& observer) { observer.onMessageBegin(message.id, message); });
    const Frame frame = walkPackets(message); // before a parser may change them
    m_parsed = {};
    m_parser.parse(message.data, message.size);
    countParsed(message, frame, m_parsed.records, m_parsed.bytes);
    tell([&message](Observer& observer) { observer.onMessageEnd(message.id); });
}

void UsbManager::handleParsedPacket(std::uint16_t deviceId, const PacketType& type, const DataPacketUnion& data,
                                    unsigned int length)
{
    ++m_parsed.records;
    m_parsed.bytes += sizeof(RecordHeader) + length;
    if (type == PacketType::DeviceInformation || type == PacketType::FirmwareUpgradeCommand) {
        // The panel may have gone since the buffer came in.
        const std::shared_ptr<UsbDevice> device = getDevice(deviceId);
        if (device && type == PacketType::DeviceInformation)
            device->setDeviceInfo(data.deviceInformation);
        else if (device)
            device->handleFirmwareUpgrade(data.firmwareUpgradeCommand);
    }
    tell([&](Observer& observer) { observer.onParsedPacket(deviceId, type, data, length); });
}

void UsbManager::transferSendCallback(libusb_transfer* transfer) noexcept
{
    const Completion completion(transfer);
    UsbManager* const manager = s_instance;
    if (manager != nullptr && manager->m_initialised)
        manager->handleTransferSendCallback(transfer);
}

void UsbManager::transferReceiveCallback(libusb_transfer* transfer) noexcept
{
    const Completion completion(transfer);
    UsbManager* const manager = s_instance;
    if (manager != nullptr && manager->m_initialised)
        manager->handleTransferRecvCallback(transfer);
}

void UsbManager::handleTransferSendCallback(libusb_transfer* transfer)
{
    if (transfer == nullptr)
        return;
    const auto device = deviceOfTransfer(*transfer, "handleTransferSendCallback");
    if (!device)
        return;
    device->onSentMessage(transfer);
    SendObserver* const observer = m_sendObserver;
    if (observer != nullptr)
        observer->onSendEnded(device->getUid());
}

void UsbManager::handleTransferRecvCallback(libusb_transfer* transfer)
{
    if (transfer == nullptr)
        return;
    if (const auto device = deviceOfTransfer(*transfer, "handleTransferRecvCallback"))
        device->onRecvMessage(transfer);
}

// Empty for a device that has left: its completions are dropped.
std::shared_ptr<UsbDevice> UsbManager::deviceOfTransfer(const libusb_transfer& transfer, const char* operation)
{
    const auto id = static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(transfer.user_data));
    const std::lock_guard<std::mutex> lock(m_mutex);
    MORVANE_LOG(LogLevel::Trace, "[libusb] %s id=%u vec=%u\n", operation, id,
                static_cast<unsigned int>(m_devicesById.size()));
    return id < m_devicesById.size() ? m_devicesById[id] : nullptr;
}

} // namespace Vantor
