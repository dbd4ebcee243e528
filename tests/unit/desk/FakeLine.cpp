#include "tests/unit/desk/FakeLine.h"

#include "protocol/PacketHeader.h"
#include "wire/RecordHeader.h"

#include <algorithm>
#include <iterator>
#include <tuple>
#include <utility>

namespace Vantor {

void FakeLine::addRecord(std::uint8_t type, std::optional<std::uint32_t> key, const std::string& payload)
{
    ++m_added;
    if (key) {
        m_waiting.remove_if([&](const Record& record) { return record.type == type && record.key == key; });
    }
    m_waiting.push_back({type, key, payload});
    if (!m_packet.isUnderWay)
        fill();
}

void FakeLine::draw(std::uint16_t lcd, std::vector<ClientLcdBitmap> layers)
{
    m_drawings.push_back({{lcd, std::move(layers)}, m_slices});
    if (!m_packet.isUnderWay)
        fill();
}

PriorityPacker::Progress FakeLine::getProgress() const
{
    PriorityPacker::Progress progress;
    progress.waitingRecords = m_waiting.size();
    progress.waitingPictures = m_drawings.size();
    progress.endedPackets = m_ended;
    progress.cutPackets = m_cut;
    progress.isUnderWay = m_packet.isUnderWay;
    return progress;
}

void FakeLine::fill()
{
    m_waiting.sort([](const Record& one, const Record& other) {
        return std::make_tuple(!one.key, one.type, one.key.value_or(0)) <
               std::make_tuple(!other.key, other.type, other.key.value_or(0));
    });
    std::size_t room = m_limit - sizeof(PacketHeader);
    while (!m_waiting.empty() && sizeof(RecordHeader) + m_waiting.front().payload.size() <= room) {
        room -= sizeof(RecordHeader) + m_waiting.front().payload.size();
        m_packet.records.push_back(std::move(m_waiting.front()));
        m_waiting.pop_front();
        m_packet.isUnderWay = true;
    }
    if (m_drawings.empty())
        return;
    m_packet.isUnderWay = true;
    if (--m_drawings.front().slicesLeft == 0) {
        m_packet.pictures.push_back(std::move(m_drawings.front().picture));
        m_drawings.pop_front();
    }
}

bool FakeLine::end(bool isWhole)
{
    if (!m_packet.isUnderWay)
        return false;
    ++m_ended;
    Packet packet = std::exchange(m_packet, {});
    if (isWhole) {
        std::move(packet.records.begin(), packet.records.end(), std::back_inserter(m_taken));
        std::move(packet.pictures.begin(), packet.pictures.end(), std::back_inserter(m_drawn));
    } else {
        ++m_cut;
    }
    fill();
    return true;
}

bool FakeLine::take()
{
    return end(true);
}

bool FakeLine::cut()
{
    return end(false);
}

void FakeLine::takeAll()
{
    while (take()) {
    }
}

std::vector<std::string> FakeLine::getTaken() const
{
    std::vector<std::string> payloads;
    std::transform(m_taken.begin(), m_taken.end(), std::back_inserter(payloads),
                   [](const Record& record) { return record.payload; });
    return payloads;
}

} // namespace Vantor
