#include "simulator/bus/QuantityText.h"

#include "simulator/bus/UserText.h"

#include <charconv>
#include <cstdio>

namespace Vantor {

std::optional<std::uint64_t> parseNumber(std::string_view text, std::uint64_t max)
{
    std::uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end || number > max)
        return std::nullopt;
    return number;
}

ParsedTime parseTime(std::string_view text, PlainTime plain)
{
    constexpr std::uint64_t maxSeconds = 1'000'000;
    constexpr std::size_t maxPlaces = 9;
    std::string_view rest = text;
    const auto takeSuffix = [&rest](std::string_view suffix) {
        if (rest.size() < suffix.size() || rest.substr(rest.size() - suffix.size()) != suffix)
            return false;
        rest.remove_suffix(suffix.size());
        return true;
    };
    constexpr std::uint64_t second = 1'000'000'000; // in nanoseconds
    constexpr std::uint64_t millisecond = 1'000'000;
    const bool arePlainMilliseconds = plain == PlainTime::Milliseconds;
    std::uint64_t unit = arePlainMilliseconds ? millisecond : second;
    if (takeSuffix("ms"))
        unit = millisecond;
    else if (takeSuffix("s"))
        unit = second;

    const std::size_t point = rest.find('.');
    std::string places(point == std::string_view::npos ? "0" : rest.substr(point + 1));
    const bool placesFit = !places.empty() && places.size() <= maxPlaces;
    places.resize(maxPlaces, '0');
    const auto whole = parseNumber(rest.substr(0, point), maxSeconds * second / unit);
    const auto fraction = parseNumber(places, UINT64_MAX);
    if (!whole || !fraction || !placesFit) {
        const char* const example = arePlainMilliseconds ? "250 (milliseconds)" : "2 (seconds)";
        return {std::nullopt,
                UserText::expected("a time such as 250ms, 2s, 1.5s or " + std::string(example) + ", at most 1000000s",
                                   text)};
    }
    // The fraction counts billionths of the unit.
    return {std::chrono::nanoseconds(*whole * unit + *fraction * unit / 1'000'000'000), {}};
}

namespace {

// A number of `unit` with so many decimal places, and no more zeros than it needs.
std::string formatIn(std::chrono::nanoseconds unit, int places, std::chrono::nanoseconds time)
{
    char text[48];
    std::snprintf(text, sizeof text, "%lld.%0*lld", static_cast<long long>(time / unit), places,
                  static_cast<long long>((time % unit).count()));
    std::string number = text;
    number.erase(number.find_last_not_of('0') + 1);
    if (number.back() == '.')
        number.pop_back();
    return number;
}

} // namespace

std::string formatMilliseconds(std::chrono::nanoseconds time)
{
    return formatIn(std::chrono::milliseconds(1), 6, time);
}

std::string formatSeconds(std::chrono::nanoseconds time)
{
    return formatIn(std::chrono::seconds(1), 9, time) + "s";
}

std::string formatBytes(std::size_t number)
{
    return std::to_string(number) + (number == 1 ? " byte" : " bytes");
}

std::string formatHex(std::uint8_t byte)
{
    char text[3];
    std::snprintf(text, sizeof text, "%02x", byte);
    return text;
}

} // namespace Vantor
