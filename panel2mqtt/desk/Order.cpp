#include "panel2mqtt/desk/Order.h"

#include <algorithm>
#include <charconv>
#include <vector>

namespace Vantor {

namespace {

constexpr std::string_view root = "panel/1/";
constexpr std::string_view everybody = "all";

std::vector<std::string_view> splitLevels(std::string_view topic)
{
    std::vector<std::string_view> levels;
    for (std::size_t begin = 0; begin <= topic.size();) {
        const std::size_t end = std::min(topic.find('/', begin), topic.size());
        levels.push_back(topic.substr(begin, end - begin));
        begin = end + 1;
    }
    return levels;
}

// Digits alone: no sign, no blank, no leading zero, so that a thing has one topic.
std::optional<std::uint32_t> parseNumber(std::string_view text, std::uint32_t most)
{
    std::uint32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    const bool isDecimal = !text.empty() && text[0] >= '0' && text[0] <= '9' && (text.size() == 1 || text[0] != '0');
    if (!isDecimal || result.ec != std::errc() || result.ptr != end || number > most)
        return std::nullopt;
    return number;
}

Answer refuseOrder(const std::string& reason)
{
    return {Answer::Word::Refused, reason};
}

// Types with topics of their own: what firmware upgrades and pictures are made of.
bool isReserved(std::uint32_t type)
{
    constexpr std::uint32_t reserved[] = {38, 41, 44, 46};
    return std::find(std::begin(reserved), std::end(reserved), type) != std::end(reserved);
}

std::variant<Order, Answer> finishRecord(Order order, std::string_view type, std::optional<std::string_view> key)
{
    const std::uint32_t mostTypes = key ? 46 : 255;
    const auto number = parseNumber(type, mostTypes);
    if (!number)
        return refuseOrder("the type must be a number from 0 to " + std::to_string(mostTypes));
    if (isReserved(*number))
        return refuseOrder("records of this type make pictures and firmware upgrades, which have topics of their own");
    order.number = static_cast<std::uint16_t>(*number);
    order.verb = key ? Order::Verb::Set : Order::Verb::Send;
    if (!key)
        return order;
    order.key = parseNumber(*key, UINT32_MAX);
    if (!order.key)
        return refuseOrder("the key must be a number from 0 to 4294967295");
    return order;
}

std::variant<Order, Answer> finishPicture(Order order, std::string_view lcd)
{
    const auto number = parseNumber(lcd, UINT16_MAX);
    if (!number)
        return refuseOrder("the LCD must be a number from 0 to 65535");
    order.number = static_cast<std::uint16_t>(*number);
    order.verb = Order::Verb::Draw;
    return order;
}

std::variant<Order, Answer> finishCommand(Order order, const std::vector<std::string_view>& words)
{
    if (words.size() == 2 && words[0] == "send")
        return finishRecord(std::move(order), words[1], std::nullopt);
    if (words.size() == 3 && words[0] == "set")
        return finishRecord(std::move(order), words[1], words[2]);
    if (words.size() == 2 && words[0] == "draw")
        return finishPicture(std::move(order), words[1]);
    if (words.size() == 1 && words[0] == "flash")
        order.verb = Order::Verb::Flash;
    else if (words.size() == 1 && words[0] == "stats")
        order.verb = Order::Verb::Stats;
    else if (words.size() == 1 && words[0] == "forget")
        order.verb = Order::Verb::Forget;
    else
        return refuseOrder("there is no such command; there are do/send/TYPE, do/set/TYPE/KEY, do/draw/LCD, do/flash, "
                           "do/stats and do/forget");
    return order;
}

std::variant<Order, Answer> finishWish(Order order, const std::vector<std::string_view>& words)
{
    order.isWish = true;
    if (words.size() == 2 && words[0] == "lcd")
        return finishPicture(std::move(order), words[1]);
    if (words.size() == 2)
        return finishRecord(std::move(order), words[0], words[1]);
    return refuseOrder("there is no such wish; there are want/TYPE/KEY and want/lcd/LCD");
}

} // namespace

std::string_view findCommandedPlace(std::string_view topic)
{
    const auto levels = splitLevels(topic.substr(std::min(root.size(), topic.size())));
    const bool isCommand = levels.size() > 3 && levels[2] == "do";
    return isCommand && levels[1] != everybody ? levels[1] : std::string_view();
}

bool isPlace(std::string_view text)
{
    const auto dash = text.find('-');
    if (text.size() > 32 || dash == std::string_view::npos || !parseNumber(text.substr(0, dash), 255))
        return false;
    for (std::size_t begin = dash + 1; begin <= text.size();) {
        const std::size_t end = std::min(text.find('.', begin), text.size());
        if (!parseNumber(text.substr(begin, end - begin), 255))
            return false;
        begin = end + 1;
    }
    return true;
}

bool isHostName(std::string_view text)
{
    return !text.empty() && text.size() <= 64 && text != everybody && std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
               c == '.';
    });
}

std::variant<Order, Answer> Order::parse(std::string_view topic, std::string_view host)
{
    const auto levels = splitLevels(topic.substr(std::min(root.size(), topic.size())));
    if (topic.substr(0, root.size()) != root || levels.size() < 4 || (levels[0] != host && levels[0] != everybody))
        return refuseOrder("the topic is none of this host's");
    Order order;
    order.isForEveryHost = levels[0] == everybody;
    if (levels[1] != everybody) {
        if (!isPlace(levels[1]))
            return refuseOrder("the place must be a bus and ports, such as 1-4.2, or 'all'");
        order.place = levels[1];
    }
    const std::vector<std::string_view> words(levels.begin() + 3, levels.end());
    if (levels[2] == "do")
        return finishCommand(std::move(order), words);
    if (levels[2] == "want")
        return finishWish(std::move(order), words);
    return refuseOrder("a command is below do/, a wish below want/");
}

} // namespace Vantor
