#include "panelctl/session/Handover.h"

#include "panelctl/session/Diagnosis.h"
#include "panelctl/session/Session.h"
#include "panelctl/terminal/Failure.h"

#include <algorithm>

namespace Vantor {

namespace {

// The library does not announce what has left, so its counter is read this often.
constexpr std::chrono::microseconds readStep{50};

} // namespace

std::uint64_t Handover::getTakenBytes()
{
    const std::uint32_t counter = m_panel.getSentBytes();
    m_bytes += static_cast<std::uint32_t>(counter - m_counter);
    m_counter = counter;
    return m_bytes;
}

void Handover::await(Session& session, const std::vector<std::uint64_t>& ends, std::chrono::nanoseconds limit,
                     const Wording& wording, const std::string& note)
{
    const std::uint64_t bytes = ends.empty() ? 0 : ends.back();
    const auto isCutShort = [this, &ends, bytes] {
        const std::uint64_t taken = getTakenBytes();
        return taken != 0 && taken < bytes && !std::binary_search(ends.begin(), ends.end(), taken);
    };
    session.waitUntil(Session::Clock::now() + limit, readStep,
                      [&] { return isTaken(bytes) || isCutShort() || !m_panel.isAlive(); });
    if (isTaken(bytes))
        return;
    if (isCutShort())
        throw Failure(ExitCode::Failed, FailureKind::cutShort,
                      wording.explainCutShort(m_panel, getTakenBytes(), bytes) + note);
    if (!m_panel.isAlive())
        throw Failure(ExitCode::PanelLeft, FailureKind::panelLeft,
                      explainLeft(m_panel) + "\nThe " + wording.thing + " was on its way: " + wording.doubt +
                          " is not known." + note,
                      m_panel.getReason());
    throw Failure(ExitCode::TimedOut, explainNotTaken(m_panel, wording.thing, getTakenBytes(), bytes, limit) + note);
}

} // namespace Vantor
