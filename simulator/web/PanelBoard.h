#pragma once

#include "libMorvaneHostUsb/ThreadAnnotations.h"
#include "simulator/bus/BusWatcher.h"
#include "simulator/panel/PanelScreen.h"
#include "simulator/web/RecordRing.h"
#include "simulator/web/SliceTrail.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Vantor {

// What has happened on a bus, for those who look at it: panels, what was drawn on which of
// their LCDs, records, orders and violations. Not the pictures, which the panels have. All of
// it is bounded, and little work as long as nobody looks.
//
// Threads: any. Its mutex is the last that anybody takes. Lifetime: stands alone.
class PanelBoard : public BusWatcher {
public:
    // In pixels; columns and rows 0 where there is none.
    struct Area {
        unsigned int x = 0;
        unsigned int y = 0;
        unsigned int columns = 0;
        unsigned int rows = 0;
    };

    static Area wholeOf(const PanelScreen::Size& size);

    struct Lcd {
        std::uint16_t number;
        PanelScreen::Size size;
        std::uint64_t slices;
        std::uint64_t bytes;
        std::optional<SliceTrail::Layer> layer;
    };

    struct Panel {
        unsigned int number;
        std::uint64_t life;   // of all plugs on the bus, from 1
        std::uint64_t change; // as getPanels takes it
        bool isPlugged;
        std::uint16_t vendorId;
        std::uint16_t productId;
        std::uint16_t maxPacketSize;
        std::vector<Lcd> lcds;
    };

    struct Line {
        std::uint64_t number;
        std::chrono::nanoseconds time;
        unsigned int panel; // of a violation
        std::string text;
    };

    struct Record {
        std::uint64_t number;
        RecordRing::Entry entry;
    };

    struct Records {
        std::uint64_t missed = 0; // before these
        std::vector<Record> records;
    };

    // A part of an LCD that may look otherwise than when it was last taken.
    struct Touched {
        unsigned int panel;
        std::uint64_t life;
        Lcd lcd;
        Area area;
    };

    // So many lines are kept of violations; of orders, so many bytes.
    static constexpr std::size_t maxViolations = 1000;
    static constexpr std::size_t maxOrderBytes = std::size_t{8} << 20;

    // Time is counted from now on; before, it is 0.
    void begin();
    std::chrono::nanoseconds now() const;

    // Those that have changed since the greatest `change` of an earlier answer.
    std::vector<Panel> getPanels(std::uint64_t since = 0) const;
    // 0 for a panel that was never plugged.
    std::uint64_t getLife(unsigned int panel) const;
    std::vector<Line> getOrders(std::uint64_t from = 0) const;
    std::vector<Line> getViolations(std::uint64_t from = 0) const;
    // The last `most` of those from the number on.
    Records getRecords(std::uint64_t from, std::size_t most) const;
    std::uint64_t getNextRecord() const;

    // Nothing where no such slice is known.
    std::optional<SliceTrail::Mark> findSlice(unsigned int panel, std::uint16_t lcd, unsigned int x,
                                              unsigned int y) const;

    // What was touched since this was last asked.
    std::vector<Touched> takeTouched();

    // Counts what happens. `await` returns when it is another number than `seen`, or at `end`,
    // or after `patience`.
    std::uint64_t getChanges() const;
    void await(std::uint64_t seen, std::chrono::nanoseconds patience);

    // Nobody waits any more.
    void end();

    void onPlugged(unsigned int panel, const PanelModel& model) override;
    void onUnplugged(unsigned int panel) override;
    void onOrder(const std::string& line) override;
    void onRecord(unsigned int panel, const PanelModel::Record& record) override;
    void onGiven(unsigned int panel, PacketType type, const std::vector<std::uint8_t>& payload) override;
    void onDrawn(unsigned int panel, const PanelModel::Drawing& drawing) override;
    void onViolation(unsigned int panel, const std::string& violation) override;

private:
    using Clock = std::chrono::steady_clock;

    struct LcdState {
        PanelScreen::Size size;
        SliceTrail trail;
        Area touched;
    };
    struct PanelState {
        std::uint64_t life = 0;
        std::uint64_t change = 0;
        bool isPlugged = false;
        std::uint16_t vendorId = 0;
        std::uint16_t productId = 0;
        std::uint16_t maxPacketSize = 0;
        std::map<std::uint16_t, LcdState> lcds;
    };

    static Lcd describe(std::uint16_t number, const LcdState& lcd);
    std::chrono::nanoseconds timeNow() const MORVANE_REQUIRES(m_mutex);
    void noteChange() MORVANE_REQUIRES(m_mutex);

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::optional<Clock::time_point> m_start MORVANE_GUARDED_BY(m_mutex);
    std::optional<Clock::time_point> m_busStart MORVANE_GUARDED_BY(m_mutex); // of the time that records have
    std::uint64_t m_changes MORVANE_GUARDED_BY(m_mutex) = 0;
    bool m_isAwaited MORVANE_GUARDED_BY(m_mutex) = false;
    bool m_isEnding MORVANE_GUARDED_BY(m_mutex) = false;
    std::uint64_t m_lives MORVANE_GUARDED_BY(m_mutex) = 0;
    std::uint64_t m_panelChanges MORVANE_GUARDED_BY(m_mutex) = 0;
    std::map<unsigned int, PanelState> m_panels MORVANE_GUARDED_BY(m_mutex);
    RecordRing m_records MORVANE_GUARDED_BY(m_mutex);
    std::deque<Line> m_orders MORVANE_GUARDED_BY(m_mutex);
    std::uint64_t m_nextOrder MORVANE_GUARDED_BY(m_mutex) = 0;
    std::size_t m_orderBytes MORVANE_GUARDED_BY(m_mutex) = 0;
    std::deque<Line> m_violations MORVANE_GUARDED_BY(m_mutex);
    std::uint64_t m_nextViolation MORVANE_GUARDED_BY(m_mutex) = 0;
};

} // namespace Vantor
