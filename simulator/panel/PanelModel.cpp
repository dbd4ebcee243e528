#include "simulator/panel/PanelModel.h"

#include "protocol/DeviceInformation.h"
#include "protocol/ReqDeviceInfo.h"
#include "referenceProtocol/WireFormat.h"
#include "simulator/panel/PanelDescriptors.h"
#include "simulator/panel/SliceDecoder.h"
#include "wire/RecordHeader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace Vantor {

namespace {

constexpr std::size_t urbSplit = 16384; // how hosts split transfers without scatter-gather

template <typename Record> void append(std::vector<std::uint8_t>& bytes, const Record& record)
{
    const std::size_t end = bytes.size();
    bytes.resize(end + sizeof record);
    std::memcpy(bytes.data() + end, &record, sizeof record);
}

template <typename Urb> auto findUrb(std::deque<Urb>& urbs, PanelModel::UrbId id)
{
    return std::find_if(urbs.begin(), urbs.end(), [id](const Urb& urb) { return urb.id == id; });
}

} // namespace

PanelModel::PanelModel(Options options, Clock clock, BootLoader::Flash flash)
    : m_options(std::move(options)), m_clock(std::move(clock)), m_packetLimit(m_options.maxPacketSize),
      m_decoder(m_packetLimit.at(m_clock())), m_bootLoader(m_options.bootLoader, std::move(flash))
{
    for (const auto& [lcd, size] : m_options.lcdSizes)
        if (!PanelScreen::isPossible(size))
            throw std::invalid_argument("PanelModel: the size of LCD " + std::to_string(lcd) + " is not possible");
}

PanelModel::~PanelModel() = default;

std::vector<std::uint8_t> PanelModel::getDescriptors() const
{
    if (!m_options.descriptors.empty())
        return m_options.descriptors;
    return makePanelDescriptors(m_options.vendorId, m_options.productId);
}

std::vector<std::uint8_t> PanelModel::getString(std::uint8_t index) const
{
    if (m_options.descriptors.empty())
        return makePanelString(index);
    const auto known = m_options.strings.find(index);
    return known != m_options.strings.end() ? known->second : std::vector<std::uint8_t>{};
}

int PanelModel::claimInterface(Owner owner, unsigned int number)
{
    if (m_unplugged)
        return -ENODEV;
    if (number != PanelLink::interfaceNumber)
        return -ENOENT;
    if (m_claimedBy && *m_claimedBy != owner)
        return -EBUSY;
    m_claimedBy = owner;
    return 0;
}

int PanelModel::releaseInterface(Owner owner, unsigned int number)
{
    if (m_unplugged)
        return -ENODEV;
    if (number != PanelLink::interfaceNumber)
        return -ENOENT;
    if (m_claimedBy != owner)
        return -EINVAL;
    m_claimedBy.reset();
    cancelAll(owner, -ENOENT);
    return 0;
}

void PanelModel::closeOwner(Owner owner)
{
    cancelAll(owner, -ENOENT);
    const auto isOwners = [owner](const OwnedCompletion& completion) { return completion.owner == owner; };
    m_completions.erase(std::remove_if(m_completions.begin(), m_completions.end(), isOwners), m_completions.end());
    if (m_claimedBy == owner)
        m_claimedBy.reset();
}

int PanelModel::clearHalt(std::uint8_t endpoint)
{
    if (m_unplugged)
        return -ENODEV;
    if (endpoint != PanelLink::outEndpoint && endpoint != PanelLink::inEndpoint)
        return -ENOENT;
    (endpoint == PanelLink::outEndpoint ? m_outFaults : m_inFaults).clearHalt();
    return 0;
}

bool PanelModel::isHalted(std::uint8_t endpoint) const
{
    if (endpoint == PanelLink::outEndpoint)
        return m_outFaults.isHalted();
    return endpoint == PanelLink::inEndpoint && m_inFaults.isHalted();
}

int PanelModel::claimForSubmit(Owner owner)
{
    return claimInterface(owner, PanelLink::interfaceNumber);
}

int PanelModel::submitOut(Owner owner, UrbId urb, std::vector<std::uint8_t> data, bool endsTransfer)
{
    const int claimed = claimForSubmit(owner);
    if (claimed != 0)
        return claimed;
    const bool marked = endsTransfer || data.empty() || data.size() % PanelOutbox::busPacket != 0;
    const bool ends = marked || data.size() % urbSplit != 0;
    m_outUrbs.push_back({owner, urb, std::move(data), ends, marked, m_submittedTransfer, m_packetLimit.at(m_clock())});
    if (ends)
        ++m_submittedTransfer;
    if (m_options.script)
        m_options.script->onTransfer(m_clock());
    serve();
    return 0;
}

void PanelModel::breakOffOut()
{
    const bool begun = m_outUrbs.empty() ? m_outTransfer.number == m_submittedTransfer
                                         : m_outUrbs.back().transfer == m_submittedTransfer;
    if (begun)
        ++m_submittedTransfer;
}

int PanelModel::submitIn(Owner owner, UrbId urb, std::uint32_t capacity)
{
    const int claimed = claimForSubmit(owner);
    if (claimed != 0)
        return claimed;
    m_inUrbs.push_back({owner, urb, capacity, std::nullopt, {}});
    if (m_options.script)
        m_options.script->onTransfer(m_clock());
    serve();
    return 0;
}

bool PanelModel::cancel(UrbId urb)
{
    const auto out = findUrb(m_outUrbs, urb);
    const auto in = findUrb(m_inUrbs, urb);
    if (out != m_outUrbs.end()) {
        const Owner owner = out->owner;
        abandonOut(*out);
        m_outUrbs.erase(out);
        complete(owner, urb, -ENOENT, {}, 0);
    } else if (in != m_inUrbs.end()) {
        const Owner owner = in->owner;
        m_inUrbs.erase(in);
        complete(owner, urb, -ENOENT, {}, 0);
    } else {
        return false;
    }
    serve();
    return true;
}

// What is left of the URB's transfer is not decoded, and nothing more is expected of it.
void PanelModel::abandonOut(const OutUrb& urb)
{
    m_lostTransfers.insert(urb.transfer);
    if (urb.transfer == m_submittedTransfer)
        ++m_submittedTransfer;
}

void PanelModel::cancelAll(Owner owner, int status)
{
    std::deque<OutUrb> keptOut;
    for (OutUrb& urb : m_outUrbs) {
        if (urb.owner != owner) {
            keptOut.push_back(std::move(urb));
            continue;
        }
        abandonOut(urb);
        complete(urb.owner, urb.id, status, {}, 0);
    }
    m_outUrbs = std::move(keptOut);

    std::deque<InUrb> keptIn;
    for (InUrb& urb : m_inUrbs) {
        if (urb.owner == owner)
            complete(urb.owner, urb.id, status, {}, 0);
        else
            keptIn.push_back(urb);
    }
    m_inUrbs = std::move(keptIn);
}

void PanelModel::unplug()
{
    if (m_unplugged)
        return;
    m_unplugged = true;
    if (m_claimedBy)
        cancelAll(*m_claimedBy, -ESHUTDOWN);
    m_claimedBy.reset();
    m_outbox.clear();
    m_bootLoader.powerOff(m_clock());
}

bool PanelModel::isBeingRead() const
{
    return !m_inUrbs.empty();
}

bool PanelModel::isUnplugged() const
{
    return m_unplugged;
}

std::vector<PanelModel::Completion> PanelModel::takeCompletions()
{
    serve();
    std::vector<Completion> taken;
    taken.reserve(m_completions.size());
    for (OwnedCompletion& owned : m_completions)
        taken.push_back(std::move(owned.completion));
    m_completions.clear();
    return taken;
}

std::optional<std::chrono::nanoseconds> PanelModel::nextDeadline() const
{
    std::optional<std::chrono::nanoseconds> next;
    const auto scriptDue = m_options.script && !m_unplugged ? m_options.script->getNextTime(isAnswerable()) : next;
    for (const auto& due : {outDue(), inDue(), m_bootLoader.nextDeadline(), scriptDue})
        if (due && (!next || *due < *next))
            next = due;
    return next;
}

std::optional<std::chrono::nanoseconds> PanelModel::outDue() const
{
    const bool isDelayed = !m_outUrbs.empty() && m_outUrbs.front().transfer == m_outTransfer.number &&
                           m_outTransfer.fault && m_outTransfer.fault->kind == PanelFault::Kind::Delay;
    return isDelayed ? std::optional(m_outTransfer.due) : std::nullopt;
}

std::optional<std::chrono::nanoseconds> PanelModel::inDue() const
{
    const bool isDelayed =
        !m_inUrbs.empty() && m_inUrbs.front().fault && m_inUrbs.front().fault->kind == PanelFault::Kind::Delay;
    return isDelayed ? std::optional(m_inUrbs.front().due) : std::nullopt;
}

void PanelModel::complete(Owner owner, UrbId urb, int status, std::vector<std::uint8_t> data, std::uint32_t length)
{
    m_completions.push_back({owner, {urb, status, length, std::move(data)}});
}

// Answers what can be answered now.
void PanelModel::serve()
{
    if (m_serving)
        return;
    // An observer may throw.
    struct Serving {
        explicit Serving(bool& flag) : m_flag(flag) { m_flag = true; }
        ~Serving() { m_flag = false; }
        Serving(const Serving&) = delete;
        Serving& operator=(const Serving&) = delete;
        bool& m_flag;
    };
    const Serving serving(m_serving);
    bool progress = true;
    while (progress) {
        const auto out = outDue();
        const auto in = inDue();
        const bool replied = m_options.script ? serveScript() : serveBootLoader();
        const bool readIsOlder = out && in && *in < *out && serveIn();
        const bool wrote = serveOut();
        const bool read = serveIn();
        progress = replied || readIsOlder || wrote || read;
    }
}

bool PanelModel::serveBootLoader()
{
    const auto replies = m_bootLoader.takeReplies(m_clock());
    for (const std::vector<std::uint8_t>& reply : replies)
        emit(PacketType::FirmwareUpgradeCommand, reply);
    return !replies.empty();
}

bool PanelModel::serveScript()
{
    const auto deed = m_unplugged ? std::nullopt : m_options.script->takeDue(m_clock(), isAnswerable());
    if (!deed)
        return false;
    if (const auto* const answer = std::get_if<PanelScript::Answer>(&*deed))
        perform(*answer);
    else if (const auto* const fault = std::get_if<PanelFault>(&*deed))
        (fault->direction == PanelFault::Direction::Out ? m_outFaults : m_inFaults).add(*fault);
    else
        unplug();
    return true;
}

// What is sent by command goes first.
bool PanelModel::isAnswerable() const
{
    return isBeingRead() && m_outbox.isEmpty();
}

void PanelModel::perform(PanelScript::Answer answer)
{
    const InUrb head = m_inUrbs.front();
    const bool isFaulty = head.fault || m_inFaults.next() != nullptr; // by command
    if (answer.status == 0 && (isFaulty || answer.data.size() > head.capacity)) {
        m_outbox.add(std::move(answer.data));
        return;
    }
    answer.data.resize(std::min<std::size_t>(answer.data.size(), head.capacity));
    m_inUrbs.pop_front();
    give(head, answer.status, std::move(answer.data), 1);
}

bool PanelModel::serveOut()
{
    if (m_outUrbs.empty())
        return false;
    beginOutTransfer(m_outUrbs.front());
    if (isOutHeld())
        return false;
    const OutUrb urb = std::move(m_outUrbs.front());
    m_outUrbs.pop_front();
    answerOut(urb);
    return true;
}

void PanelModel::beginOutTransfer(const OutUrb& urb)
{
    const std::uint64_t number = urb.transfer;
    if (m_outTransfer.number != number) {
        m_decoder.dropTransfer();
        m_decoder.setPacketLimit(urb.packetLimit);
        m_outTransfer = OutTransfer{};
        m_outTransfer.number = number;
    }
    if (m_lostTransfers.count(number) != 0)
        m_outTransfer.lost = true;
    m_lostTransfers.erase(m_lostTransfers.begin(), m_lostTransfers.upper_bound(number));

    const PanelFault* const fault = m_outFaults.next();
    if (!m_outTransfer.fault && fault != nullptr) {
        m_outTransfer.fault = *fault;
        m_outTransfer.due = m_clock() + fault->delay;
        m_outFaults.use();
    }
}

bool PanelModel::isOutHeld() const
{
    if (!m_outTransfer.fault)
        return false;
    switch (m_outTransfer.fault->kind) {
    case PanelFault::Kind::NoAnswer:
        return true;
    case PanelFault::Kind::Delay:
        return m_clock() < m_outTransfer.due;
    default:
        return false;
    }
}

void PanelModel::answerOut(const OutUrb& urb)
{
    std::size_t size = urb.data.size();
    if (m_outTransfer.fault) {
        const PanelFault& fault = *m_outTransfer.fault;
        if (fault.kind == PanelFault::Kind::Stall || fault.kind == PanelFault::Kind::Status) {
            complete(urb.owner, urb.id, fault.kind == PanelFault::Kind::Stall ? -EPIPE : fault.status, {}, 0);
            return;
        }
        if (fault.kind == PanelFault::Kind::Short)
            size = m_outTransfer.taken < fault.bytes
                       ? std::min(size, static_cast<std::size_t>(fault.bytes - m_outTransfer.taken))
                       : 0;
    }
    complete(urb.owner, urb.id, 0, {}, static_cast<std::uint32_t>(size));
    takeBytes(urb, size);
}

void PanelModel::takeBytes(const OutUrb& urb, std::size_t size)
{
    m_outTransfer.taken += size;
    m_statistics.bytesReceived += size;
    if (m_outTransfer.lost)
        return;
    handle(m_decoder.feed(urb.data.data(), size));
    if (m_unplugged)
        return;
    if (size < urb.data.size()) {
        m_outTransfer.lost = true;
        return;
    }
    if (!urb.ends)
        return;
    if (!urb.marked)
        reportViolation(std::to_string(m_outTransfer.taken) +
                        " bytes fill whole packets of 512 bytes, and nothing marks their end");
    handle(m_decoder.endTransfer());
}

void PanelModel::handle(WireDecoder::Result result)
{
    for (const std::string& violation : result.violations)
        reportViolation(violation);
    for (WireDecoder::Packet& packet : result.packets) {
        ++m_statistics.packetsReceived;
        for (WireDecoder::Record& record : packet.records) {
            handleRecord(std::move(record));
            if (m_unplugged)
                return;
        }
    }
}

void PanelModel::handleRecord(WireDecoder::Record record)
{
    ++m_statistics.recordsReceived;
    ++m_statistics.recordsByType[record.type];
    if (record.type == PacketType::LcdSlice || record.type == PacketType::EncodedLcdSlice)
        drawSlice(record);
    const bool isTimed = m_observer || m_options.keepRecords;
    Record received{record.type, std::move(record.payload), isTimed ? m_clock() : std::chrono::nanoseconds(0)};
    // A copy: the observer may set another one.
    if (const auto observer = m_observer)
        observer(received);
    if (m_options.script)
        m_options.script->onRecord(received.type, m_clock());
    else
        answerRecord(received.type, received.payload);
    if (m_options.keepRecords)
        m_records.push_back(std::move(received));
}

void PanelModel::answerRecord(PacketType type, const std::vector<std::uint8_t>& payload)
{
    if (type == WireFormat::reqDeviceInfoType)
        answerDeviceInfoRequest(payload);
    // The observer may have pulled the panel.
    if (!m_unplugged && !m_bootLoader.take(type, payload, m_clock()))
        unplug();
}

void PanelModel::drawSlice(const WireDecoder::Record& record)
{
    const SliceDecoder::Result result = SliceDecoder::decode(record.type, record.payload);
    if (!result.slice) {
        reportViolation(result.violation);
        return;
    }
    const SliceDecoder::Slice& slice = *result.slice;
    PanelScreen* const screen = findScreen(slice.lcd);
    if (screen == nullptr) {
        reportViolation("slice for LCD " + std::to_string(slice.lcd) + ": " + std::to_string(maxScreens) +
                        " others are drawn on, a panel has no more");
        return;
    }
    screen->draw(slice.x, slice.y, slice.width, slice.pixels);
    if (m_drawObserver)
        m_drawObserver({record.type, slice, record.payload.size(), *screen});
}

// Null for an LCD that is one too many.
PanelScreen* PanelModel::findScreen(std::uint16_t lcd)
{
    const auto known = m_screens.find(lcd);
    if (known != m_screens.end())
        return &known->second;
    if (m_screens.size() == maxScreens)
        return nullptr;
    const auto size = m_options.lcdSizes.find(lcd);
    return &m_screens.emplace(lcd, size != m_options.lcdSizes.end() ? size->second : defaultLcdSize).first->second;
}

void PanelModel::answerDeviceInfoRequest(const std::vector<std::uint8_t>& payload)
{
    ReqDeviceInfo request{};
    if (payload.size() != sizeof request) {
        reportViolation("request for device information of " + std::to_string(payload.size()) + " bytes, it has 4");
        return;
    }
    std::memcpy(&request, payload.data(), sizeof request);
    if (request.request != 1) {
        reportViolation("request for device information with value " + std::to_string(request.request) +
                        ", expected 1");
        return;
    }
    DeviceInformation info{};
    std::memcpy(info.description, m_options.description.data(),
                std::min(m_options.description.size(), sizeof info.description));
    info.maxPacketSize = m_options.maxPacketSize;
    std::vector<std::uint8_t> answer;
    append(answer, info);
    emit(PacketType::DeviceInformation, answer);
}

void PanelModel::reportViolation(const std::string& what)
{
    if (m_violations.size() < maxViolations)
        m_violations.push_back("OUT transfer " + std::to_string(m_outTransfer.number) + ", " + what);
    else if (m_violations.size() == maxViolations)
        m_violations.push_back("more than " + std::to_string(maxViolations) + " violations, the rest is not listed");
}

bool PanelModel::serveIn()
{
    if (m_inUrbs.empty())
        return false;
    InUrb& head = m_inUrbs.front();
    if (meetInFault(head))
        return false;

    std::uint32_t limit = PanelOutbox::noLimit;
    if (head.fault) {
        const PanelFault fault = *head.fault;
        if (fault.kind == PanelFault::Kind::Stall || fault.kind == PanelFault::Kind::Status) {
            complete(head.owner, head.id, fault.kind == PanelFault::Kind::Stall ? -EPIPE : fault.status, {}, 0);
            m_inUrbs.pop_front();
            return true;
        }
        if (fault.kind == PanelFault::Kind::Short)
            limit = fault.bytes;
    }
    if (m_outbox.isEmpty())
        return false;

    PanelOutbox::Chunk chunk = m_outbox.take(head.capacity, limit);
    give(head, chunk.status, std::move(chunk.bytes), chunk.packets);
    m_inUrbs.pop_front();
    return true;
}

// To a read of the host; `packets` are those that it completes.
void PanelModel::give(const InUrb& urb, int status, std::vector<std::uint8_t> bytes, std::uint32_t packets)
{
    const auto length = static_cast<std::uint32_t>(bytes.size());
    m_statistics.bytesSent += length;
    m_statistics.packetsSent += packets;
    lookAtGiven(bytes);
    complete(urb.owner, urb.id, status, std::move(bytes), length);
}

// Reads what the host gets as the host does: device information may also be emitted by command.
void PanelModel::lookAtGiven(const std::vector<std::uint8_t>& given)
{
    for (const WireDecoder::Packet& packet : WireDecoder::decode(given, 0).packets)
        for (const WireDecoder::Record& record : packet.records) {
            if (m_givenObserver)
                m_givenObserver(record.type, record.payload);
            DeviceInformation info{};
            if (record.type != PacketType::DeviceInformation || record.payload.size() != sizeof info)
                continue;
            std::memcpy(&info, record.payload.data(), sizeof info);
            m_packetLimit.announce(info.maxPacketSize, m_clock());
        }
}

// Binds the read to the fault that meets it, if any; true while that fault holds it.
bool PanelModel::meetInFault(InUrb& urb)
{
    const PanelFault* const fault = m_inFaults.next();
    if (!urb.fault && fault != nullptr) {
        const bool needsData = fault->kind == PanelFault::Kind::Short || fault->kind == PanelFault::Kind::Delay;
        if (needsData && m_outbox.isEmpty())
            return true;
        urb.fault = *fault;
        urb.due = m_clock() + fault->delay;
        m_inFaults.use();
    }
    if (!urb.fault)
        return false;
    return urb.fault->kind == PanelFault::Kind::NoAnswer ||
           (urb.fault->kind == PanelFault::Kind::Delay && m_clock() < urb.due);
}

void PanelModel::emit(PacketType type, const std::vector<std::uint8_t>& payload)
{
    const auto wireType = static_cast<std::int32_t>(type);
    if (wireType < 0 || wireType > 255)
        throw std::invalid_argument("PanelModel::emit: a record's type is one byte");
    if (payload.size() > maxPayload)
        throw std::length_error("PanelModel::emit: the payload does not fit a packet");
    const std::size_t recordSize = sizeof(RecordHeader) + payload.size();
    std::vector<std::uint8_t> packet;
    packet.reserve(sizeof(PacketHeader) + recordSize);
    append(packet, PacketHeader{static_cast<std::uint16_t>(sizeof(PacketHeader) + recordSize), 1,
                                static_cast<std::uint32_t>(m_options.seed)});
    append(packet, RecordHeader{static_cast<std::uint8_t>(wireType), static_cast<std::uint16_t>(payload.size())});
    packet.insert(packet.end(), payload.begin(), payload.end());
    emitRaw(std::move(packet));
}

void PanelModel::emitRaw(std::vector<std::uint8_t> bytes)
{
    if (m_unplugged)
        return;
    m_outbox.add(std::move(bytes));
    serve();
}

void PanelModel::inject(const PanelFault& fault)
{
    (fault.direction == PanelFault::Direction::Out ? m_outFaults : m_inFaults).add(fault);
    serve();
}

void PanelModel::inject(const BootFault& fault)
{
    m_bootLoader.inject(fault);
}

void PanelModel::clearFaults()
{
    m_outFaults.clear();
    m_inFaults.clear();
    m_bootLoader.clearFaults();
    serve();
}

void PanelModel::setRecordObserver(std::function<void(const Record&)> observer)
{
    m_observer = std::move(observer);
}

void PanelModel::setDrawObserver(std::function<void(const Drawing&)> observer)
{
    m_drawObserver = std::move(observer);
}

void PanelModel::setGivenObserver(
    std::function<void(PacketType type, const std::vector<std::uint8_t>& payload)> observer)
{
    m_givenObserver = std::move(observer);
}

const BootLoader& PanelModel::getBootLoader() const
{
    return m_bootLoader;
}

BootLoader::Flash PanelModel::takeFlash()
{
    return m_bootLoader.takeFlash();
}

const std::vector<PanelModel::Record>& PanelModel::getRecords() const
{
    return m_records;
}

const PanelModel::Statistics& PanelModel::getStatistics() const
{
    return m_statistics;
}

const std::map<std::uint16_t, PanelScreen>& PanelModel::getScreens() const
{
    return m_screens;
}

const std::vector<std::string>& PanelModel::getViolations() const
{
    return m_violations;
}

} // namespace Vantor
