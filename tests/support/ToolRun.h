#pragma once

#include <chrono>
#include <string>
#include <vector>

#include <sys/types.h>

namespace Vantor {

// One run of a program with its two outputs apart. A run that does not end is
// killed and fails the test.
class ToolRun {
public:
    using Arguments = std::vector<std::string>;

    // A terminal of this width in place of standard input and both outputs.
    struct Terminal {
        unsigned short columns;
    };

    explicit ToolRun(const Arguments& command);
    ToolRun(const Arguments& command, Terminal terminal);
    ~ToolRun();
    ToolRun(const ToolRun&) = delete;
    ToolRun& operator=(const ToolRun&) = delete;

    // Reads on until standard output holds `text`; fails the test if it never does.
    void awaitOutput(const std::string& text);

    // Lets it run on until that file holds `text`, as the log of panelsim; fails the test if
    // it never does.
    void awaitFile(const std::string& path, const std::string& text);

    // Lets it run on for this long.
    void let(std::chrono::milliseconds time);

    void sendSignal(int signal);

    // To the program that panelsim runs, alone.
    void sendSignalToTool(int signal);

    // Types on the terminal.
    void type(const std::string& text);

    // Nobody reads standard output any more.
    void closeOutput();

    // The same for standard error.
    void awaitErrors(const std::string& text);

    // Waits for the end. Exit code, or minus the signal that ended the run. What
    // a sanitizer reports fails the test.
    int finish();

    const std::string& getOutput() const { return m_output; }
    const std::string& getErrors() const { return m_errors; }

    // From the last sendSignal, or the start, to the end.
    double getSeconds() const { return m_seconds; }

private:
    using Clock = std::chrono::steady_clock;

    void await(const std::string& output, const std::string& text);

    // False at the end of both outputs.
    bool readSome(Clock::time_point deadline);

    pid_t m_process = -1;
    int m_outputEnd = -1;
    int m_errorEnd = -1;
    std::string m_output;
    std::string m_errors;
    Clock::time_point m_mark;
    double m_seconds = 0;
};

// The screen of a terminal of this width after everything in `output` was printed to it:
// its lines, without blanks at their ends. Knows carriage return and clearing to the end
// of the line.
std::string screenOf(const std::string& output, std::size_t columns);

// Runs to the end.
struct ToolResult {
    int exitCode;
    std::string output;
    std::string errors;
};

ToolResult runTool(const ToolRun::Arguments& command);

// "/path/panelctl" and the arguments.
ToolRun::Arguments panelctl(const ToolRun::Arguments& arguments);

// Any program on a simulated bus; `bus` are arguments of `panelsim run`.
ToolRun::Arguments onBus(const ToolRun::Arguments& bus, const ToolRun::Arguments& program);
ToolRun::Arguments panelctlOn(const ToolRun::Arguments& bus, const ToolRun::Arguments& arguments);

} // namespace Vantor
