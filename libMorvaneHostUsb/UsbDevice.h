#pragma once

#include "libMorvaneHostUsb/DeviceFailure.h"
#include "libMorvaneHostUsb/DeviceStatistics.h"
#include "libMorvaneHostUsb/Export.h"
#include "libMorvaneHostUsb/PriorityPacker.h"
#include "libMorvaneHostUsb/ThreadAnnotations.h"
#include "protocol/DeviceInformation.h"
#include "protocol/FirmwareData.h"
#include "protocol/FirmwareUpgradeCommand.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

struct libusb_context;
struct libusb_device;
struct libusb_device_handle;
struct libusb_transfer;

namespace Vantor {

class DeviceCounters;
class StatisticsBook;
class UsbMessageQueue;

// One attached panel. The UsbManager builds, opens, drives and retires it; the
// application gets it from UsbManager::getDevice or a device list.
//
// Failures are not returned: they become a log line and a count, and a fatal one ends the
// device, see getFailure. It never comes back; the panel re-appears as a new UsbDevice.
//
// Threads: the operations under "for applications" from any thread. The others
// belong to the manager.
// Lifetime: shared. A handle kept past the panel's departure, or past
// UsbManager::destroyUsbManager, stays safe to call: what is added to its packer
// is then kept and never sent.
class MORVANE_API UsbDevice : public PriorityPacker::Observer {
public:
    // Progress of a firmware upgrade.
    struct FirmwareProgress {
        std::uint32_t bytesWritten; // of both images, acknowledged by the panel
        std::uint32_t totalBytes;   // of both images
        std::uint32_t reserved;     // 0
    };

    // For applications.

    // Where data for the panel goes in.
    PriorityPacker& getPacker();

    // What the panel said of itself, or null before it has. The library asks for it
    // two seconds after arrival, and every two seconds until it comes. The record
    // stays in place but is overwritten, unlocked, if the panel sends another.
    const DeviceInformation* getDeviceInfo() const;

    // False for a panel that could not be opened or claimed, has left, or failed for good:
    // nothing is sent to it or received from it any more, and that never changes.
    bool isAlive() const;

    // True while a firmware upgrade runs.
    bool isUpdating() const;

    // The key of UsbManager::getDevice while the device lives. A handle, not a place: bus
    // number in the high byte and port in the low one, but counted up when that value is
    // taken by another live device. The place is the bus and getPortNumbers.
    const std::uint16_t& getUid() const;

    // The smallest number that no other live device has.
    std::uint32_t getId() const;

    // Port numbers from the root hub to the panel.
    std::vector<std::uint8_t> getPortNumbers();

    // Bytes the panel has taken, and bytes received from it; both wrap at 2^32. The
    // library stores them atomically while you hold the reference: for a defined
    // read from another thread use __atomic_load_n(&device.getSentData(), ...).
    const std::uint32_t& getSentData() const;
    const std::uint32_t& getReceivedData() const;

    // Writes new firmware to the panel's main and servo MCU from the two files. Reads
    // both whole, then returns; the upgrade goes on from the library's threads, and
    // isUpdating tells when it has ended; it never does for a panel that stops
    // answering or leaves, nor for one whose packet limit is below 4,120 bytes. That it
    // has ended means that every chunk counts as acknowledged, not what the panel holds: a
    // reply that is repeated or comes late may count for a chunk that never arrived. A path
    // that is no regular file or can't be read whole counts as empty: that MCU is left
    // alone. Refused, with a log line, while an upgrade runs.
    //
    // `callback` runs on the caller's thread once, then on the receive thread for every
    // chunk that is acknowledged, with the device's firmware mutex held. It may use the
    // device's getters and packer, and look panels up. It must not call
    // startFirmwareUpgrade on this device, which would wait for itself. The device keeps
    // it until the next upgrade or its own end: it must not own the device's shared_ptr,
    // or neither ever goes. It is not called at the end; a reply that comes later still
    // calls it, with nothing of nothing.
    void startFirmwareUpgrade(const std::string& mainPath, const std::string& servoPath,
                              std::function<void(const FirmwareProgress&)> callback);

    // Waits until the packer is empty, the device dead, or 10,000 × timeout sleeps of
    // a microsecond (in practice some 60 µs each) are over. Reports nothing; the last
    // packet may still be under way.
    void sync(int timeout);

    // What has happened to it so far. Takes two short locks, never one that is held while
    // the panel, the log or the application is waited for: also in any callback but a log sink.
    DeviceStatistics getStatistics() const;

    // Why it is not alive. Any callback but a log sink may ask. The first reason stays: of
    // an unplugged panel it may be a transfer that failed, with LIBUSB_ERROR_NO_DEVICE.
    DeviceFailure getFailure() const;

    // For the UsbManager.

    // `queue` takes what is received; `context` and `device` must outlive the object.
    UsbDevice(std::shared_ptr<UsbMessageQueue> queue, libusb_context* context, libusb_device* device);
    ~UsbDevice() override;

    UsbDevice(const UsbDevice&) = delete;
    UsbDevice& operator=(const UsbDevice&) = delete;

    // The packer's notification; any thread.
    void onPackerHasChanged() override;

    // Opens the device and claims its interface; on failure it is no longer alive.
    void open();

    // Stops all I/O. Transfers in flight are not touched.
    void markDead();

    // The same, with the reason.
    void end(DeviceFailure::Operation operation, int code);

    // Its counts go into the book, from now on to its end.
    MORVANE_LOCAL void enterStatistics(const std::shared_ptr<StatisticsBook>& book);

    // Takes the transfers of a dead device back from libusb: a send of a device that
    // was alive gets up to 250 ms to complete, then both are cancelled until they have
    // come back, for one second at most. Never with a lock of the manager held, and
    // without effect inside libusb's event handling.
    void drain(bool wasAlive);

    // Closes the handle of a dead device; does nothing on a live one.
    void cleanup();

    libusb_device* getDevice() const;
    void* getIdAsPtr() const; // the id as user data of the transfers
    void setDeviceInfo(const DeviceInformation& info);

    void sendNextPacket();
    void onSentMessage(libusb_transfer* transfer);
    void recvNextPacket();
    void onRecvMessage(libusb_transfer* transfer);
    void handleTxStatus(libusb_transfer* transfer);
    void handleRxStatus(libusb_transfer* transfer);
    void handleTransferTxStatus(int error);
    void handleTransferRxStatus(int error);
    void poll(const std::chrono::system_clock::time_point& now);

    // When the upgrade wants to be polled again, as of the last poll; worker thread. Never
    // without one, nor while another thread is at it: that one wakes the worker.
    static constexpr auto never = std::chrono::system_clock::time_point::max();
    std::chrono::system_clock::time_point getNextFirmwareStep() const;

    // The panel's reply to a firmware record; receive thread.
    void handleFirmwareUpgrade(const FirmwareUpgradeCommand& command);

    // Sends the next firmware record when it is time.
    void sendNextFirmwarePacket() MORVANE_REQUIRES(m_firmwareMutex);

private:
    static constexpr unsigned int rxBufferSize = 32768;

    // Live devices' identities; never destroyed, so that a device may outlive main.
    static std::set<unsigned short>& s_usedUids MORVANE_GUARDED_BY(s_idMutex);
    static std::set<unsigned int>& s_usedIds MORVANE_GUARDED_BY(s_idMutex);
    static std::mutex s_idMutex;

    MORVANE_LOCAL void assignIdentity(std::uint8_t bus, std::uint8_t port);
    MORVANE_LOCAL bool claimInterface();
    MORVANE_LOCAL void countUnfinishedSend(const libusb_transfer& transfer, bool isEmpty);
    MORVANE_LOCAL void countRead(const libusb_transfer& transfer, bool completed);
    MORVANE_LOCAL void deliver(const libusb_transfer& transfer);
    MORVANE_LOCAL static unsigned int receivedSize(const libusb_transfer& transfer);
    MORVANE_LOCAL void requestDeviceInfo(const std::chrono::system_clock::time_point& now);
    MORVANE_LOCAL void cancelTransfers();
    MORVANE_LOCAL void checkTxWatchdog(const std::chrono::system_clock::time_point& now);
    MORVANE_LOCAL void checkRxWatchdog(const std::chrono::system_clock::time_point& now);
    MORVANE_LOCAL void handleStatus(const char* direction, int status);
    MORVANE_LOCAL void handleSubmitError(const char* direction, DeviceFailure::Operation operation, int error);

    MORVANE_LOCAL void pollFirmware();
    MORVANE_LOCAL void announceFirmware(const std::chrono::system_clock::time_point& now)
        MORVANE_REQUIRES(m_firmwareMutex);
    MORVANE_LOCAL void sendMainChunk(const std::chrono::system_clock::time_point& now)
        MORVANE_REQUIRES(m_firmwareMutex);
    MORVANE_LOCAL void sendServoChunk(const std::chrono::system_clock::time_point& now)
        MORVANE_REQUIRES(m_firmwareMutex);
    MORVANE_LOCAL void finishFirmwareUpgrade() MORVANE_REQUIRES(m_firmwareMutex);
    MORVANE_LOCAL void fillFirmwareChunk(FirmwareData::Board board, const std::vector<unsigned char>& image,
                                         std::uint32_t offset) MORVANE_REQUIRES(m_firmwareMutex);
    MORVANE_LOCAL void acknowledgeChunk(const FirmwareUpgradeCommand& command) MORVANE_REQUIRES(m_firmwareMutex);
    MORVANE_LOCAL void stepAfterReply() MORVANE_REQUIRES(m_firmwareMutex);
    MORVANE_LOCAL void reportProgress() MORVANE_REQUIRES(m_firmwareMutex);

    PriorityPacker m_packer; // synchronises itself

    // Written on the worker thread, the sent bytes under m_txMutex; see getSentData.
    std::uint32_t m_sentBytes;
    std::uint32_t m_receivedBytes;

    // The receive side: the worker thread alone.
    unsigned char m_rxBuffer[rxBufferSize];

    // Constant after construction.
    std::shared_ptr<UsbMessageQueue> m_messageQueue;
    std::uint32_t m_id;
    std::uint16_t m_vendorId; // required; nobody reads it, nor the next
    std::uint16_t m_productId;
    std::uint16_t m_uid;
    libusb_device* m_device;

    // Set by open before any other thread can know the device. Taken and nulled by
    // cleanup under m_txMutex, after the drain: the receive side, which reads it
    // without a lock, is over by then.
    libusb_device_handle* m_devHandle;
    libusb_context* m_context; // constant after construction

    std::function<void(const FirmwareProgress&)> m_progressCallback MORVANE_GUARDED_BY(m_firmwareMutex);

    // Atomic.
    std::atomic<bool> m_alive;
    std::atomic<bool> m_cancelPending;
    std::atomic<bool> m_transferTxInProgress;
    std::atomic<bool> m_transferRxInProgress;
    std::atomic<bool> m_hasDeviceInfo;

    DeviceInformation m_deviceInfo; // published by m_hasDeviceInfo

    // The worker thread alone.
    std::chrono::system_clock::time_point m_lastDeviceInfoRequest;
    std::chrono::system_clock::time_point m_rxStartTime;

    std::chrono::system_clock::time_point m_txStartTime MORVANE_GUARDED_BY(m_txMutex);
    std::mutex m_txMutex;

    // The pointers are constant until the destructor; the send transfer's fields are
    // under m_txMutex, the receive transfer's on the worker thread.
    libusb_transfer* m_txTransfer;
    libusb_transfer* m_rxTransfer;

    std::mutex m_firmwareMutex;
    std::vector<unsigned char> m_mainImage MORVANE_GUARDED_BY(m_firmwareMutex);
    std::vector<unsigned char> m_servoImage MORVANE_GUARDED_BY(m_firmwareMutex);
    std::uint32_t m_servoOffset MORVANE_GUARDED_BY(m_firmwareMutex); // bytes acknowledged
    std::uint32_t m_mainOffset MORVANE_GUARDED_BY(m_firmwareMutex);
    std::uint32_t m_servoCrc MORVANE_GUARDED_BY(m_firmwareMutex);
    std::uint32_t m_mainCrc MORVANE_GUARDED_BY(m_firmwareMutex);
    // 0 idle, 1 announce, 2 main image, 3 servo image, 4 finish. Exchanges are required; stores would do.
    std::atomic<std::uint32_t> m_firmwareState;
    FirmwareData m_firmwareData MORVANE_GUARDED_BY(m_firmwareMutex); // the chunk last built
    std::chrono::system_clock::time_point m_lastFirmwareSendTime MORVANE_GUARDED_BY(m_firmwareMutex);
    double m_firmwareTimeout MORVANE_GUARDED_BY(m_firmwareMutex);       // seconds between the last send and the next
    std::uint32_t m_lastSentOffset MORVANE_GUARDED_BY(m_firmwareMutex); // of the last main chunk
    std::uint32_t m_lastAckAddress MORVANE_GUARDED_BY(m_firmwareMutex); // of the last acknowledged chunk
    std::uint8_t m_resendCount MORVANE_GUARDED_BY(m_firmwareMutex);     // main chunks sent again, this upgrade
    std::uint8_t m_retryCount MORVANE_GUARDED_BY(m_firmwareMutex);      // such resends since the last reply
    std::uint8_t m_duplicateCount MORVANE_GUARDED_BY(m_firmwareMutex);  // acknowledgements seen twice, this upgrade

    std::chrono::system_clock::time_point m_nextFirmwareStep; // the worker thread alone

    const std::shared_ptr<DeviceCounters> m_counters; // synchronise themselves
};

} // namespace Vantor
