#pragma once

namespace Vantor {

// Turns SIGINT and SIGTERM into something that a wait can see, so that Ctrl-C
// ends a command through its ordinary way out and the library is shut down in
// order. Also ignores SIGPIPE: a closed pipe then is a write error.
//
// The handlers stay: a second Ctrl-C does not cut the shutdown short, as a terminal
// and a parent process may both deliver the first one. One instance a process.
class Interrupt {
public:
    Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    // The signal that has come, or 0.
    static int getSignal();

    // Throws Interrupted when a signal has come.
    static void check();

    // Readable from the first signal on.
    int getDescriptor() const { return m_readEnd; }

private:
    int m_readEnd;
};

} // namespace Vantor
