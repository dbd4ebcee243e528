#include "panelctl/flash/FlashRun.h"

#include "panelctl/flash/ProgressDisplay.h"
#include "panelctl/terminal/Interrupt.h"
#include "panelctl/terminal/Output.h"

namespace Vantor {

namespace {

// The library does not announce the end, and the display wants to be redrawn.
constexpr std::chrono::milliseconds readStep{100};

std::string pathOf(const std::optional<FirmwareImage>& image)
{
    return image ? image->getPath() : ""; // which opens nothing: that MCU is left alone
}

} // namespace

FlashRun::FlashRun(const Panel& panel, const FirmwareImages& images)
    : m_panel(panel), m_images(images), m_written(std::make_shared<std::atomic<std::uint32_t>>(0))
{}

FlashRun::End FlashRun::run(Session& session, Output& output, std::chrono::nanoseconds patience)
{
    ProgressDisplay display(output, m_images);
    start();
    display.update(m_progressTime, 0, {});
    for (;;) {
        const bool isRunning = m_panel.getDevice().isUpdating();
        takeReplies(session);
        noteProgress();
        const auto now = Session::Clock::now();
        display.update(now, getWritten(), now - m_replyTime);
        if (!isRunning)
            return End::Finished;
        if (!m_panel.isAlive())
            return getWritten() >= m_images.getTotal() ? End::Finished : End::Left;
        if (now - m_progressTime > patience)
            return End::Stuck;
        warnOnceWhenInterrupted(output);
    }
}

std::uint32_t FlashRun::getWritten() const
{
    return *m_written;
}

FlashState FlashRun::getState() const
{
    return {m_images, m_replies, getWritten(), m_panel.getSentBytes() - m_progressSentBytes};
}

void FlashRun::start()
{
    m_progressTime = Session::Clock::now();
    m_replyTime = m_progressTime;
    m_progressSentBytes = m_panel.getSentBytes();
    m_panel.getDevice().startFirmwareUpgrade(
        pathOf(m_images.main), pathOf(m_images.servo),
        [written = m_written](const UsbDevice::FirmwareProgress& progress) { *written = progress.bytesWritten; });
}

// Until nothing more comes for a moment.
void FlashRun::takeReplies(Session& session)
{
    const auto end = Session::Clock::now() + readStep;
    while (const std::optional<PanelEvent> event = session.nextEvent(end))
        if (event->kind == PanelEvent::Kind::Packet && event->uid == m_panel.getUid() &&
            event->type == PacketType::FirmwareUpgradeCommand) {
            m_replies.take(event->payload);
            m_replyTime = event->time;
        }
}

void FlashRun::noteProgress()
{
    if (getWritten() == m_progressBytes)
        return;
    m_progressTime = Session::Clock::now();
    m_progressBytes = getWritten();
    m_replies.markProgress();
    m_progressSentBytes = m_panel.getSentBytes();
}

void FlashRun::warnOnceWhenInterrupted(Output& output)
{
    if (m_isWarned || !Interrupt::Reprieve::isUsed())
        return;
    m_isWarned = true;
    output.warn({"goes-on", warnOfInterrupt(m_panel.getName(), getState().isAllConfirmed(), Interrupt::getSignal()),
                 m_panel.getUidText()});
}

} // namespace Vantor
