#pragma once

#include "panel2mqtt/desk/Answer.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <variant>

namespace Vantor {

// What a topic asks for.
//
// Threads: a plain value.
struct Order {
    enum class Verb { Send, Set, Draw, Flash, Stats, Forget };

    Verb verb = Verb::Send;
    bool isWish = false;
    bool isForEveryHost = false;
    std::string place;        // empty: every panel
    std::uint16_t number = 0; // type or LCD
    std::optional<std::uint32_t> key;

    // Two with the same one are about the same thing of a panel.
    using Subject = std::tuple<Verb, std::uint16_t, std::uint32_t>;
    Subject getSubject() const { return {verb, number, key.value_or(0)}; }

    // Of a topic below "panel/1/HOST/" or "panel/1/all/": the order, or why there is none.
    static std::variant<Order, Answer> parse(std::string_view topic, std::string_view host);
};

// Of "panel/1/HOST/PLACE/do/...", whatever the place; empty: it is no command for a single one.
std::string_view findCommandedPlace(std::string_view topic);

// "1-4.2"
bool isPlace(std::string_view text);

// A host may be called that, and is its topics' third level.
bool isHostName(std::string_view text);

} // namespace Vantor
