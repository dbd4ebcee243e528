#pragma once

#include "simulator/web/PanelBoard.h"
#include "simulator/web/ScreenFeed.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace Vantor {

// One listener's stream of events, in the text of server-sent events. What a slow listener
// misses is never kept for it: pictures and counters are as they are when it comes for them,
// and records are told as missed.
//
// Threads: one at a time. Lifetime: board and feed must outlive it.
class EventStream {
public:
    struct Options {
        bool withScreens = true;
        bool withRecords = true;
    };
    using Clock = std::function<std::chrono::nanoseconds()>;

    static constexpr std::size_t mostRecords = 500;  // in an event
    static constexpr std::size_t firstRecords = 200; // in the first one
    static constexpr std::chrono::milliseconds trafficPace{500};
    static constexpr std::chrono::milliseconds firmwarePace{100};

    EventStream(const PanelBoard& board, ScreenFeed& feed, std::string simulation, const Options& options,
                Clock clock = steadyClock);

    // What has come since, after waiting for it no longer than `patience`: it may be empty.
    std::string next(std::chrono::nanoseconds patience);

    // Nothing more will come.
    bool hasEnded() const { return m_hasEnded; }

private:
    static std::chrono::nanoseconds steadyClock();

    std::string begin();
    void addNews(std::string& text);
    void addPanels(std::string& text, const AllReadings& readings);
    void addLines(std::string& text);
    void addScreens(std::string& text);
    void addRecords(std::string& text);
    void addTraffic(std::string& text, const AllReadings& readings, bool isLast);
    void addFirmware(std::string& text, const AllReadings& readings, bool isLast);

    const PanelBoard& m_board;
    ScreenFeed& m_feed;
    const ScreenFeed::Listening m_listening;
    const std::string m_simulation;
    const Options m_options;
    const Clock m_clock;

    bool m_hasBegun = false;
    bool m_hasEnded = false;
    std::uint64_t m_takes = 0;
    std::uint64_t m_panelChange = 0;
    ScreenFeed::Lives m_lives;
    ScreenFeed::Seen m_seen;
    std::uint64_t m_nextOrder = 0;
    std::uint64_t m_nextViolation = 0;
    std::uint64_t m_nextRecord = 0;
    AllReadings m_traffic; // as it was told last
    AllReadings m_firmware;
    std::chrono::nanoseconds m_trafficTime{0};
    std::chrono::nanoseconds m_firmwareTime{0};
};

} // namespace Vantor
