#pragma once

#include "tests/support/FakeLibusb.h"
#include "tests/support/LogCapture.h"
#include "tests/support/VirtualClock.h"

#include "libMorvaneHostUsb/Log.h"

#include <cstddef>
#include <string>
#include <vector>

namespace Vantor::Test {

// What every test on the scripted libusb stands on. The destructor fails the test for
// anything that libusb forbids, anything still held, a log line that the test did not
// take, and a thread that still lives.
class LinkRig {
public:
    LinkRig();
    ~LinkRig();
    LinkRig(const LinkRig&) = delete;
    LinkRig& operator=(const LinkRig&) = delete;

    // What `action` prints at `level`, source positions replaced. Lines that wait from
    // before, at the rig's own level, are dropped neither here nor at the end: they fail.
    template <typename Action> std::string logged(int level, Action action)
    {
        expectSilence();
        setLevel(level);
        action();
        setLevel(quietLevel);
        return LogCapture::withoutPositions(log.take());
    }

    static void setLevel(int level);
    void expectSilence();

    static constexpr int quietLevel = 2; // failures only

    VirtualClock clock;
    FakeLibusb usb;
    LogCapture log;

private:
    std::size_t m_threads;
};

std::size_t countThreads();

using Trace = std::vector<std::string>;

} // namespace Vantor::Test
