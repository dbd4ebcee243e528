#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Vantor {

// A port of loopback where nobody speaks MQTT.
//
// Threads: one.
class StubbornPort {
public:
    enum class Manner {
        SwallowsSyn,   // no connection comes about, and none is refused
        SaysNothing,   // connections do
        SpeaksNonsense // and are told something else
    };

    explicit StubbornPort(Manner manner);
    ~StubbornPort();
    StubbornPort(const StubbornPort&) = delete;
    StubbornPort& operator=(const StubbornPort&) = delete;

    std::uint16_t getPort() const { return m_port; }

    // Of the next connection, which is kept open: what it sends first.
    std::string accept();

    // To the connection that was accepted last.
    void say(const std::string& bytes) const;

private:
    const Manner m_manner;
    const int m_listener;
    std::uint16_t m_port = 0;
    std::vector<int> m_sockets;
};

} // namespace Vantor
