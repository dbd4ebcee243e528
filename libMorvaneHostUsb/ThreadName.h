#pragma once

#include <cstddef>
#include <string>

#include <pthread.h>

namespace Vantor {

inline void setCurrentThreadName(const std::string& name)
{
    constexpr std::size_t longestName = 15; // the kernel's limit
    pthread_setname_np(pthread_self(), name.substr(0, longestName).c_str());
}

} // namespace Vantor
