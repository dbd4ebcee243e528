#pragma once

#include "panelctl/command/Delivery.h"

#include <chrono>
#include <cstdint>
#include <optional>

namespace Vantor {

// Keeps one panel under a steady load of records of several types and keys, in
// batches of which it is certain when they have been taken.
//
// Threads: one. Keeps the panel: drop it when the panel has left.
class LoadStream {
public:
    using Clock = std::chrono::steady_clock;

    // 8 × (16 - 2) is less than the smallest record: see Delivery::isTaken.
    static constexpr std::uint32_t batchSize = 16;
    static constexpr std::chrono::milliseconds batchPeriod{4};

    explicit LoadStream(const Panel& panel);

    // Starts the next batch when the last one is through and its time has come.
    void step();

    // No further batch is started.
    void finish() { m_isFinishing = true; }

    bool isIdle() const { return !m_batch; }
    std::uint64_t getGiven() const { return m_given; }
    std::uint64_t getTaken() const { return m_taken; }

private:
    Panel m_panel;
    std::optional<Delivery> m_batch; // under way
    Clock::time_point m_nextStart;
    std::uint64_t m_given = 0;
    std::uint64_t m_taken = 0;
    bool m_isFinishing = false;
};

} // namespace Vantor
