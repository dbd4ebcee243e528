#pragma once

#include "libMorvaneHostUsb/Export.h"

#include <mutex>

namespace Vantor {

// Verbosity of the library's log, which goes to standard output.
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

// Held around each single output call of the library, and around nothing else. A
// program that writes to standard output itself may hold it to keep its lines
// whole; it is the innermost lock, so call nothing of the library meanwhile.
MORVANE_API extern std::mutex s_logMutex;

// Stores `level` as it is. Any thread, never blocks; other threads see the change
// with one of their next messages.
MORVANE_API void setLogLevel(LogLevel::Level level);

} // namespace Vantor
