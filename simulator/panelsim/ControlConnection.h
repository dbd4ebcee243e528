#pragma once

#include "simulator/panelsim/Descriptor.h"

#include <cstddef>
#include <functional>
#include <string>

#include <poll.h>

namespace Vantor {

// Somebody at the control socket. Each line of theirs is a command, and gets a line as its
// answer: "ok", or "refused: " and why. What they do, or don't, holds nothing up: one line
// is taken in a turn, none before its predecessor's answer is away, and none without its
// end, which may be half a command.
//
// Threads: one at a time.
class ControlConnection {
public:
    static constexpr std::size_t longestLine = std::size_t{1} << 18; // of the longest emission, some 200 KB

    // Carries out a command: what is to complain of, empty when there is nothing.
    using Execute = std::function<std::string(const std::string& line)>;

    explicit ControlConnection(Descriptor socket);

    int getDescriptor() const { return m_socket.get(); }
    short getEvents() const { return m_answer.empty() ? POLLIN : POLLOUT; }

    // One turn; never waits.
    void serve(const Execute& execute);

    // Nothing more comes of it.
    bool hasEnded() const { return m_hasEnded; }

private:
    bool takeLine();
    void answerLine(const Execute& execute);
    void send();

    Descriptor m_socket;
    std::string m_line; // of which the end has not come
    std::string m_answer;
    bool m_isLast = false; // the answer
    bool m_hasEnded = false;
};

} // namespace Vantor
