#pragma once

#include <string>

namespace Vantor::Test {

// Everything the process writes to standard output while an object exists, taken at
// the file descriptor, so that it also holds what other threads print. GoogleTest's
// own failures still reach the terminal (see LinkTestMain.cpp). One at a time.
//
// Threads: the operations from any thread, one at a time.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // What was written since the last take.
    std::string take();

    // The same, left in place.
    std::string peek();

    // Blocks until `text` has been written `times` times since the last take.
    void waitFor(const std::string& text, int times = 1);

    // Source positions at line starts and behind other output, "/any/path/Name.cpp:12: ",
    // as "@Name: "; pointers given as `from` as the word `to`.
    static std::string withoutPositions(const std::string& text);
    static std::string replaced(std::string text, const std::string& from, const std::string& to);

    // Gives standard output back for the lifetime of the object, if it is captured.
    class Pause {
    public:
        Pause();
        ~Pause();
        Pause(const Pause&) = delete;
        Pause& operator=(const Pause&) = delete;
    };

private:
    int m_file;
    int m_terminal;
    long m_taken;
};

// `pointer` as printf's %p writes it.
std::string printed(const void* pointer);

} // namespace Vantor::Test
