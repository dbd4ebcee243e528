#pragma once

#include "panel2mqtt/desk/DeskJson.h"
#include "panel2mqtt/desk/FlashJob.h"
#include "panel2mqtt/desk/FlashOrder.h"
#include "panel2mqtt/desk/Ledger.h"
#include "panel2mqtt/desk/PanelLine.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace Vantor {

// The firmware upgrades of one place: the one under way, and what is told of those before.
//
// Threads: the desk's. Lifetime: its place's.
class FlashDesk {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    static constexpr std::size_t mostJobs = 8;
    static constexpr std::chrono::hours memory{24};
    static constexpr std::chrono::milliseconds publishStep{500};

    // Retained; an empty payload clears it. False: not now, it is asked for again.
    using Publish = std::function<bool(const std::string& id, const std::string& payload)>;
    // That a job has begun, or is over; once each.
    using Say = std::function<void(const std::string& id, const JobState& job)>;
    // What the order says, which takes its time: asked when all else is well.
    using Read = std::function<FlashOrder::Result()>;

    // `clock` tells the time of day; `run` begins the ids of jobs that were given none.
    FlashDesk(std::string run, std::function<std::string()> clock, Ledger::Reply reply, Publish publish, Say say);

    void arrive(std::shared_ptr<PanelLine> line, TimePoint now);
    void leave(TimePoint now);

    // One more `do/flash`. Answered when the job is over.
    void add(const Message& command, const Read& read, TimePoint now);

    // What the panel has sent; of effect with the next poll.
    void onRecord(unsigned int type, const std::string& payload);

    // What the broker retains of a job: another run's, unless it is known.
    void remember(const std::string& id, const std::string& payload, TimePoint now);

    // All is to be told anew.
    void publishAll();
    // Nothing of it is to be left. Not while isBusy.
    void clear();

    void poll(TimePoint now);
    TimePoint getNextDue() const;

    // Whether a job is not over.
    bool isBusy() const { return m_active.has_value(); }

private:
    struct Told {
        JobState state;
        bool isOwn = true;                      // this run's
        TimePoint forgotten = TimePoint::max(); // when, once it is over
    };
    struct Active {
        std::string id;
        std::uint64_t ticket;
        FlashJob job;
        FlashOrder::Images images; // until the library has read them
        TimePoint nextPublication;
    };

    static Message askedOf(const Message& command);
    static Answer answerOf(const std::string& id, const JobState& known);
    std::optional<std::string> nameJob(const Message& command);
    std::optional<Answer> refuse(const std::string& id, const Message& command) const;
    static bool isOfAnother(const JobState& known, const Message& command);
    void begin(const std::string& id, std::uint64_t ticket, FlashOrder::Images images, TimePoint now);
    void start(TimePoint now);
    void look(TimePoint now);
    void tell(TimePoint now);
    void evict();
    void forget(TimePoint now);

    const std::string m_run;
    const std::function<std::string()> m_clock;
    const Ledger::Reply m_reply;
    const Publish m_publish;
    const Say m_say;
    Ledger m_ledger;
    std::shared_ptr<PanelLine> m_line; // null: no panel
    std::optional<Active> m_active;
    std::map<std::string, Told> m_told; // by the job's id
    unsigned int m_named = 0;
};

} // namespace Vantor
