#include "tests/bus/LineReader.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace Vantor {

LineReader::LineReader(int descriptor, Filter isOfInterest) : m_isOfInterest(std::move(isOfInterest))
{
    m_thread = std::thread(&LineReader::read, this, descriptor);
}

LineReader::~LineReader()
{
    if (m_thread.joinable())
        m_thread.join();
}

void LineReader::read(int descriptor)
{
    std::FILE* const file = fdopen(descriptor, "r");
    char* text = nullptr;
    std::size_t capacity = 0;
    for (ssize_t length = getline(&text, &capacity, file); length > 0; length = getline(&text, &capacity, file)) {
        std::string line(text, static_cast<std::size_t>(length));
        if (line.back() == '\n')
            line.pop_back();
        if (m_isOfInterest && !m_isOfInterest(line))
            continue;
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.push_back(std::move(line));
        m_changed.notify_all();
    }
    std::free(text);
    std::fclose(file);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_ended = true;
    m_changed.notify_all();
}

bool LineReader::take(const Filter& matches, std::chrono::milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        const auto found = std::find_if(m_lines.begin(), m_lines.end(), matches);
        if (found != m_lines.end()) {
            m_lines.erase(found);
            return true;
        }
        if (m_ended || m_changed.wait_until(lock, end) == std::cv_status::timeout)
            return false;
    }
}

bool LineReader::take(const std::string& line, std::chrono::milliseconds limit)
{
    return take([&line](const std::string& candidate) { return candidate == line; }, limit);
}

std::vector<std::string> LineReader::takeRest()
{
    if (m_thread.joinable())
        m_thread.join();
    return std::move(m_lines);
}

std::vector<std::string> LineReader::getLines() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

} // namespace Vantor
