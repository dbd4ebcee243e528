#pragma once

#include "libMorvaneHostUsb/ThreadAnnotations.h"
#include "panel2mqtt/desk/Message.h"

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <variant>
#include <vector>

namespace Vantor {

// What the broker's link tells, on its way to the gateway's thread, in order.
//
// Threads: any. Lifetime: the gateway's.
class Inbox {
public:
    static constexpr std::size_t mostMessages = 4096;
    static constexpr std::size_t mostBytes = 64u << 20;
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

    // The oldest.
    std::vector<Item> take();

private:
    void push(Item item) MORVANE_REQUIRES(m_mutex);

    const int m_signal;
    std::mutex m_mutex;
    std::deque<Item> m_items MORVANE_GUARDED_BY(m_mutex);
    std::size_t m_messages MORVANE_GUARDED_BY(m_mutex) = 0; // in m_items
    std::size_t m_bytes MORVANE_GUARDED_BY(m_mutex) = 0;    // of these
};

} // namespace Vantor
