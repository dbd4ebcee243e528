#include "panel2mqtt/GatewayLog.h"

#include <chrono>
#include <cstdlib>

#include <nlohmann/json.hpp>
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

std::string asJsonLine(GatewayLog::Level level, const std::string& text)
{
    const std::chrono::duration<double> now = std::chrono::system_clock::now().time_since_epoch();
    const nlohmann::ordered_json json{
        {"event", "log"}, {"time", now.count()}, {"level", levelName(level)}, {"text", text}};
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

} // namespace

GatewayLog::GatewayLog(bool isJson)
    : m_isJson(isJson),
      m_isJournal(std::getenv("JOURNAL_STREAM") != nullptr) // NOLINT(concurrency-mt-unsafe): nobody sets it
{}

void GatewayLog::say(Level level, const std::string& text) const
{
    std::string line;
    if (m_isJson)
        line = asJsonLine(level, text);
    else if (m_isJournal)
        line = std::string{'<', journalPriority(level), '>'} + text;
    else
        line = "panel2mqtt: " + text;
    line += '\n';
    if (write(STDERR_FILENO, line.data(), line.size()) < 0) {
        // Nobody is left to tell.
    }
}

} // namespace Vantor
