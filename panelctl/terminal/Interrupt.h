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

    // While one lives, the first signal is only noted, and forgotten afterwards; one that
    // comes later interrupts.
    // What follows within half a second is the same Ctrl-C, delivered by several. A
    // terminal that hangs up is ignored.
    class Reprieve {
    public:
        Reprieve();
        ~Reprieve();
        Reprieve(const Reprieve&) = delete;
        Reprieve& operator=(const Reprieve&) = delete;

        // Whether the first signal has come.
        static bool isUsed();
    };

    // The signal that has come, or 0.
    static int getSignal();

    // Throws Interrupted when a signal has come, or with a Reprieve the second one.
    static void check();

    // Waits until the descriptor is ready for these events of poll. Throws Interrupted, but
    // not when it is ready at once.
    static void await(int descriptor, short events);

    // Readable when a signal has come, until `drain`.
    int getDescriptor() const { return m_readEnd; }
    void drain() const;

private:
    int m_readEnd;
};

} // namespace Vantor
