#include "simulator/panelsim/ControlConnection.h"

#include "simulator/bus/UserText.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include <sys/socket.h>

namespace Vantor {

namespace {

bool isForLater(int error)
{
    return error == EAGAIN || error == EINTR;
}

} // namespace

ControlConnection::ControlConnection(Descriptor socket) : m_socket(std::move(socket)) {}

void ControlConnection::serve(const Execute& execute)
{
    if (m_answer.empty() && takeLine())
        answerLine(execute);
    if (!m_answer.empty())
        send();
}

// The bytes of further lines stay with the kernel, so that poll tells of them.
bool ControlConnection::takeLine()
{
    std::array<char, 4096> buffer;
    const ssize_t size = recv(m_socket.get(), buffer.data(), buffer.size(), MSG_PEEK | MSG_DONTWAIT);
    if (size <= 0) {
        m_hasEnded = size == 0 || !isForLater(errno);
        if (size == 0 && !m_line.empty()) {
            m_answer = "refused: '" + UserText::shown(m_line) + "': the line has no end\n";
            m_isLast = true;
            m_hasEnded = false;
        }
        return false;
    }
    const auto* const all = buffer.data() + size;
    const auto* const end = std::find(std::as_const(buffer).data(), all, '\n');
    const bool isWhole = end != all;
    const auto length = static_cast<std::size_t>(end - buffer.data());
    recv(m_socket.get(), buffer.data(), length + (isWhole ? 1 : 0), MSG_DONTWAIT);
    // One more byte shows that it was longer.
    m_line.append(buffer.data(), std::min(length, longestLine + 1 - m_line.size()));
    return isWhole;
}

void ControlConnection::answerLine(const Execute& execute)
{
    std::string complaint =
        m_line.size() > longestLine ? "a line has at most " + std::to_string(longestLine) + " bytes" : execute(m_line);
    std::replace(complaint.begin(), complaint.end(), '\n', ' ');
    m_answer = complaint.empty() ? "ok\n" : "refused: " + complaint + "\n";
    m_line.clear();
}

void ControlConnection::send()
{
    const ssize_t size = ::send(m_socket.get(), m_answer.data(), m_answer.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (size < 0) {
        m_hasEnded = !isForLater(errno);
        return;
    }
    m_answer.erase(0, static_cast<std::size_t>(size));
    m_hasEnded = m_isLast && m_answer.empty();
}

} // namespace Vantor
