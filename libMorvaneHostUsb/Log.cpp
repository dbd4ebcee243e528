#include "libMorvaneHostUsb/LogOutput.h"
#include "libMorvaneHostUsb/ThreadAnnotations.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>

namespace Vantor {

int logLevel = LogLevel::Info;
std::mutex s_logMutex;

namespace {

using SharedSink = std::shared_ptr<const LogSink>;

// Null without a sink. Never destroyed: devices may log after main.
SharedSink& s_sink MORVANE_GUARDED_BY(s_logMutex) = *new SharedSink;

// This thread is in the sink, and has s_logMutex. Without the dynamic loader's help, as in EventPump.
[[gnu::tls_model("initial-exec")]] thread_local bool s_insideSink = false;

// The text of a message. Takes memory for a long one alone; what it can't get costs the end of
// that one, and nothing is thrown into whoever logs.
class Message {
public:
    Message(const char* format, std::va_list arguments) { append(format, arguments); }

    // With a source position in front.
    Message(const char* file, int line, const char* format, std::va_list arguments)
    {
        const int length = std::snprintf(m_buffer, sizeof m_buffer, "%s:%d: ", file, line);
        m_length = std::min(static_cast<std::size_t>(std::max(length, 0)), sizeof m_buffer - 1);
        append(format, arguments);
    }

    // Without the newline at the end, or the two.
    std::string_view getText() const
    {
        std::string_view text = m_long.empty() ? std::string_view(m_buffer, m_length) : m_long;
        while (!text.empty() && text.back() == '\n')
            text.remove_suffix(1);
        return text;
    }

private:
    void append(const char* format, std::va_list arguments)
    {
        std::va_list again;
        va_copy(again, arguments);
        const std::size_t room = sizeof m_buffer - m_length;
        const int length = std::vsnprintf(m_buffer + m_length, room, format, arguments);
        if (length >= 0 && static_cast<std::size_t>(length) < room)
            m_length += static_cast<std::size_t>(length);
        else if (length > 0)
            appendLong(format, again, static_cast<std::size_t>(length));
        va_end(again);
    }

    void appendLong(const char* format, std::va_list arguments, std::size_t length)
    {
        try {
            m_long.resize(m_length + length);
        } catch (const std::bad_alloc&) {
            m_length = sizeof m_buffer - 1;
            return;
        }
        std::memcpy(m_long.data(), m_buffer, m_length);
        std::vsnprintf(m_long.data() + m_length, length + 1, format, arguments);
    }

    char m_buffer[512];
    std::size_t m_length = 0;
    std::string m_long; // in place of the buffer, unless empty
};

void tell(const LogSink& sink, int level, const Message& message) noexcept MORVANE_REQUIRES(s_logMutex)
{
    s_insideSink = true;
    sink(static_cast<LogLevel::Level>(level), message.getText());
    s_insideSink = false;
}

// In the functions below a share of the sink, taken before the lock, is given back after it:
// it may be the last, as a sink may replace itself, and what that owns may log.
void say(SharedSink& sink, int level, const char* format, std::va_list arguments)
{
    const std::lock_guard<std::mutex> lock(s_logMutex);
    sink = s_sink;
    if (sink)
        tell(*sink, level, Message(format, arguments));
    else
        std::vprintf(format, arguments);
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
    SharedSink sink;
    std::va_list arguments;
    va_start(arguments, format);
    say(sink, level, format, arguments);
    va_end(arguments);
}

void LogOutput::trace(const char* file, int line, const char* format, ...)
{
    if (s_insideSink)
        return;
    SharedSink sink;
    std::va_list arguments;
    va_start(arguments, format);
    {
        const std::lock_guard<std::mutex> lock(s_logMutex);
        sink = s_sink;
        if (sink)
            tell(*sink, LogLevel::Trace, Message(file, line, format, arguments));
        else
            std::printf("%s:%d: ", file, line);
    }
    if (!sink) {
        const std::lock_guard<std::mutex> lock(s_logMutex);
        std::vprintf(format, arguments);
    }
    va_end(arguments);
}

} // namespace Vantor
