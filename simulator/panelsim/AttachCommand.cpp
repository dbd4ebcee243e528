#include "simulator/panelsim/AttachCommand.h"

#include "simulator/panelsim/LineInput.h"
#include "simulator/panelsim/LoopCalls.h"
#include "simulator/panelsim/OrderLine.h"
#include "simulator/panelsim/Simulation.h"
#include "simulator/usbip/UsbIpBus.h"
#include "simulator/usbip/VhciPorts.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace Vantor {

namespace {

bool isIgnored(int signal)
{
    struct sigaction action = {};
    sigaction(signal, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

// The signals that end it, as something to poll.
class EndSignals {
public:
    EndSignals()
    {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGTERM);
        if (!isIgnored(SIGHUP)) // nohup; a blocked signal would come all the same
            sigaddset(&signals, SIGHUP);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        m_descriptor = signalfd(-1, &signals, SFD_CLOEXEC);
        if (m_descriptor < 0)
            throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    ~EndSignals() { close(m_descriptor); }
    EndSignals(const EndSignals&) = delete;
    EndSignals& operator=(const EndSignals&) = delete;

    int getDescriptor() const { return m_descriptor; }

private:
    int m_descriptor;
};

UsbIpBus::Options usbIpOptions(Simulation& session)
{
    UsbIpBus::Options bus;
    session.setUp(bus);
    bus.tell = [](const std::string& line) {
        std::printf("%s\n", line.c_str());
        std::fflush(stdout); // whoever waits for it may read from a pipe
    };
    return bus;
}

bool isQuit(const std::string& line)
{
    return OrderLine::contentOf(line) == "quit";
}

// False for the word that ends it all.
bool takeLine(UsbIpBus& bus, const std::string& line)
{
    if (isQuit(line))
        return false;
    const std::string text(OrderLine::contentOf(line));
    const std::string refusal = text.empty() ? "" : Simulation::carryOut(bus, text);
    if (!refusal.empty())
        std::fprintf(stderr, "panelsim: %s\n", refusal.c_str());
    return true;
}

bool takeLines(UsbIpBus& bus, LineInput& input)
{
    while (const auto line = input.takeLine())
        if (!takeLine(bus, *line))
            return false;
    return true;
}

// Until a signal, or somebody at the terminal, or a line says so. Where the input is no
// terminal its end only means that no more commands come; the same goes for a terminal at
// which somebody types for another program, this one being in the background.
void serveUntilTheEnd(UsbIpBus& bus, const EndSignals& signals, ControlSocket* control, LoopCalls& calls,
                      const bool& isToldToQuit)
{
    LineInput input(STDIN_FILENO);
    const bool isTerminal = isatty(STDIN_FILENO) != 0;
    bool goesOn = true;
    while (goesOn && !isToldToQuit) {
        std::vector<pollfd> others{{signals.getDescriptor(), POLLIN, 0},
                                   {input.getDescriptor(), POLLIN, 0},
                                   {calls.getDescriptor(), POLLIN, 0}};
        const std::size_t ownOthers = others.size();
        if (control != nullptr)
            control->addDescriptors(others);
        bus.serve(others);
        if (control != nullptr)
            control->serve(others.data() + ownOthers);
        if (others[1].revents != 0)
            input.read();
        if (others[2].revents != 0)
            calls.serve();
        goesOn = takeLines(bus, input) && others[0].revents == 0 && !(isTerminal && input.hasEnded());
    }
}

// Before the page goes, whose threads may wait for one.
class EndOfCalls {
public:
    explicit EndOfCalls(LoopCalls& calls) : m_calls(calls) {}
    ~EndOfCalls() { m_calls.end(); }
    EndOfCalls(const EndOfCalls&) = delete;
    EndOfCalls& operator=(const EndOfCalls&) = delete;

private:
    LoopCalls& m_calls;
};

std::unique_ptr<WebView::Server> openWeb(Simulation& session, UsbIpBus& bus, LoopCalls& calls,
                                         const WebView::Execute& execute)
{
    return session.openWeb(
        [&bus, &calls](const std::function<void(PanelBus&)>& use) { return calls.call([&bus, &use] { use(bus); }); },
        [&calls, execute](const std::string& line) {
            std::string complaint = "the simulation has ended";
            calls.call([&complaint, &execute, &line] { complaint = execute(line); });
            return complaint;
        });
}

} // namespace

int attachPanels(const PanelsimOptions& options)
{
    Simulation session(options);
    const EndSignals signals;
    // In the background of a terminal, reading from it fails rather than stops.
    std::signal(SIGTTIN, SIG_IGN);
    // Who waited for a line of the output may have gone; the panels and their flash stay.
    std::signal(SIGPIPE, SIG_IGN);
    VhciPorts ports(options.vhciFolder);
    UsbIpBus bus(usbIpOptions(session), ports);
    bool isToldToQuit = false;
    const auto execute = [&bus, &isToldToQuit](const std::string& line) {
        isToldToQuit = isToldToQuit || isQuit(line);
        return isQuit(line) ? "" : Simulation::answer(bus, line);
    };
    const auto control = session.openControl(execute);
    LoopCalls calls;
    session.begin(bus);
    const auto web = openWeb(session, bus, calls, execute);
    const EndOfCalls endOfCalls(calls);
    if (web)
        web->start();
    session.schedule(bus);
    serveUntilTheEnd(bus, signals, control.get(), calls, isToldToQuit);
    calls.end();
    bus.unplugAll();
    if (web)
        web->end();
    return session.finish(bus);
}

} // namespace Vantor
