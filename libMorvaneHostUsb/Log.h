#pragma once

#include "libMorvaneHostUsb/Export.h"

#include <functional>
#include <mutex>
#include <string_view>

namespace Vantor {

// Verbosity of the library's log, which goes to standard output or to a LogSink.
namespace LogLevel {
enum Level : int {
    Silent = 0, // nothing is printed, nor at negative values
    Quiet = 1,  // nothing is printed either: no message has this level
    Error = 2,  // failures and refused requests
    Info = 3,   // summaries; the level at start
    Detail = 4, // per-packet detail
    Trace = 5,  // transfers and object lifetimes, with source positions; so do higher values
};
} // namespace LogLevel

// The current level. Set it with setLogLevel; reading is safe from any thread
// only through the library's own messages.
MORVANE_API extern int logLevel;

// Held around each single output call of the library, or call of the LogSink, and around
// nothing else. A program that writes to standard output itself may hold it to keep its
// lines whole; it is the innermost lock, so call nothing of the library meanwhile.
MORVANE_API extern std::mutex s_logMutex;

// Stores `level` as it is. Any thread, never blocks; other threads see the change
// with one of their next messages.
MORVANE_API void setLogLevel(LogLevel::Level level);

// What takes the library's messages in place of standard output: the level of a message,
// from Error to Trace, and its text, without the newline at the end and valid during the
// call. A trace has its source position in front.
//
// It runs on whichever thread the message comes from, the library's or one that calls the
// library; one call at a time, with s_logMutex held, and mostly with a lock of a panel or
// of the manager as well. What waits in it makes that panel, and perhaps all of them, wait.
// So it may call setLogLevel and setLogSink, and nothing else of the library; it must not
// take s_logMutex, which it has, nor throw.
using LogSink = std::function<void(LogLevel::Level level, std::string_view text)>;

// Sets or changes the sink; an empty one brings standard output back. Any thread, at any
// time, the sink itself included. When it returns, an earlier sink runs no more, but for
// the call that this comes from; it waits for one under way on another thread, and drops
// the earlier sink, which may own what logs. One that is never removed may be called until the process ends.
MORVANE_API void setLogSink(LogSink sink);

} // namespace Vantor
