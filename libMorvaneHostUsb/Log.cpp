#include "libMorvaneHostUsb/Log.h"

namespace Vantor {

int logLevel = LogLevel::Info;
std::mutex s_logMutex;

void setLogLevel(LogLevel::Level level)
{
    __atomic_store_n(&logLevel, static_cast<int>(level), __ATOMIC_RELAXED);
}

} // namespace Vantor
