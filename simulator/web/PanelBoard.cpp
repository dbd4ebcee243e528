#include "simulator/web/PanelBoard.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace Vantor {

namespace {

// Of a device descriptor, with the low byte first.
std::uint16_t wordAt(const std::vector<std::uint8_t>& descriptor, std::size_t offset)
{
    if (descriptor.size() < offset + 2)
        return 0;
    return static_cast<std::uint16_t>(descriptor[offset] | descriptor[offset + 1] << 8);
}

PanelBoard::Area unite(const PanelBoard::Area& one, const PanelBoard::Area& other)
{
    if (one.columns == 0 || one.rows == 0)
        return other;
    if (other.columns == 0 || other.rows == 0)
        return one;
    const unsigned int x = std::min(one.x, other.x);
    const unsigned int y = std::min(one.y, other.y);
    return {x, y, std::max(one.x + one.columns, other.x + other.columns) - x,
            std::max(one.y + one.rows, other.y + other.rows) - y};
}

// What is left of it on the LCD.
PanelBoard::Area clip(const SliceDecoder::Slice& slice, const PanelScreen::Size& size)
{
    if (slice.x >= size.width || slice.y >= size.height)
        return {};
    return {slice.x, slice.y, std::min<unsigned int>(slice.width, size.width - slice.x),
            std::min<unsigned int>(slice.rows, size.height - slice.y)};
}

std::vector<PanelBoard::Line> from(const std::deque<PanelBoard::Line>& lines, std::uint64_t number)
{
    if (lines.empty())
        return {};
    const std::uint64_t first = lines.front().number;
    const std::uint64_t gone = std::min<std::uint64_t>(number - std::min(number, first), lines.size());
    return {lines.begin() + static_cast<std::ptrdiff_t>(gone), lines.end()};
}

} // namespace

PanelBoard::Area PanelBoard::wholeOf(const PanelScreen::Size& size)
{
    return {0, 0, size.width, size.height};
}

void PanelBoard::begin()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_start = Clock::now();
}

std::chrono::nanoseconds PanelBoard::now() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return timeNow();
}

std::chrono::nanoseconds PanelBoard::timeNow() const
{
    return m_start ? Clock::now() - *m_start : std::chrono::nanoseconds(0);
}

PanelBoard::Lcd PanelBoard::describe(std::uint16_t number, const LcdState& lcd)
{
    return {number, lcd.size, lcd.trail.getSlices(), lcd.trail.getBytes(), lcd.trail.getLayer()};
}

std::vector<PanelBoard::Panel> PanelBoard::getPanels(std::uint64_t since) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<Panel> panels;
    for (const auto& [number, state] : m_panels) {
        if (state.change <= since)
            continue;
        panels.push_back({number,
                          state.life,
                          state.change,
                          state.isPlugged,
                          state.vendorId,
                          state.productId,
                          state.maxPacketSize,
                          {}});
        for (const auto& [lcd, of] : state.lcds)
            panels.back().lcds.push_back(describe(lcd, of));
    }
    return panels;
}

std::uint64_t PanelBoard::getLife(unsigned int panel) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto known = m_panels.find(panel);
    return known != m_panels.end() ? known->second.life : 0;
}

std::vector<PanelBoard::Line> PanelBoard::getOrders(std::uint64_t from) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return Vantor::from(m_orders, from);
}

std::vector<PanelBoard::Line> PanelBoard::getViolations(std::uint64_t from) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return Vantor::from(m_violations, from);
}

PanelBoard::Records PanelBoard::getRecords(std::uint64_t from, std::size_t most) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const std::uint64_t next = m_records.getNext();
    const std::uint64_t first = std::max({from, m_records.getFirst(), next > most ? next - most : 0});
    Records records;
    records.missed = first - std::min(from, first);
    for (std::uint64_t number = first; number < next; ++number)
        records.records.push_back({number, m_records.get(number)});
    return records;
}

std::uint64_t PanelBoard::getNextRecord() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_records.getNext();
}

std::optional<SliceTrail::Mark> PanelBoard::findSlice(unsigned int panel, std::uint16_t lcd, unsigned int x,
                                                      unsigned int y) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto known = m_panels.find(panel);
    if (known == m_panels.end())
        return std::nullopt;
    const auto screen = known->second.lcds.find(lcd);
    return screen != known->second.lcds.end() ? screen->second.trail.find(x, y) : std::nullopt;
}

std::vector<PanelBoard::Touched> PanelBoard::takeTouched()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<Touched> touched;
    for (auto& [number, panel] : m_panels)
        for (auto& [lcdNumber, lcd] : panel.lcds) {
            const Area area = std::exchange(lcd.touched, {});
            if (area.columns != 0 && area.rows != 0)
                touched.push_back({number, panel.life, describe(lcdNumber, lcd), area});
        }
    return touched;
}

std::uint64_t PanelBoard::getChanges() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_changes;
}

// Not analysed: a condition needs std::unique_lock, which carries no annotation.
void PanelBoard::await(std::uint64_t seen, std::chrono::nanoseconds patience) MORVANE_NO_THREAD_SAFETY_ANALYSIS
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_isAwaited = true;
    m_changed.wait_for(lock, patience,
                       [this, seen]() MORVANE_REQUIRES(m_mutex) { return m_changes != seen || m_isEnding; });
    m_isAwaited = false;
}

void PanelBoard::end()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isEnding = true;
    m_changed.notify_all();
}

void PanelBoard::noteChange()
{
    ++m_changes;
    if (m_isAwaited)
        m_changed.notify_all();
}

void PanelBoard::onPlugged(unsigned int panel, const PanelModel& model)
{
    constexpr std::size_t vendorOffset = 8;
    constexpr std::size_t productOffset = 10;
    const std::vector<std::uint8_t> descriptors = model.getDescriptors();
    const PanelModel::Options& options = model.getOptions();
    const std::lock_guard<std::mutex> lock(m_mutex);
    PanelState& state = m_panels[panel];
    state.life = ++m_lives;
    state.change = ++m_panelChanges;
    state.isPlugged = true;
    state.vendorId = wordAt(descriptors, vendorOffset);
    state.productId = wordAt(descriptors, productOffset);
    state.maxPacketSize = options.maxPacketSize;
    state.lcds.clear();
    for (const auto& [number, size] : options.lcdSizes)
        state.lcds.emplace(number, LcdState{size, {}, wholeOf(size)});
    noteChange();
}

void PanelBoard::onUnplugged(unsigned int panel)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    PanelState& state = m_panels[panel];
    if (!std::exchange(state.isPlugged, false))
        return;
    state.change = ++m_panelChanges;
    noteChange();
}

void PanelBoard::onOrder(const std::string& line)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_orders.push_back({m_nextOrder++, timeNow(), 0, line});
    m_orderBytes += line.size();
    while (m_orderBytes > maxOrderBytes && m_orders.size() > 1) {
        m_orderBytes -= m_orders.front().text.size();
        m_orders.pop_front();
    }
    noteChange();
}

void PanelBoard::onRecord(unsigned int panel, const PanelModel::Record& record)
{
    const auto busTime = std::chrono::duration_cast<Clock::duration>(record.time);
    const std::lock_guard<std::mutex> lock(m_mutex);
    // Of thousands a second, the bus has looked at the clock already.
    if (!m_busStart)
        m_busStart = Clock::now() - busTime;
    const auto time = m_start ? *m_busStart + busTime - *m_start : std::chrono::nanoseconds(0);
    m_records.add(std::max(time, std::chrono::nanoseconds(0)), panel, RecordRing::Way::Out, record.type,
                  record.payload);
    noteChange();
}

void PanelBoard::onGiven(unsigned int panel, PacketType type, const std::vector<std::uint8_t>& payload)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_records.add(timeNow(), panel, RecordRing::Way::In, type, payload);
    noteChange();
}

void PanelBoard::onDrawn(unsigned int panel, const PanelModel::Drawing& drawing)
{
    const PanelScreen::Size size{drawing.screen.getWidth(), drawing.screen.getHeight()};
    const std::lock_guard<std::mutex> lock(m_mutex);
    PanelState& state = m_panels[panel];
    const auto [lcd, isNew] = state.lcds.try_emplace(drawing.slice.lcd, LcdState{size, {}, {}});
    LcdState& drawn = lcd->second;
    drawn.trail.add(timeNow(), drawing.type, drawing.slice, drawing.bytes);
    drawn.touched = isNew ? wholeOf(size) : unite(drawn.touched, clip(drawing.slice, size));
    noteChange();
}

void PanelBoard::onViolation(unsigned int panel, const std::string& violation)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_violations.push_back({m_nextViolation++, timeNow(), panel, violation});
    if (m_violations.size() > maxViolations)
        m_violations.pop_front();
    noteChange();
}

} // namespace Vantor
