#pragma once

#include "libMorvaneHostUsb/Log.h"

namespace Vantor {

// Any thread may set the level while others read it.
inline bool isLogged(int level)
{
    return __atomic_load_n(&logLevel, __ATOMIC_RELAXED) >= level;
}

namespace LogOutput {

// One message, as printf writes it; its newline is in the format.
void print(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Source position and message are two lock periods on standard output; another thread's
// line may fall between.
void trace(const char* file, int line, const char* format, ...) __attribute__((format(printf, 3, 4)));

} // namespace LogOutput

} // namespace Vantor

// Macros, because the arguments must not be evaluated when the level is not reached.
#define MORVANE_LOG(level, ...)                                                                                        \
    do {                                                                                                               \
        if (::Vantor::isLogged(level))                                                                                 \
            ::Vantor::LogOutput::print(level, __VA_ARGS__);                                                            \
    } while (false)

// A whole line: the newline is added.
#define MORVANE_LOG_LINE(level, text) MORVANE_LOG(level, "%s\n", text)

#define MORVANE_TRACE(...)                                                                                             \
    do {                                                                                                               \
        if (::Vantor::isLogged(::Vantor::LogLevel::Trace))                                                             \
            ::Vantor::LogOutput::trace(__FILE__, __LINE__, __VA_ARGS__);                                               \
    } while (false)

#define MORVANE_TRACE_LINE(text) MORVANE_TRACE("%s\n", text)
