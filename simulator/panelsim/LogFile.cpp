#include "simulator/panelsim/LogFile.h"

#include "simulator/bus/UserText.h"
#include "simulator/panelsim/OutputFile.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace Vantor {

namespace {

std::string failure(const std::string& path, const std::string& cause)
{
    return "cannot write the log to '" + UserText::shown(path) + "': " + cause;
}

std::shared_ptr<std::FILE> openFile(const std::string& path)
{
    if (path == "-")
        return {stderr, [](std::FILE*) {}};
    try {
        return {OutputFile::open(path), std::fclose};
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(failure(path, error.what()));
    }
}

} // namespace

LogFile::LogFile(const std::string& path, Complain complain)
    : m_path(path), m_complain(std::move(complain)), m_file(openFile(path))
{}

void LogFile::write(const std::string& line)
{
    const Clock::time_point start = m_start;
    const Clock::time_point time = std::max(Clock::now(), start);
    const std::chrono::duration<double> now = time - start;
    const bool isWritten =
        std::fprintf(m_file.get(), "%12.6f %s\n", now.count(), line.c_str()) >= 0 && std::fflush(m_file.get()) == 0;
    const int error = errno;
    if (!isWritten && !m_hasFailed.exchange(true))
        m_complain(failure(m_path, std::generic_category().message(error)));
}

} // namespace Vantor
