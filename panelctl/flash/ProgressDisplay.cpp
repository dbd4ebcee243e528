#include "panelctl/flash/ProgressDisplay.h"

#include "libMorvaneHostUsb/Log.h"
#include "panelctl/flash/FlashReports.h"
#include "panelctl/flash/ProgressBar.h"
#include "panelctl/terminal/Output.h"

namespace Vantor {

namespace {

constexpr unsigned int step = 5; // per cent

} // namespace

ProgressDisplay::ProgressDisplay(Output& output, const FirmwareImages& images)
    : m_output(output), m_images(images), m_meter(images.getTotal()), m_nextStep(step)
{
    // From level 4 on the library says too much for a bar.
    if (output.isText() && StatusLine::isPossibleOn(output.getDescriptor()) && logLevel < LogLevel::Detail)
        m_line.emplace(output.getDescriptor());
}

void ProgressDisplay::update(ProgressMeter::Time now, std::uint32_t bytes, std::chrono::nanoseconds silence)
{
    m_meter.note(now, bytes);
    if (m_line)
        m_line->show(ProgressBar::format(nameOf(m_images.locate(bytes).board), m_meter,
                                         {m_images.estimatePauses(bytes), silence}, m_line->getColumns()));
    else
        printSteps();
}

// A chunk may be worth several steps: one line then.
void ProgressDisplay::printSteps()
{
    const unsigned int percentage = m_meter.getPercentage();
    if (percentage < m_nextStep)
        return;
    m_nextStep = percentage - percentage % step + step;
    m_output.report(ProgressReport(m_meter, m_images));
}

} // namespace Vantor
