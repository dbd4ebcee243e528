#pragma once

#include "libMorvaneHostUsb/ThreadAnnotations.h"
#include "panel2mqtt/desk/Message.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace Vantor {

// What the broker's link tells, on its way to the gateway's thread: in order, but that commands
// for one panel do not wait for those for another. Those take turns, and none has more than a
// part of the room.
//
// Threads: any. Lifetime: the gateway's.
class Inbox {
public:
    static constexpr std::size_t mostMessages = 4096;
    static constexpr std::size_t mostBytes = 64u << 20;
    static constexpr std::size_t mostMessagesOfPlace = 1024;
    static constexpr std::size_t mostBytesOfPlace = 32u << 20;
    // Taken together: what panels have to say waits for no more than these, in a flood too.
    static constexpr std::size_t mostAtOnce = 64;

    struct Connecting {};
    struct Connected {
        std::vector<std::string> refused; // subscriptions
    };
    struct Disconnected {
        std::string reason;
    };
    using Item = std::variant<Connecting, Connected, Disconnected, Message>;

    Inbox();
    ~Inbox();
    Inbox(const Inbox&) = delete;
    Inbox& operator=(const Inbox&) = delete;

    // Readable while there is something to take.
    int getSignal() const { return m_signal; }

    // There is always room for news of the connection.
    void add(Item news);

    // False: there is no room, and the message is as it was.
    bool addMessage(Message& message);

    // Whose turn it is; of each, the oldest.
    std::vector<Item> take();

private:
    struct Numbered {
        std::uint64_t number; // in the order of coming
        Item item;
    };
    struct Line {
        std::deque<Numbered> items;
        std::size_t bytes = 0;
    };

    void push(Line& line, Item item) MORVANE_REQUIRES(m_mutex);
    Line& lineOf(std::string_view place) MORVANE_REQUIRES(m_mutex);
    bool hasRoomFor(std::size_t size, std::string_view place) const MORVANE_REQUIRES(m_mutex);
    std::optional<Item> takeNext() MORVANE_REQUIRES(m_mutex);
    std::optional<Item> takeTurn(std::uint64_t end) MORVANE_REQUIRES(m_mutex);
    Item takeFrom(Line& line) MORVANE_REQUIRES(m_mutex);

    const int m_signal;
    std::mutex m_mutex;
    // Commands for a single panel, by its place; none is empty, and each place has one turn.
    std::map<std::string, Line, std::less<>> m_lines MORVANE_GUARDED_BY(m_mutex);
    std::list<std::string> m_turns MORVANE_GUARDED_BY(m_mutex);
    // All else, which comes behind what came earlier for any panel, and before what came later.
    Line m_others MORVANE_GUARDED_BY(m_mutex);
    std::uint64_t m_lastNumber MORVANE_GUARDED_BY(m_mutex) = 0;
    // No line's first has a lower one.
    std::uint64_t m_lowestNumber MORVANE_GUARDED_BY(m_mutex) = 0;
    std::size_t m_items MORVANE_GUARDED_BY(m_mutex) = 0;
    std::size_t m_messages MORVANE_GUARDED_BY(m_mutex) = 0; // of these
    std::size_t m_bytes MORVANE_GUARDED_BY(m_mutex) = 0;
};

} // namespace Vantor
