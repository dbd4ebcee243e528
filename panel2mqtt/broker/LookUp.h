#pragma once

#include "panel2mqtt/broker/WakeUp.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Vantor {

// The addresses of a name. The system's look-up can't be broken off, and with a name server
// that does not answer takes half a minute and more: so it has a thread of its own, which is
// left to itself when nobody waits for it any more.
//
// Threads: one. Lifetime: the thread outlives it where it must, and knows nothing but what
// it shares.
class LookUp {
public:
    struct Result {
        std::vector<std::string> addresses; // as numbers
        std::string reason;                 // why there are none
    };

    // Rings when there is a result. `mustBeLoopback`: others are left out.
    LookUp(const std::string& name, bool mustBeLoopback, std::shared_ptr<const WakeUp> wakeUp);

    std::optional<Result> poll() const;

private:
    struct Shared;
    const std::shared_ptr<Shared> m_shared;
};

} // namespace Vantor
