#include "tests/link/firmware/FirmwareRig.h"
#include "tests/support/BootRecords.h"

#include <algorithm>
#include <cstdio>
#include <fstream>

#include <unistd.h>

using namespace std::chrono_literals;

namespace Vantor::Test {

namespace Frame {

Bytes request(std::uint32_t mainSize, std::uint32_t mainCrc, std::uint32_t servoSize, std::uint32_t servoCrc)
{
    // Packet of 45 bytes with one record; record of type 41 with 34 bytes.
    return joined({{45, 0, 1, 0, 0, 0, 0, 0, 41, 34, 0}, BootRecords::request(mainSize, mainCrc, servoSize, servoCrc)});
}

Bytes chunk(std::uint8_t board, std::uint32_t address, std::uint32_t length, const Bytes& data)
{
    EXPECT_EQ(data.size(), 4096u);
    Bytes record = BootRecords::chunk(board, address, data);
    put(record, 5, length);
    // Packet of 4,120 = 0x1018 bytes with one record; record of type 44 with 4,109 = 0x100D bytes.
    return joined({{0x18, 0x10, 1, 0, 0, 0, 0, 0, 44, 0x0D, 0x10}, BootRecords::sign(record)});
}

Bytes over(const Bytes& fresh, const Bytes& before)
{
    Bytes data = before;
    data.resize(4096);
    std::copy(fresh.begin(), fresh.end(), data.begin());
    return data;
}

std::uint32_t crc32(const Bytes& bytes)
{
    std::uint32_t crc = 0xFFFFFFFF;
    for (const std::uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) != 0 ? crc >> 1 ^ 0xEDB88320 : crc >> 1;
    }
    return crc ^ 0xFFFFFFFF;
}

} // namespace Frame

FirmwareRig::FirmwareRig(int level, const Bytes& mainImage, const Bytes& servoImage)
    : mainBytes(mainImage), servoBytes(servoImage), main(mainImage), servo(servoImage), m_level(level)
{
    open();
    DeviceInformation info{};
    info.maxPacketSize = 8192;
    device->setDeviceInfo(info);
    poll();
    setLevel(level);
}

FirmwareRig::~FirmwareRig()
{
    expectNothing();
    setLevel(quietLevel);
}

void FirmwareRig::pollAfter(std::chrono::nanoseconds time)
{
    VirtualClock::advance(time);
    if (usb.inFlight(panel, FakeLibusb::inEndpoint) != nullptr)
        finishRead(LIBUSB_TRANSFER_TIMED_OUT, 0); // keeps the read's watchdog away
    poll();
}

void FirmwareRig::replyAfter(std::chrono::nanoseconds time, const FirmwareUpgradeCommand& command)
{
    VirtualClock::advance(time);
    device->handleFirmwareUpgrade(command);
}

void FirmwareRig::acknowledgeAfter(std::chrono::nanoseconds time, std::uint8_t board, std::uint32_t address,
                                   std::uint32_t length)
{
    replyAfter(time, {FirmwareUpgradeCommand::ChunkWritten, board, address, length, 0xABCD});
}

void FirmwareRig::start()
{
    device->startFirmwareUpgrade(main.getPath(), servo.getPath(), [this](const UsbDevice::FirmwareProgress& step) {
        EXPECT_EQ(step.reserved, 0u);
        m_progress.emplace_back(step.bytesWritten, step.totalBytes);
    });
}

std::vector<Bytes> FirmwareRig::flush()
{
    while (usb.inFlight(panel, FakeLibusb::outEndpoint) != nullptr)
        finishSend();
    std::vector<Bytes> packets;
    for (const auto& send : sends())
        packets.push_back(send.bytes);
    return packets;
}

void FirmwareRig::expectStep(const std::vector<Bytes>& frames, const std::vector<LogLine>& lines)
{
    EXPECT_EQ(FirmwareState::of(*device), want);
    const std::vector<Bytes> sent = flush();
    EXPECT_EQ(sent.size(), frames.size()) << "packets";
    for (std::size_t i = 0; i < std::min(sent.size(), frames.size()); ++i)
        EXPECT_TRUE(sent[i] == frames[i])
            << "packet " << i << " of " << sent[i].size() << " bytes begins with "
            << testing::PrintToString(
                   Bytes(sent[i].begin(),
                         sent[i].begin() + std::min<std::ptrdiff_t>(20, static_cast<std::ptrdiff_t>(sent[i].size()))));
    std::string text;
    for (const LogLine& line : lines)
        text += m_level >= line.level ? line.text : "";
    EXPECT_EQ(log.take(), text);
    EXPECT_EQ(m_progress, m_wantedProgress);
    m_progress.clear();
    m_wantedProgress.clear();
}

void FirmwareRig::leaveUnseen()
{
    flush();
    m_progress.clear();
    want = FirmwareState::of(*device);
}

void FirmwareRig::startAndExpect()
{
    start();
    want.mainSize = mainBytes.size();
    want.servoSize = servoBytes.size();
    want.mainCrc = Frame::crc32(mainBytes);
    want.servoCrc = Frame::crc32(servoBytes);
    want.state = mainBytes.empty() ? FirmwareState::sendingServo : FirmwareState::sendingMain;
    want.hasCallback = true;
    wantRequest();
    wantProgress();
    expectStep(
        {requestFrame()},
        {{4, "[libusb] > Read file=" + main.getPath() + " size=" + std::to_string(mainBytes.size()) + " bytes\n"},
         {4, "[libusb] > Read file=" + servo.getPath() + " size=" + std::to_string(servoBytes.size()) + " bytes\n"}});
}

void FirmwareRig::sendFirstMainChunk(const Bytes& chunk)
{
    pollAfter(1s);
    wantChunk(mainMcu, 0, static_cast<std::uint32_t>(std::min<std::size_t>(mainBytes.size(), 4096)));
    const bool counts = want.lastSentOffset == 0;
    want.lastSentOffset = 0;
    want.resends = (want.resends + (counts ? 1 : 0)) % 256;
    want.retries += counts ? 1 : 0;
    expectStep({chunk}, {writingMain, counts ? resendLine() : LogLine{5, ""}});
}

void FirmwareRig::sendFirstServoChunk(const Bytes& chunk)
{
    pollAfter(1s);
    wantChunk(servoMcu, 0, static_cast<std::uint32_t>(std::min<std::size_t>(servoBytes.size(), 4096)));
    expectStep({chunk}, {writingServo});
}

void FirmwareRig::resend(const Bytes& chunk)
{
    pollAfter(700ms);
    want.resends = (want.resends + 1) % 256;
    ++want.retries;
    wantChunk(mainMcu, want.address, want.length);
    expectStep({chunk}, {writingMain, resendLine()});
}

void FirmwareRig::restart()
{
    char text[100];
    std::snprintf(text, sizeof text, "[libusb] Re-starting Firmware upgrade. offset 0x%x uid 260\n", want.mainOffset);
    pollAfter(700ms);
    want.retries = 0;
    wantRequest(); // state 2 again, through 1
    expectStep({requestFrame()}, {{2, text}});
}

std::uint32_t FirmwareRig::wantAcknowledged(std::uint32_t address)
{
    auto& offset = isServosTurn() ? want.servoOffset : want.mainOffset;
    offset += want.length;
    want.lastAckAddress = address;
    want.retries = 0;
    wantProgress();
    return offset;
}

void FirmwareRig::acknowledgeEarly(std::chrono::nanoseconds time, std::uint8_t board, std::uint32_t address,
                                   std::uint32_t length)
{
    acknowledgeAfter(time, board, address, length);
    wantAcknowledged(address);
    want.timeout = 0.1;
    expectStep({}, {successLine(board, address, length)});
}

void FirmwareRig::acknowledgeAndSend(std::uint8_t board, std::uint32_t address, const Bytes& nextChunk)
{
    const LogLine success = successLine(board, address, want.length);
    acknowledgeAfter(100ms, board, address, want.length);
    const std::uint32_t next = wantAcknowledged(address);
    if (!isServosTurn())
        want.lastSentOffset = next;
    wantChunk(isServosTurn() ? servoMcu : mainMcu, next, nextChunk.at(16) + nextChunk.at(17) * 256U);
    expectStep({nextChunk}, {success, writingLine()});
}

void FirmwareRig::acknowledgeLast(std::uint8_t board, std::uint32_t address)
{
    const LogLine success = successLine(board, address, want.length);
    const LogLine writing = writingLine();
    const std::string mcu = isServosTurn() ? "Servo F1 MCU" : "Main MCU";
    acknowledgeAfter(100ms, board, address, want.length);
    want.address = wantAcknowledged(address);
    want.length = 0;
    want.state = FirmwareState::announcing;
    expectStep({}, {success,
                    writing,
                    {4, "[libusb] Written total of " + std::to_string(want.address) + " bytes to " + mcu + "\n"}});
}

void FirmwareRig::goOn()
{
    pollAfter(600ms);
    want.state = want.servoOffset < want.servoSize ? FirmwareState::sendingServo : FirmwareState::finishing;
    expectNothing();
}

void FirmwareRig::finish(unsigned int resends, unsigned int duplicates)
{
    goOn();
    pollAfter(0s);
    wantFinished();
    expectStep({}, finishedLines(resends, duplicates));
}

// Without a call of progress.
void FirmwareRig::wantFinished()
{
    want.state = FirmwareState::idle;
    want.mainSize = 0;
    want.servoSize = 0;
    want.mainOffset = 0;
    want.servoOffset = 0;
    want.resends = 0;
    want.duplicates = 0;
}

std::vector<LogLine> FirmwareRig::finishedLines(unsigned int resends, unsigned int duplicates)
{
    return {{3, "[libusb] Firmware Upgrade Finished for uid=260 with " + std::to_string(resends) +
                    " resend packets and " + std::to_string(duplicates) +
                    " duplicate packets detected during transfer.\n"},
            {4, "[libusb] Finished!\n"}};
}

void FirmwareRig::wantChunk(std::uint8_t board, std::uint32_t address, std::uint32_t length)
{
    want.board = board;
    want.address = address;
    want.length = length;
    want.timeout = 0.7;
    want.sentAt = now();
}

void FirmwareRig::wantRequest()
{
    want.timeout = 1.0;
    want.sentAt = now();
}

LogLine FirmwareRig::resendLine() const
{
    char text[100];
    std::snprintf(text, sizeof text, "[libusb] Re-sending Firmware upgrade packet at offset 0x%X uid 260\n",
                  want.address);
    return {4, text};
}

LogLine FirmwareRig::successLine(std::uint8_t board, std::uint32_t address, std::uint32_t length) const
{
    char text[100];
    std::snprintf(text, sizeof text, "[libusb] Success! Wrote %u bytes to board %x address=0x%x\n", length, board,
                  address);
    return {4, text};
}

Bytes FirmwareRig::requestFrame() const
{
    return Frame::request(static_cast<std::uint32_t>(mainBytes.size()), Frame::crc32(mainBytes),
                          static_cast<std::uint32_t>(servoBytes.size()), Frame::crc32(servoBytes));
}

void FirmwareRig::wantProgress()
{
    m_wantedProgress.emplace_back(want.mainOffset + want.servoOffset,
                                  static_cast<std::uint32_t>(want.mainSize + want.servoSize));
}

const Bytes& threeChunks()
{
    static const Bytes image = [] {
        Bytes bytes(4096, 1);
        bytes.insert(bytes.end(), 4096, 2);
        bytes.insert(bytes.end(), 1808, 3);
        return bytes;
    }();
    return image;
}

const Bytes& twoChunks()
{
    static const Bytes image = [] {
        Bytes bytes(4096, 4);
        bytes.push_back(5);
        return bytes;
    }();
    return image;
}

} // namespace Vantor::Test
