#pragma once

#include "libMorvaneHostUsb/ThreadAnnotations.h"
#include "simulator/bus/PanelBus.h"
#include "simulator/web/PanelBoard.h"
#include "simulator/web/PanelReadings.h"
#include "simulator/web/ScreenPatch.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Vantor {

// The pictures and counters of all panels as they change, for any number of listeners: what
// has changed is read and written down once, up to 25 times a second, as long as somebody
// listens. What was drawn between is passed over; a listener who is late is told the whole
// picture. Remembers the last seconds of each LCD.
//
// Threads: any; one of its own, which waits while nobody listens. Locks: m_takeMutex, then
// the bus, or m_mutex; the board's is behind both.
// Lifetime: the board must outlive it.
class ScreenFeed {
public:
    // Does something with the bus while nothing else happens there; false when there is none
    // any more.
    using UseBus = std::function<bool(const std::function<void(PanelBus&)>& use)>;

    struct Frame {
        std::chrono::nanoseconds time;
        PanelScreen screen;
    };

    struct Animation {
        std::vector<Frame> frames; // the first one is what was there when the time began
        std::chrono::nanoseconds end{0};
    };

    // By panel and LCD.
    using Place = std::pair<unsigned int, std::uint16_t>;

    // A JSON object of the interface's "screen".
    struct Update {
        Place place;
        std::uint64_t number; // from 1; they rise from one update of any LCD to the next
        std::shared_ptr<const std::string> text;
    };
    using Seen = std::map<Place, std::uint64_t>;         // the last update of each LCD
    using Lives = std::map<unsigned int, std::uint64_t>; // by panel

    static constexpr std::chrono::milliseconds pace{40};
    static constexpr std::chrono::seconds memory{10};
    static constexpr std::size_t maxMemory = std::size_t{128} << 20; // bytes of all LCDs together

    ScreenFeed(PanelBoard& board, UseBus useBus);
    ~ScreenFeed();
    ScreenFeed(const ScreenFeed&) = delete;
    ScreenFeed& operator=(const ScreenFeed&) = delete;

    // As long as it lives, everything is taken as it comes.
    class Listening {
    public:
        explicit Listening(ScreenFeed& feed);
        ~Listening();
        Listening(const Listening&) = delete;
        Listening& operator=(const Listening&) = delete;

    private:
        ScreenFeed& m_feed;
    };

    // Takes what there is now, whoever listens.
    void refresh();

    // For the end: takes what there is, and has listeners wait no more.
    void end();
    bool hasEnded() const;

    // Returns when more has been taken than `seen` says, or after `patience`: what to see next.
    std::uint64_t await(std::uint64_t seen, std::chrono::nanoseconds patience);

    // What has been taken after what was seen, of panels that have the life that the caller knows;
    // the others' is for when it does.
    std::vector<Update> getUpdates(const Seen& seen, const Lives& lives) const;

    AllReadings getReadings() const;

    // Nothing for an LCD that there is not, as for one that a plug has left without a picture.
    std::optional<PanelScreen> getPicture(const Place& place) const;
    std::optional<Animation> getAnimation(const Place& place) const;

private:
    struct View {
        std::uint64_t life = 0;
        PanelBoard::Lcd lcd{};
        std::vector<std::uint32_t> pixels;
        std::uint64_t number = 0;   // of the last update
        std::uint64_t previous = 0; // of the one before
        std::shared_ptr<const std::string> text;
        std::chrono::nanoseconds baseTime{0};
        std::vector<std::uint32_t> base; // what was there then; the history begins behind it
        std::deque<std::pair<std::chrono::nanoseconds, ScreenPatch>> history;
        std::size_t historyBytes = 0;
    };
    struct Part {
        PanelBoard::Touched touched;
        std::vector<std::uint32_t> pixels;
    };

    void run();
    void take();
    static std::vector<Part> readScreens(PanelBus& bus, const std::vector<PanelBoard::Touched>& touched);
    static AllReadings readCounters(PanelBus& bus);
    void keep(const std::vector<Part>& parts);
    const View* findView(const Place& place) const MORVANE_REQUIRES(m_mutex);
    View& renew(const PanelBoard::Touched& touched, std::chrono::nanoseconds now) MORVANE_REQUIRES(m_mutex);
    static void remember(View& view, const ScreenPatch& patch, std::chrono::nanoseconds now);
    void forget(View& view, std::chrono::nanoseconds now) const MORVANE_REQUIRES(m_mutex);
    static std::string asJson(unsigned int panel, const PanelBoard::Lcd& lcd, const ScreenPatch& patch);

    PanelBoard& m_board;
    const UseBus m_useBus;

    std::mutex m_takeMutex; // one takes at a time

    mutable std::mutex m_mutex;
    std::condition_variable m_taken;
    std::condition_variable m_listened;
    unsigned int m_listeners MORVANE_GUARDED_BY(m_mutex) = 0;
    bool m_isEnding MORVANE_GUARDED_BY(m_mutex) = false;
    std::uint64_t m_takes MORVANE_GUARDED_BY(m_mutex) = 0;
    std::uint64_t m_lastUpdate MORVANE_GUARDED_BY(m_mutex) = 0;
    std::map<Place, View> m_views MORVANE_GUARDED_BY(m_mutex);
    AllReadings m_readings MORVANE_GUARDED_BY(m_mutex);

    std::thread m_thread;
};

} // namespace Vantor
