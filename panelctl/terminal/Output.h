#pragma once

#include <string>

namespace Vantor {

// The tool's standard output. The library prints its log to standard output too;
// from construction on that goes to standard error, so that what panelctl prints
// can be piped. Construct it before the library is first used.
//
// Threads: one.
class Output {
public:
    Output();
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    // From now on what can't be written is remembered, not thrown; nor is more tried.
    void tolerateFailures() { m_isTolerant = true; }

    // Why something could not be written since then: "Broken pipe"; empty while all could.
    const std::string& getTrouble() const { return m_trouble; }

    // One whole line; the newline is added. Throws Failure when it can't be written. Waits
    // for a reader that has stopped; a signal ends that wait as any other.
    __attribute__((format(printf, 2, 3))) void line(const char* format, ...);

    // Text of any number of lines, as it is.
    void text(const std::string& text);

    // For what lines are not enough for; -1 when there is no standard output.
    int getDescriptor() const;

private:
    void fail(int error);

    int m_descriptor;
    bool m_isTolerant = false;
    std::string m_trouble;
};

// A message on standard error: "panelctl: " and the text, its further lines indented.
void printError(const std::string& text);

} // namespace Vantor
