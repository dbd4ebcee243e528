#include "simulator/panel/BootFaultPlan.h"

namespace Vantor {

void BootFaultPlan::add(const BootFault& fault)
{
    if (fault.sticky)
        m_sticky = fault;
    else
        m_once.push_back(fault);
}

void BootFaultPlan::clear()
{
    m_once.clear();
    m_sticky.reset();
}

std::optional<BootFault> BootFaultPlan::meet()
{
    if (!m_once.empty()) {
        const BootFault first = m_once.front();
        if (first.skip == 0) {
            m_once.pop_front();
            return first;
        }
        --m_once.front().skip;
    }
    if (m_sticky && m_sticky->skip != 0) {
        --m_sticky->skip;
        return std::nullopt;
    }
    return m_sticky;
}

} // namespace Vantor
