#include "simulator/web/EventStream.h"

#include "simulator/web/WebJson.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace Vantor {

namespace {

void add(std::string& text, const char* event, const std::string& data)
{
    text.append("event: ").append(event).append("\ndata: ").append(data).append("\n\n");
}

} // namespace

std::chrono::nanoseconds EventStream::steadyClock()
{
    return std::chrono::steady_clock::now().time_since_epoch();
}

EventStream::EventStream(const PanelBoard& board, ScreenFeed& feed, std::string simulation, const Options& options,
                         Clock clock)
    : m_board(board), m_feed(feed), m_listening(feed), m_simulation(std::move(simulation)), m_options(options),
      m_clock(std::move(clock))
{}

std::string EventStream::next(std::chrono::nanoseconds patience)
{
    const std::chrono::nanoseconds end = m_clock() + patience;
    std::string text = std::exchange(m_hasBegun, true) ? "" : begin();
    while (text.empty() && !m_hasEnded) {
        const std::chrono::nanoseconds left = end - m_clock();
        if (left.count() <= 0)
            break;
        m_takes = m_feed.await(m_takes, left);
        addNews(text);
    }
    return text;
}

void EventStream::addNews(std::string& text)
{
    // Asked for before the rest is read, so that the end comes behind everything.
    m_hasEnded = m_feed.hasEnded();
    const AllReadings readings = m_feed.getReadings();
    addPanels(text, readings);
    addLines(text);
    if (m_options.withScreens)
        addScreens(text);
    if (m_options.withRecords)
        addRecords(text);
    addTraffic(text, readings, m_hasEnded);
    addFirmware(text, readings, m_hasEnded);
    if (m_hasEnded)
        add(text, "end", "{}");
}

std::string EventStream::begin()
{
    m_feed.refresh();
    const WebJson::State state{m_simulation,         m_board.now(),       m_board.getPanels(),
                               m_feed.getReadings(), m_board.getOrders(), m_board.getViolations()};
    for (const PanelBoard::Panel& panel : state.panels) {
        m_panelChange = std::max(m_panelChange, panel.change);
        m_lives[panel.number] = panel.life;
    }
    if (!state.orders.empty())
        m_nextOrder = state.orders.back().number + 1;
    if (!state.violations.empty())
        m_nextViolation = state.violations.back().number + 1;
    const std::uint64_t next = m_board.getNextRecord();
    m_nextRecord = next - std::min<std::uint64_t>(next, firstRecords);
    m_traffic = state.readings;
    m_firmware = state.readings;
    std::string text;
    add(text, "state", WebJson::format(state));
    return text;
}

void EventStream::addPanels(std::string& text, const AllReadings& readings)
{
    for (const PanelBoard::Panel& panel : m_board.getPanels(m_panelChange)) {
        m_panelChange = std::max(m_panelChange, panel.change);
        m_lives[panel.number] = panel.life;
        const auto known = readings.find(panel.number);
        add(text, "panel", WebJson::format(panel, known != readings.end() ? known->second : PanelReadings{}));
    }
}

void EventStream::addLines(std::string& text)
{
    for (const PanelBoard::Line& order : m_board.getOrders(m_nextOrder)) {
        m_nextOrder = order.number + 1;
        add(text, "order", WebJson::formatOrder(order));
    }
    for (const PanelBoard::Line& violation : m_board.getViolations(m_nextViolation)) {
        m_nextViolation = violation.number + 1;
        add(text, "violation", WebJson::formatViolation(violation));
    }
}

void EventStream::addScreens(std::string& text)
{
    for (const ScreenFeed::Update& update : m_feed.getUpdates(m_seen, m_lives)) {
        m_seen[update.place] = update.number;
        add(text, "screen", *update.text);
    }
}

void EventStream::addRecords(std::string& text)
{
    const PanelBoard::Records records = m_board.getRecords(m_nextRecord, mostRecords);
    if (records.records.empty())
        return;
    m_nextRecord = records.records.back().number + 1;
    add(text, "records", WebJson::format(records));
}

void EventStream::addTraffic(std::string& text, const AllReadings& readings, bool isLast)
{
    const std::chrono::nanoseconds now = m_clock();
    if (!isLast && now < m_trafficTime + trafficPace)
        return;
    AllReadings changed;
    for (const auto& [panel, of] : readings)
        if (!of.hasTrafficOf(m_traffic[panel]))
            changed.emplace(panel, of);
    if (changed.empty())
        return;
    m_traffic = readings;
    m_trafficTime = now;
    add(text, "traffic", WebJson::formatTraffic(m_board.now(), changed));
}

void EventStream::addFirmware(std::string& text, const AllReadings& readings, bool isLast)
{
    const std::chrono::nanoseconds now = m_clock();
    if (!isLast && now < m_firmwareTime + firmwarePace)
        return;
    for (const auto& [panel, of] : readings) {
        if (of.hasFirmwareOf(m_firmware[panel]))
            continue;
        m_firmware[panel] = of;
        m_firmwareTime = now;
        add(text, "firmware", WebJson::formatFirmware(panel, of));
    }
}

} // namespace Vantor
