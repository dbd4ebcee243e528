#pragma once

#include "libMorvaneHostUsb/PriorityPacker.h"

#include <functional>

namespace Vantor {

// Counts what the packer tells, and does more if asked to.
class CountingObserver : public PriorityPacker::Observer {
public:
    void onPackerHasChanged() override
    {
        ++m_calls;
        if (m_onCall)
            m_onCall();
    }

    int m_calls = 0;
    std::function<void()> m_onCall;
};

} // namespace Vantor
