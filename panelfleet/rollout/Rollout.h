#pragma once

#include "panel2mqtt/desk/Answer.h"
#include "panelfleet/rollout/FleetView.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Vantor {

// Firmware for the panels that are selected, a few at a time: who is next, who has it, when
// it ends. What it knows beyond what is retained is only whom it has asked itself.
//
// Threads: one at a time. Pure: time is handed in. Lifetime: the view outlives it.
class Rollout {
public:
    using Clock = std::chrono::steady_clock;
    using TimePoint = Clock::time_point;
    using Duration = Clock::duration;

    static constexpr std::chrono::seconds answerPatience{30}; // and what the image takes
    static constexpr std::size_t bytesASecond = 16384;        // of an image, on the slowest line
    static constexpr unsigned int mostAsks = 3;               // of a panel that says nothing
    static constexpr std::chrono::seconds firstBusyDelay{5};  // then doubled
    static constexpr std::chrono::seconds lastBusyDelay{60};
    static constexpr std::chrono::minutes busyPatience{10};
    static constexpr std::chrono::minutes hostPatience{5};   // for a gateway that has gone meanwhile
    static constexpr std::chrono::minutes jobPatience{3};    // for a job that says the same
    static constexpr std::chrono::seconds settling{5};       // for a panel that is about to be told anew
    static constexpr std::chrono::seconds jobAfterAnswer{1}; // which says more than the answer

    // For gateways, whose broker was away as well as ours.
    static constexpr std::chrono::seconds gathering{90};

    struct Options {
        Selection selection;
        std::string id;
        std::size_t atOnce = 4;
        std::size_t stopAfter = 1;
        std::chrono::seconds wait{0};
        std::optional<std::uint32_t> imageSize; // of what is sent; none: files of the hosts
        std::string mainSum;                    // SHA-256 in lower-case digits; empty: not known
        std::string servoSum;
    };

    enum class State { Waiting, Asked, UnderWay, Done, Failed, Unknown };

    struct Panel {
        std::string host;
        std::string place;
        State state = State::Waiting;
        std::optional<JobState> job; // as last told
        std::string reason;          // of a failure, and of what is away or busy

        std::string getName() const { return host + "/" + place; }

    private:
        friend class Rollout;
        unsigned int m_asks = 0;
        std::uint64_t m_epoch = 0;   // of its gateway when it was asked
        bool m_hasChanged = false;   // since the caller took what had
        bool m_isAskedAgain = false; // it is to be
        TimePoint m_deadline;        // of what it was asked
        TimePoint m_changed;         // its job last said something else
        TimePoint m_nextTry;
        std::optional<TimePoint> m_busySince;
        Duration m_busyDelay{};
        std::optional<TimePoint> m_awaySince; // its gateway, in the middle
        std::optional<std::pair<Answer, TimePoint>> m_answer;
    };

    struct Counts {
        std::size_t done = 0;
        std::size_t failed = 0;
        std::size_t unknown = 0;
        std::size_t underWay = 0; // and asked
        std::size_t away = 0;
        std::size_t waiting = 0; // and there
    };

    Rollout(Options options, const FleetView& view);

    // All that is retained has been told, the first time or again.
    void resume(TimePoint now);
    // It is not known what goes on.
    void pause() { m_isTold = false; }

    void receiveAnswer(const std::string& host, const std::string& place, const Answer& answer, TimePoint now);

    // No more is begun.
    void stop() { m_isStopping = true; }
    // By `stop`, or by failures.
    bool isStopped() const;

    // After anything has come, and once a second.
    void poll(TimePoint now);

    // The next one to be asked, who counts as asked from here on.
    const Panel* takeNext(TimePoint now);

    bool isOver(TimePoint now) const;

    // Who has changed since this was called last, each once, as they are now.
    std::vector<const Panel*> takeChanged();

    const std::vector<Panel>& getPanels() const { return m_panels; }
    Counts count() const;
    // Why it can't be asked; none: it is there.
    std::optional<std::string> explainAway(const Panel& panel) const;

private:
    void begin();
    void add(const std::string& host, const std::string& place);
    void look(Panel& panel, TimePoint now);
    bool isOfAnother(const JobState& job) const;
    bool lookAtJob(Panel& panel, TimePoint now);
    void follow(Panel& panel, const JobState& job, TimePoint now);
    void applyAnswer(Panel& panel, TimePoint now);
    void checkAsked(Panel& panel, TimePoint now);
    void checkUnderWay(Panel& panel, TimePoint now);
    bool isHostAway(Panel& panel, TimePoint now);
    void postpone(Panel& panel, const std::string& reason, TimePoint now);
    void change(Panel& panel, State state, const std::string& reason = "");
    const Panel* ask(Panel& panel, TimePoint now);
    bool isAwaited(const Panel& panel, TimePoint now) const;
    FleetView::Presence getPresence(const Panel& panel) const { return m_view.getPresence(panel.host, panel.place); }
    std::uint64_t getEpoch(const Panel& panel) const;

    const Options m_options;
    const FleetView& m_view;
    std::vector<Panel> m_panels;
    std::map<std::string, std::size_t> m_indices; // by name
    std::vector<std::size_t> m_changed;
    bool m_isBegun = false;
    bool m_isTold = false;
    bool m_isStopping = false;
    TimePoint m_gatheringEnd;
    TimePoint m_idleSince; // nothing has been under way since
};

} // namespace Vantor
