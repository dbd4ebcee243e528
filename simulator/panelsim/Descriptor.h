#pragma once

#include <utility>

#include <unistd.h>

namespace Vantor {

// A file descriptor that is closed at the end.
class Descriptor {
public:
    explicit Descriptor(int number = -1) : m_number(number) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        reset(std::exchange(other.m_number, -1));
        return *this;
    }

    int get() const { return m_number; }

    void reset(int number = -1)
    {
        if (m_number >= 0)
            close(m_number);
        m_number = number;
    }

private:
    int m_number;
};

} // namespace Vantor
