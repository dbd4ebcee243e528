#include "simulator/panelsim/AttachCommand.h"

#include "simulator/panelsim/LineInput.h"
#include "simulator/panelsim/OrderLine.h"
#include "simulator/panelsim/Simulation.h"
#include "simulator/usbip/UsbIpBus.h"
#include "simulator/usbip/VhciPorts.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
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
void serveUntilTheEnd(UsbIpBus& bus, const EndSignals& signals, ControlSocket* control, const bool& isToldToQuit)
{
    LineInput input(STDIN_FILENO);
    const bool isTerminal = isatty(STDIN_FILENO) != 0;
    bool goesOn = true;
    while (goesOn && !isToldToQuit) {
        std::vector<pollfd> others{{signals.getDescriptor(), POLLIN, 0}, {input.getDescriptor(), POLLIN, 0}};
        const std::size_t ownOthers = others.size();
        if (control != nullptr)
            control->addDescriptors(others);
        bus.serve(others);
        if (control != nullptr)
            control->serve(others.data() + ownOthers);
        if (others[1].revents != 0)
            input.read();
        goesOn = takeLines(bus, input) && others[0].revents == 0 && !(isTerminal && input.hasEnded());
    }
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
    const auto control = session.openControl([&bus, &isToldToQuit](const std::string& line) {
        isToldToQuit = isToldToQuit || isQuit(line);
        return isQuit(line) ? "" : Simulation::answer(bus, line);
    });
    session.begin(bus);
    session.schedule(bus);
    serveUntilTheEnd(bus, signals, control.get(), isToldToQuit);
    bus.unplugAll();
    return session.finish(bus);
}

} // namespace Vantor
