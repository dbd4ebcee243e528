#pragma once

#include <stdexcept>
#include <string>

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

// Ends the command. The text says what happened, why and what to do next; its
// first line stands alone.
class Failure : public std::runtime_error {
public:
    Failure(ExitCode code, const std::string& text) : std::runtime_error(text), m_code(static_cast<int>(code)) {}

    int getExitCode() const { return m_code; }

protected:
    Failure(int code, const std::string& text) : std::runtime_error(text), m_code(code) {}

private:
    int m_code;
};

// SIGINT or SIGTERM has come: commands unwind, and the library is shut down in order.
class Interrupted : public Failure {
public:
    explicit Interrupted(int signal, const std::string& text = "interrupted")
        : Failure(static_cast<int>(ExitCode::Interrupted) + signal, text), m_signal(signal)
    {}

    int getSignal() const { return m_signal; }

private:
    int m_signal;
};

} // namespace Vantor
