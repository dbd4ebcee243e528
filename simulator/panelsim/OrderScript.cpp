#include "simulator/panelsim/OrderScript.h"

#include "simulator/bus/QuantityText.h"
#include "simulator/bus/UserText.h"
#include "simulator/capture/InputFile.h"
#include "simulator/panelsim/LineInput.h"
#include "simulator/panelsim/OrderLine.h"

#include <cerrno>
#include <memory>
#include <stdexcept>
#include <system_error>

#include <unistd.h>

namespace Vantor {

namespace {

constexpr char byteOrderMark[] = "\xEF\xBB\xBF"; // which some editors put first
constexpr std::string_view orderMark = "order:"; // in a log

// Of a line of the log that tells what has happened to a panel: "panel 3: ...". All but the
// orders are such lines.
bool tellsOfPanel(std::string_view text)
{
    constexpr std::string_view beginning = "panel ";
    if (text.substr(0, beginning.size()) != beginning)
        return false;
    const std::size_t colon = text.find(':');
    return colon != std::string_view::npos &&
           parseNumber(text.substr(beginning.size(), colon - beginning.size()), UINT32_MAX).has_value();
}

ParsedTime parseScriptTime(std::string_view word, std::chrono::nanoseconds previous)
{
    const bool isRelative = word.substr(0, 1) == "+";
    ParsedTime time = parseTime(word.substr(isRelative ? 1 : 0));
    if (!time.time || !isRelative)
        return time;
    const std::chrono::nanoseconds sum = *time.time + previous;
    // As a time by itself may be.
    return parseTime(formatSeconds(sum)).time ? ParsedTime{sum, {}} : ParsedTime{std::nullopt, "later than 1000000s"};
}

[[noreturn]] void failToRead(const std::string& path, int error)
{
    throw std::runtime_error("cannot read the script '" + UserText::shown(path) +
                             "': " + std::generic_category().message(error));
}

// What is in the file, line by line; a longer line ends the script.
class ScriptFile {
public:
    explicit ScriptFile(const std::string& path)
        : m_path(path), m_descriptor(InputFile::open(path)), m_input(m_descriptor)
    {
        if (m_descriptor < 0)
            failToRead(path, errno);
    }
    ~ScriptFile()
    {
        if (m_descriptor >= 0)
            close(m_descriptor);
    }
    ScriptFile(const ScriptFile&) = delete;
    ScriptFile& operator=(const ScriptFile&) = delete;

    std::optional<std::string> takeLine()
    {
        auto line = m_input.takeLine();
        while (!line && m_input.getDescriptor() >= 0) {
            m_input.read();
            line = m_input.takeLine();
        }
        if (!line && !m_input.hasEnded())
            failToRead(m_path, errno);
        return line;
    }

private:
    const std::string m_path;
    const int m_descriptor;
    LineInput m_input;
};

} // namespace

OrderScript::Line OrderScript::parseLine(std::string_view line, std::chrono::nanoseconds previous)
{
    const std::string_view text = OrderLine::contentOf(line);
    if (text.empty())
        return {};
    const std::string_view word = text.substr(0, text.find_first_of(" \t"));
    const ParsedTime time = parseScriptTime(word, previous);
    if (!time.time)
        return {std::nullopt, time.error};
    std::string_view rest = OrderLine::contentOf(text.substr(word.size()));
    if (tellsOfPanel(rest))
        return {};
    if (rest.substr(0, orderMark.size()) == orderMark)
        rest.remove_prefix(orderMark.size());
    const ParsedOrder parsed = OrderLine::parse(rest);
    if (!parsed.order)
        return {std::nullopt, parsed.error};
    return {TimedOrder{*time.time, *parsed.order}, {}};
}

std::vector<TimedOrder> OrderScript::read(const std::string& path)
{
    ScriptFile file(path);
    std::vector<TimedOrder> orders;
    std::size_t number = 0;
    std::chrono::nanoseconds previous{0};
    while (auto text = file.takeLine()) {
        if (++number == 1 && text->rfind(byteOrderMark, 0) == 0)
            text->erase(0, sizeof byteOrderMark - 1);
        const Line line = parseLine(*text, previous);
        if (!line.error.empty())
            throw std::runtime_error(UserText::shown(path) + ":" + std::to_string(number) + ": " + line.error);
        if (!line.order)
            continue;
        previous = line.order->time;
        orders.push_back(*line.order);
    }
    return orders;
}

} // namespace Vantor
