// The firmware upgrade of UsbDevice: both images in chunks, one in flight at a time.
#include "libMorvaneHostUsb/DeviceCounters.h"
#include "libMorvaneHostUsb/EventPump.h"
#include "libMorvaneHostUsb/LogOutput.h"
#include "libMorvaneHostUsb/UsbDevice.h"
#include "protocol/FirmwareUpgradeRequest.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <limits>
#include <utility>

namespace Vantor {

namespace {

constexpr std::uint32_t idle = 0;
constexpr std::uint32_t announcing = 1;
constexpr std::uint32_t sendingMain = 2;
constexpr std::uint32_t sendingServo = 3;
constexpr std::uint32_t finishing = 4;

// Seconds that must have passed since the last send.
constexpr double afterReply = 0.1;
constexpr double afterChunk = 0.7;
constexpr double afterRequest = 1.0;

constexpr std::uint8_t retriesBeforeRestart = 4;

std::chrono::system_clock::duration toClockTime(double seconds)
{
    return std::chrono::duration_cast<std::chrono::system_clock::duration>(
        std::chrono::nanoseconds(std::llround(seconds * 1e9)));
}

std::uint32_t sizeOf(const std::vector<unsigned char>& image)
{
    return static_cast<std::uint32_t>(image.size());
}

std::vector<unsigned char> readWhole(const std::string& path, bool& good)
{
    good = false;
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error))
        return {};
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return {};
    file.seekg(0, std::ios::end);
    const std::streamoff size = file.tellg();
    if (size < 0 || size > std::numeric_limits<std::uint32_t>::max())
        return {};
    std::vector<unsigned char> image;
    try {
        image.resize(static_cast<std::size_t>(size));
    } catch (const std::exception&) {
        return {}; // more than a process of 32 bits can hold
    }
    file.seekg(0, std::ios::beg);
    file.read(reinterpret_cast<char*>(image.data()), static_cast<std::streamsize>(size));
    if (!file || file.gcount() != size)
        return {};
    good = true;
    return image;
}

// A file that cannot be read is an empty image and does not stop the upgrade.
std::vector<unsigned char> readImage(const std::string& path)
{
    bool good = false;
    std::vector<unsigned char> image = readWhole(path, good);
    if (good)
        MORVANE_LOG(LogLevel::Detail, "[libusb] > Read file=%s size=%u bytes\n", path.c_str(), sizeOf(image));
    else
        MORVANE_LOG(LogLevel::Error, "[libusb] > Error opening file=%s\n", path.c_str());
    return image;
}

} // namespace

void UsbDevice::startFirmwareUpgrade(const std::string& mainPath, const std::string& servoPath,
                                     std::function<void(const FirmwareProgress&)> callback)
{
    const EventPump::WakeAtEnd wake(m_context);
    const std::lock_guard<std::mutex> lock(m_firmwareMutex);
    if (m_firmwareState != idle) {
        MORVANE_LOG_LINE(LogLevel::Error, "[libusb] Trying to update during an update!");
        return;
    }
    m_progressCallback = std::move(callback);
    m_mainImage = readImage(mainPath);
    m_servoImage = readImage(servoPath);
    m_servoOffset = 0;
    m_mainOffset = 0;
    m_mainCrc = m_packer.calculateCrc32(m_mainImage.data(), sizeOf(m_mainImage), 0);
    m_servoCrc = m_packer.calculateCrc32(m_servoImage.data(), sizeOf(m_servoImage), 0);
    m_firmwareState.exchange(announcing);
    reportProgress();
    sendNextFirmwarePacket();
}

void UsbDevice::pollFirmware()
{
    // A progress callback that holds the mutex may be waiting for the manager's, which
    // this thread holds: the step then waits until that thread wakes this one.
    if (m_firmwareState == idle || !m_firmwareMutex.try_lock())
        return;
    const std::lock_guard<std::mutex> lock(m_firmwareMutex, std::adopt_lock);
    sendNextFirmwarePacket();
    if (m_firmwareState != idle)
        m_nextFirmwareStep = m_lastFirmwareSendTime + toClockTime(m_firmwareTimeout);
}

std::chrono::system_clock::time_point UsbDevice::getNextFirmwareStep() const
{
    return m_nextFirmwareStep;
}

void UsbDevice::sendNextFirmwarePacket()
{
    const auto now = std::chrono::system_clock::now();
    const double elapsed = static_cast<double>(std::chrono::nanoseconds(now - m_lastFirmwareSendTime).count()) / 1e9;
    if (elapsed < m_firmwareTimeout)
        return;
    m_firmwareTimeout = afterChunk;
    if (m_retryCount > retriesBeforeRestart) {
        // The offsets are kept: the upgrade is announced again and goes on where it stood.
        MORVANE_LOG(LogLevel::Error, "[libusb] Re-starting Firmware upgrade. offset 0x%X uid %d\n", m_mainOffset,
                    m_uid);
        m_firmwareState.exchange(announcing);
        m_retryCount = 0;
    }
    switch (m_firmwareState) {
    case announcing:
        announceFirmware(now);
        break;
    case sendingMain:
        sendMainChunk(now);
        break;
    case sendingServo:
        sendServoChunk(now);
        break;
    case finishing:
        finishFirmwareUpgrade();
        break;
    default:
        break;
    }
}

void UsbDevice::announceFirmware(const std::chrono::system_clock::time_point& now)
{
    if (m_mainOffset < m_mainImage.size()) {
        m_firmwareState.exchange(sendingMain);
    } else if (m_servoOffset >= m_servoImage.size()) {
        m_firmwareState.exchange(finishing);
        return;
    } else {
        m_firmwareState.exchange(sendingServo);
        if (!m_mainImage.empty())
            return;
    }

    FirmwareUpgradeRequest request{};
    request.mainSize = sizeOf(m_mainImage);
    request.mainCrc = m_mainCrc;
    request.word = FirmwareUpgradeRequest::expectedWord;
    request.servoSize = sizeOf(m_servoImage);
    request.servoCrc = m_servoCrc;
    request.checksum = m_packer.generateChecksum(request);
    m_packer.addData(request);
    m_lastFirmwareSendTime = now;
    m_firmwareTimeout = afterRequest;
}

void UsbDevice::fillFirmwareChunk(FirmwareData::Board board, const std::vector<unsigned char>& image,
                                  std::uint32_t offset)
{
    // An offset past the end, which a panel can provoke, counts as a finished image.
    const std::uint32_t rest = offset < image.size() ? sizeOf(image) - offset : 0;
    m_firmwareData.board = board;
    m_firmwareData.address = offset;
    m_firmwareData.length = std::min(rest, FirmwareData::chunkSize);
    // Bytes past the length keep what the record held before.
    if (rest != 0)
        std::memcpy(m_firmwareData.data, image.data() + offset, m_firmwareData.length);
    m_firmwareData.checksum = m_packer.generateChecksum(m_firmwareData);
}

void UsbDevice::sendMainChunk(const std::chrono::system_clock::time_point& now)
{
    MORVANE_LOG_LINE(LogLevel::Detail, "[libusb] Writing main:");
    fillFirmwareChunk(FirmwareData::MainMcu, m_mainImage, m_mainOffset);
    if (m_firmwareData.length == 0) {
        MORVANE_LOG(LogLevel::Detail, "[libusb] Written total of %d bytes to Main MCU\n",
                    static_cast<int>(m_firmwareData.address));
        m_firmwareState.exchange(announcing);
        return;
    }
    m_lastFirmwareSendTime = now;
    m_packer.addData(m_firmwareData);
    // m_lastSentOffset starts at 0 and is never cleared: the first chunk of a fresh
    // device counts as a resend.
    if (m_mainOffset == m_lastSentOffset) {
        MORVANE_LOG(LogLevel::Detail, "[libusb] Re-sending Firmware upgrade packet at offset 0x%X uid %d\n",
                    m_mainOffset, m_uid);
        m_counters->change([](DeviceStatistics& statistics) { ++statistics.upgradeResends; });
        ++m_resendCount;
        ++m_retryCount;
    }
    m_lastSentOffset = m_mainOffset;
}

// The servo path has no resend detection: it never counts resends and never
// re-starts the upgrade.
void UsbDevice::sendServoChunk(const std::chrono::system_clock::time_point& now)
{
    MORVANE_LOG_LINE(LogLevel::Detail, "[libusb] Writing servo:");
    fillFirmwareChunk(FirmwareData::ServoMcu, m_servoImage, m_servoOffset);
    if (m_firmwareData.length == 0) {
        MORVANE_LOG(LogLevel::Detail, "[libusb] Written total of %d bytes to Servo F1 MCU\n",
                    static_cast<int>(m_firmwareData.address));
        m_firmwareState.exchange(announcing);
        return;
    }
    m_lastFirmwareSendTime = now;
    m_packer.addData(m_firmwareData);
}

void UsbDevice::finishFirmwareUpgrade()
{
    m_mainImage = std::vector<unsigned char>();
    m_servoImage = std::vector<unsigned char>();
    m_servoOffset = 0;
    m_mainOffset = 0;
    m_firmwareState.exchange(idle);
    MORVANE_LOG(LogLevel::Info,
                "[libusb] Firmware Upgrade Finished for uid=%d with %d resend packets and %d duplicate packets "
                "detected during transfer.\n",
                m_uid, m_resendCount, m_duplicateCount);
    m_resendCount = 0;
    m_duplicateCount = 0;
    MORVANE_LOG_LINE(LogLevel::Detail, "[libusb] Finished!");
}

void UsbDevice::handleFirmwareUpgrade(const FirmwareUpgradeCommand& command)
{
    const EventPump::WakeAtEnd wake(m_context); // the next step may be due earlier than the worker waits
    const std::lock_guard<std::mutex> lock(m_firmwareMutex);
    switch (command.command) {
    case FirmwareUpgradeCommand::Invalid:
        MORVANE_LOG(LogLevel::Error, "[libusb] Invalid command %d\n", command.command);
        break;
    case FirmwareUpgradeCommand::ChunkWritten:
        acknowledgeChunk(command);
        break;
    case FirmwareUpgradeCommand::SendAgain:
    case FirmwareUpgradeCommand::FailedSendAgain:
        stepAfterReply();
        break;
    case FirmwareUpgradeCommand::WriteFailed:
        MORVANE_LOG(LogLevel::Error,
                    "[libusb] Failed to write %d bytes to board %x address=0x%x status=0x%x uid=%d\n\n",
                    static_cast<int>(command.length), command.board, command.address, command.command, m_uid);
        stepAfterReply();
        break;
    case FirmwareUpgradeCommand::EraseFailed:
        MORVANE_LOG(LogLevel::Error, "[libusb] Failed to erase sector on board %x address=0x%x status=0x%x uid=%d\n\n",
                    command.board, command.address, command.command, m_uid);
        stepAfterReply();
        break;
    default:
        break;
    }
}

void UsbDevice::acknowledgeChunk(const FirmwareUpgradeCommand& command)
{
    // A repeated address of 0 is not a duplicate.
    if (command.address != 0 && command.address == m_lastAckAddress) {
        MORVANE_LOG(LogLevel::Detail,
                    "[libusb] Duplicate packet written to STM. Skipping increment. address=0x%x checksum=0x%x "
                    "previous address=0x%x uid=%d\n",
                    command.address, command.checksum, m_lastAckAddress, m_uid);
        m_counters->change([](DeviceStatistics& statistics) { ++statistics.upgradeDuplicates; });
        ++m_duplicateCount;
        return;
    }
    MORVANE_LOG(LogLevel::Detail, "[libusb] Success! Wrote %d bytes to board %x address=0x%x\n",
                static_cast<int>(command.length), command.board, command.address);
    m_lastAckAddress = command.address;
    // By the host's own record of the chunk, not by the length the panel reports.
    if (m_firmwareState == sendingMain)
        m_mainOffset += m_firmwareData.length;
    else if (m_firmwareState == sendingServo)
        m_servoOffset += m_firmwareData.length;
    reportProgress();
    stepAfterReply();
}

void UsbDevice::stepAfterReply()
{
    m_retryCount = 0;
    m_firmwareTimeout = afterReply;
    sendNextFirmwarePacket();
}

void UsbDevice::reportProgress()
{
    if (m_progressCallback)
        m_progressCallback({m_mainOffset + m_servoOffset, sizeOf(m_mainImage) + sizeOf(m_servoImage), 0});
}

} // namespace Vantor
