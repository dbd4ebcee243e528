#include "simulator/bus/OrderWords.h"

#include "protocol/FirmwareUpgradeCommand.h"
#include "simulator/bus/QuantityText.h"
#include "simulator/bus/UserText.h"
#include "simulator/panel/PanelModel.h"

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <numeric>

namespace Vantor {

namespace {

using OrderWords::Place;
using OrderWords::Word;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t maxCount = 1'000'000'000;

// The transfer statuses of Linux host controllers that are a failure's and not the host's own doing.
constexpr int statuses[] = {EPROTO,    EILSEQ, ETIME, EPIPE,  ECOMM,     ENOSR,    EIO,
                            EREMOTEIO, ENODEV, EXDEV, EINVAL, EOVERFLOW, ESHUTDOWN};

std::string allowedStatuses()
{
    std::string names;
    for (const int status : statuses)
        names += (names.empty() ? "" : status == ESHUTDOWN ? " or " : ", ") + std::string(strerrorname_np(status));
    return names;
}

std::optional<int> parseStatus(std::string_view text)
{
    for (const int status : statuses)
        if (text == strerrorname_np(status))
            return -status;
    return std::nullopt;
}

std::optional<std::uint8_t> parseHexByte(std::string_view digits)
{
    std::uint8_t byte = 0;
    const char* const end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, byte, 16);
    const bool isByte = digits.size() <= 2 && result.ec == std::errc() && result.ptr == end;
    return isByte ? std::optional(byte) : std::nullopt;
}

std::optional<Bytes> parseHex(std::string_view text)
{
    if (text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X")
        text.remove_prefix(2);
    Bytes bytes;
    do {
        if (!bytes.empty() && text.front() == ':')
            text.remove_prefix(1);
        const auto byte = text.size() >= 2 ? parseHexByte(text.substr(0, 2)) : std::nullopt;
        if (!byte || bytes.size() == PanelModel::maxPayload)
            return std::nullopt;
        bytes.push_back(*byte);
        text.remove_prefix(2);
    } while (!text.empty());
    return bytes;
}

std::string formatHexBytes(const Bytes& bytes)
{
    return std::accumulate(bytes.begin(), bytes.end(), std::string(),
                           [](std::string text, std::uint8_t byte) { return std::move(text) + formatHex(byte); });
}

Bytes countingBytes(std::size_t size)
{
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
    return bytes;
}

// How values of a type are read and written behind "=", and what is said of another text.
template <typename Type> struct Text {
    std::function<std::optional<Type>(std::string_view text)> parse;
    std::function<std::string(const Type& value)> format;
    std::function<std::string(std::string_view word)> error;
};

std::string_view valueIn(std::string_view word)
{
    return word.substr(word.find('=') + 1);
}

auto expecting(const std::string& allowed)
{
    return [allowed](std::string_view word) {
        return UserText::expected(std::string(word.substr(0, word.find('=') + 1)) + allowed, word);
    };
}

template <typename Type> Text<Type> number(std::uint64_t min, std::uint64_t max)
{
    return {[=](std::string_view text) {
                const auto number = parseNumber(text, max);
                return number && *number >= min ? std::optional(static_cast<Type>(*number)) : std::nullopt;
            },
            [](Type value) { return std::to_string(static_cast<std::uint64_t>(value)); },
            expecting(std::to_string(min) + " to " + std::to_string(max))};
}

Text<std::chrono::nanoseconds> time()
{
    return {[](std::string_view text) { return parseTime(text, PlainTime::Milliseconds).time; }, formatMilliseconds,
            [](std::string_view word) { return parseTime(valueIn(word), PlainTime::Milliseconds).error; }};
}

Text<Bytes> hex()
{
    return {parseHex, formatHexBytes,
            expecting(" and 1 to " + std::to_string(PanelModel::maxPayload) + " bytes of two hexadecimal digits each")};
}

Text<Bytes> size()
{
    const Text<std::size_t> size = number<std::size_t>(0, PanelModel::maxPayload);
    return {[size](std::string_view text) {
                const auto parsed = size.parse(text);
                return parsed ? std::optional(countingBytes(*parsed)) : std::nullopt;
            },
            [](const Bytes& bytes) { return std::to_string(bytes.size()); }, size.error};
}

// A word that says this value of a member, "stall".
template <typename Target, typename Member>
Word<Target> says(const std::string& name, Member Target::*member, Member value, const std::string& help = {})
{
    return {name, "", help,
            [=](std::string_view /*word*/, Target& target) {
                target.*member = value;
                return std::string();
            },
            [=](const Target& target) { return target.*member == value ? std::optional("") : std::nullopt; }};
}

// One that has the value behind its "="; it is left out where `isLeftOut` says so.
template <typename Target, typename Member>
Word<Target> has(
    const std::string& name, const std::string& argument, Member Target::*member, const Text<Member>& text,
    const std::string& help = {},
    const std::function<bool(const Member&)>& isLeftOut = [](const Member&) { return false; })
{
    return {name, argument, help,
            [=](std::string_view word, Target& target) {
                const auto value = text.parse(valueIn(word));
                target.*member = value.value_or(Member{});
                return value ? "" : text.error(word);
            },
            [=](const Target& target) {
                return isLeftOut(target.*member) ? std::nullopt : std::optional(text.format(target.*member));
            }};
}

// The word says what kind of fault it is, too.
template <typename Fault> Word<Fault> is(typename Fault::Kind kind, const Word<Fault>& word)
{
    return {word.name, word.argument, word.help,
            [=](std::string_view text, Fault& fault) {
                fault.kind = kind;
                return word.read(text, fault);
            },
            [=](const Fault& fault) { return fault.kind == kind ? word.write(fault) : std::nullopt; }};
}

template <typename Fault> Place<Fault> duration()
{
    return {false, {says("once", &Fault::sticky, false), says("sticky", &Fault::sticky, true)}};
}

bool isCounting(const Bytes& bytes)
{
    return bytes == countingBytes(bytes.size());
}

template <auto usual> bool isUsual(const decltype(usual)& value)
{
    return value == usual;
}

} // namespace

const std::vector<OrderWords::Opening>& OrderWords::openings()
{
    static const std::vector<Opening> all{
        {"plug", "", PlugOrder{}},           {"unplug", "", UnplugOrder{}},          {"fault", "", FaultOrder{}},
        {"fault", "boot", BootFaultOrder{}}, {"fault", "clear", ClearFaultsOrder{}}, {"emit", "", EmitOrder{}},
        {"emit", "raw", EmitRawOrder{}}};
    return all;
}

const OrderWords::Phrase<PanelFault>& OrderWords::faultPhrase()
{
    using Fault = PanelFault;
    using Kind = PanelFault::Kind;
    const Text<int> status{parseStatus, [](int value) { return std::string(strerrorname_np(-value)); },
                           expecting(allowedStatuses())};
    static const Phrase<Fault> phrase{
        {true,
         {says("out", &Fault::direction, Fault::Direction::Out), says("in", &Fault::direction, Fault::Direction::In)}},
        {true,
         {says("stall", &Fault::kind, Kind::Stall,
               "the endpoint halts; out and in. Clearing the halt ends a sticky one"),
          says("silent", &Fault::kind, Kind::NoAnswer,
               "the transfer is never answered; the host gives up on it in its own time. In: what the panel has to "
               "say waits for the next read"),
          is(Kind::Short, has("short", "BYTES", &Fault::bytes, number<unsigned int>(0, UINT32_MAX),
                              "out: only the first BYTES are taken; in: only the first BYTES of what the panel has "
                              "to say are given. The rest is lost")),
          is(Kind::Status, has("status", "ERRNO", &Fault::status, status,
                               "the transfer fails: " + allowedStatuses() + "; out loses its bytes, in loses nothing")),
          is(Kind::Delay, has("delay", "TIME", &Fault::delay, time(),
                              "out: taken TIME later; in: given TIME after there is something to give"))}},
        duration<Fault>()};
    return phrase;
}

const OrderWords::Phrase<BootFault>& OrderWords::bootFaultPhrase()
{
    using Fault = BootFault;
    using Kind = BootFault::Kind;
    constexpr unsigned int lastByte = sizeof(FirmwareUpgradeCommand) - 1;
    const Text<std::uint8_t> code{parseHexByte, formatHex, expecting(" and one or two hexadecimal digits")};
    static const Phrase<Fault> phrase{
        {true,
         {is(Kind::Reply, has("reply", "CODE", &Fault::code, code,
                              "nothing is written, the answer is CODE, hexadecimal (0, 1, 2, f0, f1, f2)")),
          says("lose", &Fault::kind, Kind::Lose, "done, but not answered"),
          says("ignore", &Fault::kind, Kind::Ignore, "as if the record had never come"),
          is(Kind::Delay, has("delay", "TIME", &Fault::delay, time(), "done and answered TIME later")),
          says("duplicate", &Fault::kind, Kind::Duplicate, "answered twice"),
          is(Kind::Corrupt, has("corrupt", "OFFSET", &Fault::offset, number<unsigned int>(0, lastByte),
                                "byte 0 to " + std::to_string(lastByte) + " of the answer is inverted")),
          says("unplug", &Fault::kind, Kind::Unplug,
               "the panel is gone before it takes the record; 'plug' brings it back")}},
        {false, {has("skip", "N", &Fault::skip, number<unsigned int>(0, maxCount), "", {isUsual<0U>})}},
        duration<Fault>()};
    return phrase;
}

const OrderWords::Phrase<EmitOrder>& OrderWords::emitPhrase()
{
    using Time = std::chrono::nanoseconds;
    static const Phrase<EmitOrder> phrase{
        {true, {has("type", "T", &EmitOrder::type, number<PacketType>(0, 255), "of the record, 0 to 255")}},
        {true,
         {has("hex", "HEX", &EmitOrder::payload, hex(),
              "its bytes, two digits each; 0x in front and : between bytes are allowed", {isCounting}),
          has("size", "N", &EmitOrder::payload, size(), "instead of hex: N bytes 0, 1, 2 ... 255, 0 ...",
              {std::not_fn(isCounting)})}},
        {false,
         {has("count", "C", &EmitOrder::count, number<unsigned int>(1, maxCount), "packets; 1 is the default",
              {isUsual<1U>})}},
        {false,
         {has("every", "TIME", &EmitOrder::every, time(), "from one packet to the next; 0 is the default",
              {[](const Time& every) { return every == Time(0); }})}}};
    return phrase;
}

const OrderWords::Phrase<EmitRawOrder>& OrderWords::emitRawPhrase()
{
    static const Phrase<EmitRawOrder> phrase{{true, {has("hex", "HEX", &EmitRawOrder::bytes, hex())}}};
    return phrase;
}

} // namespace Vantor
