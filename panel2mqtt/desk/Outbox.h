#pragma once

#include "panel2mqtt/desk/Message.h"

namespace Vantor {

// Where the desk's messages go. Never blocks.
//
// Lifetime: outlives the desk.
class Outbox {
public:
    // By which what there is no room for is chosen: from the first to the last. What only says
    // `busy` also goes behind all else: a flood's answers delay no other's.
    enum class Kind { Busy, Event, Answer, State };

    virtual ~Outbox() = default;
    virtual void publish(Kind kind, Message message) = 0;
};

} // namespace Vantor
