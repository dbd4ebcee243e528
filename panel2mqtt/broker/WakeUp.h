#pragma once

namespace Vantor {

// What a thread that polls is woken by.
//
// Threads: any.
class WakeUp {
public:
    // Throws std::system_error.
    WakeUp();
    ~WakeUp();
    WakeUp(const WakeUp&) = delete;
    WakeUp& operator=(const WakeUp&) = delete;

    // Readable from `ring` to `clear`.
    int getDescriptor() const { return m_descriptor; }
    void ring() const;
    void clear() const;

private:
    const int m_descriptor;
};

} // namespace Vantor
