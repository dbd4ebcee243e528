#include "simulator/panelsim/LineInput.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include <unistd.h>

namespace Vantor {

LineInput::LineInput(int descriptor) : m_descriptor(descriptor) {}

void LineInput::read()
{
    if (m_descriptor < 0)
        return;
    std::array<char, 4096> buffer;
    const ssize_t size = ::read(m_descriptor, buffer.data(), buffer.size());
    if (size > 0)
        return take(buffer.data(), static_cast<std::size_t>(size));
    if (size < 0 && (errno == EINTR || errno == EAGAIN))
        return;
    // The end, or a descriptor that can't be read: a terminal is another's while this
    // program is in the background.
    m_descriptor = -1;
    m_hasEnded = size == 0;
    if (!m_begun.empty())
        endLine();
}

void LineInput::take(const char* bytes, std::size_t size)
{
    for (const char* const end = bytes + size; bytes != end; ++bytes) {
        if (*bytes == '\n')
            endLine();
        else if (m_begun.size() <= longestLine) // one more byte shows that it was longer
            m_begun += *bytes;
    }
}

void LineInput::endLine()
{
    m_lines.push_back(std::exchange(m_begun, {}));
}

std::optional<std::string> LineInput::takeLine()
{
    if (m_lines.empty())
        return std::nullopt;
    std::string line = std::move(m_lines.front());
    m_lines.pop_front();
    return line;
}

} // namespace Vantor
