#include "panel2mqtt/desk/FlashDesk.h"

#include "protocol/PacketHeader.h"
#include "protocol/PacketType.h"
#include "wire/RecordHeader.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace Vantor {

namespace {

constexpr unsigned int chunkPacket = sizeof(PacketHeader) + sizeof(RecordHeader) + sizeof(FirmwareData);
constexpr std::chrono::minutes publishLater{1}; // without a connection
constexpr std::size_t longestJobId = 64;
constexpr std::size_t mostTold = 64; // of earlier runs, until they can be cleared

const char* stateNameOf(FlashJob::State state)
{
    constexpr std::array<const char*, 5> names{"queued", "writing", "written", "answering", "failed"};
    return names.at(static_cast<std::size_t>(state));
}

// A level of a topic.
bool isJobId(const std::string& text)
{
    return !text.empty() && text.size() <= longestJobId && std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
               c == '.';
    });
}

std::string digitsOf(const std::string& bytes)
{
    constexpr const char* digits = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        text += digits[static_cast<unsigned char>(byte) >> 4];
        text += digits[static_cast<unsigned char>(byte) & 15];
    }
    return text;
}

std::uint32_t sizeOf(const std::optional<ShelfImage>& image)
{
    return image ? image->size : 0;
}

// In either case of letters.
bool equalDigits(const std::string& one, const std::string& other)
{
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](char left, char right) { return (left | ' ') == (right | ' '); });
}

std::string sumOf(const std::optional<ShelfImage>& image)
{
    return image ? image->sha256 : "";
}

std::string pathOf(const std::optional<ShelfImage>& image)
{
    return image ? image->path : "";
}

} // namespace

FlashDesk::FlashDesk(std::string run, std::function<std::string()> clock, Ledger::Reply reply, Publish publish, Say say)
    : m_run(std::move(run)), m_clock(std::move(clock)), m_reply(reply), m_publish(std::move(publish)),
      m_say(std::move(say)), m_ledger(std::move(reply))
{}

void FlashDesk::arrive(std::shared_ptr<PanelLine> line, TimePoint now)
{
    leave(now);
    m_line = std::move(line);
    if (m_active)
        m_active->job.onPanelReady();
    poll(now);
}

void FlashDesk::leave(TimePoint now)
{
    if (m_active) {
        look(now);
        m_active->job.onPanelLeft(now);
    }
    m_line.reset();
    poll(now);
}

// What tells one order from another: an image by its sum.
Message FlashDesk::askedOf(const Message& command)
{
    Message asked;
    asked.topic = command.topic;
    asked.responseTopic = command.responseTopic;
    asked.correlation = command.correlation;
    asked.userProperties = command.userProperties;
    for (const char* const name : {"mcu", "sha256", "main", "servo", "sha256-main", "sha256-servo"}) {
        const std::string* const value = command.findProperty(name);
        asked.payload += value != nullptr ? *value + '\n' : "\n";
    }
    return asked;
}

// Nothing, when the command's id is none for a topic.
std::optional<std::string> FlashDesk::nameJob(const Message& command)
{
    if (const std::string* const id = command.findProperty("id"))
        return isJobId(*id) ? std::optional(*id) : std::nullopt;
    if (command.correlation && !command.correlation->empty())
        return command.correlation->size() <= longestJobId ? std::optional(digitsOf(*command.correlation))
                                                           : std::nullopt;
    return m_run.substr(0, 8) + "-" + std::to_string(++m_named);
}

void FlashDesk::add(const Message& command, const Read& read, TimePoint now)
{
    const auto id = nameJob(command);
    if (!id) {
        m_reply(command, {Answer::Word::Refused, "the id names the job's topic: letters, digits, '-', '_' and '.', at "
                                                 "most 64; or correlation data of at most 64 bytes"});
        return;
    }
    const auto ticket = m_ledger.open(askedOf(command), now);
    if (!ticket)
        return;
    if (const auto refusal = refuse(*id, command)) {
        m_ledger.close(*ticket, *refusal, false, now);
        return;
    }
    auto made = read();
    if (const auto* const refusal = std::get_if<Answer>(&made))
        m_ledger.close(*ticket, *refusal, false, now);
    else
        begin(*id, *ticket, std::get<FlashOrder::Images>(std::move(made)), now);
}

std::optional<Answer> FlashDesk::refuse(const std::string& id, const Message& command) const
{
    const auto known = m_told.find(id);
    if (known != m_told.end() && isOfAnother(known->second.state, command))
        return Answer{Answer::Word::Refused, "job " + id + " was of another image: flash under another id"};
    if (known != m_told.end())
        return answerOf(id, known->second.state);
    if (m_line == nullptr)
        return Answer{Answer::Word::Offline, ""};
    if (m_active)
        return Answer{Answer::Word::Busy, "job " + m_active->id + " is under way"};
    if (m_line->getUpgrade().isUpdating)
        return Answer{Answer::Word::Busy,
                      "an upgrade that has failed can't be stopped: wait, or plug the panel in anew"};
    if (m_line->getPacketLimit() < chunkPacket)
        return Answer{Answer::Word::Refused, "the panel takes packets of " + std::to_string(m_line->getPacketLimit()) +
                                                 " bytes, and firmware needs " + std::to_string(chunkPacket)};
    return std::nullopt;
}

// As far as both say what they are of.
bool FlashDesk::isOfAnother(const JobState& known, const Message& command)
{
    const std::string* const mcu = command.findProperty("mcu");
    const bool isServo = mcu != nullptr && *mcu == "servo";
    const auto differs = [&command](const char* property, const std::string& sum) {
        const std::string* const asked = command.findProperty(property);
        return asked != nullptr && !equalDigits(*asked, sum);
    };
    if (known.mainSum.empty() && known.servoSum.empty())
        return false;
    return differs("sha256", isServo ? known.servoSum : known.mainSum) || differs("sha256-main", known.mainSum) ||
           differs("sha256-servo", known.servoSum);
}

// Of a command that is repeated when only the job is remembered: nothing is written twice.
Answer FlashDesk::answerOf(const std::string& id, const JobState& known)
{
    if (known.state == "answering")
        return {Answer::Word::Taken, ""};
    if (known.state == "interrupted")
        return {Answer::Word::Unknown, "job " + id + " was interrupted: flash again under another id"};
    return {Answer::Word::Refused, "there is a job " + id + " already, " + known.state + ": flash under another id"};
}

void FlashDesk::begin(const std::string& id, std::uint64_t ticket, FlashOrder::Images images, TimePoint now)
{
    const FlashJob job(sizeOf(images.main), sizeOf(images.servo));
    const JobState state{stateNameOf(job.getState()), 0, job.getTotal(), m_clock(), "", sumOf(images.main),
                         sumOf(images.servo)};
    m_told[id] = {state, true, TimePoint::max()};
    m_active.emplace(Active{id, ticket, job, std::move(images), now});
    m_publish(id, DeskJson::write(state));
    m_say(id, state);
    evict();
}

void FlashDesk::start(TimePoint now)
{
    m_active->job.start(now);
    m_line->startUpgrade(pathOf(m_active->images.main), pathOf(m_active->images.servo));
    m_active->images = {};
}

void FlashDesk::look(TimePoint now)
{
    if (!m_active || m_line == nullptr)
        return;
    const PanelLine::Upgrade upgrade = m_line->getUpgrade();
    m_active->job.onProgress(upgrade.isUpdating, upgrade.written, upgrade.total, now);
}

void FlashDesk::poll(TimePoint now)
{
    forget(now);
    if (!m_active)
        return;
    FlashJob& job = m_active->job;
    if (job.getState() == FlashJob::State::Queued && m_line != nullptr)
        start(now);
    look(now);
    job.poll(now);
    if (job.takeQuestion(now) && m_line != nullptr)
        m_line->askInformation();
    tell(now);
}

void FlashDesk::tell(TimePoint now)
{
    const FlashJob& job = m_active->job;
    const std::string id = m_active->id;
    Told& told = m_told.at(id);
    const bool isAnother = told.state.state != stateNameOf(job.getState());
    const bool isFurther = told.state.bytesWritten != job.getWritten() && now >= m_active->nextPublication;
    if (!isAnother && !isFurther)
        return;
    if (isAnother)
        told.state.since = m_clock();
    told.state.state = stateNameOf(job.getState());
    told.state.bytesWritten = job.getWritten();
    if (job.isOver())
        told.state.reason = job.getEnd().reason;
    m_active->nextPublication = now + publishStep;
    m_publish(id, DeskJson::write(told.state));
    if (!job.isOver())
        return;
    m_say(id, told.state);
    told.forgotten = now + memory;
    const Answer end = job.getEnd();
    const std::uint64_t ticket = m_active->ticket;
    m_active.reset();
    m_ledger.close(ticket, end, true, now);
}

void FlashDesk::onRecord(unsigned int type, const std::string& payload)
{
    if (!m_active)
        return;
    FirmwareUpgradeCommand reply{};
    if (type == static_cast<unsigned int>(PacketType::DeviceInformation)) {
        m_active->job.onInformation();
    } else if (type == static_cast<unsigned int>(PacketType::FirmwareUpgradeCommand) &&
               payload.size() == sizeof reply) {
        std::memcpy(&reply, payload.data(), sizeof reply);
        m_active->job.onReply(reply);
    }
}

void FlashDesk::remember(const std::string& id, const std::string& payload, TimePoint now)
{
    const auto known = m_told.find(id);
    if (known != m_told.end() && known->second.isOwn)
        return;
    if (payload.empty()) {
        m_told.erase(id);
        return;
    }
    if (known == m_told.end() && m_told.size() >= mostTold)
        return;
    JobState state = DeskJson::readJobState(payload).value_or(JobState());
    const bool isInterrupted = !state.isOver();
    if (isInterrupted) {
        state.reason = "the gateway ended at " + std::to_string(state.bytesWritten) + " of " +
                       std::to_string(state.totalBytes) + " bytes: flash it again";
        state.state = "interrupted";
        state.since = m_clock();
    }
    const std::string text = DeskJson::write(state);
    if (isInterrupted)
        m_say(id, state);
    const TimePoint forgotten = known != m_told.end() ? known->second.forgotten : now + memory;
    m_told[id] = {std::move(state), false, forgotten};
    if (isInterrupted)
        m_publish(id, text);
    evict();
}

void FlashDesk::publishAll()
{
    for (const auto& [id, told] : m_told)
        m_publish(id, DeskJson::write(told.state));
    evict();
}

void FlashDesk::clear()
{
    for (const auto& [id, told] : std::exchange(m_told, {}))
        m_publish(id, "");
}

void FlashDesk::evict()
{
    while (m_told.size() > mostJobs) {
        const auto oldest = std::min_element(m_told.begin(), m_told.end(), [](const auto& one, const auto& other) {
            const bool isOver = one.second.state.isOver();
            return isOver != other.second.state.isOver() ? isOver : one.second.state.since < other.second.state.since;
        });
        if (!oldest->second.state.isOver() || !m_publish(oldest->first, ""))
            return;
        m_told.erase(oldest);
    }
}

void FlashDesk::forget(TimePoint now)
{
    for (auto told = m_told.begin(); told != m_told.end();) {
        if (told->second.forgotten > now) {
            ++told;
        } else if (m_publish(told->first, "")) {
            told = m_told.erase(told);
        } else {
            told->second.forgotten = now + publishLater;
            ++told;
        }
    }
}

FlashDesk::TimePoint FlashDesk::getNextDue() const
{
    TimePoint due = m_active ? m_active->job.getNextDue() : TimePoint::max();
    for (const auto& [id, told] : m_told)
        due = std::min(due, told.forgotten);
    return due;
}

} // namespace Vantor
