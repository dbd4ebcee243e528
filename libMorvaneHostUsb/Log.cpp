#include "libMorvaneHostUsb/LogOutput.h"
#include "libMorvaneHostUsb/ThreadAnnotations.h"

#include <cstdarg>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>

namespace Vantor {

int logLevel = LogLevel::Info;
std::mutex s_logMutex;

namespace {

using SharedSink = std::shared_ptr<const LogSink>;

// Null without a sink. Never destroyed: devices may log after main.
SharedSink& s_sink MORVANE_GUARDED_BY(s_logMutex) = *new SharedSink;

// This thread is in the sink, and has s_logMutex.
thread_local bool s_insideSink = false;

std::string formatted(const char* format, std::va_list arguments)
{
    std::va_list again;
    va_copy(again, arguments);
    char buffer[256];
    const int length = std::vsnprintf(buffer, sizeof buffer, format, arguments);
    std::string text;
    if (length >= 0 && static_cast<std::size_t>(length) < sizeof buffer) {
        text.assign(buffer, static_cast<std::size_t>(length));
    } else if (length > 0) {
        text.resize(static_cast<std::size_t>(length));
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    return text;
}

void tell(int level, std::string_view text) noexcept MORVANE_REQUIRES(s_logMutex)
{
    // A share keeps a sink that replaces itself until it returns.
    const SharedSink sink = s_sink; // NOLINT(performance-unnecessary-copy-initialization)
    while (!text.empty() && text.back() == '\n')
        text.remove_suffix(1);
    s_insideSink = true;
    (*sink)(static_cast<LogLevel::Level>(level), text);
    s_insideSink = false;
}

} // namespace

void setLogLevel(LogLevel::Level level)
{
    __atomic_store_n(&logLevel, static_cast<int>(level), __ATOMIC_RELAXED);
}

// Not analysed: the sink's own thread has the mutex already.
void setLogSink(LogSink sink) MORVANE_NO_THREAD_SAFETY_ANALYSIS
{
    SharedSink next = sink ? std::make_shared<const LogSink>(std::move(sink)) : nullptr;
    if (s_insideSink) {
        s_sink.swap(next);
        return;
    }
    // The earlier one goes after the lock: it may own what logs.
    const std::lock_guard<std::mutex> lock(s_logMutex);
    s_sink.swap(next);
}

void LogOutput::print(int level, const char* format, ...)
{
    // What a sink does must not come back to it.
    if (s_insideSink)
        return;
    std::va_list arguments;
    va_start(arguments, format);
    {
        const std::lock_guard<std::mutex> lock(s_logMutex);
        if (s_sink)
            tell(level, formatted(format, arguments));
        else
            std::vprintf(format, arguments);
    }
    va_end(arguments);
}

void LogOutput::printLine(int level, const char* text)
{
    if (s_insideSink)
        return;
    const std::lock_guard<std::mutex> lock(s_logMutex);
    if (s_sink)
        tell(level, text);
    else
        std::puts(text);
}

void LogOutput::trace(const char* file, int line, const char* format, ...)
{
    if (s_insideSink)
        return;
    std::va_list arguments;
    va_start(arguments, format);
    {
        const std::lock_guard<std::mutex> lock(s_logMutex);
        if (!s_sink)
            std::printf("%s:%d: ", file, line);
    }
    {
        const std::lock_guard<std::mutex> lock(s_logMutex);
        if (s_sink)
            tell(LogLevel::Trace, std::string(file) + ':' + std::to_string(line) + ": " + formatted(format, arguments));
        else
            std::vprintf(format, arguments);
    }
    va_end(arguments);
}

} // namespace Vantor
