#pragma once

#include <cstdio>
#include <cstdlib>

namespace Vantor {

// What a fuzz target asserts, in every build.
inline void require(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

} // namespace Vantor
