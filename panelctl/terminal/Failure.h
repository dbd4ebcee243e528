#pragma once

#include "panelctl/terminal/Reason.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace Vantor {

// What panelctl exits with; the help text lists them too.
enum class ExitCode : int {
    Success = 0,
    Failed = 1,
    Usage = 2,     // arguments, or a file that they name
    NoPanel = 3,   // none attached, or not the one asked for
    PanelLeft = 4, // unplugged or given up while in use
    TimedOut = 5,
    HalfWritten = 6,   // the firmware upgrade came to no end, or not with every chunk confirmed
    NotAnswering = 7,  // the firmware is written, and the panel says nothing since
    Interrupted = 128, // plus the signal's number
};

// What is wrong, for programs: finer than the exit code. docs/json.md lists them.
namespace FailureKind {
constexpr const char* failed = "failed";
constexpr const char* usage = "usage";
constexpr const char* noPanel = "no-panel";
constexpr const char* panelLeft = "panel-left";
constexpr const char* timedOut = "timed-out";
constexpr const char* halfWritten = "half-written";
constexpr const char* notAnswering = "not-answering";
constexpr const char* interrupted = "interrupted";
constexpr const char* unexpected = "unexpected";

// Of these there is no more than one with each code above.
constexpr const char* noLibusb = "no-libusb"; // with Failed, as those that follow
constexpr const char* panelUnusable = "panel-unusable";
constexpr const char* tooLarge = "too-large";
constexpr const char* cutShort = "cut-short";
constexpr const char* notConfirmed = "not-confirmed";
constexpr const char* whichPanel = "which-panel"; // with Usage
constexpr const char* noSuchPanel = "no-such-panel";
} // namespace FailureKind

// The kind of a failure that is given none.
constexpr const char* kindOf(ExitCode code)
{
    switch (code) {
    case ExitCode::Usage:
        return FailureKind::usage;
    case ExitCode::NoPanel:
        return FailureKind::noPanel;
    case ExitCode::PanelLeft:
        return FailureKind::panelLeft;
    case ExitCode::TimedOut:
        return FailureKind::timedOut;
    case ExitCode::HalfWritten:
        return FailureKind::halfWritten;
    case ExitCode::NotAnswering:
        return FailureKind::notAnswering;
    case ExitCode::Interrupted:
        return FailureKind::interrupted;
    case ExitCode::Success:
    case ExitCode::Failed:
        break;
    }
    return FailureKind::failed;
}

// Ends the command. The text says what happened, why and what to do next; its
// first line stands alone.
class Failure : public std::runtime_error {
public:
    Failure(ExitCode code, const std::string& text) : Failure(code, kindOf(code), text) {}
    Failure(ExitCode code, const char* kind, const std::string& text) : Failure(static_cast<int>(code), kind, text) {}

    // Of the kinds panelLeft and panelUnusable: with why it did.
    Failure(ExitCode code, const char* kind, const std::string& text, std::optional<Reason> reason)
        : Failure(static_cast<int>(code), kind, text)
    {
        m_reason = std::move(reason);
    }

    int getExitCode() const { return m_code; }
    const char* getKind() const { return m_kind; }
    const std::optional<Reason>& getReason() const { return m_reason; }

protected:
    // `kind` is kept as it is: a constant.
    Failure(int code, const char* kind, const std::string& text) : std::runtime_error(text), m_code(code), m_kind(kind)
    {}

private:
    int m_code;
    const char* m_kind;
    std::optional<Reason> m_reason;
};

// SIGINT or SIGTERM has come: commands unwind, and the library is shut down in order.
class Interrupted : public Failure {
public:
    explicit Interrupted(int signal, const std::string& text = "interrupted")
        : Failure(static_cast<int>(ExitCode::Interrupted) + signal, FailureKind::interrupted, text), m_signal(signal)
    {}

    int getSignal() const { return m_signal; }

private:
    int m_signal;
};

} // namespace Vantor
