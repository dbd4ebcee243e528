#include "simulator/panel/BootLoader.h"

#include "protocol/FirmwareUpgradeCommand.h"
#include "referenceProtocol/WireFormat.h"
#include "simulator/panel/ImageCrc.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <stdexcept>
#include <string>
#include <utility>

namespace Vantor {

namespace {

// The sum of the bytes before the checksum, which ends the record.
std::uint32_t sumOf(const std::vector<std::uint8_t>& payload)
{
    return std::accumulate(payload.begin(), payload.end() - sizeof(std::uint32_t), std::uint32_t{0});
}

// Nothing when the payload has another size.
template <typename Record> std::optional<Record> readRecord(const std::vector<std::uint8_t>& payload)
{
    if (payload.size() != sizeof(Record))
        return std::nullopt;
    Record record;
    std::memcpy(&record, payload.data(), sizeof record);
    return record;
}

void announce(BootLoader::Image& image, std::uint32_t size, std::uint32_t crc)
{
    if (size == 0)
        return;
    image.state = BootLoader::State::Incomplete;
    image.size = size;
    image.crc = crc;
    image.written = 0;
}

} // namespace

bool BootLoader::isFirmwareRecord(PacketType type)
{
    return type == WireFormat::firmwareUpgradeRequestType || type == WireFormat::firmwareDataType;
}

BootLoader::BootLoader(const Options& options, Flash flash) : m_options(options), m_flash(std::move(flash))
{
    if (m_flash.main.bytes.size() > options.mainCapacity || m_flash.servo.bytes.size() > options.servoCapacity)
        throw std::invalid_argument("BootLoader: the flash holds more than its capacity");
}

bool BootLoader::take(PacketType type, const std::vector<std::uint8_t>& payload, std::chrono::nanoseconds now)
{
    if (!isFirmwareRecord(type))
        return true;
    run(now);
    ++m_statistics.records;
    Record record{type, payload, now, m_faults.meet()};
    if (record.meets(BootFault::Kind::Ignore) || record.meets(BootFault::Kind::Unplug) ||
        m_waiting.size() == maxWaiting) {
        ++m_statistics.recordsLost;
        return !record.meets(BootFault::Kind::Unplug);
    }
    m_waiting.push_back(std::move(record));
    run(now);
    return true;
}

std::vector<std::vector<std::uint8_t>> BootLoader::takeReplies(std::chrono::nanoseconds now)
{
    run(now);
    return std::exchange(m_replies, {});
}

std::optional<std::chrono::nanoseconds> BootLoader::nextDeadline() const
{
    return m_work ? std::optional(m_work->done) : std::nullopt;
}

void BootLoader::powerOff(std::chrono::nanoseconds now)
{
    run(now);
    m_work.reset();
    m_waiting.clear();
    m_replies.clear();
    m_session.reset();
}

void BootLoader::inject(const BootFault& fault)
{
    if (fault.offset >= sizeof(FirmwareUpgradeCommand))
        throw std::invalid_argument("BootLoader: a reply has no byte " + std::to_string(fault.offset));
    m_faults.add(fault);
}

void BootLoader::clearFaults()
{
    m_faults.clear();
}

const BootLoader::Flash& BootLoader::getFlash() const
{
    return m_flash;
}

const BootLoader::Statistics& BootLoader::getStatistics() const
{
    return m_statistics;
}

BootLoader::Flash BootLoader::takeFlash()
{
    return std::exchange(m_flash, {});
}

// Until `now`: whatever is done by then is done, and the next one is begun.
void BootLoader::run(std::chrono::nanoseconds now)
{
    while (m_work || !m_waiting.empty()) {
        if (!m_work)
            begin();
        if (m_work->done > now)
            return;
        finish();
    }
}

// Judged here and not when it came: what was before it has been done by now.
void BootLoader::begin()
{
    Record record = std::move(m_waiting.front());
    m_waiting.pop_front();
    const bool isChunk = record.type == WireFormat::firmwareDataType;
    const bool good = !record.meets(BootFault::Kind::Reply) &&
                      (isChunk ? isGoodChunk(record.payload) : isGoodRequest(record.payload));
    auto done = std::max(record.arrival, m_idleSince) + (isChunk && good ? m_options.chunkTime : m_options.checkTime);
    if (record.meets(BootFault::Kind::Delay))
        done += record.fault->delay;
    m_work = Work{std::move(record), good, done};
}

void BootLoader::finish()
{
    const Work work = std::move(*m_work);
    m_work.reset();
    m_idleSince = work.done;
    if (work.good) {
        if (const auto chunk = readRecord<FirmwareData>(work.record.payload))
            write(*chunk);
        else if (const auto request = readRecord<FirmwareUpgradeRequest>(work.record.payload))
            open(*request);
    }
    count(work);
    if (isAnswered(work))
        reply(work);
}

bool BootLoader::isGoodRequest(const std::vector<std::uint8_t>& payload) const
{
    const auto request = readRecord<FirmwareUpgradeRequest>(payload);
    if (!request || request->checksum != sumOf(payload))
        return false;
    const auto isZero = [](std::uint8_t byte) { return byte == 0; };
    return std::all_of(std::begin(request->reserved0), std::end(request->reserved0), isZero) &&
           request->reserved1 == 0 && request->word == FirmwareUpgradeRequest::expectedWord &&
           request->mainSize <= m_options.mainCapacity && request->servoSize <= m_options.servoCapacity;
}

bool BootLoader::isGoodChunk(const std::vector<std::uint8_t>& payload) const
{
    const auto chunk = readRecord<FirmwareData>(payload);
    if (!chunk || chunk->checksum != sumOf(payload) || !m_session)
        return false;
    const bool isMain = chunk->board == FirmwareData::MainMcu;
    if (!isMain && chunk->board != FirmwareData::ServoMcu)
        return false;
    const std::uint32_t size = isMain ? m_session->mainSize : m_session->servoSize;
    const Image& image = isMain ? m_flash.main : m_flash.servo;
    // Below the size, so that a length of 0 is never right.
    return chunk->address < size && chunk->address <= image.written && chunk->address % FirmwareData::chunkSize == 0 &&
           chunk->length == std::min(size - chunk->address, FirmwareData::chunkSize);
}

void BootLoader::open(const FirmwareUpgradeRequest& request)
{
    if (m_session && m_session->mainSize == request.mainSize && m_session->mainCrc == request.mainCrc &&
        m_session->servoSize == request.servoSize && m_session->servoCrc == request.servoCrc)
        return;
    m_session = Session{request.mainSize, request.mainCrc, request.servoSize, request.servoCrc};
    announce(m_flash.main, request.mainSize, request.mainCrc);
    announce(m_flash.servo, request.servoSize, request.servoCrc);
}

void BootLoader::write(const FirmwareData& chunk)
{
    Image& image = chunk.board == FirmwareData::MainMcu ? m_flash.main : m_flash.servo;
    if (chunk.address == 0) {
        image.bytes.clear();
        image.written = 0;
    }
    const std::uint32_t end = chunk.address + chunk.length;
    image.written = std::max(image.written, end);
    image.bytes.resize(image.written);
    std::copy_n(chunk.data, chunk.length, image.bytes.begin() + static_cast<std::ptrdiff_t>(chunk.address));
    if (image.written < image.size)
        image.state = State::Incomplete;
    else
        image.state = calculateImageCrc(image.bytes) == image.crc ? State::Verified : State::Mismatched;
}

void BootLoader::count(const Work& work)
{
    if (work.record.type == WireFormat::firmwareDataType)
        ++(work.good ? m_statistics.chunksWritten : m_statistics.chunksRefused);
    else
        ++(work.good ? m_statistics.requestsAccepted : m_statistics.requestsRefused);
}

bool BootLoader::isAnswered(const Work& work) const
{
    if (work.record.meets(BootFault::Kind::Lose))
        return false;
    return work.record.meets(BootFault::Kind::Reply) || work.record.type != WireFormat::firmwareDataType || m_session ||
           m_options.refusesWithoutSession;
}

void BootLoader::reply(const Work& work)
{
    const Record& record = work.record;
    FirmwareUpgradeCommand command{};
    if (record.type == WireFormat::firmwareUpgradeRequestType) {
        command.command = work.good ? FirmwareUpgradeCommand::SendAgain : FirmwareUpgradeCommand::Invalid;
    } else {
        command.command = work.good ? FirmwareUpgradeCommand::ChunkWritten : FirmwareUpgradeCommand::FailedSendAgain;
    }
    if (record.meets(BootFault::Kind::Reply))
        command.command = record.fault->code;
    if (record.type == WireFormat::firmwareDataType) {
        // Of a record of another size nothing is known.
        const FirmwareData chunk = readRecord<FirmwareData>(record.payload).value_or(FirmwareData{});
        command.board = chunk.board;
        command.address = chunk.address;
        command.length = command.command == FirmwareUpgradeCommand::ChunkWritten ? chunk.length : 0;
        command.checksum = chunk.checksum;
    }
    std::vector<std::uint8_t> bytes(sizeof command);
    std::memcpy(bytes.data(), &command, sizeof command);
    if (record.meets(BootFault::Kind::Corrupt))
        bytes[record.fault->offset] ^= 0xFF;
    m_replies.insert(m_replies.end(), record.meets(BootFault::Kind::Duplicate) ? 2 : 1, bytes);
    m_statistics.replies += record.meets(BootFault::Kind::Duplicate) ? 2 : 1;
}

} // namespace Vantor
