#pragma once

#include "panelctl/flash/FirmwareImages.h"
#include "panelctl/flash/FlashDiagnosis.h"
#include "panelctl/flash/FlashReplies.h"
#include "panelctl/session/Panel.h"
#include "panelctl/session/Session.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>

namespace Vantor {

class Output;

// One upgrade of one panel, from its start to where it ends or stands still.
//
// Threads: one; the library's progress callback only touches the atomic count, which it
// shares. The session must keep packets.
class FlashRun {
public:
    enum class End {
        Finished, // the library says so, or the panel has left after it confirmed the last byte
        Left,     // before that
        Stuck,    // nothing was confirmed for too long
    };

    // `images` must outlive it.
    FlashRun(const Panel& panel, const FirmwareImages& images);

    // Starts it and shows its progress; `patience` is the longest time without any. Throws
    // Interrupted; the library goes on until the session stops.
    End run(Session& session, Output& output, std::chrono::nanoseconds patience);

    // Bytes confirmed, by the library's count.
    std::uint32_t getWritten() const;

    const FlashReplies& getReplies() const { return m_replies; }

    FlashState getState() const;

private:
    void start();
    void takeReplies(Session& session);
    void noteProgress();
    void warnOnceWhenInterrupted(Output& output);

    Panel m_panel;
    const FirmwareImages& m_images;
    FlashReplies m_replies;
    std::shared_ptr<std::atomic<std::uint32_t>> m_written;
    Session::Clock::time_point m_replyTime; // of the last one
    bool m_isWarned = false;                // of what an interrupt would do

    // When the count last changed, and what had been exchanged by then.
    Session::Clock::time_point m_progressTime;
    std::uint32_t m_progressBytes = 0;
    std::uint32_t m_progressSentBytes = 0;
};

} // namespace Vantor
