#include "panelctl/flash/FlashCommand.h"

#include "panelctl/flash/FlashDiagnosis.h"
#include "panelctl/flash/FlashRun.h"
#include "panelctl/session/Diagnosis.h"
#include "panelctl/session/Question.h"
#include "panelctl/session/Session.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Interrupt.h"
#include "panelctl/terminal/Output.h"
#include "panelctl/terminal/Wording.h"
#include "protocol/FirmwareData.h"

namespace Vantor {

namespace {

std::optional<FirmwareImage> readImage(const char* option, const std::optional<std::string>& path)
{
    return path ? std::optional(FirmwareImage(option, *path)) : std::nullopt;
}

std::string describeTime(std::chrono::seconds time)
{
    if (time < std::chrono::minutes(2))
        return std::to_string(time.count()) + " s";
    return std::to_string(std::chrono::ceil<std::chrono::minutes>(time).count()) + " min";
}

std::string describeImage(const std::optional<FirmwareImage>& image)
{
    return image ? image->describe() : "left as it is";
}

} // namespace

FlashCommand::FlashCommand(const Options& options)
    : m_options(options), m_images{readImage("--main", options.mainFile), readImage("--servo", options.servoFile)}
{
    if (!m_images.main && !m_images.servo)
        throw Failure(ExitCode::Usage, "flash: name the firmware with --main, --servo or both.");
}

std::set<std::string> FlashCommand::getExpectedLogLines() const
{
    // What the library says of an image that is not there, which is how to leave an MCU
    // alone, and the empty lines behind its write failures.
    return {"[libusb] > Error opening file=", ""};
}

void FlashCommand::run(Session& session, Output& output)
{
    output.tolerateFailures(); // a reader that has gone is no reason to leave a panel half written
    std::optional<Panel> panel = prepare(session, output);
    const std::string name = panel->getName();
    const std::string place = panel->getPlace();
    write(session, output, *panel);
    panel.reset(); // or a panel that restarts would come back under another uid
    requireAnswer(session, output, name, place);
    if (!output.getTrouble().empty())
        printError(explainUnreadOutput(name, output.getTrouble()));
}

Panel FlashCommand::prepare(Session& session, Output& output) const
try {
    Panel panel = session.awaitInformation(session.choosePanel(m_options.panel), m_options.informationLimit);
    refuseUnflashable(panel);
    describe(panel, output);
    confirm(output);
    requireUnchanged(panel);
    return panel;
} catch (const Interrupted& interrupted) {
    throw Interrupted(interrupted.getSignal(), "interrupted: nothing was sent.");
}

void FlashCommand::refuseUnflashable(const Panel& panel) const
{
    if (panel.getPayloadLimit() < sizeof(FirmwareData))
        throw Failure(ExitCode::Failed, explainTooSmallPackets(panel));
}

void FlashCommand::describe(const Panel& panel, Output& output) const
{
    output.line("panel     %s (%s), %s", panel.getUidText().c_str(), panel.getPlace().c_str(),
                panel.getDescription().c_str());
    output.line("main      %s", describeImage(m_images.main).c_str());
    output.line("servo     %s", describeImage(m_images.servo).c_str());
    output.line("time      about %s", describeTime(m_images.estimateTime()).c_str());
}

void FlashCommand::confirm(Output& output) const
{
    if (m_options.isConfirmed)
        return;
    if (!Question::isPossible(output))
        throw Failure(ExitCode::Usage, "flash: nobody can be asked, as standard input and output are not both a "
                                       "terminal. Nothing was sent.\nAdd --yes to flash without a question.");
    if (!Question::isAnsweredYes(output, "Write this, and leave the panel plugged in meanwhile?"))
        throw Failure(ExitCode::Failed, "not confirmed: nothing was sent.");
}

// After the question, which may have been open for long.
void FlashCommand::requireUnchanged(const Panel& panel) const
{
    for (const auto* const image : {&m_images.main, &m_images.servo})
        if (*image)
            (*image)->requireUnchanged();
    if (!panel.isAlive())
        throw Failure(ExitCode::PanelLeft, explainLeft(panel) + " Nothing was sent.");
}

void FlashCommand::write(Session& session, Output& output, const Panel& panel) const
{
    const std::string name = panel.getName();
    const auto start = Session::Clock::now();
    FlashRun run(panel, m_images);
    try {
        const Interrupt::Reprieve reprieve;
        switch (run.run(session, output, m_options.patience)) {
        case FlashRun::End::Finished:
            break;
        case FlashRun::End::Left:
            throw Failure(ExitCode::PanelLeft, explainPulled(name, run.getState()));
        case FlashRun::End::Stuck:
            throw Failure(ExitCode::HalfWritten, explainStuck(name, run.getState(), m_options.patience));
        }
    } catch (const Interrupted& interrupted) {
        throw Interrupted(interrupted.getSignal(), explainInterrupted(name, run.getState()));
    }
    if (run.getReplies().findUnconfirmed(m_images))
        throw Failure(ExitCode::HalfWritten, explainUnconfirmed(name, run.getState()));
    const double seconds = std::chrono::duration<double>(Session::Clock::now() - start).count();
    output.line("written   %s, each chunk confirmed, in %.1f s", formatNumber(m_images.getTotal(), "byte").c_str(),
                seconds);
    const std::string troubles = run.getReplies().describeTroubles();
    if (!troubles.empty())
        output.line("replies   %s", troubles.c_str());
}

void FlashCommand::requireAnswer(Session& session, Output& output, const std::string& panel,
                                 const std::string& place) const
{
    output.line("waiting   for the panel to answer (%s at most)", formatSeconds(m_options.patience).c_str());
    try {
        if (!session.answersAnew(place, m_options.patience))
            throw Failure(ExitCode::NotAnswering,
                          explainNoAnswer(panel, !session.isAttached(place), m_options.patience));
    } catch (const Interrupted& interrupted) {
        throw Interrupted(interrupted.getSignal(), explainUnasked(panel));
    }
    output.line("answers   yes");
}

} // namespace Vantor
