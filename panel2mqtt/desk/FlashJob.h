#pragma once

#include "panel2mqtt/desk/Answer.h"
#include "protocol/FirmwareData.h"
#include "protocol/FirmwareUpgradeCommand.h"

#include <chrono>
#include <cstdint>
#include <set>
#include <string>
#include <utility>

namespace Vantor {

// One upgrade of one panel, from the order to its end. The library tells progress but no end
// other than success, so the time-outs are here; and it counts a reply that comes twice for a
// chunk that never arrived, so every chunk is looked for among the panel's own replies.
//
// Threads: the desk's; time is handed in.
class FlashJob {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    enum class State {
        Queued,
        Writing,
        Written,   // the panel has confirmed every chunk
        Answering, // and has said since what it is: the end
        Failed,    // the other end
    };

    static constexpr std::chrono::seconds patience{30};       // without progress, and for the answer
    static constexpr std::chrono::seconds lateReplies{1};     // that were overtaken by the library's end
    static constexpr std::chrono::seconds questionStep{5};    // a panel that restarts may miss one
    static constexpr std::chrono::milliseconds lookStep{100}; // for the library's end, which is not told

    // How many bytes each MCU gets; not both 0.
    FlashJob(std::uint32_t mainSize, std::uint32_t servoSize);

    // The library has it now.
    void start(TimePoint now);

    // As the library counts.
    void onProgress(bool isUpdating, std::uint32_t written, std::uint32_t total, TimePoint now);

    // What the panel sends; of no effect until poll.
    void onReply(const FirmwareUpgradeCommand& reply);
    void onInformation() { m_hasInformation = true; }

    void onPanelLeft(TimePoint now);
    void onPanelReady();

    void poll(TimePoint now);

    // TimePoint::max() when it is over.
    TimePoint getNextDue() const;

    // Whether the panel is to be asked now what it is; not again for a while.
    bool takeQuestion(TimePoint now);

    State getState() const { return m_state; }
    bool isOver() const { return m_state == State::Answering || m_state == State::Failed; }
    std::uint32_t getWritten() const { return m_written; }
    std::uint32_t getTotal() const { return m_total; }

    // When it is over.
    const Answer& getEnd() const { return m_end; }

private:
    void addChunks(FirmwareData::Board board, std::uint32_t size);
    void goOn(TimePoint now);
    void finishWriting(TimePoint now);
    void fail(Answer::Word word, std::string reason);
    std::string describePosition() const;
    std::string explainSilence() const;
    std::string explainUnconfirmed() const;

    const std::uint32_t m_total;
    State m_state = State::Queued;
    Answer m_end{Answer::Word::Taken, ""};
    std::uint32_t m_written = 0;
    std::set<std::pair<std::uint8_t, std::uint32_t>> m_unconfirmed; // by board and address
    std::uint8_t m_lastReply = FirmwareUpgradeCommand::SendAgain;
    bool m_hasProgress = false; // since the last poll
    bool m_hasInformation = false;
    bool m_isUpdating = true;
    bool m_isThere = true;
    TimePoint m_deadline = TimePoint::max();
    TimePoint m_nextLook = TimePoint::max();
    TimePoint m_nextQuestion = TimePoint::max();
};

} // namespace Vantor
