#pragma once

#include "simulator/bus/PanelOrder.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace Vantor {

// The words of the command language, each once: how it is read, written and explained.
namespace OrderWords {

// One word, "stall" or "short=BYTES", and what it says of a Target.
template <typename Target> struct Word {
    // Takes what the word says. The error; empty when it is right.
    using Read = std::function<std::string(std::string_view word, Target& target)>;
    // What stands behind "=". Nothing when the word is not to be said.
    using Write = std::function<std::optional<std::string>(const Target& target)>;

    std::string name;
    std::string argument; // what the help calls the value; empty for a word without one
    std::string help;     // empty for a word that speaks for itself
    Read read;
    Write write;
};

// A place in a line, which takes one of these words.
template <typename Target> struct Place {
    bool isRequired;
    std::vector<Word<Target>> words;
};

template <typename Target> using Phrase = std::vector<Place<Target>>;

// How the line of an order begins: "fault [P] boot".
struct Opening {
    std::string verb;
    std::string second; // behind the panel's number; may be empty
    PanelOrder order;
};

const std::vector<Opening>& openings(); // by the alternatives of PanelOrder
const Phrase<PanelFault>& faultPhrase();
const Phrase<BootFault>& bootFaultPhrase();
const Phrase<EmitOrder>& emitPhrase(); // its places may come in any order
const Phrase<EmitRawOrder>& emitRawPhrase();

// The phrase behind the opening and what it is about; nothing for an order without one.
template <typename Order, typename Use> void usePhrase(Order& order, const Use& use)
{
    using Plain = std::remove_const_t<Order>;
    if constexpr (std::is_same_v<Plain, FaultOrder>)
        use(faultPhrase(), order.fault);
    else if constexpr (std::is_same_v<Plain, BootFaultOrder>)
        use(bootFaultPhrase(), order.fault);
    else if constexpr (std::is_same_v<Plain, EmitOrder>)
        use(emitPhrase(), order);
    else if constexpr (std::is_same_v<Plain, EmitRawOrder>)
        use(emitRawPhrase(), order);
}

} // namespace OrderWords

} // namespace Vantor
