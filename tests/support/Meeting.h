#pragma once

#include "tests/support/Contender.h"
#include "tests/support/FakeLibusb.h"

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace Vantor::Test {

// Stops the first call of a libusb function from now on, runs an operation on a second
// thread there, and finds out whether that waits until the call goes on.
class Meeting {
public:
    enum class Expected { HeldUp, Through };

    Meeting(FakeLibusb& usb, const std::string& function, Expected expected, std::function<void()> operation)
        : m_usb(usb), m_function(function)
    {
        usb.onCall(function, [this, expected, operation = std::move(operation)] {
            if (m_begun.exchange(true))
                return;
            m_contender.emplace(operation);
            m_isAsExpected = expected == Expected::HeldUp ? m_contender->isHeldUp() : m_contender->getsThrough();
        });
    }

    ~Meeting() { m_usb.onCall(m_function, nullptr); }
    Meeting(const Meeting&) = delete;
    Meeting& operator=(const Meeting&) = delete;

    // False when the call did not come, either.
    bool wasAsExpected() const { return m_isAsExpected; }

private:
    FakeLibusb& m_usb;
    std::string m_function;
    std::atomic<bool> m_begun{false};
    bool m_isAsExpected = false;
    std::optional<Contender> m_contender;
};

} // namespace Vantor::Test
