#pragma once

#include "panel2mqtt/desk/Answer.h"
#include "panel2mqtt/desk/Message.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Vantor {

// Who waits for an answer of one panel, and which answers a command that is repeated gets again.
//
// Of answered commands the last 1,024 are remembered, for 10 minutes, and only those of which
// something may have reached the panel: of the others a repetition is a new attempt.
//
// Threads: the desk's. Lifetime: its place's.
class Ledger {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Reply = std::function<void(const Message& command, const Answer& answer)>;

    static constexpr std::size_t mostRemembered = 1024;
    static constexpr std::chrono::minutes memory{10};

    explicit Ledger(Reply reply) : m_reply(std::move(reply)) {}

    // A command that has come: its ticket; or nothing, when it is a repetition, which is
    // answered here, or with the first.
    std::optional<std::uint64_t> open(const Message& command, TimePoint now);

    // Its end. `isRemembered`: something of it may be in the panel.
    void close(std::uint64_t ticket, const Answer& answer, bool isRemembered, TimePoint now);

private:
    static constexpr std::size_t mostAskers = 8;

    struct Entry {
        std::string id; // empty: none
        std::size_t digest = 0;
        std::vector<Message> askers; // without payload
        std::optional<Answer> answer;
        TimePoint answered;
    };

    static std::string idOf(const Message& command);
    std::optional<std::uint64_t> repeat(Entry& entry, const Message& command, std::size_t digest);
    void forget(TimePoint now);
    void drop(std::uint64_t ticket);

    const Reply m_reply;
    std::uint64_t m_last = 0;
    std::map<std::uint64_t, Entry> m_entries;    // by ticket
    std::map<std::string, std::uint64_t> m_byId; // tickets
    std::deque<std::uint64_t> m_remembered;      // tickets, the oldest first
};

} // namespace Vantor
