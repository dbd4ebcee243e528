#include "demo/LoadStream.h"

#include "demo/DemoRecords.h"

namespace Vantor {

LoadStream::LoadStream(const Panel& panel) : m_panel(panel), m_nextStart(Clock::now()) {}

void LoadStream::step()
{
    if (m_batch) {
        if (!m_batch->isTaken())
            return;
        m_taken += batchSize;
        m_batch.reset();
    }
    if (m_isFinishing || !m_panel.isAlive() || Clock::now() < m_nextStart)
        return;
    m_nextStart = Clock::now() + batchPeriod;
    m_batch.emplace(m_panel);
    for (std::uint32_t i = 0; i < batchSize; ++i)
        DemoRecords::give(*m_batch, static_cast<std::uint32_t>(m_given++));
}

} // namespace Vantor
