#include "panelctl/flash/FlashCommand.h"

#include "panelctl/flash/FlashDiagnosis.h"
#include "panelctl/flash/FlashReports.h"
#include "panelctl/flash/FlashRun.h"
#include "panelctl/session/Diagnosis.h"
#include "panelctl/session/Question.h"
#include "panelctl/session/Session.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Interrupt.h"
#include "panelctl/terminal/Output.h"

namespace Vantor {

namespace {

std::optional<FirmwareImage> readImage(const char* option, const std::optional<std::string>& path)
{
    return path ? std::optional(FirmwareImage(option, *path)) : std::nullopt;
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
    // What the library says of an image that is not there, which is how to leave an MCU alone.
    return {"[libusb] > Error opening file="};
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
    output.report(PlanReport(panel, m_images));
    confirm(output);
    requireUnchanged(panel);
    return panel;
} catch (const Interrupted& interrupted) {
    throw Interrupted(interrupted.getSignal(), "interrupted: nothing was sent.");
}

void FlashCommand::refuseUnflashable(const Panel& panel) const
{
    if (panel.getPacketLimit() < Panel::firmwarePacketSize)
        throw Failure(ExitCode::Failed, FailureKind::tooLarge, explainTooSmallPackets(panel));
}

void FlashCommand::confirm(Output& output) const
{
    if (m_options.isConfirmed)
        return;
    if (!output.isText())
        throw Failure(ExitCode::Usage, "flash: nobody is asked with --json. Nothing was sent.\nAdd --yes.");
    if (!Question::isPossible(output))
        throw Failure(ExitCode::Usage, "flash: nobody can be asked, as standard input and output are not both a "
                                       "terminal. Nothing was sent.\nAdd --yes to flash without a question.");
    if (!Question::isAnsweredYes(output, "Write this, and leave the panel plugged in meanwhile?"))
        throw Failure(ExitCode::Failed, FailureKind::notConfirmed, "not confirmed: nothing was sent.");
}

// After the question, which may have been open for long.
void FlashCommand::requireUnchanged(const Panel& panel) const
{
    for (const auto* const image : {&m_images.main, &m_images.servo})
        if (*image)
            (*image)->requireUnchanged();
    if (!panel.isAlive())
        throw Failure(ExitCode::PanelLeft, FailureKind::panelLeft, explainLeft(panel) + " Nothing was sent.",
                      panel.getReason());
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
            throw Failure(ExitCode::PanelLeft, FailureKind::panelLeft,
                          explainPulled(name, explainEnd(panel), run.getState()), panel.getReason());
        case FlashRun::End::Stuck:
            throw Failure(ExitCode::HalfWritten, explainStuck(name, run.getState(), m_options.patience));
        }
    } catch (const Interrupted& interrupted) {
        throw Interrupted(interrupted.getSignal(), explainInterrupted(name, run.getState()));
    }
    if (run.getReplies().findUnconfirmed(m_images))
        throw Failure(ExitCode::HalfWritten, explainUnconfirmed(name, run.getState()));
    output.report(WrittenReport(m_images, run.getReplies(), Session::Clock::now() - start));
}

void FlashCommand::requireAnswer(Session& session, Output& output, const std::string& panel,
                                 const std::string& place) const
{
    output.report(WaitingReport(m_options.patience));
    try {
        if (!session.answersAnew(place, m_options.patience))
            throw Failure(ExitCode::NotAnswering,
                          explainNoAnswer(panel, !session.isAttached(place), m_options.patience));
    } catch (const Interrupted& interrupted) {
        throw Interrupted(interrupted.getSignal(), explainUnasked(panel));
    }
    output.report(AnswersReport());
}

} // namespace Vantor
