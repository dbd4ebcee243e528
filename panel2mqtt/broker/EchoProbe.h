#pragma once

#include "panel2mqtt/broker/BrokerPace.h"

#include <chrono>
#include <cstdint>

namespace Vantor {

// When to try whether the broker still delivers, by a message of one's own, and what comes of it.
//
// Threads: one. Pure.
class EchoProbe {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    enum class Step {
        None,
        Send,
        GiveUp, // it delivers no more
    };

    // Who has next to nothing to send drops nothing.
    static constexpr std::uint64_t messagesToTry = 64;
    static constexpr unsigned int mostUnheard = 3;

    explicit EchoProbe(const BrokerPace& pace) : m_pace(pace) {}

    // The connection is up.
    void begin(TimePoint now) { m_last = now; }

    // Something has come.
    void countReceived() { ++m_received; }

    // The echo has, or something else that would not have if the broker delivered no more.
    void noteDelivery() { m_unheard = 0; }

    // What is to be done now; that it is sent is taken for granted. `lastWriting` is when
    // something was still to be written, behind which it would have to wait.
    Step poll(TimePoint now, TimePoint lastWriting);

private:
    const BrokerPace m_pace;
    TimePoint m_last;             // that it was sent, or could have been
    std::uint64_t m_received = 0; // since it was sent
    unsigned int m_unheard = 0;   // since one came back
};

} // namespace Vantor
