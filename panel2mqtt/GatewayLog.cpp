#include "panel2mqtt/GatewayLog.h"

#include <chrono>
#include <cstdlib>

#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

namespace Vantor {

namespace {

const char* levelName(GatewayLog::Level level)
{
    switch (level) {
    case GatewayLog::Level::Error:
        return "error";
    case GatewayLog::Level::Warning:
        return "warning";
    case GatewayLog::Level::Info:
        break;
    }
    return "info";
}

char journalPriority(GatewayLog::Level level)
{
    return level == GatewayLog::Level::Error ? '3' : level == GatewayLog::Level::Warning ? '4' : '6';
}

// The variable is left when a shell has led standard error somewhere else.
bool isErrorJournal()
{
    const char* const journal = std::getenv("JOURNAL_STREAM"); // NOLINT(concurrency-mt-unsafe): nobody sets it
    struct stat facts {};
    return journal != nullptr && fstat(STDERR_FILENO, &facts) == 0 &&
           std::to_string(facts.st_dev) + ':' + std::to_string(facts.st_ino) == journal;
}

std::string asJsonLine(GatewayLog::Level level, const std::string& text)
{
    const std::chrono::duration<double> now = std::chrono::system_clock::now().time_since_epoch();
    const nlohmann::ordered_json json{
        {"event", "log"}, {"time", now.count()}, {"level", levelName(level)}, {"text", text}};
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

} // namespace

GatewayLog::GatewayLog(bool isJson) : m_isJson(isJson), m_isJournal(isErrorJournal()) {}

void GatewayLog::say(Level level, const std::string& text) const
{
    std::string line;
    if (m_isJournal)
        line = {'<', journalPriority(level), '>'};
    line += m_isJson ? asJsonLine(level, text) : m_isJournal ? text : "panel2mqtt: " + text;
    line += '\n';
    if (write(STDERR_FILENO, line.data(), line.size()) < 0) {
        // Nobody is left to tell.
    }
}

} // namespace Vantor
