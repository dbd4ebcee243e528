#pragma once

#include "simulator/panel/BootFault.h"

#include <deque>
#include <optional>

namespace Vantor {

// The faults asked of a boot loader. Those for one record wait in line and come first:
// the records that one skips are counted from when those before it are used up. A
// record that none of them meets goes to the sticky one, the latest, if there is one.
//
// Threads: one at a time.
class BootFaultPlan {
public:
    void add(const BootFault& fault);
    void clear();

    // A record has come: the fault that it meets. One for one record is used up.
    std::optional<BootFault> meet();

private:
    std::deque<BootFault> m_once;
    std::optional<BootFault> m_sticky;
};

} // namespace Vantor
