#include "simulator/panel/FaultPlan.h"

namespace Vantor {

void FaultPlan::add(const PanelFault& fault)
{
    if (fault.sticky)
        m_sticky = fault;
    else
        m_once.push_back(fault);
}

void FaultPlan::clear()
{
    m_once.clear();
    m_sticky.reset();
}

void FaultPlan::clearHalt()
{
    if (isHalted())
        m_sticky.reset();
}

bool FaultPlan::isHalted() const
{
    return m_sticky && m_sticky->kind == PanelFault::Kind::Stall;
}

const PanelFault* FaultPlan::next() const
{
    if (!m_once.empty())
        return &m_once.front();
    return m_sticky ? &*m_sticky : nullptr;
}

void FaultPlan::use()
{
    if (!m_once.empty())
        m_once.pop_front();
}

} // namespace Vantor
