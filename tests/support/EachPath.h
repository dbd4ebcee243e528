#pragma once

#include "libMorvaneHostUsb/imaging/Lanes.h"

#include <gtest/gtest.h>

namespace Vantor {

// Runs it with the byte lanes, where the processor has them, and without.
template <typename Run> void onEachPath(const Run& run)
{
    for (const bool areUsed : {true, false}) {
        SCOPED_TRACE(areUsed ? "with byte lanes, if there are any" : "without byte lanes");
        Lanes::use(areUsed);
        run();
    }
    Lanes::use(true);
}

} // namespace Vantor
