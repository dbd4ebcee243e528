#include "tests/link/firmware/FirmwareState.h"

namespace Vantor::Test {

namespace {

struct Members {
    std::atomic<std::uint32_t> UsbDevice::*state;
    std::vector<unsigned char> UsbDevice::*mainImage;
    std::vector<unsigned char> UsbDevice::*servoImage;
    std::uint32_t UsbDevice::*mainOffset;
    std::uint32_t UsbDevice::*servoOffset;
    std::uint32_t UsbDevice::*mainCrc;
    std::uint32_t UsbDevice::*servoCrc;
    double UsbDevice::*timeout;
    std::chrono::system_clock::time_point UsbDevice::*sentAt;
    std::uint32_t UsbDevice::*lastSentOffset;
    std::uint32_t UsbDevice::*lastAckAddress;
    std::uint8_t UsbDevice::*resends;
    std::uint8_t UsbDevice::*retries;
    std::uint8_t UsbDevice::*duplicates;
    FirmwareData UsbDevice::*chunk;
    std::function<void(const UsbDevice::FirmwareProgress&)> UsbDevice::*callback;
};

struct Tag {
    friend Members membersOf(Tag);
};

// An explicit instantiation may name private members; the friend brings them out.
template <auto... members> struct Reach {
    friend Members membersOf(Tag) { return {members...}; }
};
template struct Reach<&UsbDevice::m_firmwareState, &UsbDevice::m_mainImage, &UsbDevice::m_servoImage,
                      &UsbDevice::m_mainOffset, &UsbDevice::m_servoOffset, &UsbDevice::m_mainCrc,
                      &UsbDevice::m_servoCrc, &UsbDevice::m_firmwareTimeout, &UsbDevice::m_lastFirmwareSendTime,
                      &UsbDevice::m_lastSentOffset, &UsbDevice::m_lastAckAddress, &UsbDevice::m_resendCount,
                      &UsbDevice::m_retryCount, &UsbDevice::m_duplicateCount, &UsbDevice::m_firmwareData,
                      &UsbDevice::m_progressCallback>;

auto tied(const FirmwareState& state)
{
    return std::tie(state.state, state.mainSize, state.servoSize, state.mainOffset, state.servoOffset, state.mainCrc,
                    state.servoCrc, state.timeout, state.sentAt, state.lastSentOffset, state.lastAckAddress,
                    state.resends, state.retries, state.duplicates, state.board, state.address, state.length,
                    state.hasCallback);
}

} // namespace

FirmwareState FirmwareState::of(const UsbDevice& device)
{
    const Members at = membersOf(Tag());
    FirmwareState now;
    now.state = device.*at.state;
    now.mainSize = (device.*at.mainImage).size();
    now.servoSize = (device.*at.servoImage).size();
    now.mainOffset = device.*at.mainOffset;
    now.servoOffset = device.*at.servoOffset;
    now.mainCrc = device.*at.mainCrc;
    now.servoCrc = device.*at.servoCrc;
    now.timeout = device.*at.timeout;
    now.sentAt = device.*at.sentAt;
    now.lastSentOffset = device.*at.lastSentOffset;
    now.lastAckAddress = device.*at.lastAckAddress;
    now.resends = device.*at.resends;
    now.retries = device.*at.retries;
    now.duplicates = device.*at.duplicates;
    now.board = (device.*at.chunk).board;
    now.address = (device.*at.chunk).address;
    now.length = (device.*at.chunk).length;
    now.hasCallback = static_cast<bool>(device.*at.callback);
    return now;
}

bool operator==(const FirmwareState& left, const FirmwareState& right)
{
    return tied(left) == tied(right);
}

std::ostream& operator<<(std::ostream& out, const FirmwareState& state)
{
    return out << "state " << state.state << ", main " << state.mainOffset << '/' << state.mainSize << " crc "
               << std::hex << state.mainCrc << std::dec << ", servo " << state.servoOffset << '/' << state.servoSize
               << " crc " << std::hex << state.servoCrc << std::dec << ", timeout " << state.timeout << ", sent at "
               << state.sentAt.time_since_epoch().count() << " ns, last sent offset " << state.lastSentOffset
               << ", last ack " << state.lastAckAddress << ", resends " << state.resends << ", retries "
               << state.retries << ", duplicates " << state.duplicates << ", chunk board " << state.board << " address "
               << state.address << " length " << state.length << ", callback " << state.hasCallback;
}

} // namespace Vantor::Test
