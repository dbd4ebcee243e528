#include "panel2mqtt/broker/EchoProbe.h"

#include <algorithm>

namespace Vantor {

EchoProbe::Step EchoProbe::poll(TimePoint now, TimePoint lastWriting)
{
    const auto quiet = now - std::max(m_last, lastWriting);
    const bool hasReason =
        m_unheard > 0 || m_received >= messagesToTry || (m_received > 0 && quiet >= m_pace.confirmTime);
    if (quiet < m_pace.echoTime || !hasReason)
        return Step::None;
    if (m_unheard == mostUnheard)
        return Step::GiveUp;
    ++m_unheard;
    m_received = 0;
    m_last = now;
    return Step::Send;
}

} // namespace Vantor
