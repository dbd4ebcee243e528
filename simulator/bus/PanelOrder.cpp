#include "simulator/bus/PanelOrder.h"

#include "simulator/bus/OrderWords.h"
#include "simulator/bus/QuantityText.h"
#include "simulator/bus/UserText.h"

#include <algorithm>
#include <cstddef>
#include <sstream>
#include <utility>

namespace Vantor {

namespace {

using OrderWords::Opening;
using OrderWords::openings;
using OrderWords::Phrase;
using OrderWords::Place;
using OrderWords::Word;

using Texts = std::vector<std::string>;

std::string join(const Texts& texts, const std::string& separator, const std::string& last)
{
    std::string joined;
    for (std::size_t i = 0; i < texts.size(); ++i)
        joined += (i == 0 ? "" : i + 1 < texts.size() ? separator : last) + texts[i];
    return joined;
}

// "short=BYTES"
template <typename Target> std::string usageOf(const Word<Target>& word)
{
    return word.argument.empty() ? word.name : word.name + "=" + word.argument;
}

template <typename Target> Texts usagesOf(const Place<Target>& place)
{
    Texts usages;
    for (const Word<Target>& word : place.words)
        usages.push_back(usageOf(word));
    return usages;
}

Texts verbs()
{
    Texts verbs;
    for (const Opening& opening : openings())
        if (verbs.empty() || verbs.back() != opening.verb)
            verbs.push_back(opening.verb);
    return verbs;
}

// One line, word by word. The first thing that is wrong is kept as the error, and
// nothing after it counts.
class LineParser {
public:
    explicit LineParser(std::string_view line) : m_rest(line) { advance(); }

    ParsedOrder parse()
    {
        PanelOrder order = takeOpening();
        std::visit([this](auto& alternative) { takeRest(alternative); }, order);
        if (!m_word.empty())
            fail("the end");
        if (!m_error.empty())
            return {std::nullopt, std::move(m_error)};
        return {std::move(order), {}};
    }

private:
    PanelOrder takeOpening()
    {
        const std::string verb(m_word);
        if (!isOrderVerb(verb))
            fail(join(verbs(), ", ", " or "));
        advance();
        const unsigned int panel = takePanel();
        PanelOrder order;
        // One without a second word is in front of those with one.
        for (auto opening = openings().rbegin(); opening != openings().rend(); ++opening) {
            if (opening->verb != verb)
                continue;
            order = opening->order;
            if (opening->second.empty())
                break;
            if (takeWord(opening->second)) {
                m_seconds.clear();
                break;
            }
            m_seconds.insert(m_seconds.begin(), opening->second);
        }
        std::visit([panel](auto& alternative) { alternative.panel = panel; }, order);
        return order;
    }

    template <typename Order> void takeRest(Order& order)
    {
        OrderWords::usePhrase(order, [this](const auto& phrase, auto& target) { this->takeInOrder(phrase, target); });
    }
    void takeRest(EmitOrder& order) { takeInAnyOrder(OrderWords::emitPhrase(), order); }
    void takeRest(PlugOrder& /*order*/) { takeNothing(); }
    void takeRest(UnplugOrder& /*order*/) { takeNothing(); }

    void takeNothing()
    {
        if (!m_word.empty())
            fail("a panel's number or the end");
    }

    template <typename Target> void takeInOrder(const Phrase<Target>& phrase, Target& target)
    {
        Texts allowed;
        for (const Place<Target>& place : phrase) {
            if (takeOne(place, target)) {
                allowed.clear();
                continue;
            }
            const Texts usages = usagesOf(place);
            allowed.insert(allowed.end(), usages.begin(), usages.end());
            if (&place == &phrase.front())
                allowed.insert(allowed.end(), m_seconds.begin(), m_seconds.end());
            if (place.isRequired)
                fail(join(allowed, ", ", " or "));
        }
        if (!allowed.empty() && !m_word.empty())
            fail(join(allowed, ", ", " or "));
    }

    template <typename Target> void takeInAnyOrder(const Phrase<Target>& phrase, Target& target)
    {
        Texts all;
        std::vector<const Place<Target>*> open;
        for (const Place<Target>& place : phrase) {
            all.push_back(join(usagesOf(place), " or ", " or "));
            open.push_back(&place);
        }
        while (m_error.empty() && !m_word.empty()) {
            const auto taken = std::find_if(open.begin(), open.end(), [this, &target](const Place<Target>* place) {
                return takeOne(*place, target);
            });
            if (taken == open.end())
                fail(join(all, ", ", ", ") + ", each once");
            else
                open.erase(taken);
        }
        for (const Place<Target>* const place : open)
            if (place->isRequired)
                fail(join(usagesOf(*place), " or ", " or "));
    }

    // Whether it is one of the place's words; what is behind its "=" may be wrong.
    template <typename Target> bool takeOne(const Place<Target>& place, Target& target)
    {
        for (const Word<Target>& word : place.words) {
            const std::string beginning = word.name + "=";
            if (word.argument.empty() ? m_word != word.name : m_word.substr(0, beginning.size()) != beginning)
                continue;
            std::string error = word.read(m_word, target);
            if (m_error.empty())
                m_error = error;
            if (error.empty())
                advance();
            return true;
        }
        return false;
    }

    unsigned int takePanel()
    {
        if (m_word.empty() || m_word.front() < '0' || m_word.front() > '9')
            return 0;
        const auto panel = parseNumber(m_word, UINT32_MAX);
        if (!panel) {
            fail("a panel's number");
            return 0;
        }
        advance();
        return static_cast<unsigned int>(*panel);
    }

    bool takeWord(std::string_view word)
    {
        if (m_word != word)
            return false;
        advance();
        return true;
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
            m_error = UserText::expected(allowed, m_word);
    }

    Texts m_seconds; // that the opening might have had
    std::string_view m_rest;
    std::string_view m_word; // the current one; empty at the end of the line
    std::string m_error;
};

// The words of the order's phrase, each with a blank in front.
std::string phraseOf(const PanelOrder& order)
{
    std::string line;
    const auto say = [&line](const auto& phrase, const auto& target) {
        for (const auto& place : phrase)
            for (const auto& word : place.words)
                if (const auto value = word.write(target))
                    line += " " + word.name + (value->empty() ? "" : "=" + *value);
    };
    std::visit([&say](const auto& alternative) { OrderWords::usePhrase(alternative, say); }, order);
    return line;
}

// `panel` stands behind the verb.
std::string format(const PanelOrder& order, const std::string& panel)
{
    const Opening& opening = openings()[order.index()];
    return opening.verb + panel + (opening.second.empty() ? "" : " ") + opening.second + phraseOf(order);
}

// In lines of some 100 columns, the text to the right of what it explains.
std::string explain(const std::string& usage, std::string_view text)
{
    constexpr std::size_t column = 16;
    constexpr std::size_t width = 102;
    std::string lines;
    std::string line = "  " + usage + "  ";
    line.resize(std::max(line.size(), column), ' ');
    std::istringstream words{std::string(text)};
    for (std::string word; words >> word; line += word + " ")
        if (line.size() + word.size() > width) {
            lines += line.substr(0, line.size() - 1) + "\n";
            line.assign(column, ' ');
        }
    return lines + line.substr(0, line.size() - 1) + "\n";
}

// Of one order: its syntax, and a line or more for each of its words.
std::string syntaxOf(const Opening& opening)
{
    std::string line = "  " + opening.verb + " [P]" + (opening.second.empty() ? "" : " ") + opening.second;
    const auto add = [&line](const auto& phrase, const auto& /*target*/) {
        for (const auto& place : phrase) {
            const std::string usage = join(usagesOf(place), "|", "|");
            line += place.isRequired ? " " + usage : " [" + usage + "]";
        }
    };
    std::visit([&add](const auto& alternative) { OrderWords::usePhrase(alternative, add); }, opening.order);
    return line + "\n";
}

template <typename Target> std::string explain(const Phrase<Target>& phrase)
{
    std::string lines;
    for (const Place<Target>& place : phrase)
        for (const Word<Target>& word : place.words)
            if (!word.help.empty())
                lines += explain(usageOf(word), word.help);
    return lines;
}

} // namespace

ParsedOrder parsePanelOrder(std::string_view line)
{
    return LineParser(line).parse();
}

std::string formatPanelOrder(const PanelOrder& order)
{
    return format(order, " " + std::to_string(panelOf(order)));
}

std::string describe(const PanelOrder& order)
{
    if (const auto* const emission = std::get_if<EmitOrder>(&order))
        return "emit type " + std::to_string(static_cast<int>(emission->type)) + ", " +
               formatBytes(emission->payload.size());
    if (const auto* const emission = std::get_if<EmitRawOrder>(&order))
        return "emit raw, " + formatBytes(emission->bytes.size());
    return format(order, "");
}

bool isOrderVerb(std::string_view word)
{
    const Texts all = verbs();
    return std::find(all.begin(), all.end(), word) != all.end();
}

unsigned int panelOf(const PanelOrder& order)
{
    return std::visit([](const auto& alternative) { return alternative.panel; }, order);
}

std::string explainPanelOrders()
{
    std::string syntax;
    for (const Opening& opening : openings())
        syntax += syntaxOf(opening);
    return syntax + R"(A plain number for the TIME of delay= and every= is milliseconds.

A fault meets the next transfer of the panel's endpoint, records to the panel (out) or packets from
it (in); once is the default, sticky goes on until 'fault clear' or 'unplug'.
)" + explain(OrderWords::faultPhrase()) +
           R"(
A boot fault meets the next firmware record, a request or a chunk of an upgrade, or the one after N
others; sticky, all from then on:
)" + explain(OrderWords::bootFaultPhrase()) +
           R"(
emit has the panel send packets of one record each, or with raw these bytes, which need not be a
packet. Its words come in any order:
)" + explain(OrderWords::emitPhrase());
}

} // namespace Vantor
