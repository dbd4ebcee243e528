#pragma once

#include "libMorvaneHostUsb/ThreadAnnotations.h"

#include <cstdint>
#include <mutex>
#include <string>

namespace Vantor {

class Failure;
class JsonObject;
class Report;

// Something that people are told on standard error while a command goes on.
struct Warning {
    const char* kind; // for programs, see docs/json.md
    std::string text;
    std::string uid; // of the panel that it is about; empty for none
};

// A line of the library's log.
struct LogLine {
    int level;
    std::string text;
    std::uint64_t repeats = 0; // since it was last told, without that; 0 the first time
};

// What the tool says: as text for people, results on standard output, complaints and the
// library's log on standard error; or as JSON for programs, everything on standard output,
// an object a line.
//
// Threads: one; `log` from any.
class Output {
public:
    enum class Form {
        Text,
        Json,
    };

    explicit Output(Form form) : m_form(form) {}
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    // From now on what can't be written is remembered, not thrown; nor is more tried.
    void tolerateFailures();

    // Why something could not be written since then: "Broken pipe"; empty while all could.
    std::string getTrouble() const;

    // Whether people are to read it.
    bool isText() const { return m_form == Form::Text; }

    // Throws Failure when it can't be written. Waits for a reader that has stopped; a signal
    // ends that wait as any other.
    void report(const Report& report);

    // Complains, and goes on. Throws as `report`.
    void warn(const Warning& warning);

    // Complains of what ends the program; throws nothing.
    void complain(const Failure& failure) noexcept;

    // Throws nothing: what can't be written is lost, and so is what follows.
    void log(const LogLine& line) noexcept;

    // For people alone, left out of JSON: a line, to which the newline is added, and text of
    // any number of lines, as it is. Throw as `report`.
    __attribute__((format(printf, 2, 3))) void line(const char* format, ...);
    void text(const std::string& text);

    // For what lines are not enough for.
    static int getDescriptor();

private:
    void write(const JsonObject& object);
    void write(const std::string& text);
    void writeAll(const std::string& text) MORVANE_REQUIRES(m_mutex);
    void fail(int error) MORVANE_REQUIRES(m_mutex);

    const Form m_form;

    mutable std::mutex m_mutex;
    bool m_isTolerant MORVANE_GUARDED_BY(m_mutex) = false;
    std::string m_trouble MORVANE_GUARDED_BY(m_mutex);
    bool m_isLogLost MORVANE_GUARDED_BY(m_mutex) = false;
};

// A message on standard error: "panelctl: " and the text, its further lines indented.
void printError(const std::string& text);

} // namespace Vantor
