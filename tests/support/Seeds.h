#pragma once

#include <cstdlib>

#include <gtest/gtest.h>

namespace Vantor {

// Runs the schedules of seeds 1 to `count` until one fails; MORVANE_SEED=N runs that of
// seed N alone.
template <typename Schedule> void runSeeds(unsigned int count)
{
    const char* const wanted = std::getenv("MORVANE_SEED");
    const auto only = static_cast<unsigned int>(wanted != nullptr ? std::strtoul(wanted, nullptr, 10) : 0);
    for (unsigned int seed = only != 0 ? only : 1; seed <= (only != 0 ? only : count); ++seed) {
        SCOPED_TRACE(testing::Message() << "replay with MORVANE_SEED=" << seed);
        Schedule(seed).run();
        if (testing::Test::HasFailure())
            return;
    }
}

} // namespace Vantor
