#include "simulator/web/ScreenFeed.h"

#include "simulator/web/WebJson.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <utility>

namespace Vantor {

namespace {

using Pixels = std::vector<std::uint32_t>;

// Of a screen of this size; white where nothing was ever drawn.
Pixels copyArea(const PanelModel& model, std::uint16_t lcd, const PanelBoard::Area& area)
{
    const std::size_t count = std::size_t{area.columns} * area.rows;
    const auto known = model.getScreens().find(lcd);
    if (known == model.getScreens().end() || area.x + area.columns > known->second.getWidth() ||
        area.y + area.rows > known->second.getHeight())
        return Pixels(count, PanelScreen::white);
    const PanelScreen& screen = known->second;
    Pixels pixels;
    pixels.reserve(count);
    for (std::size_t row = area.y; row < area.y + area.rows; ++row) {
        const std::uint32_t* const begin = screen.getPixels().data() + row * screen.getWidth() + area.x;
        pixels.insert(pixels.end(), begin, begin + area.columns);
    }
    return pixels;
}

std::size_t costOf(const ScreenPatch& patch)
{
    return sizeof patch + patch.bytes.size() + patch.colours.size() * sizeof patch.colours.front();
}

} // namespace

ScreenFeed::Listening::Listening(ScreenFeed& feed) : m_feed(feed)
{
    const std::lock_guard<std::mutex> lock(m_feed.m_mutex);
    ++m_feed.m_listeners;
    m_feed.m_listened.notify_all();
}

ScreenFeed::Listening::~Listening()
{
    const std::lock_guard<std::mutex> lock(m_feed.m_mutex);
    --m_feed.m_listeners;
}

ScreenFeed::ScreenFeed(PanelBoard& board, UseBus useBus)
    : m_board(board), m_useBus(std::move(useBus)), m_thread(&ScreenFeed::run, this)
{}

ScreenFeed::~ScreenFeed()
{
    end();
    m_thread.join();
}

void ScreenFeed::end()
{
    if (hasEnded())
        return;
    take();
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isEnding = true;
        m_taken.notify_all();
        m_listened.notify_all();
    }
    m_board.end();
}

bool ScreenFeed::hasEnded() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_isEnding;
}

void ScreenFeed::refresh()
{
    take();
}

// Not analysed: a condition needs std::unique_lock, which carries no annotation.
void ScreenFeed::run() MORVANE_NO_THREAD_SAFETY_ANALYSIS
{
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds idlePace{500}; // for what the board is not told of
    Clock::time_point due;
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_isEnding) {
        if (m_listeners == 0) {
            m_listened.wait(lock);
            continue;
        }
        lock.unlock();
        // From the last time on, not from now: what one was late is not added up.
        due = std::max(due + pace, Clock::now());
        const std::uint64_t seen = m_board.getChanges();
        try {
            take();
        } catch (const std::exception&) {
            // Without memory: the next time, perhaps.
        }
        m_board.await(seen, idlePace);
        lock.lock();
        m_listened.wait_until(lock, due, [this]() MORVANE_REQUIRES(m_mutex) { return m_isEnding; });
    }
}

void ScreenFeed::take()
{
    const std::lock_guard<std::mutex> takeLock(m_takeMutex);
    std::vector<Part> parts;
    std::optional<AllReadings> readings;
    // What was touched is asked for where it can be read, too, or it would be forgotten.
    m_useBus([this, &parts, &readings](PanelBus& bus) {
        parts = readScreens(bus, m_board.takeTouched());
        readings = readCounters(bus);
    });
    keep(parts);
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (readings)
        m_readings = std::move(*readings);
    ++m_takes;
    m_taken.notify_all();
}

std::vector<ScreenFeed::Part> ScreenFeed::readScreens(PanelBus& bus, const std::vector<PanelBoard::Touched>& touched)
{
    std::vector<Part> parts;
    parts.reserve(touched.size());
    for (const PanelBoard::Touched& place : touched)
        bus.visit(place.panel, [&place, &parts](PanelModel& model) {
            parts.push_back({place, copyArea(model, place.lcd.number, place.area)});
        });
    return parts;
}

AllReadings ScreenFeed::readCounters(PanelBus& bus)
{
    AllReadings readings;
    for (unsigned int panel = 0; panel < PanelBus::maxPanels; ++panel)
        bus.visit(panel, [panel, &readings](PanelModel& model) { readings.emplace(panel, PanelReadings::of(model)); });
    return readings;
}

void ScreenFeed::keep(const std::vector<Part>& parts)
{
    struct Told {
        ScreenPatch patch;
        std::shared_ptr<const std::string> text;
    };
    std::vector<Told> told;
    told.reserve(parts.size());
    for (const auto& [touched, pixels] : parts) {
        ScreenPatch patch = ScreenPatch::make(touched.area, pixels);
        auto text = std::make_shared<const std::string>(asJson(touched.panel, touched.lcd, patch));
        told.push_back({std::move(patch), std::move(text)});
    }
    const std::chrono::nanoseconds now = m_board.now();
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (std::size_t i = 0; i < parts.size(); ++i) {
        View& view = renew(parts[i].touched, now);
        view.lcd = parts[i].touched.lcd;
        view.previous = std::exchange(view.number, ++m_lastUpdate);
        view.text = told[i].text;
        told[i].patch.draw(view.pixels, view.lcd.size.width);
        if (view.base.empty())
            view.base = view.pixels;
        else
            remember(view, told[i].patch, now);
    }
    for (auto& [place, view] : m_views)
        forget(view, now);
}

// White at the beginning of a panel's life; then its earlier ones are over.
ScreenFeed::View& ScreenFeed::renew(const PanelBoard::Touched& touched, std::chrono::nanoseconds now)
{
    const Place place{touched.panel, touched.lcd.number};
    const auto known = m_views.find(place);
    if (known != m_views.end() && known->second.life == touched.life)
        return known->second;
    for (auto view = m_views.lower_bound({touched.panel, 0});
         view != m_views.end() && view->first.first == touched.panel;)
        view = view->second.life != touched.life ? m_views.erase(view) : std::next(view);
    View& view = m_views[place];
    view.life = touched.life;
    view.pixels.assign(std::size_t{touched.lcd.size.width} * touched.lcd.size.height, PanelScreen::white);
    view.baseTime = now;
    return view;
}

void ScreenFeed::remember(View& view, const ScreenPatch& patch, std::chrono::nanoseconds now)
{
    view.history.emplace_back(now, patch);
    view.historyBytes += costOf(patch);
}

// What is too old, or more than its share.
void ScreenFeed::forget(View& view, std::chrono::nanoseconds now) const
{
    const std::size_t share = maxMemory / m_views.size();
    while (!view.history.empty() && (view.history.front().first < now - memory || view.historyBytes > share)) {
        const auto& [time, oldest] = view.history.front();
        oldest.draw(view.base, view.lcd.size.width);
        view.baseTime = time;
        view.historyBytes -= costOf(oldest);
        view.history.pop_front();
    }
}

std::string ScreenFeed::asJson(unsigned int panel, const PanelBoard::Lcd& lcd, const ScreenPatch& patch)
{
    return "{\"panel\":" + std::to_string(panel) + "," + WebJson::membersOf(lcd) + "," + patch.asJson() + "}";
}

// Not analysed: a condition needs std::unique_lock, which carries no annotation.
std::uint64_t ScreenFeed::await(std::uint64_t seen, std::chrono::nanoseconds patience) MORVANE_NO_THREAD_SAFETY_ANALYSIS
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_taken.wait_for(lock, patience,
                     [this, seen]() MORVANE_REQUIRES(m_mutex) { return m_takes != seen || m_isEnding; });
    return m_takes;
}

std::vector<ScreenFeed::Update> ScreenFeed::getUpdates(const Seen& seen, const Lives& lives) const
{
    struct Late {
        Update update;
        PanelBoard::Lcd lcd;
        Pixels pixels;
    };
    std::vector<Update> updates;
    std::vector<Late> late;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto& [place, view] : m_views) {
            const auto life = lives.find(place.first);
            const auto last = seen.find(place);
            const std::uint64_t since = last != seen.end() ? last->second : 0;
            if (view.number <= since || life == lives.end() || life->second != view.life)
                continue;
            if (since != 0 && view.previous <= since)
                updates.push_back({place, view.number, view.text});
            else
                late.push_back({{place, view.number, nullptr}, view.lcd, view.pixels});
        }
    }
    for (Late& whole : late) {
        const ScreenPatch patch = ScreenPatch::make(PanelBoard::wholeOf(whole.lcd.size), whole.pixels);
        whole.update.text = std::make_shared<const std::string>(asJson(whole.update.place.first, whole.lcd, patch));
        updates.push_back(whole.update);
    }
    return updates;
}

AllReadings ScreenFeed::getReadings() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_readings;
}

std::optional<PanelScreen> ScreenFeed::getPicture(const Place& place) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const View* const view = findView(place);
    if (view == nullptr)
        return std::nullopt;
    return PanelScreen(view->lcd.size, view->pixels);
}

// Null also for one of an earlier life of its panel.
const ScreenFeed::View* ScreenFeed::findView(const Place& place) const
{
    const auto known = m_views.find(place);
    return known != m_views.end() && known->second.life == m_board.getLife(place.first) ? &known->second : nullptr;
}

std::optional<ScreenFeed::Animation> ScreenFeed::getAnimation(const Place& place) const
{
    View view;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const View* const known = findView(place);
        if (known == nullptr)
            return std::nullopt;
        view = *known;
    }
    const PanelScreen::Size& size = view.lcd.size;
    const std::chrono::nanoseconds now = m_board.now();
    const std::chrono::nanoseconds begin = std::max(now - memory, view.baseTime);
    Animation animation{{}, now};
    for (const auto& [time, patch] : view.history) {
        if (time > begin && animation.frames.empty())
            animation.frames.push_back({begin, PanelScreen(size, view.base)});
        patch.draw(view.base, size.width);
        if (time > begin)
            animation.frames.push_back({time, PanelScreen(size, view.base)});
    }
    if (animation.frames.empty())
        animation.frames.push_back({begin, PanelScreen(size, view.base)});
    return animation;
}

} // namespace Vantor
