#pragma once

#include "panel2mqtt/desk/Message.h"

namespace Vantor {

// Where the desk's messages go. Never blocks.
//
// Lifetime: outlives the desk.
class Outbox {
public:
    // By which what there is no room for is chosen: events first.
    enum class Kind { Event, Answer, State };

    virtual ~Outbox() = default;
    virtual void publish(Kind kind, Message message) = 0;
};

} // namespace Vantor
