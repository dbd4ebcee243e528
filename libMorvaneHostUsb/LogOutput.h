#pragma once

#include "libMorvaneHostUsb/Log.h"

#include <cstdio>
#include <mutex>

namespace Vantor {

// Any thread may set the level while others read it.
inline bool isLogged(int level)
{
    return __atomic_load_n(&logLevel, __ATOMIC_RELAXED) >= level;
}

} // namespace Vantor

// One locked output call each. Macros, because the arguments must not be
// evaluated when the level is not reached and the format stays checked.
#define MORVANE_LOG(level, ...)                                                                                        \
    do {                                                                                                               \
        if (::Vantor::isLogged(level)) {                                                                               \
            const std::lock_guard<std::mutex> logLock(::Vantor::s_logMutex);                                           \
            std::printf(__VA_ARGS__);                                                                                  \
        }                                                                                                              \
    } while (false)

// A whole line: the newline is added.
#define MORVANE_LOG_LINE(level, text)                                                                                  \
    do {                                                                                                               \
        if (::Vantor::isLogged(level)) {                                                                               \
            const std::lock_guard<std::mutex> logLock(::Vantor::s_logMutex);                                           \
            std::puts(text);                                                                                           \
        }                                                                                                              \
    } while (false)

// Source position and text are two lock periods; another thread's line may fall between.
#define MORVANE_TRACE(...)                                                                                             \
    do {                                                                                                               \
        MORVANE_LOG(::Vantor::LogLevel::Trace, "%s:%d: ", __FILE__, __LINE__);                                         \
        MORVANE_LOG(::Vantor::LogLevel::Trace, __VA_ARGS__);                                                           \
    } while (false)

#define MORVANE_TRACE_LINE(text)                                                                                       \
    do {                                                                                                               \
        MORVANE_LOG(::Vantor::LogLevel::Trace, "%s:%d: ", __FILE__, __LINE__);                                         \
        MORVANE_LOG_LINE(::Vantor::LogLevel::Trace, text);                                                             \
    } while (false)
