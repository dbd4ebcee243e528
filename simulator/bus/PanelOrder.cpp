#include "simulator/bus/PanelOrder.h"

#include "protocol/FirmwareUpgradeCommand.h"
#include "simulator/bus/UserText.h"
#include "simulator/panel/PanelModel.h"

#include <cerrno>
#include <charconv>
#include <cstddef>
#include <iterator>
#include <utility>

namespace Vantor {

namespace {

constexpr std::uint64_t maxCount = 1'000'000'000;

struct NamedStatus {
    std::string_view name;
    int status;
};

// The transfer statuses of Linux host controllers that are a failure's and not the host's own doing.
constexpr NamedStatus namedStatuses[] = {
    {"EPROTO", -EPROTO},       {"EILSEQ", -EILSEQ}, {"ETIME", -ETIME},   {"EPIPE", -EPIPE},
    {"ECOMM", -ECOMM},         {"ENOSR", -ENOSR},   {"EIO", -EIO},       {"EREMOTEIO", -EREMOTEIO},
    {"ENODEV", -ENODEV},       {"EXDEV", -EXDEV},   {"EINVAL", -EINVAL}, {"EOVERFLOW", -EOVERFLOW},
    {"ESHUTDOWN", -ESHUTDOWN},
};

std::string allowedStatuses()
{
    std::string names;
    for (const NamedStatus& named : namedStatuses) {
        if (!names.empty())
            names += &named == std::prev(std::end(namedStatuses)) ? " or " : ", ";
        names += named.name;
    }
    return names;
}

std::optional<std::uint64_t> parseNumber(std::string_view text, std::uint64_t max)
{
    std::uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end || number > max)
        return std::nullopt;
    return number;
}

bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

std::optional<std::uint8_t> hexDigit(char character)
{
    if (isDigit(character))
        return static_cast<std::uint8_t>(character - '0');
    if (character >= 'a' && character <= 'f')
        return static_cast<std::uint8_t>(character - 'a' + 10);
    if (character >= 'A' && character <= 'F')
        return static_cast<std::uint8_t>(character - 'A' + 10);
    return std::nullopt;
}

std::optional<std::vector<std::uint8_t>> parseHex(std::string_view text)
{
    if (text.empty() || text.size() % 2 != 0 || text.size() / 2 > PanelModel::maxPayload)
        return std::nullopt;
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() / 2);
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const auto high = hexDigit(text[i]);
        const auto low = hexDigit(text[i + 1]);
        if (!high || !low)
            return std::nullopt;
        bytes.push_back(static_cast<std::uint8_t>(*high * 16 + *low));
    }
    return bytes;
}

std::vector<std::uint8_t> countingBytes(std::size_t size)
{
    std::vector<std::uint8_t> bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::uint8_t>(i);
    return bytes;
}

std::string found(const std::string& allowed, std::string_view word)
{
    return "expected " + allowed + ", found " + (word.empty() ? "the end" : '"' + UserText::shown(word) + '"');
}

// One line, word by word. The first thing that is wrong is kept as the error, and
// nothing after it counts.
class LineParser {
public:
    explicit LineParser(std::string_view line) : m_rest(line) { advance(); }

    ParsedOrder parse()
    {
        std::optional<PanelOrder> command = parseCommand();
        if (m_error.empty() && !m_word.empty())
            fail("the end");
        if (!m_error.empty())
            return {std::nullopt, std::move(m_error)};
        return {std::move(command), {}};
    }

private:
    std::optional<PanelOrder> parseCommand()
    {
        if (takeWord("plug"))
            return PlugOrder{takeLastPanel()};
        if (takeWord("unplug"))
            return UnplugOrder{takeLastPanel()};
        if (takeWord("fault"))
            return parseFault();
        if (takeWord("emit"))
            return parseEmit();
        fail("plug, unplug, fault or emit");
        return std::nullopt;
    }

    PanelOrder parseFault()
    {
        const unsigned int panel = takePanel();
        if (takeWord("clear"))
            return ClearFaultsOrder{panel};
        if (takeWord("boot"))
            return BootFaultOrder{panel, parseBootFault()};
        PanelFault fault;
        if (takeWord("in"))
            fault.direction = PanelFault::Direction::In;
        else if (!takeWord("out"))
            fail("out, in, boot or clear");
        parseKind(fault);
        fault.sticky = takeDuration("once or sticky");
        return FaultOrder{panel, fault};
    }

    BootFault parseBootFault()
    {
        BootFault fault;
        parseKind(fault);
        const auto skip = valueOf("skip");
        if (skip)
            fault.skip = static_cast<unsigned int>(takeNumber("skip", *skip, 0, maxCount));
        fault.sticky = takeDuration(skip ? "once or sticky" : "skip=N, once or sticky");
        return fault;
    }

    // Whether the fault is sticky.
    bool takeDuration(const char* allowed)
    {
        if (takeWord("sticky"))
            return true;
        if (!takeWord("once") && !m_word.empty())
            fail(allowed);
        return false;
    }

    void parseKind(PanelFault& fault)
    {
        if (takeWord("stall")) {
            fault.kind = PanelFault::Kind::Stall;
        } else if (takeWord("silent")) {
            fault.kind = PanelFault::Kind::NoAnswer;
        } else if (const auto bytes = valueOf("short")) {
            fault.kind = PanelFault::Kind::Short;
            fault.bytes = static_cast<unsigned int>(takeNumber("short", *bytes, 0, UINT32_MAX));
        } else if (const auto status = valueOf("status")) {
            fault.kind = PanelFault::Kind::Status;
            fault.status = takeStatus(*status);
        } else if (const auto delay = valueOf("delay")) {
            fault.kind = PanelFault::Kind::Delay;
            fault.delay = takeTime(*delay);
        } else {
            fail("stall, silent, short=BYTES, status=ERRNO or delay=TIME");
        }
    }

    void parseKind(BootFault& fault)
    {
        using Kind = BootFault::Kind;
        constexpr unsigned int lastByte = sizeof(FirmwareUpgradeCommand) - 1;
        if (const auto code = valueOf("reply")) {
            fault.kind = Kind::Reply;
            fault.code = takeCode(*code);
        } else if (takeWord("lose")) {
            fault.kind = Kind::Lose;
        } else if (takeWord("ignore")) {
            fault.kind = Kind::Ignore;
        } else if (const auto delay = valueOf("delay")) {
            fault.kind = Kind::Delay;
            fault.delay = takeTime(*delay);
        } else if (takeWord("duplicate")) {
            fault.kind = Kind::Duplicate;
        } else if (const auto offset = valueOf("corrupt")) {
            fault.kind = Kind::Corrupt;
            fault.offset = static_cast<unsigned int>(takeNumber("corrupt", *offset, 0, lastByte));
        } else if (takeWord("unplug")) {
            fault.kind = Kind::Unplug;
        } else {
            fail("reply=CODE, lose, ignore, delay=TIME, duplicate, corrupt=OFFSET or unplug");
        }
    }

    std::uint8_t takeCode(std::string_view text)
    {
        const auto bytes = parseHex(text.size() == 1 ? "0" + std::string(text) : std::string(text));
        if (!bytes || bytes->size() != 1) {
            fail("reply= and one or two hexadecimal digits");
            return 0;
        }
        advance();
        return bytes->front();
    }

    int takeStatus(std::string_view name)
    {
        for (const NamedStatus& named : namedStatuses) {
            if (named.name == name) {
                advance();
                return named.status;
            }
        }
        fail("status=" + allowedStatuses());
        return 0;
    }

    PanelOrder parseEmit()
    {
        EmitOrder emit{takePanel(), PacketType{}, {}, 1, {}, false};
        bool hasType = false;
        bool hasPayload = false;
        bool hasCount = false;
        bool hasEvery = false;
        while (m_error.empty() && !m_word.empty()) {
            if (const auto type = valueOf("type"); type && !std::exchange(hasType, true)) {
                emit.type = static_cast<PacketType>(takeNumber("type", *type, 0, 255));
            } else if (const auto hex = valueOf("hex"); hex && !std::exchange(hasPayload, true)) {
                emit.payload = takeHex(*hex);
            } else if (const auto size = valueOf("size"); size && !std::exchange(hasPayload, true)) {
                emit.payload =
                    countingBytes(static_cast<std::size_t>(takeNumber("size", *size, 0, PanelModel::maxPayload)));
            } else if (const auto count = valueOf("count"); count && !std::exchange(hasCount, true)) {
                emit.count = static_cast<unsigned int>(takeNumber("count", *count, 1, maxCount));
            } else if (const auto every = valueOf("every"); every && !std::exchange(hasEvery, true)) {
                emit.every = takeTime(*every);
            } else {
                fail("type=T, hex=HEX or size=N, count=C, every=TIME, each once");
            }
        }
        if (!hasType)
            fail("type=T");
        if (!hasPayload)
            fail("hex=HEX or size=N");
        return emit;
    }

    std::vector<std::uint8_t> takeHex(std::string_view text)
    {
        auto bytes = parseHex(text);
        if (!bytes) {
            fail("hex= and 1 to " + std::to_string(PanelModel::maxPayload) + " bytes of two hexadecimal digits each");
            return {};
        }
        advance();
        return std::move(*bytes);
    }

    unsigned int takePanel()
    {
        if (m_word.empty() || !isDigit(m_word.front()))
            return 0;
        const auto panel = parseNumber(m_word, UINT32_MAX);
        if (!panel) {
            fail("a panel's number");
            return 0;
        }
        advance();
        return static_cast<unsigned int>(*panel);
    }

    unsigned int takeLastPanel()
    {
        const unsigned int panel = takePanel();
        if (!m_word.empty())
            fail("a panel's number or the end");
        return panel;
    }

    std::uint64_t takeNumber(const std::string& name, std::string_view text, std::uint64_t min, std::uint64_t max)
    {
        const auto number = parseNumber(text, max);
        if (!number || *number < min) {
            fail(name + "=" + std::to_string(min) + " to " + std::to_string(max));
            return min;
        }
        advance();
        return *number;
    }

    std::chrono::nanoseconds takeTime(std::string_view text)
    {
        const ParsedTime time = parseTime(text, PlainTime::Milliseconds);
        if (!time.time) {
            if (m_error.empty())
                m_error = time.error;
            return {};
        }
        advance();
        return *time.time;
    }

    bool takeWord(std::string_view word)
    {
        if (m_word != word)
            return false;
        advance();
        return true;
    }

    // What follows "name=" in the current word.
    std::optional<std::string_view> valueOf(std::string_view name) const
    {
        if (m_word.size() <= name.size() || m_word.substr(0, name.size()) != name || m_word[name.size()] != '=')
            return std::nullopt;
        return m_word.substr(name.size() + 1);
    }

    void advance()
    {
        constexpr std::string_view blanks = " \t\r\n";
        const std::size_t begin = m_rest.find_first_not_of(blanks);
        m_rest.remove_prefix(begin == std::string_view::npos ? m_rest.size() : begin);
        m_word = m_rest.substr(0, m_rest.find_first_of(blanks));
        m_rest.remove_prefix(m_word.size());
    }

    void fail(const std::string& allowed)
    {
        if (m_error.empty())
            m_error = found(allowed, m_word);
    }

    std::string_view m_rest;
    std::string_view m_word; // the current one; empty at the end of the line
    std::string m_error;
};

} // namespace

ParsedOrder parsePanelOrder(std::string_view line)
{
    return LineParser(line).parse();
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
                found("a time such as 250ms, 2s, 1.5s or " + std::string(example) + ", at most 1000000s", text)};
    }
    // The fraction counts billionths of the unit.
    return {std::chrono::nanoseconds(*whole * unit + *fraction * unit / 1'000'000'000), {}};
}

} // namespace Vantor
