#pragma once

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

// What the tool says: as text for people, results on standard output and complaints on
// standard error; or as JSON for programs, everything on standard output, an object a line.
//
// The library prints its log to standard output too; from construction on that goes to
// standard error, so that what panelctl prints can be piped. Construct it before the
// library is first used.
//
// Threads: one.
class Output {
public:
    enum class Form {
        Text,
        Json,
    };

    explicit Output(Form form = Form::Text);
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    // From now on what can't be written is remembered, not thrown; nor is more tried.
    void tolerateFailures() { m_isTolerant = true; }

    // Why something could not be written since then: "Broken pipe"; empty while all could.
    const std::string& getTrouble() const { return m_trouble; }

    // Whether people are to read it.
    bool isText() const { return m_form == Form::Text; }

    // Throws Failure when it can't be written. Waits for a reader that has stopped; a signal
    // ends that wait as any other.
    void report(const Report& report);

    // Complains, and goes on. Throws as `report`.
    void warn(const Warning& warning);

    // Complains of what ends the program; throws nothing.
    void complain(const Failure& failure) noexcept;

    // For people alone, left out of JSON: a line, to which the newline is added, and text of
    // any number of lines, as it is. Throw as `report`.
    __attribute__((format(printf, 2, 3))) void line(const char* format, ...);
    void text(const std::string& text);

    // For what lines are not enough for; -1 when there is no standard output.
    int getDescriptor() const;

private:
    void write(const JsonObject& object);
    void write(const std::string& text);
    void fail(int error);

    const Form m_form;
    int m_descriptor;
    bool m_isTolerant = false;
    std::string m_trouble;
};

// A message on standard error: "panelctl: " and the text, its further lines indented.
void printError(const std::string& text);

} // namespace Vantor
