#include "simulator/usbip/VhciPorts.h"

#include "simulator/bus/UserText.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace Vantor {

namespace {

constexpr unsigned int freeState = 4;
constexpr unsigned int device = 0x10002; // a bus and a device on it; the kernel repeats it in every message
constexpr unsigned int highSpeed = 3;
constexpr std::chrono::milliseconds patience{1000};
constexpr std::chrono::milliseconds pause{2};

[[noreturn]] void fail(const std::string& what)
{
    throw std::runtime_error(what);
}

[[noreturn]] void failToOpen(const std::string& file, int error)
{
    if (error == EACCES || error == EPERM)
        fail("only root may attach panels to the kernel's USB bus (" + UserText::shown(file) + ": " +
             std::generic_category().message(error) + ")");
    fail("cannot attach to the kernel's USB bus: " + UserText::shown(file) + ": " +
         std::generic_category().message(error));
}

} // namespace

VhciPorts::VhciPorts(std::string folder) : m_folder(std::move(folder)) {}

// Empty when there is no controller. A line is "hs  0000 004 000 00000000 000000 0-0": hub, port, state, speed, device,
// socket, and what the kernel calls the device. Each controller has a file of its own,
// "status", "status.1" and so on; ports are numbered through.
std::vector<VhciPorts::Port> VhciPorts::list() const
{
    std::vector<Port> ports;
    for (unsigned int controller = 0;; ++controller) {
        std::ifstream file(m_folder + "/status" + (controller == 0 ? "" : "." + std::to_string(controller)));
        if (!file)
            return ports;
        std::string line;
        while (std::getline(file, line)) {
            std::istringstream words(line);
            std::string hub;
            unsigned int number = 0;
            unsigned int state = 0;
            std::string speed;
            std::string id;
            std::string socket;
            std::string name;
            if (words >> hub >> number >> state >> speed >> id >> socket >> name && hub == "hs")
                ports.push_back({number, state == freeState, std::move(name)});
        }
    }
}

std::optional<VhciPorts::Port> VhciPorts::find(unsigned int number) const
{
    for (Port& port : list())
        if (port.number == number)
            return std::move(port);
    return std::nullopt;
}

unsigned int VhciPorts::attach(int socket, std::optional<unsigned int> preferred)
{
    std::vector<Port> ports = list();
    if (ports.empty())
        fail("this kernel has no virtual host controller: modprobe vhci-hcd (found none at " +
             UserText::shown(m_folder) + ")");
    const std::size_t number = ports.size();
    std::stable_partition(ports.begin(), ports.end(),
                          [preferred](const Port& port) { return port.number == preferred; });
    for (const Port& port : ports)
        if (port.isFree && tryAttach(socket, port.number))
            return port.number;
    fail("no free port: all " + std::to_string(number) +
         " high-speed ports of the kernel's virtual host controllers are taken");
}

// False when another program was quicker.
bool VhciPorts::tryAttach(int socket, unsigned int port) const
{
    const std::string file = m_folder + "/attach";
    const int attachFile = open(file.c_str(), O_WRONLY | O_CLOEXEC);
    if (attachFile < 0)
        failToOpen(file, errno);
    const std::string line = std::to_string(port) + " " + std::to_string(socket) + " " + std::to_string(device) + " " +
                             std::to_string(highSpeed);
    const bool isTaken = write(attachFile, line.data(), line.size()) == static_cast<ssize_t>(line.size());
    const int error = errno;
    close(attachFile);
    if (isTaken)
        return true;
    if (const auto now = find(port); error == EBUSY || (now && !now->isFree))
        return false;
    fail("the kernel refuses a panel at vhci port " + std::to_string(port) + ": " +
         std::generic_category().message(error));
}

void VhciPorts::awaitFree(unsigned int port)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    for (auto now = find(port); now && !now->isFree && std::chrono::steady_clock::now() < end; now = find(port))
        std::this_thread::sleep_for(pause);
}

std::string VhciPorts::findDevice(unsigned int port)
{
    const auto found = find(port);
    return found && !found->isFree && found->device != "0-0" ? found->device : std::string();
}

} // namespace Vantor
