#include "panelctl/command/Drawing.h"

#include "panelctl/session/Diagnosis.h"
#include "panelctl/session/Session.h"
#include "panelctl/terminal/Failure.h"

#include <utility>

namespace Vantor {

namespace {

// The library does not announce what has left, so its counter is read this often.
constexpr std::chrono::microseconds readStep{100};

} // namespace

Drawing::Drawing(const Panel& panel, std::vector<ClientLcdBitmap> layers)
    : m_panel(panel), m_layers(std::move(layers)),
      m_forecast(panel.getInformation().value_or(DeviceInformation{}), m_layers), m_taken(panel)
{}

void Drawing::hold()
{
    PriorityPacker& packer = m_panel.getDevice().getPacker();
    packer.lockLcd(m_layers.front().lcd);
    for (const ClientLcdBitmap& layer : m_layers)
        packer.drawBitmapData(layer);
}

void Drawing::release()
{
    m_panel.getDevice().getPacker().unlockLcd(m_layers.front().lcd);
}

void Drawing::await(Session& session, std::chrono::nanoseconds limit)
{
    session.waitUntil(Session::Clock::now() + limit, readStep,
                      [this] { return isTaken() || isCutShort() || !m_panel.isAlive(); });
    if (isTaken())
        return;
    if (isCutShort())
        throw Failure(ExitCode::Failed, m_panel.getName() +
                                            " has taken a packet of the picture in part only, so that rows of it are "
                                            "missing.\nA packet taken in part is not sent again, and nothing more of "
                                            "the picture is waited for. Check the panel's firmware.");
    if (!m_panel.isAlive())
        throw Failure(ExitCode::PanelLeft, explainLeft(m_panel) + "\nThe picture was on its way: how much of it the "
                                                                  "panel shows is not known.");
    throw Failure(ExitCode::TimedOut,
                  explainNotTaken(m_panel, "picture", getTakenBytes(), m_forecast.getBytes(), limit));
}

bool Drawing::isTaken()
{
    return !m_panel.getDevice().getPacker().hasMoreData() && getTakenBytes() >= m_forecast.getBytes();
}

// Packets are counted whole unless one is taken in part.
bool Drawing::isCutShort()
{
    const std::uint64_t taken = getTakenBytes();
    return taken < m_forecast.getBytes() && !m_forecast.isWhole(taken);
}

} // namespace Vantor
