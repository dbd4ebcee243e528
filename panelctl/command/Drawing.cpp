#include "panelctl/command/Drawing.h"

#include "panelctl/session/Diagnosis.h"

#include <utility>

namespace Vantor {

Drawing::Drawing(const Panel& panel, std::vector<ClientLcdBitmap> layers)
    : m_layers(std::move(layers)), m_forecast(panel.getInformation().value_or(DeviceInformation{}), m_layers),
      m_handover(panel)
{}

void Drawing::hold()
{
    PriorityPacker& packer = m_handover.getPacker();
    packer.lockLcd(m_layers.front().lcd);
    for (const ClientLcdBitmap& layer : m_layers)
        packer.drawBitmapData(layer);
}

void Drawing::release()
{
    m_handover.getPacker().unlockLcd(m_layers.front().lcd);
}

void Drawing::await(Session& session, std::chrono::nanoseconds limit)
{
    constexpr Handover::Wording wording{"picture", "how much of it the panel shows", explainPictureCutShort};
    m_handover.await(session, m_forecast.getEnds(), limit, wording);
}

} // namespace Vantor
