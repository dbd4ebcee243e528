#include "simulator/panelsim/RunCommand.h"

#include "simulator/bus/UserText.h"
#include "simulator/panelsim/ControlPath.h"
#include "simulator/panelsim/ControlThread.h"
#include "simulator/panelsim/Simulation.h"
#include "simulator/usbfs/ClientProcess.h"
#include "simulator/usbfs/UsbfsBus.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace Vantor {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds patience{3}; // with a program that ignores a signal
constexpr Clock::time_point never = Clock::time_point::max();

sigset_t handledSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGCHLD);
    return signals;
}

// The next handled signal, 0 when there is none until `end`.
int waitForSignal(Clock::time_point end, siginfo_t& info)
{
    const sigset_t signals = handledSignals();
    if (end == never)
        return sigwaitinfo(&signals, &info);
    const auto left = std::max(std::chrono::nanoseconds(end - Clock::now()), std::chrono::nanoseconds(0));
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    const timespec timeout{seconds.count(), (left - seconds).count()};
    return std::max(sigtimedwait(&signals, &info, &timeout), 0);
}

// Until the program ends. A signal that a terminal sends reaches the program, too, so
// only others go on to it.
void attend(ClientProcess& program)
{
    Clock::time_point end = never;
    while (!program.hasEnded()) {
        siginfo_t info{};
        const int number = waitForSignal(end, info);
        if (number == SIGINT || number == SIGTERM) {
            if (info.si_code == SI_KERNEL)
                continue; // the program has it, too, and may want to be asked twice
            program.sendSignal(number);
            if (end == never)
                end = Clock::now() + patience;
        } else if (Clock::now() >= end) {
            program.sendSignal(SIGKILL);
            end = never;
        }
    }
}

UsbfsBus::Options usbfsOptions(const PanelsimOptions& options, Simulation& session)
{
    UsbfsBus::Options bus;
    session.setUp(bus);
    bus.scatterGather = options.scatterGather;
    bus.autosuspend = options.autosuspend;
    bus.kernelDriver = options.kernelDriver;
    return bus;
}

// An empty value is none.
void setVariable(std::vector<std::string>& environment, const char* name, const std::string& value)
{
    const std::string beginning = std::string(name) + "=";
    const auto isAnother = [&beginning](const std::string& text) { return text.rfind(beginning, 0) == 0; };
    environment.erase(std::remove_if(environment.begin(), environment.end(), isAnother), environment.end());
    if (!value.empty())
        environment.push_back(beginning + value);
}

// With the ways to its own simulation, and not to another one around it.
std::vector<std::string> environmentOf(const ControlSocket* control, const WebView::Server* web)
{
    constexpr char webVariable[] = "PANELSIM_WEB";
    std::vector<std::string> environment = UsbfsBus::getClientEnvironment();
    setVariable(environment, ControlPath::variable, control != nullptr ? control->getPath() : "");
    setVariable(environment, webVariable, web != nullptr ? web->getUrl() : "");
    return environment;
}

// What the program gets is how they were: umockdev ignores SIGPIPE for itself.
ClientProcess::Signals blockSignals(const sigset_t& signals)
{
    ClientProcess::Signals before{};
    sigemptyset(&before.defaulted);
    struct sigaction action = {};
    sigaction(SIGPIPE, nullptr, &action);
    if (action.sa_handler != SIG_IGN)
        sigaddset(&before.defaulted, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, &before.blocked);
    return before;
}

} // namespace

int runProgram(const PanelsimOptions& options)
{
    Simulation session(options);
    // Before there are threads, so that only waitForSignal takes these.
    std::signal(SIGCHLD, SIG_DFL);
    const sigset_t signals = handledSignals();
    const ClientProcess::Signals programsSignals = blockSignals(signals);

    UsbfsBus bus(usbfsOptions(options, session));
    const auto control = session.openControl([&bus](const std::string& line) { return Simulation::answer(bus, line); });
    session.begin(bus);
    const auto web = session.openWeb(
        [&bus](const std::function<void(PanelBus&)>& use) {
            use(bus);
            return true;
        },
        [&bus](const std::string& line) { return Simulation::answer(bus, line); });
    std::optional<ControlThread> controlThread;
    if (control)
        controlThread.emplace(*control);
    int exitCode = 0;
    try {
        ClientProcess program(options.program, environmentOf(control.get(), web.get()), programsSignals);
        if (web)
            web->start();
        session.schedule(bus);
        attend(program);
        exitCode = program.getExitCode();
    } catch (const std::system_error& error) {
        std::fprintf(stderr, "panelsim: cannot run %s: %s\n", UserText::shown(options.program.front()).c_str(),
                     error.code().message().c_str());
        return error.code() == std::errc::no_such_file_or_directory ? PanelsimExit::notFound
                                                                    : PanelsimExit::notExecutable;
    }
    bus.letGoOfClient();
    controlThread.reset();
    if (web)
        web->end();
    const int verdict = session.finish(bus);
    return verdict == 0 ? exitCode : verdict;
}

} // namespace Vantor
