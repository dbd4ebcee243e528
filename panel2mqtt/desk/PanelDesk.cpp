#include "panel2mqtt/desk/PanelDesk.h"

#include "protocol/PacketHeader.h"
#include "wire/RecordHeader.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

namespace Vantor {

namespace {

constexpr std::size_t overhead = sizeof(PacketHeader) + sizeof(RecordHeader);

constexpr const char* laterValue = "a later value took its place";
constexpr const char* laterPicture = "a later picture took its place";

} // namespace

PanelDesk::PanelDesk(std::string place, const WishBook& wishes, Duration wait, Ledger::Reply reply)
    : m_place(std::move(place)), m_wishes(wishes), m_wait(wait), m_reply(reply), m_ledger(std::move(reply))
{}

void PanelDesk::arrive(std::shared_ptr<PanelLine> line, TimePoint now)
{
    leave(now);
    m_line = std::move(line);
}

void PanelDesk::leave(TimePoint now)
{
    m_line.reset();
    m_applied.clear();
    m_wanted.clear();
    const Answer offline{Answer::Word::Offline, "the panel has left"};
    const Answer doubtful{Answer::Word::Offline, "the panel left before it had taken this whole"};
    endAll(std::exchange(m_recordFlight, {}).claims, doubtful, true, now);
    endAll(std::exchange(m_pictureFlight, {}).claims, doubtful, true, now);
    m_bytes = 0;
    for (const Record& record : std::exchange(m_records, {}))
        end(record.claim, offline, false, now);
    m_pictureBytes = 0;
    for (const auto& [lcd, waiting] : std::exchange(m_pictures, {}))
        endAll(waiting.claims, offline, false, now);
}

void PanelDesk::add(const Order& order, Message command, TimePoint now)
{
    expire(now); // makes room
    const auto ticket = m_ledger.open(command, now);
    if (!ticket)
        return;
    Claim claim;
    claim.ticket = *ticket;
    claim.deadline = now + m_wait;
    if (command.expirySeconds)
        claim.deadline = std::min(claim.deadline, now + std::chrono::seconds(*command.expirySeconds));
    if (!isThere())
        end(claim, {Answer::Word::Offline, ""}, false, now);
    else if (order.verb == Order::Verb::Draw)
        addPicture(order, command, claim, now);
    else
        addRecord(order, std::move(command), claim, now);
    poll(now);
}

bool PanelDesk::refuseTooLarge(std::size_t size, const Claim& claim, TimePoint now)
{
    const std::size_t most = m_line->getPacketLimit() - overhead;
    if (size <= most)
        return false;
    end(claim, {Answer::Word::TooLarge, "the panel takes " + std::to_string(most) + " bytes in a record"}, false, now);
    return true;
}

void PanelDesk::addRecord(const Order& order, Message command, const Claim& claim, TimePoint now)
{
    if (refuseTooLarge(command.payload.size(), claim, now))
        return;
    const auto type = static_cast<std::uint8_t>(order.number);
    const Record record{claim, type, order.key, std::move(command.payload)};
    const auto earlier = std::find_if(m_records.begin(), m_records.end(), [&record](const Record& waiting) {
        return record.key && waiting.key && waiting.getSubject() == record.getSubject();
    });
    const std::size_t freed = earlier != m_records.end() ? earlier->payload.size() : 0;
    if ((earlier == m_records.end() && m_records.size() == mostRecords) ||
        m_bytes - freed + record.payload.size() > mostBytes) {
        end(claim, {Answer::Word::Busy, ""}, false, now);
        return;
    }
    if (earlier != m_records.end())
        supersede(record.getSubject(), now);
    m_bytes += record.payload.size();
    m_records.push_back(record);
}

void PanelDesk::addPicture(const Order& order, const Message& command, const Claim& claim, TimePoint now)
{
    auto made = PictureOrder::makePicture(command, order.number, m_line->getPacketLimit());
    if (const auto* const refusal = std::get_if<Answer>(&made))
        end(claim, *refusal, false, now);
    else
        placePicture(order.number, std::get<PictureOrder::Picture>(std::move(made)), claim, now);
}

void PanelDesk::placePicture(std::uint16_t lcd, PictureOrder::Picture picture, const Claim& claim, TimePoint now)
{
    const Order::Subject subject{Order::Verb::Draw, lcd, 0};
    const auto earlier = m_pictures.find(lcd);
    const bool isAdded = earlier != m_pictures.end() && earlier->second.picture.isHeld;
    const std::size_t known = earlier != m_pictures.end() ? earlier->second.picture.bytes : 0;
    if (isAdded && known + picture.bytes > mostBytes) {
        end(claim, {Answer::Word::Busy, "too much is held for this LCD"}, false, now);
        return;
    }
    if ((earlier == m_pictures.end() && m_pictures.size() == mostPictures) ||
        (isAdded && picture.isHeld && countPictureCommands() >= mostPictureCommands) ||
        m_pictureBytes - (isAdded ? 0 : known) + picture.bytes > mostPictureBytes) {
        end(claim, {Answer::Word::Busy, "too many pictures wait for this panel"}, false, now);
        return;
    }
    const bool hidesWish = earlier != m_pictures.end() && earlier->second.hidesWish;
    if (!isAdded)
        supersede(subject, now);
    Waiting& waiting = m_pictures[lcd];
    waiting.hidesWish = overrideWish(subject) || hidesWish;
    m_pictureBytes += picture.bytes;
    waiting.picture.bytes += picture.bytes;
    waiting.picture.isHeld = picture.isHeld;
    std::move(picture.layers.begin(), picture.layers.end(), std::back_inserter(waiting.picture.layers));
    waiting.claims.push_back(claim);
}

// Small ones take more than their bytes: somebody waits for each.
std::size_t PanelDesk::countPictureCommands() const
{
    std::size_t count = 0;
    for (const auto& [lcd, waiting] : m_pictures)
        count += waiting.claims.size();
    return count;
}

// Of what waits for the same thing. A repetition of it must not come behind what took its place.
void PanelDesk::supersede(const Order::Subject& subject, TimePoint now)
{
    const auto& [verb, number, key] = subject;
    if (verb == Order::Verb::Draw) {
        const auto waiting = m_pictures.extract(number);
        if (!waiting)
            return;
        m_pictureBytes -= waiting.mapped().picture.bytes;
        endAll(waiting.mapped().claims, {Answer::Word::Refused, laterPicture}, true, now);
        return;
    }
    const auto record = std::find_if(m_records.begin(), m_records.end(), [&subject](const Record& waiting) {
        return waiting.key && waiting.getSubject() == subject;
    });
    if (record == m_records.end())
        return;
    const Claim claim = record->claim;
    m_bytes -= record->payload.size();
    m_records.erase(record);
    end(claim, {Answer::Word::Refused, laterValue}, true, now);
}

// A wish that is still to be drawn, by a command that came after it. False: there is none.
bool PanelDesk::overrideWish(const Order::Subject& subject)
{
    const auto wanted = m_wanted.find(subject);
    if (wanted == m_wanted.end())
        return false;
    m_wanted.erase(wanted);
    const WishBook::Wish* const wish = m_wishes.find(m_place, subject);
    if (wish == nullptr)
        return false;
    m_applied[subject] = wish->serial;
    m_reply(wish->message, {Answer::Word::Refused, laterPicture});
    return true;
}

void PanelDesk::refreshWishes(TimePoint now)
{
    if (!isThere())
        return;
    const std::set<Order::Subject> subjects = m_wishes.getSubjects(m_place);
    for (auto* const serials : {&m_wanted, &m_applied}) {
        for (auto known = serials->begin(); known != serials->end();)
            known = subjects.count(known->first) != 0 ? std::next(known) : serials->erase(known);
    }
    for (const Order::Subject& subject : subjects)
        want(subject, now);
    poll(now);
}

void PanelDesk::refreshWish(const Order::Subject& subject, TimePoint now)
{
    if (!isThere())
        return;
    want(subject, now);
    poll(now);
}

void PanelDesk::want(const Order::Subject& subject, TimePoint now)
{
    const WishBook::Wish* const wish = m_wishes.find(m_place, subject);
    if (wish == nullptr) {
        m_wanted.erase(subject);
        m_applied.erase(subject);
        return;
    }
    const auto applied = m_applied.find(subject);
    const auto wanted = m_wanted.find(subject);
    if ((applied != m_applied.end() && applied->second == wish->serial) ||
        (wanted != m_wanted.end() && wanted->second == wish->serial))
        return;
    m_wanted[subject] = wish->serial;
    supersede(subject, now);
}

void PanelDesk::poll(TimePoint now)
{
    expire(now);
    if (!isThere())
        return;
    land(m_recordFlight, &PriorityPacker::Progress::waitingRecords, now);
    land(m_pictureFlight, &PriorityPacker::Progress::waitingPictures, now);
    startRecords(now);
    startPictures(now);
}

// The panel has it when none of it waits any more, and then the packet under way has ended.
void PanelDesk::land(Flight& flight, std::uint64_t PriorityPacker::Progress::*waiting, TimePoint now)
{
    if (!flight.isUp)
        return;
    const PriorityPacker::Progress progress = m_line->getProgress();
    if (!flight.lastPacket && progress.*waiting == 0)
        flight.lastPacket = progress.endedPackets + (progress.isUnderWay ? 1 : 0);
    if (!flight.lastPacket || progress.endedPackets < *flight.lastPacket)
        return;
    const bool isCut = progress.cutPackets != flight.cutPackets;
    const std::vector<Claim> claims = std::exchange(flight, {}).claims;
    if (isCut)
        endAll(claims, {Answer::Word::Unknown, "the panel took a packet in part, which may have had this"}, true, now);
    else
        endAll(claims, {Answer::Word::Taken, ""}, true, now);
}

void PanelDesk::startRecords(TimePoint now)
{
    if (m_recordFlight.isUp)
        return;
    const std::vector<Record> batch = takeBatch(now);
    if (batch.empty())
        return;
    m_recordFlight.isUp = true;
    m_recordFlight.cutPackets = m_line->getProgress().cutPackets;
    for (const Record& record : batch) {
        m_recordFlight.claims.push_back(record.claim);
        m_line->addRecord(record.type, record.key, record.payload);
    }
    land(m_recordFlight, &PriorityPacker::Progress::waitingRecords, now);
}

// As much as goes into a packet: what is with the library can't be taken back.
std::vector<PanelDesk::Record> PanelDesk::takeBatch(TimePoint now)
{
    std::vector<Record> batch;
    const std::size_t most = m_line->getPacketLimit() - sizeof(PacketHeader);
    std::size_t room = most;
    takeWishedRecords(batch, room);
    while (batch.size() < batchRecords && !m_records.empty()) {
        Record& next = m_records.front();
        const std::size_t size = sizeof(RecordHeader) + next.payload.size();
        if (size <= most && (size > room || !mayFollow(batch, next)))
            break;
        m_bytes -= next.payload.size();
        if (size > most) { // it takes less than it did
            const Claim claim = next.claim;
            m_records.pop_front();
            refuseTooLarge(size - sizeof(RecordHeader), claim, now);
            continue;
        }
        room -= size;
        batch.push_back(std::move(next));
        m_records.pop_front();
    }
    return batch;
}

// The library sends keyed records before others, and the lower key first: what would overtake
// one of its type, or a wish that is older, waits for the next batch.
bool PanelDesk::mayFollow(const std::vector<Record>& batch, const Record& next) const
{
    if (!next.key)
        return true;
    if (m_wanted.count(next.getSubject()) != 0)
        return false;
    return std::none_of(batch.begin(), batch.end(), [&next](const Record& record) {
        return record.type == next.type && (!record.key || *record.key >= *next.key);
    });
}

void PanelDesk::takeWishedRecords(std::vector<Record>& batch, std::size_t& room)
{
    while (!m_wanted.empty() && batch.size() < batchRecords) {
        const Order::Subject subject = m_wanted.begin()->first;
        const auto& [verb, type, key] = subject;
        if (verb != Order::Verb::Set)
            return; // pictures come behind
        const WishBook::Wish* const wish = m_wishes.find(m_place, subject);
        const std::size_t size = wish != nullptr ? sizeof(RecordHeader) + wish->message.payload.size() : 0;
        const bool isTooLarge = size > m_line->getPacketLimit() - sizeof(PacketHeader);
        if (size > room && !isTooLarge)
            return;
        m_wanted.erase(m_wanted.begin());
        if (wish == nullptr)
            continue;
        const Claim claim = claimOf(subject, *wish);
        if (isTooLarge) {
            m_reply(wish->message, {Answer::Word::TooLarge, "the panel does not take so many bytes in a record"});
            continue;
        }
        room -= size;
        batch.push_back({claim, static_cast<std::uint8_t>(type), key, wish->message.payload});
    }
}

// It counts as applied from now on.
PanelDesk::Claim PanelDesk::claimOf(const Order::Subject& subject, const WishBook::Wish& wish)
{
    m_applied[subject] = wish.serial;
    Claim claim;
    claim.wish = subject;
    claim.serial = wish.serial;
    return claim;
}

// A few, as each is decoded; the next when these have landed.
void PanelDesk::gatherWishedPictures()
{
    for (unsigned int left = wishedPicturesAtOnce; left > 0; --left) {
        const auto wanted = m_wanted.lower_bound({Order::Verb::Draw, 0, 0});
        if (wanted == m_wanted.end())
            return;
        const Order::Subject subject = wanted->first;
        const std::uint16_t lcd = std::get<1>(subject);
        m_wanted.erase(wanted);
        const WishBook::Wish* const wish = m_wishes.find(m_place, subject);
        if (wish == nullptr)
            continue;
        const Claim claim = claimOf(subject, *wish);
        auto made = PictureOrder::makePicture(wish->message, lcd, m_line->getPacketLimit());
        if (const auto* const refusal = std::get_if<Answer>(&made)) {
            m_reply(wish->message, *refusal);
            continue;
        }
        auto& picture = std::get<PictureOrder::Picture>(made);
        picture.isHeld = false; // a wish is whole
        m_pictureBytes += picture.bytes;
        m_pictures[lcd] = {std::move(picture), {claim}, false};
    }
}

void PanelDesk::startPictures(TimePoint now)
{
    if (m_pictureFlight.isUp)
        return;
    gatherWishedPictures();
    for (auto waiting = m_pictures.begin(); waiting != m_pictures.end();) {
        if (waiting->second.picture.isHeld) {
            ++waiting;
            continue;
        }
        if (!std::exchange(m_pictureFlight.isUp, true))
            m_pictureFlight.cutPackets = m_line->getProgress().cutPackets;
        Waiting started = std::move(waiting->second);
        m_pictureBytes -= started.picture.bytes;
        const std::uint16_t lcd = waiting->first;
        waiting = m_pictures.erase(waiting);
        m_pictureFlight.claims.insert(m_pictureFlight.claims.end(), started.claims.begin(), started.claims.end());
        m_line->draw(lcd, std::move(started.picture.layers));
    }
    land(m_pictureFlight, &PriorityPacker::Progress::waitingPictures, now);
}

void PanelDesk::expire(TimePoint now)
{
    for (auto record = m_records.begin(); record != m_records.end();) {
        if (record->claim.deadline > now) {
            ++record;
            continue;
        }
        const Claim claim = record->claim;
        m_bytes -= record->payload.size();
        record = m_records.erase(record);
        end(claim, {Answer::Word::Expired, ""}, false, now);
    }
    expirePictures(now);
    expireFlight(m_recordFlight, now);
    expireFlight(m_pictureFlight, now);
}

// The wish holds again that one of them was in the way of.
void PanelDesk::expirePictures(TimePoint now)
{
    std::vector<Order::Subject> wished;
    for (auto waiting = m_pictures.begin(); waiting != m_pictures.end();) {
        const auto& claims = waiting->second.claims;
        const bool isOver =
            std::any_of(claims.begin(), claims.end(), [now](const Claim& claim) { return claim.deadline <= now; });
        if (!isOver) {
            ++waiting;
            continue;
        }
        const std::vector<Claim> ended = claims;
        if (waiting->second.hidesWish)
            wished.emplace_back(Order::Verb::Draw, waiting->first, 0);
        m_pictureBytes -= waiting->second.picture.bytes;
        waiting = m_pictures.erase(waiting);
        endAll(ended, {Answer::Word::Expired, ""}, false, now);
    }
    for (const Order::Subject& subject : wished) {
        m_applied.erase(subject);
        want(subject, now);
    }
}

// It can't be called back: nothing follows it until it has landed.
void PanelDesk::expireFlight(Flight& flight, TimePoint now)
{
    std::vector<Claim> ended;
    const auto isOver = [now](const Claim& claim) { return claim.deadline <= now; };
    std::copy_if(flight.claims.begin(), flight.claims.end(), std::back_inserter(ended), isOver);
    flight.claims.erase(std::remove_if(flight.claims.begin(), flight.claims.end(), isOver), flight.claims.end());
    endAll(ended, {Answer::Word::Expired, "it is on its way, and the panel may yet take it"}, true, now);
}

void PanelDesk::end(const Claim& claim, const Answer& answer, bool isRemembered, TimePoint now)
{
    m_counts.taken += answer.word == Answer::Word::Taken ? 1 : 0;
    m_counts.busy += answer.word == Answer::Word::Busy ? 1 : 0;
    m_counts.expired += answer.word == Answer::Word::Expired ? 1 : 0;
    if (!claim.wish) {
        m_ledger.close(claim.ticket, answer, isRemembered, now);
        return;
    }
    // Who overrides a wish means it: it is applied again when the panel comes back.
    const WishBook::Wish* const wish = m_wishes.find(m_place, *claim.wish);
    if (wish == nullptr || wish->serial != claim.serial)
        return;
    m_reply(wish->message, answer);
    if (answer.word != Answer::Word::Unknown)
        return;
    const auto& [verb, number, key] = *claim.wish;
    const auto later = verb == Order::Verb::Draw ? m_pictures.find(number) : m_pictures.end();
    if (later != m_pictures.end()) {
        later->second.hidesWish = true;
        return;
    }
    m_applied.erase(*claim.wish);
    m_wanted[*claim.wish] = wish->serial;
}

PanelDesk::Counts PanelDesk::getCounts() const
{
    Counts counts = m_counts;
    counts.waiting = m_records.size() + m_pictures.size();
    return counts;
}

void PanelDesk::endAll(const std::vector<Claim>& claims, const Answer& answer, bool isRemembered, TimePoint now)
{
    for (const Claim& claim : claims)
        end(claim, answer, isRemembered, now);
}

PanelDesk::TimePoint PanelDesk::getNextDue() const
{
    TimePoint due = TimePoint::max();
    if (!m_pictureFlight.isUp && m_wanted.lower_bound({Order::Verb::Draw, 0, 0}) != m_wanted.end())
        return TimePoint::min();
    const auto include = [&due](const Claim& claim) { due = std::min(due, claim.deadline); };
    for (const Record& record : m_records)
        include(record.claim);
    for (const auto& [lcd, waiting] : m_pictures)
        std::for_each(waiting.claims.begin(), waiting.claims.end(), include);
    std::for_each(m_recordFlight.claims.begin(), m_recordFlight.claims.end(), include);
    std::for_each(m_pictureFlight.claims.begin(), m_pictureFlight.claims.end(), include);
    return due;
}

} // namespace Vantor
