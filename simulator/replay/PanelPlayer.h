#pragma once

#include "simulator/panel/PanelScript.h"
#include "simulator/replay/RecordedSession.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Vantor {

// How a session is played.
struct ReplayPace {
    bool isFast = false;
    std::set<PacketType> ignored; // types of records that nothing waits for
    // When the host's first transfer to any panel was.
    std::optional<std::chrono::nanoseconds> start;
};

// Plays a panel's side of a RecordedSession::Life. Each answer is given when
// - the host has sent as many records of each type as it had in the capture by then, and
// - it is as long since what came before it as in the capture, unless played fast, and
// - the host reads.
// What came before it is the last record or the last answer, whichever was later in the
// capture, or else the host's first transfer: a host that takes its time moves all that
// follows, and one that is quicker is not kept waiting.
//
// LCD slices are not waited for: how many there are is a matter of timing. Other records
// that do not come are waited for no longer than `patience` from when the answer would be
// due without them, and from when anything last happened; then it goes on as though they
// had come.
//
// Faults of transfers to the panel have no time of their own: each meets the first transfer
// behind the records that it was behind in the capture.
//
// Threads: those of the model. Lifetime: life and pace must outlive it.
class PanelPlayer : public PanelScript {
public:
    static constexpr std::chrono::seconds patience{10};

    using Time = std::chrono::nanoseconds;

    // Hears, in a line, of what was not waited for any longer.
    using Tell = std::function<void(const std::string&)>;

    PanelPlayer(const RecordedSession::Life& life, ReplayPace& pace, Tell tell);

    void onTransfer(std::chrono::nanoseconds now) override;
    void onRecord(PacketType type, std::chrono::nanoseconds now) override;
    std::optional<Deed> takeDue(std::chrono::nanoseconds now, bool isBeingRead) override;
    std::optional<std::chrono::nanoseconds> getNextTime(bool isBeingRead) const override;

    // When the panel has left, as it did in the capture.
    std::optional<std::chrono::nanoseconds> getDeparture() const;

    // Answers, and the departure.
    std::size_t countAnswers() const { return m_answers.steps.size(); }
    std::size_t countGivenAnswers() const { return m_answers.next; }
    const RecordedSession::Step* getNextAnswer() const; // null when all were given
    Time getLastAnswerTime() const { return m_lastAnswer; }
    // What the host has sent that panels answer, by type, since all were given.
    const std::map<PacketType, std::size_t>& getLateRequests() const { return m_lateRequests; }

private:
    // Steps of one kind, in order, and the records that the next one is behind.
    struct Line {
        std::vector<const RecordedSession::Step*> steps;
        std::size_t next = 0;
        std::size_t records = 0;                                 // of the life that are counted in `needed`
        std::map<PacketType, std::size_t> needed;                // by type
        const RecordedSession::HostRecord* lastRecord = nullptr; // that is counted

        bool isOver() const { return next == steps.size(); }
        const RecordedSession::Step& front() const { return *steps[next]; }
    };

    void count(Line& line) const;
    Deed take(Line& line);
    std::size_t countReceived(PacketType type) const;
    bool isMet(const Line& line) const;
    Time findTimeWithoutRecords() const;
    Time findTime() const;
    std::optional<Time> findAnswerTime(bool isBeingRead) const;
    void giveUpWaiting(Time now);

    const RecordedSession::Life& m_life;
    ReplayPace& m_pace;
    const Tell m_tell;
    Line m_answers; // and the departure
    Line m_faults;
    std::map<PacketType, std::vector<Time>> m_received; // when each record came
    Time m_lastEvent{0};
    std::optional<Time> m_begin; // the host's first transfer in this life
    Time m_lastAnswer{0};        // when it was given
    std::map<PacketType, std::size_t> m_lateRequests;
};

} // namespace Vantor
