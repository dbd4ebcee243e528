#include "simulator/usbfs/UsbfsNode.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace Vantor {

namespace {

int checked(int result, const char* what)
{
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return result;
}

// A terminal whose output is suspended is not writable.
int setOutput(int terminal, int action)
{
    return tcflow(terminal, action); // NOLINT(concurrency-mt-unsafe): glibc's is safe
}

} // namespace

// Delegates, so that the destructor closes what a failure leaves open.
UsbfsNode::UsbfsNode(const std::string& path) : UsbfsNode()
{
    m_master = checked(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "pseudo-terminal");
    checked(grantpt(m_master), "pseudo-terminal");
    checked(unlockpt(m_master), "pseudo-terminal");
    char name[64];
    if (const int error = ptsname_r(m_master, name, sizeof name); error != 0)
        throw std::system_error(error, std::generic_category(), "pseudo-terminal");
    m_slave = checked(open(name, O_RDWR | O_NOCTTY | O_CLOEXEC), name);
    checked(setOutput(m_slave, TCOOFF), name);
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::filesystem::create_symlink(name, path);
    m_path = path;
}

UsbfsNode::~UsbfsNode()
{
    hangUp();
}

void UsbfsNode::setReady(bool ready)
{
    if (ready == m_ready || m_slave < 0)
        return;
    setOutput(m_slave, ready ? TCOON : TCOOFF);
    m_ready = ready;
}

void UsbfsNode::hangUp()
{
    if (m_master < 0)
        return;
    std::error_code ignored; // there is none if its making failed
    std::filesystem::remove(m_path, ignored);
    close(m_master);
    close(m_slave);
    m_master = -1;
    m_slave = -1;
}

} // namespace Vantor
