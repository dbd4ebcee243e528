#pragma once

#include "panel2mqtt/desk/Message.h"
#include "panel2mqtt/desk/Order.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>

namespace Vantor {

// The wishes that the broker holds for this host, for one place or for all. Of several for the
// same thing the one that names the place wins, then the one that names the host.
//
// Threads: the desk's. Lifetime: the desk's.
class WishBook {
public:
    static constexpr std::size_t mostWishes = 4096;
    static constexpr std::size_t mostBytes = 64u << 20;

    struct Wish {
        Message message;
        std::uint64_t serial = 0; // another one when the wish is another, or published again
    };

    // False: there is no room. An empty payload takes the wish away.
    bool put(const Order& order, Message message);

    // What holds for a place; null: nothing.
    const Wish* find(const std::string& place, const Order::Subject& subject) const;

    // All that is wished for a place.
    std::set<Order::Subject> getSubjects(const std::string& place) const;

    // The broker tells all of them anew: those that it has not told until then are no more.
    void beginTelling();
    void endTelling();

private:
    struct Entry {
        Wish wish;
        bool isTold = true;
    };
    using Scope = std::pair<bool, std::string>; // for every host; place, or empty for all
    using Wishes = std::map<Order::Subject, Entry>;

    static std::size_t sizeOf(const Message& message);
    Entry* findEntry(const Scope& scope, const Order::Subject& subject);
    void drop(const Scope& scope, const Order::Subject& subject);

    std::map<Scope, Wishes> m_wishes; // none of them empty
    std::size_t m_number = 0;
    std::size_t m_bytes = 0;
    std::uint64_t m_last = 0;
};

} // namespace Vantor
